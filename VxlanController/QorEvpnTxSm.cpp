#include "VxlanController/QorEvpnTxSm.h"

#include <cstdlib>
#include <set>

#include "Orb/Type.h"
#include "VxlanController/QorEvpnTxTrace.h"

namespace QorEvpn {

Trace::Handle txTrace("VxlanControllerEvpnTxSm");

namespace {

/// The VNI that a directory entry's name stands for: the low 32 bits of the number at its beginning, 0
/// without one. Raises the range error above 24 bits.
Vxlan::Vni vniOfName(Orb::Name const& name) {
  return Vxlan::Vni(static_cast<std::uint32_t>(std::strtol(name.text().c_str(), nullptr, 10)));
}

/// The status under a name; null also for an entry of another type.
VniFdbStatusSm::StatusPtr statusOf(Orb::Dir const& dir, Orb::Name const& name) {
  return Orb::ptrCast<VxlanController::VniFdbStatusV2 const>(dir.entityPtr(name));
}

}  // namespace

QorEvpnTxSm::QorEvpnTxSm(VniDirPtr const& vniDir, VniStatusDirPtr const& vniStatusDirFromEvpn,
                         Orb::Ptr<QorBrIdList> const& qorBrIdList, Orb::Ptr<HostTable> const& hostTableOut,
                         Orb::Ptr<FloodTable> const& floodTableOut)
    : qorBrIdList_(qorBrIdList), hostTableOut_(hostTableOut), floodTableOut_(floodTableOut) {
  vniDir_.connect(this, vniDir);
  vniStatusDirFromEvpn_.connect(this, vniStatusDirFromEvpn);
  handleInitialized();
}

Orb::Ptr<VniFdbStatusSm> QorEvpnTxSm::vniFdbStatusSmIs(Vxlan::Vni vni,
                                                       VniFdbStatusSm::StatusPtr const& vniFdbStatus) {
  return Orb::childIs(vniFdbStatusSm_, "vniFdbStatusSm", vni, vniFdbStatus, &VniFdbStatusSm::vniFdbStatus,
                      [&] { return vniFdbStatusSmFactory(vni, vniFdbStatus, this); });
}

void QorEvpnTxSm::handleInitialized() {
  TRACE(txTrace, 3, "QorEvpnTxSm()::handleInitialized()");
  initializedIs(true);
  handleVniFdbStatus();
  TRACE(txTrace, 4, "QorEvpnTxSm()::handleInitialized() return");
}

void QorEvpnTxSm::handleVniFdbStatus() {
  if (!initialized()) return;
  TRACE(txTrace, 3, "QorEvpnTxSm()::handleVniFdbStatus()");
  cleanupStaleBrIdEntries();
  VniDirPtr const dir = vniDir();
  for (auto const& entry : dir->entry()) handleVniFdbStatus(Orb::Name(entry.key));
  TRACE(txTrace, 4, "QorEvpnTxSm()::handleVniFdbStatus() return");
}

void QorEvpnTxSm::handleVniFdbStatus(Orb::Name const& name) {
  if (!initialized()) return;
  TRACE(txTrace, 3, "QorEvpnTxSm()::handleVniFdbStatus(", name, ")");
  VniFdbStatusSm::StatusPtr const vniFdbStatus = statusOf(*vniDir(), name);
  Vxlan::Vni const vni = vniOfName(name);
  if (!vniFdbStatus) {
    cleanupStaleVniEntries(this, {vni});
    if (Orb::Ptr<VniFdbStatusSm> const child = vniFdbStatusSmDel(vni)) {
      child->cleanup();
      // Until now it heard of changes: an observer may have had it export again, or its status put back.
      bool const isListed = qorBrIdList()->brIdList().contains(Bridging::BridgeId::ofVni(vni));
      if (!vniFdbStatusSm(vni) && (isListed || statusOf(*vniDir(), name))) handleVniFdbStatus(name);
    }
  } else {
    Orb::Ptr<VniFdbStatusSm> const child = vniFdbStatusSmIs(vni, vniFdbStatus);
    child->vniStatusFromEvpnIs(vniStatusDirFromEvpn()->vniStatusV2(vni));
    // Not where an observer of its rows had the VNI removed.
    if (vniFdbStatusSm(vni) == child) child->initializedIs(true);
  }
  TRACE(txTrace, 4, "QorEvpnTxSm()::handleVniFdbStatus(", name, ") return");
}

void QorEvpnTxSm::handleVniStatusFromEvpn(Vxlan::Vni const& vni) {
  TRACE(txTrace, 8, "void QorEvpn::QorEvpnTxSm::handleVniStatusFromEvpn(Vxlan::Vni) init ", initialized(),
        " vni ", vni);
  if (!initialized()) return;
  Orb::Ptr<VniFdbStatusSm> const child = vniFdbStatusSm(vni);
  if (!child) return;
  child->vniStatusFromEvpnIs(vniStatusDirFromEvpn()->vniStatusV2(vni));
}

void QorEvpnTxSm::cleanup() {
  if (!initialized()) return;
  TRACE(txTrace, 3, "QorEvpnTxSm()::cleanup()");
  qorBrIdList()->brIdListDelAll();
  hostTableOut()->hostDelAll();
  floodTableOut()->floodEntryDelAll();
  for (Orb::Ptr<VniFdbStatusSm> const& child : vniFdbStatusSm_) {
    if (Orb::Ptr<VniFdbStatusSm> const removed = vniFdbStatusSmDel(child->vni())) removed->cleanup();
  }
  initializedIs(false);
  TRACE(txTrace, 4, "QorEvpnTxSm()::cleanup() return");
}

void QorEvpnTxSm::publishBrId(Bridging::BridgeId brId) {
  if (!initialized()) return;
  Vxlan::VniExt const vni = brId.vni();  // asserts the type, whatever is traced
  TRACE(txTrace, 3, "QorEvpnTxSm()::publishBrId(", vni, ")");
  if (!qorBrIdList()->brIdList().contains(brId)) qorBrIdList()->brIdListIs(brId, true);
  TRACE(txTrace, 4, "QorEvpnTxSm()::publishBrId(", vni, ") return");
}

void QorEvpnTxSm::unpublishBrId(Bridging::BridgeId brId) {
  if (!initialized()) return;
  Vxlan::VniExt const vni = brId.vni();
  TRACE(txTrace, 3, "QorEvpnTxSm()::unpublishBrId(", vni, ")");
  if (qorBrIdList()->brIdList().contains(brId)) qorBrIdList()->brIdListDel(brId);
  TRACE(txTrace, 4, "QorEvpnTxSm()::unpublishBrId(", vni, ") return");
}

void QorEvpnTxSm::cleanupStaleBrIdEntries() {
  if (!initialized()) return;
  TRACE(txTrace, 3, "QorEvpnTxSm()::cleanupStaleBrIdEntries()");
  std::set<Vxlan::Vni> staleVnis;
  for (auto const& entry : qorBrIdList()->brIdList()) {
    // By existence only: an entry of another type is not stale here, and handleVniFdbStatus(name) sweeps it.
    Vxlan::VniExt const vni = entry.key.vni();
    if (!vniDir()->entityPtr(Orb::Name(vni.stringValue(false)))) staleVnis.insert(Vxlan::Vni(vni.value()));
  }
  cleanupStaleVniEntries(this, staleVnis);
  // A VNI that an observer of the rows added meanwhile may have lost its own with them: it is served anew.
  for (Vxlan::Vni const& vni : staleVnis) {
    Orb::Name const name(Orb::toText(vni));
    if (statusOf(*vniDir(), name) && vniFdbStatusSmDel(vni)) handleVniFdbStatus(name);
  }
  TRACE(txTrace, 4, "QorEvpnTxSm()::cleanupStaleBrIdEntries() return");
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

Orb::Ptr<QorEvpnTxSm> QorEvpnTxSm::QorEvpnTxSmIs(VniDirPtr const& vniDir,
                                                 VniStatusDirPtr const& vniStatusDirFromEvpn,
                                                 Orb::Ptr<QorBrIdList> const& qorBrIdList,
                                                 Orb::Ptr<HostTable> const& hostTableOut,
                                                 Orb::Ptr<FloodTable> const& floodTableOut) {
  return Orb::create<QorEvpnTxSm>(vniDir, vniStatusDirFromEvpn, qorBrIdList, hostTableOut, floodTableOut);
}

Orb::Ptr<QorEvpnTxSm> qorEvpnTxSmFactory(QorEvpnTxSm::VniDirPtr const& vniDir,
                                         QorEvpnTxSm::VniStatusDirPtr const& vniStatusDirFromEvpn,
                                         Orb::Ptr<QorBrIdList> const& qorBrIdList,
                                         Orb::Ptr<HostTable> const& hostTableOut,
                                         Orb::Ptr<FloodTable> const& floodTableOut) {
  return QorEvpnTxSm::QorEvpnTxSmIs(vniDir, vniStatusDirFromEvpn, qorBrIdList, hostTableOut, floodTableOut);
}

}  // namespace QorEvpn
