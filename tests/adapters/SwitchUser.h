#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "Orb/Text.h"
#include "adapters/FakeServer.h"
#include "adapters/ovsdb/Switch.h"

namespace TestSupport {

/// What a switch is to be told, as a test sets it.
class WantedRows : public Agent::RemoteRows {
 public:
  void handlersIs(Handlers handlers) override { handlers_ = std::move(handlers); }
  void ownVtepsIs(std::set<Wirix::IpAddr> vteps) override { own = std::move(vteps); }
  std::optional<Wirix::IpAddr> mac(Vxlan::Vni vni, Wirix::EthAddr mac) const override {
    auto const found = macs_.find({vni, mac});
    return found == macs_.end() || own.contains(found->second) ? std::nullopt : std::optional(found->second);
  }
  Vteps flood(Vxlan::Vni vni, Wirix::EthAddr mac) const override {
    auto const found = floods_.find({vni, mac});
    Vteps result = found == floods_.end() ? Vteps() : found->second;
    std::erase_if(result, [&](Wirix::IpAddr vtep) { return own.contains(vtep); });
    return result;
  }
  void forEachMac(Vxlan::Vni vni,
                  std::function<void(Wirix::EthAddr, Wirix::IpAddr)> const& visit) const override {
    for (auto const& [key, vtep] : macs_) {
      if (key.vni == vni) visit(key.mac, vtep);
    }
  }
  void forEachFlood(Vxlan::Vni vni,
                    std::function<void(Wirix::EthAddr, Vteps const&)> const& visit) const override {
    for (auto const& [key, vteps] : floods_) {
      if (key.vni == vni) visit(key.mac, vteps);
    }
  }
  bool isSettled() const override { return settled_; }

  /// Text such as "10.99.0.12"; empty: none.
  void macIs(Ovsdb::Key const& key, std::string const& vtep) {
    macs_.erase(key);
    if (!vtep.empty()) macs_[key] = Wirix::IpAddr(vtep);
    if (handlers_.mac) handlers_.mac(key.vni, key.mac);
  }
  void floodIs(Ovsdb::Key const& key, std::vector<std::string> const& vteps) {
    floods_.erase(key);
    for (std::string const& vtep : vteps) floods_[key].push_back(Wirix::IpAddr(vtep));
    if (handlers_.flood) handlers_.flood(key.vni, key.mac);
  }
  void settledIs(bool settled) {
    settled_ = settled;
    if (handlers_.settled) handlers_.settled();
  }

  std::set<Wirix::IpAddr> own;

 private:
  Handlers handlers_;
  std::map<Ovsdb::Key, Wirix::IpAddr> macs_;
  std::map<Ovsdb::Key, Vteps> floods_;
  bool settled_ = false;
};

inline Ovsdb::Key keyOf(std::uint32_t vni, std::string const& mac = "00:00:00:00:00:00") {
  return {Vxlan::Vni(vni), Wirix::EthAddr(mac)};
}

/// A switch and whoever listens to it: keeps the entries that were told, as lines. A restart of the source
/// that tells an entry which it told before, or takes one back which it did not tell, fails a check.
class SwitchUser {
 public:
  /// Short pauses, so that tests end soon; nothing depends on how short.
  static Ovsdb::Pauses shortPauses() {
    return {std::chrono::milliseconds(1), std::chrono::milliseconds(4), std::chrono::milliseconds(60'000)};
  }

  explicit SwitchUser(Ovsdb::Switch::Options options)
      : tor(loop, std::move(options),
            {[this](Agent::Event const& event) { take(event); },
             [this](Agent::SourceState state, std::string const& cause) {
               if (state == Agent::SourceState::syncing) entries.clear();
               if (state == Agent::SourceState::synced) ++syncs;
               if (!cause.empty()) reports.push_back(cause);
             },
             [this](std::string const& line) { reports.push_back(line); }},
            wanted) {}
  explicit SwitchUser(std::string const& endpoint) : SwitchUser({"tor1", endpoint, {}, shortPauses()}) {}

  /// Turns the loop until the condition holds; a check fails after a minute, which only a fault takes.
  void until(std::function<bool()> const& condition) {
    ASSERT_TRUE(becomes(loop, condition))
        << "waited in vain; last report: " << (reports.empty() ? "" : reports.back());
  }
  void untilSynced() {
    until([this] { return tor.state() == Agent::SourceState::synced; });
  }
  /// Waits until exactly these entries have been told.
  void untilEntries(std::set<std::string> const& expected) {
    until([&] { return entries == expected; });
  }
  bool wasReported(std::string const& part) const {
    return std::any_of(reports.begin(), reports.end(),
                       [&](std::string const& line) { return line.find(part) != std::string::npos; });
  }

  Agent::Loop loop;
  WantedRows wanted;
  std::set<std::string> entries;
  std::vector<std::string> reports;  ///< What was said for people.
  int syncs = 0;
  Ovsdb::Switch tor;

 private:
  void take(Agent::Event const& event) {
    using Agent::Op;
    std::string key;
    std::string list;
    for (Wirix::IpAddr const vtep : event.vteps) Orb::appendTexts(list, " ", vtep);
    switch (event.op) {
      case Op::vni: return add("vni " + Orb::toText(event.vni));
      case Op::vniDel:
        for (std::string const& entry : entries) {
          EXPECT_EQ(entry.find(' ' + Orb::toText(event.vni) + ' '), std::string::npos) << entry;
        }
        return remove("vni " + Orb::toText(event.vni));
      case Op::flood:
      case Op::floodDel:
        Orb::appendTexts(key, "flood ", event.vni, " ", event.mac, " ", event.vtep);
        return event.op == Op::flood ? add(key) : remove(key);
      case Op::mac:
      case Op::macDel: Orb::appendTexts(key, "mac ", event.vni, " ", event.mac); break;
      default: Orb::appendTexts(key, "multipath ", event.vni, " ", event.mac); break;
    }
    EXPECT_EQ(event.preference, 16);
    // A MAC and a multipath entry have one value: what was told before is replaced.
    auto const old = std::find_if(entries.begin(), entries.end(),
                                  [&](std::string const& entry) { return entry.starts_with(key + ' '); });
    bool const isGone = event.op == Op::macDel || event.op == Op::multipathDel;
    EXPECT_TRUE(!isGone || old != entries.end()) << key;
    if (old != entries.end()) entries.erase(old);
    if (!isGone) add(event.op == Op::mac ? key + ' ' + Orb::toText(event.vtep) : key + list);
  }
  void add(std::string const& entry) { EXPECT_TRUE(entries.insert(entry).second) << entry; }
  void remove(std::string const& entry) { EXPECT_EQ(entries.erase(entry), 1U) << entry; }
};

}  // namespace TestSupport
