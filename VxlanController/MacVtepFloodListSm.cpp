#include "VxlanController/MacVtepFloodListSm.h"

#include "Orb/Type.h"
#include "VxlanController/QorEvpnTxSm.h"
#include "VxlanController/QorEvpnTxTrace.h"

namespace QorEvpn {

MacVtepFloodListSm::MacVtepFloodListSm(Wirix::EthAddr const& macAddr, FloodListPtr const& macVtepFloodList,
                                       VniFdbStatusSm* vniFdbStatusSm)
    : macAddr_(macAddr), vniFdbStatusSm_(vniFdbStatusSm) {
  macVtepFloodList_.connect(this, macVtepFloodList);
  handleInitialized();
}

void MacVtepFloodListSm::handleInitialized() {
  TRACE_SCOPE(traced, txTrace, "MacVtepFloodListSm(", macAddr_, ")(", vniFdbStatusSm_->vni(),
              ")::handleInitialized()");
  initializedIs(true);
  handleVtepIp();
}

void MacVtepFloodListSm::handleVtepIp() {
  if (!initialized()) return;
  TRACE_SCOPE(traced, txTrace, "MacVtepFloodListSm(", macAddr_, ")(", vniFdbStatusSm_->vni(),
              ")::handleVtepIp()");
  if (FloodListPtr const list = macVtepFloodList()) {
    for (auto const& entry : list->vtepIpFloodList()) handleVtepIp(entry.key);
  }
}

void MacVtepFloodListSm::handleVtepIp(Wirix::IpAddr ipAddr) {
  if (!initialized()) return;
  Orb::Ptr<VniFdbStatusSm> const parent = vniFdbStatusSm_;  // which may go with the VNI
  TRACE_SCOPE(traced, txTrace, "MacVtepFloodListSm(", macAddr_, ")(", parent->vni(), ")::handleVtepIp(",
              ipAddr, ")");
  VniVtepPair const key(parent->vni(), ipAddr);
  bool const* const on = macVtepFloodList() ? macVtepFloodList()->vtepIpFloodList().find(ipAddr) : nullptr;
  FloodTable& floodTableOut = ORB_REF(parent->qorEvpnTxSm()->floodTableOut());
  if (on && *on && !floodIpProvidedByEvpn(ipAddr)) {
    floodTableOut.floodEntryIs(FloodEntry(key));
  } else {
    floodTableOut.floodEntryDel(key);
  }
}

bool MacVtepFloodListSm::floodIpProvidedByEvpn(Wirix::IpAddr ipAddr) const {
  ORB_ASSERT(initialized());
  return floodListFromEvpn() && floodListFromEvpn()->vtepIpFloodList().contains(ipAddr);
}

void MacVtepFloodListSm::cleanup() {
  if (!initialized()) return;
  TRACE_SCOPE(traced, txTrace, "MacVtepFloodListSm(", macAddr_, ")(", vniFdbStatusSm_->vni(), ")::cleanup()");
  if (FloodListPtr const list = macVtepFloodList()) {
    for (auto const& entry : list->vtepIpFloodList()) {
      VniVtepPair const key(vniFdbStatusSm_->vni(), entry.key);
      TRACE(txTrace, 8, traced, " Deleting flood list entry (ip: ", key.vtepAddr(), ")");
      ORB_REF(vniFdbStatusSm_->qorEvpnTxSm()->floodTableOut()).floodEntryDel(key);
    }
  }
  initializedIs(false);
}

Orb::TypeDescriptor const& MacVtepFloodListSm::type() {
  using Sm = MacVtepFloodListSm;
  using A = Orb::Attributes<Sm>;
  static Orb::TypeDescriptor const descriptor(
      "QorEvpn::MacVtepFloodListSm",
      {A::value<&Sm::macAddr>("macAddr"), A::value<&Sm::macVtepFloodList>("macVtepFloodList"),
       A::value<&Sm::floodListFromEvpn>("floodListFromEvpn"), A::handlerWithArgument("floodIpProvidedByEvpn"),
       A::handler<&Sm::handleVtepIp>("handleVtepIp"), A::handler<&Sm::cleanup>("cleanup"),
       A::writable<&Sm::initialized, &Sm::initializedIs>("initialized"),
       A::handler<&Sm::handleInitialized>("handleInitialized"),
       A::value<&Sm::vniFdbStatusSm>("vniFdbStatusSm")});
  return descriptor;
}

Orb::Ptr<MacVtepFloodListSm> MacVtepFloodListSm::MacVtepFloodListSmIs(Wirix::EthAddr const& macAddr,
                                                                      FloodListPtr const& macVtepFloodList,
                                                                      VniFdbStatusSm* vniFdbStatusSm) {
  return Orb::create<MacVtepFloodListSm>(macAddr, macVtepFloodList, vniFdbStatusSm);
}

Orb::Ptr<MacVtepFloodListSm> macVtepFloodListSmFactory(
    Wirix::EthAddr const& macAddr, MacVtepFloodListSm::FloodListPtr const& macVtepFloodList,
    VniFdbStatusSm* vniFdbStatusSm) {
  return MacVtepFloodListSm::MacVtepFloodListSmIs(macAddr, macVtepFloodList, vniFdbStatusSm);
}

}  // namespace QorEvpn
