#include "adapters/ovsdb/LocalEntries.h"

#include <algorithm>

namespace Ovsdb {

using Agent::Op;

bool LocalEntries::step(Replica const& replica) {
  // New VNIs come first. A VNI that ends stays in the set until its entries are removed.
  for (auto at = changedVnis_.begin(); at != changedVnis_.end(); ++at) {
    Vxlan::Vni const vni = *at;
    bool const served = replica.serves(vni);
    if (!served && !changedKeys_.empty()) continue;
    changedVnis_.erase(at);
    if (served ? vnis_.insert(vni).second : vnis_.erase(vni) != 0) {
      tell(served ? Op::vni : Op::vniDel, vni, {}, {}, {});
    }
    return true;
  }
  if (changedKeys_.empty()) return false;
  Key const key = *changedKeys_.begin();
  changedKeys_.erase(changedKeys_.begin());
  tellKey(replica, key);
  return true;
}

bool LocalEntries::shrink(std::size_t limit) {
  shrinkMap(macs_, limit);
  shrinkMap(floods_, limit);
  shrinkMap(multipaths_, limit);
  shrinkMap(changedKeys_, limit);
  return limit == 0;
}

bool LocalEntries::tells(Key const& key, Wirix::IpAddr vtep) const {
  auto const mac = macs_.find(key);
  if (mac != macs_.end() && mac->second == vtep) return true;
  auto const flood = floods_.find(key);
  return flood != floods_.end() && std::binary_search(flood->second.begin(), flood->second.end(), vtep);
}

void LocalEntries::forEachOf(Vxlan::Vni vni,
                             std::function<void(Wirix::EthAddr, VtepList const&)> const& visit) const {
  for (auto at = macs_.lower_bound({vni, {}}); at != macs_.end() && at->first.vni == vni; ++at)
    visit(at->first.mac, {at->second});
  for (auto at = floods_.lower_bound({vni, {}}); at != floods_.end() && at->first.vni == vni; ++at)
    visit(at->first.mac, at->second);
}

void LocalEntries::tellKey(Replica const& replica, Key const& key) {
  std::optional<Wirix::IpAddr> learned;
  VtepList flood;
  VtepList multipath;
  for (Uuid const& logicalSwitch : replica.switchesOf(key.vni)) {
    for (Uuid const& row : replica.rowsOf(MacTable::ucastLocal, logicalSwitch, key.mac)) {
      VtepList const vteps = replica.vtepsOf(MacTable::ucastLocal, row);
      if (!vteps.empty()) learned = vteps.front();
    }
    for (Uuid const& row : replica.rowsOf(MacTable::mcastLocal, logicalSwitch, key.mac)) {
      VtepList const vteps = replica.vtepsOf(MacTable::mcastLocal, row);
      bool const isMultipath =
          key.mac == Wirix::EthAddr() && vteps.size() > 1 && replica.usesServiceNodes(logicalSwitch);
      VtepList& list = isMultipath ? multipath : flood;
      list.insert(list.end(), vteps.begin(), vteps.end());
    }
  }
  for (VtepList* const list : {&flood, &multipath}) {
    std::sort(list->begin(), list->end());
    list->erase(std::unique(list->begin(), list->end()), list->end());
  }
  tellMac(key, learned);
  tellFlood(key, flood);
  tellMultipath(key, multipath);
}

void LocalEntries::tellMac(Key const& key, std::optional<Wirix::IpAddr> vtep) {
  auto const told = macs_.find(key);
  if (vtep) {
    if (told != macs_.end() && told->second == *vtep) return;
    macs_[key] = *vtep;
    tell(Op::mac, key.vni, key.mac, *vtep, {});
  } else if (told != macs_.end()) {
    macs_.erase(told);
    tell(Op::macDel, key.vni, key.mac, {}, {});
  }
}

void LocalEntries::tellFlood(Key const& key, VtepList const& vteps) {
  auto const told = floods_.find(key);
  if (told == floods_.end() && vteps.empty()) return;
  VtepList const before = told == floods_.end() ? VtepList() : told->second;
  if (vteps.empty()) {
    floods_.erase(told);
  } else {
    floods_[key] = vteps;
  }
  VtepList come;
  VtepList gone;
  std::set_difference(vteps.begin(), vteps.end(), before.begin(), before.end(), std::back_inserter(come));
  std::set_difference(before.begin(), before.end(), vteps.begin(), vteps.end(), std::back_inserter(gone));
  for (Wirix::IpAddr const vtep : come) tell(Op::flood, key.vni, key.mac, vtep, {});
  for (Wirix::IpAddr const vtep : gone) tell(Op::floodDel, key.vni, key.mac, vtep, {});
}

void LocalEntries::tellMultipath(Key const& key, VtepList const& vteps) {
  auto const told = multipaths_.find(key);
  if (vteps.empty()) {
    if (told == multipaths_.end()) return;
    multipaths_.erase(told);
    tell(Op::multipathDel, key.vni, key.mac, {}, {});
  } else if (told == multipaths_.end() || told->second != vteps) {
    multipaths_[key] = vteps;
    tell(Op::multipath, key.vni, key.mac, {}, vteps);
  }
}

void LocalEntries::tell(Op op, Vxlan::Vni vni, Wirix::EthAddr mac, Wirix::IpAddr vtep,
                        VtepList const& vteps) {
  Agent::Event event;
  event.op = op;
  event.vni = vni;
  event.mac = mac;
  event.vtep = vtep;
  event.vteps = vteps;
  tell_(event);
}

}  // namespace Ovsdb
