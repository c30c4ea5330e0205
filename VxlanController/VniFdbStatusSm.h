/// VniFdbStatusSm is the transmit machine of one VNI: it exports what the controller learned about the VNI,
/// leaving out every entry that is exactly what EVPN supplied, so that nothing is echoed.
///
///   input                                     handler               output
///   VniFdbStatusV2.macVtepTable               handleHost(mac)       host row written or deleted
///   VniStatusV2.macVtepTable (from EVPN)      handleHost(mac)       "
///   either side's macVtepMultiPathTable       handleMultiPath(mac)  bridge identifier, for the all-BUM MAC
///   either side's macVtepFloodListTable       handleFloodList(mac)  child made, refreshed or removed
///   vniStatusFromEvpn set, replaced, cleared  handleInitialized()   everything again
///
/// Invariants: every handler reads both sides afresh, so the order of events does not matter, and keeps no
/// state across a call that writes. The bridge identifier is published while any of the controller's three
/// tables has an entry, supported or not; an entry that is not supported (a multipath or flood list of a
/// specific MAC) is reported, exports nothing and does not by itself refresh the identifier. While
/// `initialized` is false no handler acts. `cleanup()` leaves host rows and the bridge identifier to the
/// root; destruction writes nothing.
///
/// Ownership: made and held by QorEvpnTxSm, to which it points back plainly and whose outputs it writes;
/// holds at most one MacVtepFloodListSm, for MAC 00:00:00:00:00:00 (all BUM destination addresses).
#pragma once

#include "Bridging/BridgeId.h"
#include "DataModel/VniFdbStatusV2.h"
#include "DataModel/VniStatusV2.h"
#include "Orb/HashMap.h"
#include "VxlanController/MacVtepFloodListSm.h"

namespace QorEvpn {

class QorEvpnTxSm;

class VniFdbStatusSm : public Orb::StateMachine<VniFdbStatusSm>, public Orb::HashLink<VniFdbStatusSm> {
 public:
  using StatusPtr = Orb::Ptr<VxlanController::VniFdbStatusV2 const>;
  using EvpnStatusPtr = Orb::Ptr<VxlanController::VniStatusV2 const>;
  using FloodListPtr = MacVtepFloodListSm::FloodListPtr;
  using MacVtepFloodListSms =
      Orb::HashMap<MacVtepFloodListSm, Wirix::EthAddr, &MacVtepFloodListSm::macAddr, &Wirix::EthAddr::hash>;

  static Orb::Ptr<VniFdbStatusSm> VniFdbStatusSmIs(Vxlan::Vni vni, StatusPtr const& vniFdbStatus,
                                                   QorEvpnTxSm* qorEvpnTxSm);
  VniFdbStatusSm(Vxlan::Vni vni, StatusPtr const& vniFdbStatus, QorEvpnTxSm* qorEvpnTxSm);
  ~VniFdbStatusSm() override { teardown(); }
  static Orb::TypeDescriptor const& type();

  Vxlan::Vni const& vni() const { return vni_; }
  StatusPtr const& vniFdbStatus() const { return vniFdbStatus_.notifier(); }
  StatusPtr vniFdbStatusDel() { return vniFdbStatus_.del(); }
  QorEvpnTxSm* qorEvpnTxSm() const { return qorEvpnTxSm_; }

  /// EVPN's status of this VNI; a late input: another one, or none, runs the full pass. Cleared by `Is`, the
  /// reactor is cut off before the pass; by `Del`, behind it.
  EvpnStatusPtr const& vniStatusFromEvpn() const { return vniStatusFromEvpn_.notifier(); }
  void vniStatusFromEvpnIs(EvpnStatusPtr const& status) {
    vniStatusFromEvpn_.lateIs(this, status, decltype(vniStatusFromEvpn_)::OwnerGoes::beforeThePass);
  }
  EvpnStatusPtr vniStatusFromEvpnDel() { return vniStatusFromEvpn_.lateDel(this); }

