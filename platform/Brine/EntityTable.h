#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Brine/BrineMap.h"
#include "Brine/CollectionControl.h"
#include "Counter/Counter.h"
#include "Orb/Type.h"

namespace Brine {

/// How an entity that presents a table calls its parts.
struct EntityTableNames {
  // Of its operation counters.
  std::string_view is;
  std::string_view del;
  std::string_view notify;
};

/// The default of `EntityTable::corruptionHandler`: traces on handle "Brine", level 0, and prints the first
/// report of a table and then ever rarer ones (the 2nd, 4th, 8th ...) to standard error. `reports` counts
/// this one too.
void reportTableCorruption(std::string const& table, std::string const& message, uint64_t reports);

/// The common part of entities that present a table of rows in shared memory. A class derived from it only
/// gives the operations their names.
///
/// Writes and removals notify synchronously, from the writing call; changes made by another process from
/// `deliver()`, and from a walk that meets a row before a delivery tells of it. In both reading modes each
/// observer is told of every difference, and of no absence whose presence it was not told: look-ups and
/// walks, by whomever, take no notification away. Operations count first, then act, then notify; the notify
/// counter comes after the notifiees. What a reactor of the control raises where a write begins a turn leaves
/// the write, which is done but not notified.
///
/// Ownership: the table owns its binding and counters. It holds its control by a counted reference; when the
/// last other reference to the table goes, the two change roles: the control gets a counted reference to the
/// table, the table drops the control. So the table dies at once if nobody holds the control, and with the
/// control otherwise.
template <TableRow Row_>
class EntityTable : public Orb::Entity {
 public:
  using Row = Row_;
  using Key = typename Codec<Row>::Key;

  // ---- Mounting, for the owner of the loop. See Brine/TableBase.h. ----

  /// Mounts the table, at the entity's place in its directory unless the options name another. Raises
  /// `StateError` if it is mounted already.
  MountStatus mount(MountOptions options) {
    Orb::Ptr<EntityTable> const self(this);
    return map_.mount(std::move(options));
  }
  void unmount() {
    Orb::Ptr<EntityTable> const self(this);
    map_.table().unmount();
  }
  MountStatus mountStatus() const { return rows().mountStatus(); }
  std::string const& mountDetail() const { return rows().mountDetail(); }
  /// Reader: readable when `deliver()` has something to do. -1 for a writer.
  int fd() const { return rows().fd(); }
  /// Reader: notifies of what changed since the last call, on this thread; with a `limit`, of a part of it
  /// (`Brine::Table::deliver`).
  DeliverResult deliver(uint64_t limit = UINT64_MAX) {
    Orb::Ptr<EntityTable> const self(this);
    return map_.deliver(limit);
  }
  /// Writer mounted with `MountOptions::turns`: to be called at the end of each turn of the owner's loop;
  /// wakes readers at most once. Other writers need not call it: each of their changes is announced at once.
  void endTurn() {
    Orb::Ptr<EntityTable> const self(this);
    map_.table().endTurn();
  }
  /// Writer: drops damaged rows.
  void recover() {
    Orb::Ptr<EntityTable> const self(this);
    map_.table().recover();
  }
  Statistics statistics() const { return rows().statistics(); }
  std::vector<Violation> check() const { return rows().check(); }

  /// Whether `deliver()` delivers; on from the start. What changes meanwhile is delivered later; until then
  /// `fd()` may stay readable, so do not poll it.
  void notifyingIs(bool notifying) { map_.notifyingIs(notifying); }

  /// Damage of the shared table that an operation met and has no caller to raise to. Calls
  /// `corruptionHandler`, counts, and never raises.
  void handleCorruption(std::string const& message) const {
    ++corruptions_;
    if (corruptionHandler) {
      corruptionHandler(message);
    } else {
      reportTableCorruption(name().text(), message, corruptions_);
    }
  }
  /// May be replaced; must not raise. Empty: `reportTableCorruption()`.
  std::function<void(std::string const&)> corruptionHandler;
  uint64_t corruptions() const { return corruptions_; }

  /// The place in the directory has changed: tells the binding, which finds the shared table by it at the
  /// next mount.
  void handleParent(Orb::Entity const* parent) override { map_.parentIs(parent); }

 protected:
  /// An observer of the table that only acts when the last reference has gone, and so holds none.
  class ZeroReferencesNotifiee : public Orb::PtrInterface::NotifieeConst {
   public:
    explicit ZeroReferencesNotifiee(EntityTable* table) : table_(table) {}
    void onAttribute(Orb::AttributeId, void const*) override {}
    void onZeroReferences() override {
      Orb::Ptr<ZeroReferencesNotifiee> const self(this);
      // The reference goes with the control, here or wherever its last holder drops it; the framework then
      // ends the table, as it has begun to.
      Orb::Ptr<CollectionControl> const control = table_->control_;
      if (control) control->entityIs(Orb::Ptr<Orb::Entity const>(table_));
      table_->control_ = nullptr;
      isRegisteredNotifieeIs(false);
    }

