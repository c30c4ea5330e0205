#include "VxlanController/VniFdbStatusSm.h"

#include "Orb/Type.h"
#include "VxlanController/QorEvpnRow.h"
#include "VxlanController/QorEvpnTxSm.h"
#include "VxlanController/QorEvpnTxTrace.h"
#include "VxlanController/QorEvpnWalk.h"

namespace QorEvpn {

using VxlanController::MacVtepFloodListV2;

namespace {

constexpr std::string_view onlyAllBum = " QOR-EVPN only supports 'all BUM destination addresses' entries";

}  // namespace

VniFdbStatusSm::VniFdbStatusSm(Vxlan::Vni vni, StatusPtr const& vniFdbStatus, QorEvpnTxSm* qorEvpnTxSm)
    : vni_(vni), qorEvpnTxSm_(qorEvpnTxSm) {
  vniFdbStatus_.connect(this, vniFdbStatus);
}

Orb::Ptr<MacVtepFloodListSm> VniFdbStatusSm::macVtepFloodListSmIs(Wirix::EthAddr const& macAddr,
                                                                  FloodListPtr const& macVtepFloodList) {
  return Orb::childIs(macVtepFloodListSm_, "macVtepFloodListSm", macAddr, macVtepFloodList,
                      &MacVtepFloodListSm::macVtepFloodList,
                      [&] { return macVtepFloodListSmFactory(macAddr, macVtepFloodList, this); });
}

void VniFdbStatusSm::initializedIs(bool initialized) {
  if (initialized == initialized_) return;
  initialized_ = initialized;
  handleInitialized();
}

void VniFdbStatusSm::handleInitialized() {
  TRACE_SCOPE(traced, txTrace, "VniFdbStatusSm(", vni_, ")::handleInitialized()");
  if (!initialized()) return traced.dismiss();
  handleHost();
  handleFloodList();
}

void VniFdbStatusSm::handleHost() {
  if (!initialized()) return;
  TRACE_SCOPE(traced, txTrace, "VniFdbStatusSm(", vni_, ")::handleHost()");
  updateBrIdList();
  cleanupStaleHostEntries();
  StatusPtr const status = vniFdbStatus();
  if (!status) return;
  auto const keyOf = [this](auto const& entry) { return MacVniPair(entry.key, vni_); };
  forEachKey(ORB_REF(qorEvpnTxSm_->hostTableOut()), status->macVtepTable(), keyOf,
             [this](MacVniPair const& key) { handleHost(key.macAddr()); });
}

void VniFdbStatusSm::handleHost(Wirix::EthAddr const& macAddr) {
  if (!initialized()) return;
  TRACE_SCOPE(traced, txTrace, "VniFdbStatusSm(", vni_, ")::handleHost(", macAddr, ")");
  updateBrIdList();
  // An observer of the identifier must not have the VNI removed; if it did, what follows would assert.
  if (!initialized()) return traced.dismiss();
  MacVniPair const key(macAddr, vni_);
  VxlanController::MacVtepV2 const& entry = ORB_REF(vniFdbStatus()).macVtepTable(macAddr);
  if (entry == VxlanController::MacVtepV2() || macEntryProvidedByEvpn(macAddr)) {
    ORB_REF(qorEvpnTxSm_->hostTableOut()).hostDel(key);
    return traced.dismiss();
  }
  ORB_REF(qorEvpnTxSm_->hostTableOut()).hostIs(hostOf(vni_, entry));
}

bool VniFdbStatusSm::macEntryProvidedByEvpn(Wirix::EthAddr const& macAddr) const {
  ORB_ASSERT(initialized());
  EvpnStatusPtr const& fromEvpn = vniStatusFromEvpn();
  if (!fromEvpn) return false;
  VxlanController::MacVtepV2 const* const evpnEntry = fromEvpn->macVtepTable().find(macAddr);
  return evpnEntry && *evpnEntry == ORB_REF(vniFdbStatus()).macVtepTable(macAddr);
}

void VniFdbStatusSm::handleMultiPath() {
  if (!initialized()) return;
  TRACE_SCOPE(traced, txTrace, "VniFdbStatusSm(", vni_, ")::handleMultiPath()");
  updateBrIdList();
}

void VniFdbStatusSm::handleMultiPath(Wirix::EthAddr const& macAddr) {
  if (!initialized()) return;
  TRACE_SCOPE(traced, txTrace, "VniFdbStatusSm(", vni_, ")::handleMultiPath(", macAddr, ")");
  if (macAddr != MacVtepFloodListV2::allBum) {
    TRACE(txTrace, 3, traced, onlyAllBum);
    return traced.dismiss();
  }
  updateBrIdList();
}

void VniFdbStatusSm::handleFloodList() {
  if (!initialized()) return;
  TRACE_SCOPE(traced, txTrace, "VniFdbStatusSm(", vni_, ")::handleFloodList()");
  updateBrIdList();
  cleanupStaleFloodListEntries();
  if (StatusPtr const status = vniFdbStatus()) {
    for (auto const& entry : status->macVtepFloodListTable()) handleFloodList(Wirix::EthAddr(entry.key));
  }
}

void VniFdbStatusSm::handleFloodList(Wirix::EthAddr const& macAddr) {
  if (!initialized()) return;
  TRACE_SCOPE(traced, txTrace, "VniFdbStatusSm(", vni_, ")::handleFloodList(", macAddr, ")");
  if (macAddr != MacVtepFloodListV2::allBum) {
    TRACE(txTrace, 3, traced, onlyAllBum);
    return traced.dismiss();
  }
  updateBrIdList();
  FloodListPtr const floodList = ORB_REF(vniFdbStatus()).macVtepFloodListTable(macAddr);
  if (!floodList) {
    if (Orb::Ptr<MacVtepFloodListSm> const child = macVtepFloodListSmDel(macAddr)) child->cleanup();
    return;
  }
  Orb::Ptr<MacVtepFloodListSm> const child = macVtepFloodListSmIs(macAddr, floodList);
  EvpnStatusPtr const& fromEvpn = vniStatusFromEvpn();
  child->floodListFromEvpnIs(fromEvpn ? FloodListPtr(fromEvpn->macVtepFloodListTable(macAddr)) : nullptr);
  child->initializedIs(true);
}

void VniFdbStatusSm::updateBrIdList() {
  TRACE_SCOPE(traced, txTrace, "VniFdbStatusSm(", vni_, ")::updateBrIdList()");
  ORB_ASSERT(initialized());
  auto const& status = ORB_REF(vniFdbStatus());
  if (status.macVtepTables() || status.macVtepMultiPathTables() || status.macVtepFloodListTables()) {
    qorEvpnTxSm_->publishBrId(Bridging::BridgeId::ofVni(vni_));
  } else {
    qorEvpnTxSm_->unpublishBrId(Bridging::BridgeId::ofVni(vni_));
  }
}

void VniFdbStatusSm::cleanupStaleHostEntries() {
  if (!initialized()) return;
  TRACE_SCOPE(traced, txTrace, "VniFdbStatusSm(", vni_, ")::cleanupStaleHostEntries()");
  HostTable& hosts = ORB_REF(qorEvpnTxSm_->hostTableOut());
  for (auto walk = hosts.hostWalk(vni_); Host const* row = nextRow(hosts, walk);) {
    MacVniPair const key = row->key();
    if (ORB_REF(vniFdbStatus()).macVtepTable(key.macAddr()) != VxlanController::MacVtepV2()) continue;
    TRACE(txTrace, 8, traced, " Deleting stale host entry (macAddr: ", key.macAddr(),
          ", ip: ", row->vtepAddr(), ")");
    hosts.hostDel(key);
  }
}

void VniFdbStatusSm::cleanupStaleFloodListEntries() {
  if (!initialized()) return;
  TRACE_SCOPE(traced, txTrace, "VniFdbStatusSm(", vni_, ")::cleanupStaleFloodListEntries()");
  FloodListPtr const floodList = ORB_REF(vniFdbStatus()).macVtepFloodListTable(MacVtepFloodListV2::allBum);
  FloodTable& floods = ORB_REF(qorEvpnTxSm_->floodTableOut());
  for (auto walk = floods.floodEntryWalk(vni_); FloodEntry const* row = nextRow(floods, walk);) {
    VniVtepPair const key = row->key();
    if (floodList && floodList->vtepIpFloodList().contains(key.vtepAddr())) continue;
    TRACE(txTrace, 8, traced, " Deleting stale flood list entry (ip: ", key.vtepAddr(), ")");
    floods.floodEntryDel(key);
  }
}

void VniFdbStatusSm::cleanup() {
  if (!initialized()) return;
  TRACE_SCOPE(traced, txTrace, "VniFdbStatusSm(", vni_, ")::cleanup()");
  for (Orb::Ptr<MacVtepFloodListSm> const& child : macVtepFloodListSm_) {
    macVtepFloodListSmDel(child->macAddr());
    child->cleanup();
  }
  initializedIs(false);
}

Orb::TypeDescriptor const& VniFdbStatusSm::type() {
  using Sm = VniFdbStatusSm;
  using A = Orb::Attributes<Sm>;
  static Orb::TypeDescriptor const descriptor(
      "QorEvpn::VniFdbStatusSm",
      {A::value<&Sm::vni>("vni"), A::value<&Sm::vniFdbStatus>("vniFdbStatus"),
       A::value<&Sm::vniStatusFromEvpn>("vniStatusFromEvpn"),
       A::collection<MacVtepFloodListSms, &Sm::macVtepFloodListSm, &MacVtepFloodListSm::macAddr>(
           "macVtepFloodListSm"),
       A::writable<&Sm::initialized, &Sm::initializedIs>("initialized"),
       A::value<&Sm::qorEvpnTxSm>("qorEvpnTxSm"), A::handler<&Sm::handleInitialized>("handleInitialized"),
       A::handler<&Sm::handleHost>("handleHost"), A::handler<&Sm::handleMultiPath>("handleMultiPath"),
       A::handlerWithArgument("macEntryProvidedByEvpn"), A::handler<&Sm::handleFloodList>("handleFloodList"),
       A::handler<&Sm::updateBrIdList>("updateBrIdList"),
       A::handler<&Sm::cleanupStaleHostEntries>("cleanupStaleHostEntries"),
       A::handler<&Sm::cleanupStaleFloodListEntries>("cleanupStaleFloodListEntries"),
       A::handler<&Sm::cleanup>("cleanup")});
  return descriptor;
}

Orb::Ptr<VniFdbStatusSm> VniFdbStatusSm::VniFdbStatusSmIs(Vxlan::Vni vni, StatusPtr const& vniFdbStatus,
                                                          QorEvpnTxSm* qorEvpnTxSm) {
  return Orb::create<VniFdbStatusSm>(vni, vniFdbStatus, qorEvpnTxSm);
}

Orb::Ptr<VniFdbStatusSm> vniFdbStatusSmFactory(Vxlan::Vni vni, VniFdbStatusSm::StatusPtr const& vniFdbStatus,
                                               QorEvpnTxSm* qorEvpnTxSm) {
  return VniFdbStatusSm::VniFdbStatusSmIs(vni, vniFdbStatus, qorEvpnTxSm);
}

}  // namespace QorEvpn
