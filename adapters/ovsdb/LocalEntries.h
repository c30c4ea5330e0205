/// Ovsdb::LocalEntries: what a switch knows, as events. Keeps what has been told, takes in which keys of the
/// replica changed, and tells the differences: a VNI before its entries, the end of a VNI behind the end of
/// its entries.
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
  /// Tells what is different about a key or a VNI; false where nothing is left.
  bool step(Replica const& replica);
  /// Forgets at most `limit` entries, telling nothing; false where none is left.
  bool shrink(std::size_t limit);

  std::size_t vnis() const { return vnis_.size(); }
  std::size_t macs() const { return macs_.size(); }
  std::size_t floods() const { return floods_.size(); }
  std::size_t multipaths() const { return multipaths_.size(); }
  /// The VTEP that was told of a MAC, and those of a flood list.
  bool tells(Key const& key, Wirix::IpAddr vtep) const;
  /// Each MAC and each flood list that was told of a VNI.
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