  /// The children. `Is` finds or creates, and raises the re-instantiation error for another list object;
  /// `Del` takes a child out without cleaning it up.
  MacVtepFloodListSms const& macVtepFloodListSm() const { return macVtepFloodListSm_; }
  Orb::Ptr<MacVtepFloodListSm> macVtepFloodListSm(Wirix::EthAddr const& macAddr) const {
    return macVtepFloodListSm_.member(macAddr);
  }
  Orb::Ptr<MacVtepFloodListSm> macVtepFloodListSmIs(Wirix::EthAddr const& macAddr,
                                                    FloodListPtr const& macVtepFloodList);
  Orb::Ptr<MacVtepFloodListSm> macVtepFloodListSmDel(Wirix::EthAddr const& macAddr) {
    return macVtepFloodListSm_.memberDel(macAddr);
  }
  void macVtepFloodListSmDelAll() { macVtepFloodListSm_.memberDelAll(); }

  bool initialized() const { return initialized_; }
  /// A changed value, also false, runs handleInitialized().
  void initializedIs(bool initialized);
  void handleInitialized();

  void handleHost();
  void handleHost(Wirix::EthAddr const& macAddr);
  void handleMultiPath();
  void handleMultiPath(Wirix::EthAddr const& macAddr);
  void handleFloodList();
  void handleFloodList(Wirix::EthAddr const& macAddr);

  /// Whether the controller's entry of a MAC is, in all four fields, the one that EVPN supplied. Asserts
  /// initialized().
  bool macEntryProvidedByEvpn(Wirix::EthAddr const& macAddr) const;
  /// Publishes or withdraws the VNI's bridge identifier. Asserts initialized().
  void updateBrIdList();
  /// Delete this VNI's rows for which the controller's status has no entry.
  void cleanupStaleHostEntries();
  void cleanupStaleFloodListEntries();
  void cleanup();

  class OrbVniFdbStatus
      : public Reactor<
            VxlanController::VniFdbStatusV2,
            On<VxlanController::VniFdbStatusV2::macVtepTableAttr, &VniFdbStatusSm::handleHost>,
            On<VxlanController::VniFdbStatusV2::macVtepMultiPathTableAttr, &VniFdbStatusSm::handleMultiPath>,
            On<VxlanController::VniFdbStatusV2::macVtepFloodListTableAttr,
               &VniFdbStatusSm::handleFloodList>> {
    using Reactor::Reactor;
  };
  class OrbVniStatusFromEvpn
      : public Reactor<
            VxlanController::VniStatusV2,
            On<VxlanController::VniStatusV2::macVtepTableAttr, &VniFdbStatusSm::handleHost>,
            On<VxlanController::VniStatusV2::macVtepMultiPathTableAttr, &VniFdbStatusSm::handleMultiPath>,
            On<VxlanController::VniStatusV2::macVtepFloodListTableAttr, &VniFdbStatusSm::handleFloodList>> {
    using Reactor::Reactor;
  };
  Orb::Ptr<OrbVniFdbStatus> const& orbVniFdbStatus() const { return vniFdbStatus_.reactor(); }
  Orb::Ptr<OrbVniStatusFromEvpn> const& orbVniStatusFromEvpn() const { return vniStatusFromEvpn_.reactor(); }

 private:
  friend StateMachine;
  auto inputs() { return std::tie(vniFdbStatus_, vniStatusFromEvpn_); }
  auto children() { return std::tie(macVtepFloodListSm_); }

  Vxlan::Vni const vni_;
  Orb::Input<OrbVniFdbStatus> vniFdbStatus_;
  Orb::Input<OrbVniStatusFromEvpn> vniStatusFromEvpn_;
  MacVtepFloodListSms macVtepFloodListSm_{4};
  bool initialized_ = false;
  QorEvpnTxSm* const qorEvpnTxSm_;
};

/// Creates the machine, not initialized yet; called by the parent's child collection. `qorEvpnTxSm` must
/// outlive it.
Orb::Ptr<VniFdbStatusSm> vniFdbStatusSmFactory(Vxlan::Vni vni, VniFdbStatusSm::StatusPtr const& vniFdbStatus,
                                               QorEvpnTxSm* qorEvpnTxSm);

}  // namespace QorEvpn
