/// The controller's stand-in: Controller, and a ServedVni for each VNI that a source of it serves.
///
///   input                                       handler                   output
///   sources: vni, mac, flood, multipath, -del   apply(source, event)      what the sources know, merged
///   VniStatusDirV2.vniStatusV2 (from EVPN)      handleVniStatus(vni)      the ServedVni's view of EVPN
///   (a ServedVni's own)                                                   RemoteRows of every switch
///
/// Rule of a MAC: the highest sequence number wins; on a tie the sources' entry before EVPN's, and of the
/// sources' the lower VTEP. An entry of EVPN's that wins is stored unchanged. A flood list is the union of
/// all VTEPs, each on if anybody has it on (EVPN's always are); a list without VTEPs does not exist. A
/// multipath entry is the union of the sources'. A VNI is served as long as any source serves it.
///
/// Switches have no sequence numbers, so of all entries that they list of a MAC the one that was heard last
/// counts, and the controller numbers it: 0 at first; one more when the MAC's VTEP changes, also when it
/// falls back to a switch that still lists it; at least one more than the entry in force when a switch newly
/// hears a MAC that is EVPN's or a feed's. What a switch lists when it tells its state for the first time was
/// not newly heard: a restart takes nothing away from whoever had it.
///
/// What an earlier run left (earlierIs()) counts as a switch's entry with the number that it had, until
/// earlierDel(): so it stays in force until a source tells something newer, numbers go on where they were,
/// and nothing is withdrawn in between.
///
/// Order: these reactors must be registered before those of the transmit machines, on every object of EVPN's
/// status, so that a change is merged before it is compared with what is merged; otherwise a withdrawn entry
/// would be exported for a moment. Hence: build the Controller before the transmit root; it connects to a
/// status or a list in the very notification that announces it, and to those that are there before it puts a
/// VNI into the directory.
#pragma once

#include <memory>
#include <set>

#include "Orb/Dir.h"
#include "agent/base/Remote.h"
#include "agent/controller/Duplicates.h"
#include "agent/controller/ServedVni.h"

namespace Agent {

class Controller : public Orb::StateMachine<Controller> {
 public:
  using VniStatusDirPtr = Orb::Ptr<VxlanController::VniStatusDirV2 const>;
  static Orb::Ptr<Controller> ControllerIs(VniStatusDirPtr const& vniStatusDirFromEvpn);
  explicit Controller(VniStatusDirPtr const& vniStatusDirFromEvpn);
  ~Controller() override;
  static Orb::TypeDescriptor const& type();

  /// A VniFdbStatusV2 for each VNI that is served, under the VNI in decimal.
  Orb::Ptr<Orb::Dir> const& vniDir() const { return vniDir_; }
  /// The same by VNI, or null.
  VxlanController::VniFdbStatusV2 const* vniFdbStatus(Vxlan::Vni vni) const;

  // The ledgers of sources, as in SourceLedgers. Removing an entry that does not exist does nothing.
  void sourceIs(SourceId source, bool isNumbered);
  void begin(SourceId source);
  /// Every op of the controller's but `enabled`. `number` and `frozen` do not belong to a source.
  void apply(SourceId source, Event const& event);
  bool whole(SourceId source);
  bool withdraw(SourceId source);
  std::size_t entries(SourceId source) const;
  void tellState(SourceLedgers::Tell const& tell) const;

  // The entries that an earlier run left: a published VNI, an entry of a MAC, a VTEP of the all-BUM list.
  void earlierIs(Vxlan::Vni vni) { serve(vni).earlierIsPublished(); }
  void earlierIs(Vxlan::Vni vni, VxlanController::MacVtepV2 const& entry) { serve(vni).earlierMacIs(entry); }
  void earlierIs(Vxlan::Vni vni, Wirix::IpAddr floodVtep) { serve(vni).earlierFloodIs(floodVtep); }
  /// Withdraws a part of them; true if none is left (SourceLedgers::settled()).
  bool earlierDel();

  /// [{"vni": 5000, "mac": "02:00:00:00:00:01", "vtep": "10.99.0.11", "seq": 0, "from": "leaf1",
  ///   "why": "heard last"}, ..], of every MAC; `from` is "evpn" or the result of `nameOf`.
  nlohmann::ordered_json fdb(std::function<std::string(SourceId)> const& nameOf) const;

  /// The merged state of a VNI, or null if it is not served.
  ServedVni const* served(Vxlan::Vni vni) const {
    Orb::Ptr<ServedVni> const* const found = served_.find(vni);
    return found ? found->get() : nullptr;
  }
  /// Whose entry of a MAC is in force, and why; nothing if the VNI is not served.
  std::optional<ServedVni::Verdict> verdict(Vxlan::Vni vni, Wirix::EthAddr mac) const;
  /// Calls `visit` with each VNI that is served. `visit` must not change the controller.
  template <class Visit>
  void forEachVni(Visit visit) const {
    for (auto const& each : served_) visit(each.key);
  }

  /// A new view for one switch: the entries that it does not have itself. The controller owns it.
  RemoteRows& remoteRows();
  /// Every source is synced or given up. Informs the RemoteRows of switches.
  void settledIs();
  bool isSettled() const { return isSettled_; }

  /// While a MAC is frozen, a switch that hears it does not get a higher number: the entry of the other site
  /// stays in force, and has it also where the numbers are equal and its VTEP is lower.
  void frozenIs(Vxlan::Vni vni, Wirix::EthAddr mac, bool isFrozen);
  bool isFrozen(Vxlan::Vni vni, Wirix::EthAddr mac) const {
    return !frozen_.empty() && frozen_.contains({vni, mac});
  }
  /// Sets the object that counts moves between sites; null for none. It must outlive the controller.
  void duplicatesIs(Duplicates* duplicates) { duplicates_ = duplicates; }

  void handleVniStatus(Vxlan::Vni const& vni);

  class OrbVniStatusDirFromEvpn
      : public Reactor<VxlanController::VniStatusDirV2,
                       On<VxlanController::VniStatusDirV2::vniStatusV2Attr, &Controller::handleVniStatus>> {
    using Reactor::Reactor;
  };

 private:
  friend StateMachine;
  friend ServedVni;
  class Remote;
  struct SourceRecord {
    bool isNumbered = true;
    bool isKnown = false;  ///< It has been synced once: an entry that it tells now was newly heard.
  };

  auto inputs() { return std::tie(vniStatusDirFromEvpn_); }
  ServedVni& serve(Vxlan::Vni vni);
  void unserve(Vxlan::Vni vni);
  void takeBack(SourceId source, Event const& event);
  void retire(ServedVni& served, SourcePart* part);
  bool drop(std::size_t& limit, SourceId source, VniLedger SourcePart::*ledger);
  void vniChanged(Vxlan::Vni vni);
  // Called by each ServedVni.
  void macChanged(Vxlan::Vni vni, Wirix::EthAddr mac);
  void floodChanged(Vxlan::Vni vni, Wirix::EthAddr mac);

  Orb::Input<OrbVniStatusDirFromEvpn> vniStatusDirFromEvpn_;
  Orb::Ptr<Orb::Dir> vniDir_;
  Orb::FlatMap<Vxlan::Vni, Orb::Ptr<ServedVni>> served_;
  std::vector<SourceRecord> sources_;
  std::vector<std::unique_ptr<Remote>> remotes_;
  std::set<std::pair<Vxlan::Vni, Wirix::EthAddr>> frozen_;
  Duplicates* duplicates_ = nullptr;
  bool isSettled_ = false;
};

}  // namespace Agent
