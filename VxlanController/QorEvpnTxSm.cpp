#include "VxlanController/QorEvpnTxSm.h"

#include <cstdlib>
#include <set>

#include "Orb/Type.h"
#include "VxlanController/QorEvpnTxTrace.h"

namespace QorEvpn {

Trace::Handle txTrace("VxlanControllerEvpnTxSm");

Vxlan::Vni vniOfName(Orb::Name const& name) {
  return Vxlan::Vni(static_cast<std::uint32_t>(std::strtol(name.text().c_str(), nullptr, 10)));
}

QorEvpnTxSm::QorEvpnTxSm(VniDirPtr const& vniDir, VniStatusDirPtr const& vniStatusDirFromEvpn,
                         Orb::Ptr<QorBrIdList> const& qorBrIdList, Orb::Ptr<HostTable> const& hostTableOut,
                         Orb::Ptr<FloodTable> const& floodTableOut)
    : qorBrIdList_(qorBrIdList), hostTableOut_(hostTableOut), floodTableOut_(floodTableOut) {
  vniDir_.connect(this, vniDir);
  vniStatusDirFromEvpn_.connect(this, vniStatusDirFromEvpn);
  handleInitialized();
}

Orb::Ptr<VniFdbStatusSm> QorEvpnTxSm::vniFdbStatusSmIs(Vxlan::Vni vni,
                                                       VniFdbStatusSm::StatusPtr vniFdbStatus) {
  return Orb::childIs(vniFdbStatusSm_, "vniFdbStatusSm", vni, vniFdbStatus, &VniFdbStatusSm::vniFdbStatus,
                      [&] { return vniFdbStatusSmFactory(vni, vniFdbStatus, this); });
}

void QorEvpnTxSm::handleInitialized() {
  TRACE_SCOPE(traced, txTrace, "QorEvpnTxSm()::handleInitialized()");
  initializedIs(true);
  handleVniFdbStatus();
}

void QorEvpnTxSm::handleVniFdbStatus() {
  if (!initialized()) return;
  TRACE_SCOPE(traced, txTrace, "QorEvpnTxSm()::handleVniFdbStatus()");
  cleanupStaleBrIdEntries();
  VniDirPtr const dir = vniDir();
  for (auto const& entry : ORB_REF(dir).entry()) handleVniFdbStatus(Orb::Name(entry.key));
}

void QorEvpnTxSm::handleVniFdbStatus(Orb::Name name) {
  if (!initialized()) return;
  TRACE_SCOPE(traced, txTrace, "QorEvpnTxSm()::handleVniFdbStatus(", name, ")");
  auto const vniFdbStatus =
      Orb::ptrCast<VxlanController::VniFdbStatusV2 const>(ORB_REF(vniDir()).entityPtr(name));
  Vxlan::Vni const vni = vniOfName(name);
  if (!vniFdbStatus) {
    cleanupStaleVniEntries(this, {vni});
    if (Orb::Ptr<VniFdbStatusSm> const child = vniFdbStatusSmDel(vni)) child->cleanup();
    return;
  }
  Orb::Ptr<VniFdbStatusSm> const child = vniFdbStatusSmIs(vni, vniFdbStatus);
  child->vniStatusFromEvpnIs(ORB_REF(vniStatusDirFromEvpn()).vniStatusV2(vni));
  child->initializedIs(true);
}

void QorEvpnTxSm::handleVniStatusFromEvpn(Vxlan::Vni vni) {
  TRACE(txTrace, 8, "void QorEvpn::QorEvpnTxSm::handleVniStatusFromEvpn(Vxlan::Vni) init ", initialized(),
        " vni ", vni);
  if (!initialized()) return;
  Orb::Ptr<VniFdbStatusSm> const child = vniFdbStatusSm(vni);
  if (!child) return;
  child->vniStatusFromEvpnIs(ORB_REF(vniStatusDirFromEvpn()).vniStatusV2(vni));
}

void QorEvpnTxSm::cleanup() {
  if (!initialized()) return;
  TRACE_SCOPE(traced, txTrace, "QorEvpnTxSm()::cleanup()");
  ORB_REF(qorBrIdList()).brIdListDelAll();
  ORB_REF(hostTableOut()).hostDelAll();
  ORB_REF(floodTableOut()).floodEntryDelAll();
  for (Orb::Ptr<VniFdbStatusSm> const& child : vniFdbStatusSm_) {
    vniFdbStatusSmDel(child->vni());
    child->cleanup();
  }
  initializedIs(false);
}

void QorEvpnTxSm::publishBrId(Bridging::BridgeId brId) {
  if (!initialized()) return;
  Vxlan::VniExt const vni = brId.vni();  // asserts the type, whatever is traced
  TRACE_SCOPE(traced, txTrace, "QorEvpnTxSm()::publishBrId(", vni, ")");
  if (!ORB_REF(qorBrIdList()).brIdList().contains(brId)) ORB_REF(qorBrIdList()).brIdListIs(brId, true);
}

void QorEvpnTxSm::unpublishBrId(Bridging::BridgeId brId) {
  if (!initialized()) return;
  Vxlan::VniExt const vni = brId.vni();
  TRACE_SCOPE(traced, txTrace, "QorEvpnTxSm()::unpublishBrId(", vni, ")");
  if (ORB_REF(qorBrIdList()).brIdList().contains(brId)) ORB_REF(qorBrIdList()).brIdListDel(brId);
}

void QorEvpnTxSm::cleanupStaleBrIdEntries() {
  if (!initialized()) return;
  TRACE_SCOPE(traced, txTrace, "QorEvpnTxSm()::cleanupStaleBrIdEntries()");
  std::set<Vxlan::Vni> staleVnis;
  for (auto const& entry : ORB_REF(qorBrIdList()).brIdList()) {
    // By existence only: an entry of another type is not stale here, and handleVniFdbStatus(name) sweeps it.
    Vxlan::VniExt const vni = entry.key.vni();
    if (!ORB_REF(vniDir()).entityPtr(Orb::Name(vni.stringValue(false))))
      staleVnis.insert(Vxlan::Vni(vni.value()));
  }
  cleanupStaleVniEntries(this, staleVnis);
}

Orb::TypeDescriptor const& QorEvpnTxSm::type() {
  using Sm = QorEvpnTxSm;
  using A = Orb::Attributes<Sm>;
  static Orb::TypeDescriptor const descriptor(
      "QorEvpn::QorEvpnTxSm",
      {A::value<&Sm::vniDir>("vniDir"), A::value<&Sm::vniStatusDirFromEvpn>("vniStatusDirFromEvpn"),
       A::value<&Sm::qorBrIdList>("qorBrIdList"), A::value<&Sm::hostTableOut>("hostTableOut"),
       A::value<&Sm::floodTableOut>("floodTableOut"),
       A::collection<VniFdbStatusSms, &Sm::vniFdbStatusSm, &VniFdbStatusSm::vni>("vniFdbStatusSm"),
       A::writable<&Sm::initialized, &Sm::initializedIs>("initialized"),
       A::handler<&Sm::handleInitialized>("handleInitialized"),
       A::handler<&Sm::handleVniFdbStatus>("handleVniFdbStatus"),
       A::handlerWithArgument("handleVniStatusFromEvpn"), A::handlerWithArgument("publishBrId"),
       A::handlerWithArgument("unpublishBrId"),
       A::handler<&Sm::cleanupStaleBrIdEntries>("cleanupStaleBrIdEntries"),
       A::handler<&Sm::cleanup>("cleanup")});
  return descriptor;
}

Orb::Ptr<QorEvpnTxSm> QorEvpnTxSm::QorEvpnTxSmIs(VniDirPtr vniDir, VniStatusDirPtr vniStatusDirFromEvpn,
                                                 Orb::Ptr<QorBrIdList> qorBrIdList,
                                                 Orb::Ptr<HostTable> hostTableOut,
                                                 Orb::Ptr<FloodTable> floodTableOut) {
  return Orb::create<QorEvpnTxSm>(vniDir, vniStatusDirFromEvpn, qorBrIdList, hostTableOut, floodTableOut);
}

Orb::Ptr<QorEvpnTxSm> qorEvpnTxSmFactory(QorEvpnTxSm::VniDirPtr vniDir,
                                         QorEvpnTxSm::VniStatusDirPtr vniStatusDirFromEvpn,
                                         Orb::Ptr<QorBrIdList> qorBrIdList, Orb::Ptr<HostTable> hostTableOut,
                                         Orb::Ptr<FloodTable> floodTableOut) {
  return QorEvpnTxSm::QorEvpnTxSmIs(vniDir, vniStatusDirFromEvpn, qorBrIdList, hostTableOut, floodTableOut);
}

}  // namespace QorEvpn
