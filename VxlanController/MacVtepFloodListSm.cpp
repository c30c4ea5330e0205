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
  TRACE(txTrace, 3, "MacVtepFloodListSm(", macAddr_, ")(", vniFdbStatusSm_->vni(), ")::handleInitialized()");
  initializedIs(true);
  handleVtepIp();
  TRACE(txTrace, 4, "MacVtepFloodListSm(", macAddr_, ")(", vniFdbStatusSm_->vni(),
        ")::handleInitialized() return");
}

void MacVtepFloodListSm::handleVtepIp() {
  if (!initialized()) return;
  Orb::Ptr<VniFdbStatusSm> const parent = vniFdbStatusSm_;  // which an observer of the rows may drop
  TRACE(txTrace, 3, "MacVtepFloodListSm(", macAddr_, ")(", vniFdbStatusSm_->vni(), ")::handleVtepIp()");
  if (FloodListPtr const list = macVtepFloodList()) {
    for (auto const& entry : list->vtepIpFloodList()) handleVtepIp(Wirix::IpAddr(entry.key));
  }
  TRACE(txTrace, 4, "MacVtepFloodListSm(", macAddr_, ")(", vniFdbStatusSm_->vni(),
        ")::handleVtepIp() return");
}

void MacVtepFloodListSm::handleVtepIp(Wirix::IpAddr const& ipAddr) {
  if (!initialized()) return;
  Orb::Ptr<VniFdbStatusSm> const parent = vniFdbStatusSm_;  // which an observer of the rows may drop
  TRACE(txTrace, 3, "MacVtepFloodListSm(", macAddr_, ")(", vniFdbStatusSm_->vni(), ")::handleVtepIp(", ipAddr,
        ")");
  VniVtepPair const key(vniFdbStatusSm_->vni(), ipAddr);
  bool const* const on = macVtepFloodList() ? macVtepFloodList()->vtepIpFloodList().find(ipAddr) : nullptr;
  Orb::Ptr<FloodTable> const& floodTableOut = vniFdbStatusSm_->qorEvpnTxSm()->floodTableOut();
  if (on && *on && !floodIpProvidedByEvpn(ipAddr)) {
    floodTableOut->floodEntryIs(FloodEntry(key));
  } else {
    floodTableOut->floodEntryDel(key);
  }
  TRACE(txTrace, 4, "MacVtepFloodListSm(", macAddr_, ")(", vniFdbStatusSm_->vni(), ")::handleVtepIp(", ipAddr,
        ") return");
}

bool MacVtepFloodListSm::floodIpProvidedByEvpn(Wirix::IpAddr const& ipAddr) const {
  ORB_ASSERT(initialized());
  return floodListFromEvpn() && floodListFromEvpn()->vtepIpFloodList().contains(ipAddr);
}

void MacVtepFloodListSm::cleanup() {
  if (!initialized()) return;
  TRACE(txTrace, 3, "MacVtepFloodListSm(", macAddr_, ")(", vniFdbStatusSm_->vni(), ")::cleanup()");
  for (Wirix::IpAddr const& ipAddr : addressesOf(macVtepFloodList())) {
    TRACE(txTrace, 8, "MacVtepFloodListSm(", macAddr_, ")(", vniFdbStatusSm_->vni(),
          ")::cleanup() Deleting flood list entry (ip: ", ipAddr, ")");
    vniFdbStatusSm_->qorEvpnTxSm()->floodTableOut()->floodEntryDel(
        VniVtepPair(vniFdbStatusSm_->vni(), ipAddr));
  }
  initializedIs(false);
  TRACE(txTrace, 4, "MacVtepFloodListSm(", macAddr_, ")(", vniFdbStatusSm_->vni(), ")::cleanup() return");
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

std::vector<Wirix::IpAddr> addressesOf(MacVtepFloodListSm::FloodListPtr const& list) {
  std::vector<Wirix::IpAddr> addresses;
  if (!list) return addresses;
  for (auto const& entry : list->vtepIpFloodList()) addresses.push_back(entry.key);
  return addresses;
}

Orb::Ptr<MacVtepFloodListSm> macVtepFloodListSmFactory(
    Wirix::EthAddr const& macAddr, MacVtepFloodListSm::FloodListPtr const& macVtepFloodList,
    VniFdbStatusSm* vniFdbStatusSm) {
  return MacVtepFloodListSm::MacVtepFloodListSmIs(macAddr, macVtepFloodList, vniFdbStatusSm);
}

}  // namespace QorEvpn
