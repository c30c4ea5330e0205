#include "VxlanController/QorEvpnTxSm.h"
#include "VxlanController/QorEvpnTxTrace.h"
#include "VxlanController/QorEvpnWalk.h"

namespace QorEvpn {

void cleanupStaleVniEntries(Orb::Ptr<QorEvpnTxSm> sm, std::set<Vxlan::Vni> const& staleVnis) {
  TRACE_SCOPE(traced, txTrace, "cleanupStaleVniEntries()");
  for (Vxlan::Vni const& vni : staleVnis) {
    TRACE(txTrace, 3, traced, " Deleting stale VNI ", vni);
    ORB_REF(sm->qorBrIdList()).brIdListDel(Bridging::BridgeId::ofVni(vni));
  }

  // For a single VNI the walk itself passes over the rows of all others.
  HostTable& hosts = ORB_REF(sm->hostTableOut());
  for (auto walk = staleVnis.size() == 1 ? hosts.hostWalk(*staleVnis.begin()) : hosts.hostWalk();
       Host const* row = nextRow(hosts, walk);) {
    MacVniPair const key = row->key();
    if (!staleVnis.contains(key.vni())) continue;
    TRACE(txTrace, 8, "QorEvpnTxSm()::cleanupStaleVniEntries(", key.vni(),
          ") Deleting stale host entry (macAddr: ", key.macAddr(), ", ip: ", row->vtepAddr(), ")");
    hosts.hostDel(key);
  }

  FloodTable& floods = ORB_REF(sm->floodTableOut());
  for (auto walk = staleVnis.size() == 1 ? floods.floodEntryWalk(*staleVnis.begin())
                                         : floods.floodEntryWalk();
       FloodEntry const* row = nextRow(floods, walk);) {
    VniVtepPair const key = row->key();
    if (!staleVnis.contains(key.vni())) continue;
    TRACE(txTrace, 8, "QorEvpnTxSm()::cleanupStaleVniEntries(", key.vni(),
          ") Deleting stale flood list entry (ip: ", key.vtepAddr(), ")");
    floods.floodEntryDel(key);
  }
}

}  // namespace QorEvpn
