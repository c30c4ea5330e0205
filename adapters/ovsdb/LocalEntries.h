/// Ovsdb::LocalEntries: converts the rows that a switch learned to events. It remembers the entries that it
/// told and the keys of the replica that changed, and tells the differences: a VNI before its entries, the
/// removal of a VNI after the removal of its entries.
///
///   rows of the replica                                   events
///   Logical_Switch with a tunnel_key                      vni, vni-del
///   Ucast_Macs_Local; of several the one that came last   mac, mac-del
///   Mcast_Macs_Local: union of all rows' locators         flood, flood-del
///   the same of unknown-dst, with several locators, in    multipath, multipath-del of 00:00:00:00:00:00
///     a logical switch that uses service nodes
#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <set>

#include "adapters/ovsdb/Replica.h"
#include "agent/feed/Event.h"

namespace Ovsdb {

class LocalEntries {
 public:
  using Tell = std::function<void(Agent::Event const&)>;
  explicit LocalEntries(Tell tell) : tell_(std::move(tell)) {}

  void vniChanged(Vxlan::Vni vni) { changedVnis_.insert(vni); }
  void changed(Key const& key) { changedKeys_.insert(key); }
  /// Tells the differences of one key or VNI; false if none is left.
  bool step(Replica const& replica);
  /// Removes at most `limit` entries without events; false if none is left.
  bool shrink(std::size_t limit);

  std::size_t vnis() const { return vnis_.size(); }
  std::size_t macs() const { return macs_.size(); }
  std::size_t floods() const { return floods_.size(); }
  std::size_t multipaths() const { return multipaths_.size(); }
  /// Whether the entry that was told of the MAC, or the flood list, has this VTEP.
  bool tells(Key const& key, Wirix::IpAddr vtep) const;
  /// Calls `visit` with each MAC and each flood list of a VNI that was told.
  void forEachOf(Vxlan::Vni vni, std::function<void(Wirix::EthAddr, VtepList const&)> const& visit) const;

 private:
  void tellMac(Key const& key, std::optional<Wirix::IpAddr> vtep);
  void tellFlood(Key const& key, VtepList const& vteps);
  void tellMultipath(Key const& key, VtepList const& vteps);
  void tellKey(Replica const& replica, Key const& key);
  void tell(Agent::Op op, Vxlan::Vni vni, Wirix::EthAddr mac, Wirix::IpAddr vtep, VtepList const& vteps);

  Tell tell_;
  std::set<Vxlan::Vni> changedVnis_;
  std::set<Key> changedKeys_;
  std::set<Vxlan::Vni> vnis_;
  std::map<Key, Wirix::IpAddr> macs_;
  std::map<Key, VtepList> floods_;
  std::map<Key, VtepList> multipaths_;
};

}  // namespace Ovsdb
