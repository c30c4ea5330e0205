/// MacVtepFloodListSm exports one flood list of the controller: a flood row for each VTEP that is switched on
/// in it and that EVPN did not supply.
///
///   input                                              handler                output
///   MacVtepFloodListV2.vtepIpFloodList (controller's)  handleVtepIp(address)  flood row written or deleted
///   MacVtepFloodListV2.vtepIpFloodList (from EVPN)     handleVtepIp(address)  "
///   floodListFromEvpn set, replaced, cleared           handleInitialized()    every address again
///
/// Invariants: the controller's list counts by value (only `true`), EVPN's by key, whatever its value; on
/// purpose. A new machine exports its whole list before it knows EVPN's; the parent's floodListFromEvpnIs
/// then withdraws. While `initialized` is false no address is evaluated. The row's key holds no MAC: two
/// machines of a VNI whose lists share an address write and delete the same row.
///
/// Ownership: made and held by VniFdbStatusSm, to which it points back plainly; the VNI is the parent's, the
/// output the root's.
#pragma once

#include "DataModel/MacVtepFloodListV2.h"
#include "Orb/HashMap.h"
#include "Orb/StateMachine.h"

namespace QorEvpn {

class VniFdbStatusSm;

class MacVtepFloodListSm : public Orb::StateMachine<MacVtepFloodListSm>,
                           public Orb::HashLink<MacVtepFloodListSm> {
 public:
  using FloodListPtr = Orb::Ptr<VxlanController::MacVtepFloodListV2 const>;

  static Orb::Ptr<MacVtepFloodListSm> MacVtepFloodListSmIs(Wirix::EthAddr const& macAddr,
                                                           FloodListPtr const& macVtepFloodList,
                                                           VniFdbStatusSm* vniFdbStatusSm);
  MacVtepFloodListSm(Wirix::EthAddr const& macAddr, FloodListPtr const& macVtepFloodList,
                     VniFdbStatusSm* vniFdbStatusSm);
  ~MacVtepFloodListSm() override { teardown(); }
  static Orb::TypeDescriptor const& type();

  Wirix::EthAddr const& macAddr() const { return macAddr_; }
  FloodListPtr const& macVtepFloodList() const { return macVtepFloodList_.notifier(); }
  FloodListPtr macVtepFloodListDel() { return macVtepFloodList_.del(); }
  VniFdbStatusSm* vniFdbStatusSm() const { return vniFdbStatusSm_; }

  /// EVPN's flood list for the same MAC; a late input: another one, or none, evaluates every address again.
  FloodListPtr const& floodListFromEvpn() const { return floodListFromEvpn_.notifier(); }
  void floodListFromEvpnIs(FloodListPtr list) { floodListFromEvpn_.lateIs(this, list); }
  FloodListPtr floodListFromEvpnDel() { return floodListFromEvpn_.lateDel(this); }

  /// Whether the address is a key of EVPN's list. Asserts initialized().
  bool floodIpProvidedByEvpn(Wirix::IpAddr ipAddr) const;
  void handleVtepIp();
  void handleVtepIp(Wirix::IpAddr ipAddr);
  /// Deletes the rows of every address of the controller's list.
  void cleanup();

  bool initialized() const { return initialized_; }
  void initializedIs(bool initialized) { initialized_ = initialized; }
  void handleInitialized();

  class OrbMacVtepFloodList
      : public Reactor<
            VxlanController::MacVtepFloodListV2,
            On<VxlanController::MacVtepFloodListV2::vtepIpFloodListAttr, &MacVtepFloodListSm::handleVtepIp>> {
    using Reactor::Reactor;
  };
  class OrbFloodListFromEvpn
      : public Reactor<
            VxlanController::MacVtepFloodListV2,
            On<VxlanController::MacVtepFloodListV2::vtepIpFloodListAttr, &MacVtepFloodListSm::handleVtepIp>> {
    using Reactor::Reactor;
  };
  Orb::Ptr<OrbMacVtepFloodList> const& orbMacVtepFloodList() const { return macVtepFloodList_.reactor(); }
  Orb::Ptr<OrbFloodListFromEvpn> const& orbFloodListFromEvpn() const { return floodListFromEvpn_.reactor(); }

 private:
  friend StateMachine;
  auto inputs() { return std::tie(macVtepFloodList_, floodListFromEvpn_); }

  Wirix::EthAddr const macAddr_;
  Orb::Input<OrbMacVtepFloodList> macVtepFloodList_;
  Orb::Input<OrbFloodListFromEvpn> floodListFromEvpn_;
  bool initialized_ = false;
  VniFdbStatusSm* const vniFdbStatusSm_;
};

/// Creates the machine with its first pass; called by the parent's child collection. `vniFdbStatusSm` must
/// outlive it.
Orb::Ptr<MacVtepFloodListSm> macVtepFloodListSmFactory(
    Wirix::EthAddr const& macAddr, MacVtepFloodListSm::FloodListPtr const& macVtepFloodList,
    VniFdbStatusSm* vniFdbStatusSm);

}  // namespace QorEvpn
