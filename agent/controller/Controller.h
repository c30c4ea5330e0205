/// The controller's stand-in: Controller, and a ServedVni for each VNI that its switches serve.
///
///   input                                       handler                   output
///   feed: vni, mac, flood, multipath and -del   apply(event)              what the switches know, merged
///   VniStatusDirV2.vniStatusV2 (from EVPN)      handleVniStatus(vni)      the ServedVni's view of EVPN
///   VniStatusV2.macVtepTable                    handleMac(mac)            VniFdbStatusV2.macVtepTable
///   VniStatusV2.macVtepFloodListTable           handleFloodList(mac)      the list is watched, and as below
///   MacVtepFloodListV2.vtepIpFloodList          handleFloodVtep(address)  the all-BUM list of VniFdbStatusV2
///
/// Rule: of the switches' entry of a MAC and EVPN's, the higher sequence number wins, on a tie the
/// switches'; an entry of EVPN's that wins is stored unchanged. The flood list for all BUM traffic is the
/// union of both sides' VTEPs, each on if either side has it on (EVPN's always are); a list without VTEPs
/// does not exist.
///
/// Order: these reactors must be registered before those of the transmit machines, on every object of EVPN's
/// status, so that a change is merged before it is compared with what is merged; otherwise a withdrawn entry
/// would be exported for a moment. Hence: build the Controller before the transmit root; it connects to a
/// status or a list in the very notification that announces it, and to those that are there before it puts a
/// VNI into the directory.
#pragma once

#include <map>

#include "DataModel/VniFdbStatusV2.h"
#include "DataModel/VniStatusV2.h"
#include "Orb/Dir.h"
#include "Orb/StateMachine.h"
#include "agent/feed/Event.h"

namespace Agent {

/// Merges one VNI.
class ServedVni : public Orb::StateMachine<ServedVni> {
 public:
  using EvpnStatusPtr = Orb::Ptr<VxlanController::VniStatusV2 const>;

  explicit ServedVni(Vxlan::Vni vni);
  ~ServedVni() override { teardown(); }
  static Orb::TypeDescriptor const& type();

  /// What the controller publishes about the VNI.
  Orb::Ptr<VxlanController::VniFdbStatusV2> const& vniFdbStatus() const { return vniFdbStatus_; }

  /// EVPN's status of the VNI, or null. Another one, or none, merges everything again.
  EvpnStatusPtr const& vniStatusFromEvpn() const { return vniStatusFromEvpn_.notifier(); }
  void vniStatusFromEvpnIs(EvpnStatusPtr const& status) { vniStatusFromEvpn_.lateIs(this, status); }

  // What the switches know.
  void learnedIs(VxlanController::MacVtepV2 const& entry);
  void learnedDel(Wirix::EthAddr mac);
  void floodIs(Wirix::EthAddr mac, Wirix::IpAddr vtep, bool on);
  void floodDel(Wirix::EthAddr mac, Wirix::IpAddr vtep);

  void handleInitialized();
  void handleMac(Wirix::EthAddr const& mac);
  void handleFloodList(Wirix::EthAddr const& mac);
  void handleFloodVtep(Wirix::IpAddr const& vtep);

  class OrbVniStatusFromEvpn
      : public Reactor<
            VxlanController::VniStatusV2,
            On<VxlanController::VniStatusV2::macVtepTableAttr, &ServedVni::handleMac>,
            On<VxlanController::VniStatusV2::macVtepFloodListTableAttr, &ServedVni::handleFloodList>> {
    using Reactor::Reactor;
  };
  class OrbFloodListFromEvpn
      : public Reactor<
            VxlanController::MacVtepFloodListV2,
            On<VxlanController::MacVtepFloodListV2::vtepIpFloodListAttr, &ServedVni::handleFloodVtep>> {
    using Reactor::Reactor;
  };

 private:
  friend StateMachine;
  auto inputs() { return std::tie(vniStatusFromEvpn_, floodListFromEvpn_); }
  bool isOn(Wirix::EthAddr mac, Wirix::IpAddr vtep, bool& on) const;
  void mergeFlood(Wirix::EthAddr mac, Wirix::IpAddr vtep);

  Orb::Ptr<VxlanController::VniFdbStatusV2> vniFdbStatus_;
  Orb::FlatMap<Wirix::EthAddr, VxlanController::MacVtepV2> learned_;
  std::map<Wirix::EthAddr, std::map<Wirix::IpAddr, bool>> floods_;
  Orb::Input<OrbVniStatusFromEvpn> vniStatusFromEvpn_;
  Orb::Input<OrbFloodListFromEvpn> floodListFromEvpn_;
};

class Controller : public Orb::StateMachine<Controller> {
 public:
  using VniStatusDirPtr = Orb::Ptr<VxlanController::VniStatusDirV2 const>;

  static Orb::Ptr<Controller> ControllerIs(VniStatusDirPtr const& vniStatusDirFromEvpn);
  explicit Controller(VniStatusDirPtr const& vniStatusDirFromEvpn);
  ~Controller() override { teardown(); }
  static Orb::TypeDescriptor const& type();

  /// A VniFdbStatusV2 for each VNI that is served, under the VNI in decimal.
  Orb::Ptr<Orb::Dir> const& vniDir() const { return vniDir_; }

  /// Takes what the switches learned: every op of the controller's but `enabled`. Taking back what is not
  /// there does nothing.
  void apply(Event const& event);

  void handleVniStatus(Vxlan::Vni const& vni);

  class OrbVniStatusDirFromEvpn
      : public Reactor<VxlanController::VniStatusDirV2,
                       On<VxlanController::VniStatusDirV2::vniStatusV2Attr, &Controller::handleVniStatus>> {
    using Reactor::Reactor;
  };

 private:
  friend StateMachine;
  auto inputs() { return std::tie(vniStatusDirFromEvpn_); }
  ServedVni& serve(Vxlan::Vni vni);
  void unserve(Vxlan::Vni vni);

  Orb::Input<OrbVniStatusDirFromEvpn> vniStatusDirFromEvpn_;
  Orb::Ptr<Orb::Dir> vniDir_;
  Orb::FlatMap<Vxlan::Vni, Orb::Ptr<ServedVni>> served_;
};

}  // namespace Agent
