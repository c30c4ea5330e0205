#pragma once

#include <map>
#include <optional>
#include <span>
#include <string>

#include "Counter/Counter.h"
#include "Orb/Dir.h"
#include "VxlanController/QorEvpnValues.h"

/// In the place of VxlanController/QorEvpnBrine.h, for comparison: tables over `std::map` in the process,
/// which no other process sees and no crash survives. They count and notify as the shared ones do.
namespace QorEvpn {

template <class Row>
class StandardTable : public Orb::Entity {
 public:
  static constexpr bool isSubstitute = true;
  using Key = std::remove_cvref_t<decltype(std::declval<Row const&>().key())>;

  StandardTable(Orb::Name name, Orb::Attribute<Key> attribute)
      : Entity(std::move(name)),
        attribute_(attribute),
        isCounter_(this->name().text(), "is"),
        delCounter_(this->name().text(), "del"),
        notifyCounter_(this->name().text(), "notify") {}

  void handleCorruption(std::string const&) const {}

 protected:
  class Walk {
   public:
    Walk(StandardTable const& table, std::optional<Vxlan::Vni> vni) : table_(table), vni_(vni) {}
    Row const* next() {
      auto place = row_ ? table_.rows_.upper_bound(row_->key()) : table_.rows_.begin();
      while (vni_ && place != table_.rows_.end() && place->first.vni() != *vni_) ++place;
      if (place == table_.rows_.end()) return nullptr;
      row_ = place->second;
      return &*row_;
    }
    /// Nothing is ever damaged here.
    template <class Handle>
    Row const* next(Handle&&) {
      return next();
    }

   private:
    StandardTable const& table_;
    std::optional<Vxlan::Vni> vni_;
    std::optional<Row> row_;
  };

  Row row(Key const& key) const {
    auto const found = rows_.find(key);
    return found == rows_.end() ? Row() : found->second;
  }
  void rowIs(Row const& row) {
    isCounter_.increment();
    Key const key = row.key();
    rows_.insert_or_assign(key, row);
    rowNotify(key);
  }
  Row rowDel(Key const& key) {
    delCounter_.increment();
    auto const node = rows_.extract(key);
    if (node.empty()) return Row();
    rowNotify(key);
    return node.mapped();
  }
  void rowDelAll() {
    while (!rows_.empty()) rowDel(Key(rows_.begin()->first));
  }
  void rowNotify(Key const& key) {
    notifyCounter_.increment();
    notify(attribute_, key);
  }

 private:
  Orb::Attribute<Key> attribute_;
  Counter::Counter isCounter_, delCounter_, notifyCounter_;
  std::map<Key, Row> rows_;
};

class HostTable : public StandardTable<Host> {
 public:
  static constexpr Orb::Attribute<MacVniPair> hostAttr{256};
  explicit HostTable(Orb::Name name) : StandardTable(std::move(name), hostAttr) {}

  Host host(MacVniPair const& key) const { return row(key); }
  void hostIs(Host const& host) { rowIs(host); }
  Host hostDel(MacVniPair const& key) { return rowDel(key); }
  void hostDelAll() { rowDelAll(); }
  Walk hostWalk() const { return Walk(*this, std::nullopt); }
  Walk hostWalk(Vxlan::Vni vni) const { return Walk(*this, vni); }
  void hostStage(std::span<MacVniPair const>) const {}
};

class FloodTable : public StandardTable<FloodEntry> {
 public:
  static constexpr Orb::Attribute<VniVtepPair> floodEntryAttr{256};
  explicit FloodTable(Orb::Name name) : StandardTable(std::move(name), floodEntryAttr) {}

  FloodEntry floodEntry(VniVtepPair const& key) const { return row(key); }
  void floodEntryIs(FloodEntry const& entry) { rowIs(entry); }
  FloodEntry floodEntryDel(VniVtepPair const& key) { return rowDel(key); }
  void floodEntryDelAll() { rowDelAll(); }
  Walk floodEntryWalk() const { return Walk(*this, std::nullopt); }
  Walk floodEntryWalk(Vxlan::Vni vni) const { return Walk(*this, vni); }
  void floodEntryStage(std::span<VniVtepPair const>) const {}
};

}  // namespace QorEvpn