   private:
    EntityTable* table_;
  };

  EntityTable(Orb::Name name, EntityTableNames const& names, Orb::Attribute<Key> rowAttr,
              Orb::Scalar controlAttr)
      : Entity(std::move(name)),
        rowAttr_(rowAttr),
        controlAttr_(controlAttr),
        isCounter_(this->name().text(), names.is),
        delCounter_(this->name().text(), names.del),
        notifyCounter_(this->name().text(), names.notify) {
    zeroReferences_ = Orb::makePtr<ZeroReferencesNotifiee>(this);
    zeroReferences_->hasNotificationActiveIs(true);
    notifieeList()->addFirst(*zeroReferences_);
    control_ = Orb::makePtr<CollectionControl>();
    control_->hasNotificationActiveIs(true);
    Table<Row>& table = map_.table();
    table.onChanged = [this](Key const& key) { rowNotify(key, rows().told()); };
    table.onQuiesced = [this](bool quiesced) { notifyQuiesced(quiesced); };
    table.onMountStatus = [this] { notifyMountStatus(); };
    table.onCorruption = [this](std::string const& message) { handleCorruption(message); };
    table.countAudience = [this] { return isWatched() ? notifieeList()->registrations() : 0; };
    map_.bind(*this);
  }

  ~EntityTable() override {
    notifieeList()->removeAll();
    control_ = nullptr;
  }

  // ---- The operations, to be named by the derived class ----
  //
  // Each that writes holds the table: whoever hears of it may drop the last reference.

  Row row(Key const& key) const {
    Row found;
    try {
      if (rows().find(key, found)) return found;
    } catch (CorruptionError const& error) {
      handleCorruption(error.what());
    }
    return Row();
  }

  void rowIs(Row const& row) {
    Orb::Ptr<EntityTable> const self(this);
    isCounter_.increment();
    map_.table().write(row);
    rowNotify(Codec<Row>::key(row));
  }

  void rowCommit(Row const* row) {
    ORB_ASSERT(row);
    Orb::Ptr<EntityTable> const self(this);
    isCounter_.increment();
    Key const key = Codec<Row>::key(*row);
    map_.table().commit(row);
    rowNotify(key);
  }

  /// What an observer of the removal raises leaves the call; the row is gone.
  Row rowDel(Key key) {
    Orb::Ptr<EntityTable> const self(this);
    delCounter_.increment();
    Row removed;
    try {
      std::optional<Row> const found = map_.table().remove(key);
      if (!found) return Row();
      removed = *found;
    } catch (RowDamage const& error) {
      // What it held cannot be told, but it goes. Where it has gone, a hook of the removal has raised.
      if (!map_.table().erase(key)) throw;
      handleCorruption(error.what());
    }
    rowNotify(key);
    return removed;
  }

  void rowDelAll() {
    Orb::Ptr<EntityTable> const self(this);
    TableBase::Turn const turn(map_.table());
    for (auto cursor = rows().walk(); Row const* const row = cursor.next(rows().onCorruption);)
      rowDel(Codec<Row>::key(*row));
  }

  void rowNotify(Key const& key, Audience whom = {}) {
    if (isWatched()) return notifyObservers(key, whom);
    notifyCounter_.increment();
  }

  /// For what neither counts nor notifies.
  Table<Row> const& rows() const { return map_.table(); }

  void notifyQuiesced(bool quiesced) {
    if (control_) control_->quiescedIs(quiesced);
  }
  void notifyMountStatus() {
    if (control_) control_->mountStatusIs(rows().mountStatus());
  }

  Orb::Ptr<CollectionControl> const& control() const { return control_; }
  void controlIs(Orb::Ptr<CollectionControl> const& control) {
    if (control == control_) return;
    control_ = control;
    notify(controlAttr_);
  }

  /// For the generic interface: the keys of all rows, up to the first damaged one.
  Orb::Value keys() const {
    std::vector<Orb::Value> keys;
    auto const& handle = rows().onCorruption;
    for (auto cursor = rows().inspect(); Row const* const row = cursor.next(handle);)
      keys.emplace_back(Codec<Row>::key(*row));
    return Orb::Value(keys);
  }

 private:
  /// A table that is written has mostly no observer but its own, who does not care.
  bool isWatched() const {
    return notifieeList()->size() > (zeroReferences_->isRegisteredNotifiee() ? 1 : 0);
  }

  void notifyObservers(Key key, Audience whom) {
    Orb::Ptr<EntityTable> const self(this);
    notify(rowAttr_, key, whom.after, whom.upTo);
    notifyCounter_.increment();
  }

  Orb::Attribute<Key> rowAttr_;
  Orb::Scalar controlAttr_;
  BrineMap<Row> map_;
  Counter::Counter isCounter_;
  Counter::Counter delCounter_;
  Counter::Counter notifyCounter_;
  Orb::Ptr<ZeroReferencesNotifiee> zeroReferences_;
  Orb::Ptr<CollectionControl> control_;
  mutable uint64_t corruptions_ = 0;
};

}  // namespace Brine
