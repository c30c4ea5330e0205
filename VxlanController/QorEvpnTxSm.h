/// QorEvpnTxSm is the root of the transmit path, one per agent: it keeps a VniFdbStatusSm for every VNI that
/// the controller serves, and removes what was written for one that it serves no longer.
///
///   input                                 handler                       output
///   Dir.entry (added, removed, ...)       handleVniFdbStatus(name)      child made and started, or
///                                                                       its rows swept, child cleaned up
///   VniStatusDirV2.vniStatusV2            handleVniStatusFromEvpn(vni)  the child's view of EVPN's status
///   (a child)                             publishBrId, unpublishBrId    QorBrIdList.brIdList
///   (construction)                        handleInitialized()           stale rows swept, all children
///   (the agent, by name)                  cleanup()                     all outputs emptied, no children
///
/// Invariants: a child of a VNI exists only while the directory holds a VniFdbStatusV2 under the VNI in
/// decimal, and was built for that very object. Every child is initialized and knows EVPN's current status of
/// its VNI. While `initialized` is false, handleInitialized() alone changes anything. Replacing the entity of
/// a VNI raises the re-instantiation error; a name whose number exceeds 24 bits raises the range error.
///
/// An identifier leaves the list of bridge identifiers by four doors: unpublishBrId(), when a child finds its
/// VNI's status empty; the sweep of a VNI whose status was removed; the sweep at the start of identifiers
/// without a status (cleanupStaleBrIdEntries()); and cleanup(), which empties the list.
///
/// Observers of a machine's outputs only read: who must change an input does so in the loop's next turn. One
/// who changes an input from within a delivery meets no fault, but rows may be wrong until the next pass.
///
/// Ownership: created by the agent through qorEvpnTxSmFactory. Counts references to inputs, outputs and
/// children; a child points back plainly and reaches the outputs through this machine, the only writer of all
/// three. Drop the root from the loop only: a child's handler may be on the stack.
#pragma once

#include <set>

#include "DataModel/QorBrIdList.h"
#include "Orb/Dir.h"
#include "VxlanController/QorEvpnBrine.h"
#include "VxlanController/VniFdbStatusSm.h"

namespace QorEvpn {

class QorEvpnTxSm : public Orb::StateMachine<QorEvpnTxSm> {
 public:
  using VniDirPtr = Orb::Ptr<Orb::Dir const>;
  using VniStatusDirPtr = Orb::Ptr<VxlanController::VniStatusDirV2 const>;
  using VniFdbStatusSms = Orb::HashMap<VniFdbStatusSm, Vxlan::Vni, &VniFdbStatusSm::vni, &Vxlan::Vni::value>;

  static Orb::Ptr<QorEvpnTxSm> QorEvpnTxSmIs(VniDirPtr vniDir, VniStatusDirPtr vniStatusDirFromEvpn,
                                             Orb::Ptr<QorBrIdList> qorBrIdList,
                                             Orb::Ptr<HostTable> hostTableOut,
                                             Orb::Ptr<FloodTable> floodTableOut);
  QorEvpnTxSm(VniDirPtr const& vniDir, VniStatusDirPtr const& vniStatusDirFromEvpn,
              Orb::Ptr<QorBrIdList> const& qorBrIdList, Orb::Ptr<HostTable> const& hostTableOut,
              Orb::Ptr<FloodTable> const& floodTableOut);
  ~QorEvpnTxSm() override { teardown(); }
  static Orb::TypeDescriptor const& type();

  VniDirPtr const& vniDir() const { return vniDir_.notifier(); }
  VniDirPtr vniDirDel() { return vniDir_.del(); }
  VniStatusDirPtr const& vniStatusDirFromEvpn() const { return vniStatusDirFromEvpn_.notifier(); }
  VniStatusDirPtr vniStatusDirFromEvpnDel() { return vniStatusDirFromEvpn_.del(); }
  Orb::Ptr<QorBrIdList> const& qorBrIdList() const { return qorBrIdList_; }
  Orb::Ptr<HostTable> const& hostTableOut() const { return hostTableOut_; }
  Orb::Ptr<FloodTable> const& floodTableOut() const { return floodTableOut_; }

  /// The children. `Is` finds or creates, and raises the re-instantiation error for another status object;
  /// `Del` takes a child out without cleaning it up.
  VniFdbStatusSms const& vniFdbStatusSm() const { return vniFdbStatusSm_; }
  Orb::Ptr<VniFdbStatusSm> vniFdbStatusSm(Vxlan::Vni vni) const { return vniFdbStatusSm_.member(vni); }
  Orb::Ptr<VniFdbStatusSm> vniFdbStatusSmIs(Vxlan::Vni vni, VniFdbStatusSm::StatusPtr vniFdbStatus);
  Orb::Ptr<VniFdbStatusSm> vniFdbStatusSmDel(Vxlan::Vni vni) { return vniFdbStatusSm_.memberDel(vni); }
  void vniFdbStatusSmDelAll() { vniFdbStatusSm_.memberDelAll(); }

  bool initialized() const { return initialized_; }
  void initializedIs(bool initialized) { initialized_ = initialized; }

  void handleInitialized();
  void handleVniFdbStatus();
  void handleVniFdbStatus(Orb::Name name);
  void handleVniStatusFromEvpn(Vxlan::Vni vni);
  void cleanup();

  /// The list of bridge identifiers; an identifier of another type than VNI fails an assertion. The first two
  /// are idempotent and for the children; the third is the first step of the full pass.
  void publishBrId(Bridging::BridgeId brId);
  void unpublishBrId(Bridging::BridgeId brId);
  void cleanupStaleBrIdEntries();

  class OrbVniDir : public Reactor<Orb::Dir, On<Orb::Dir::entryAttr, &QorEvpnTxSm::handleVniFdbStatus>> {
    using Reactor::Reactor;
  };
  class OrbVniStatusDirFromEvpn
      : public Reactor<VxlanController::VniStatusDirV2, On<VxlanController::VniStatusDirV2::vniStatusV2Attr,
                                                           &QorEvpnTxSm::handleVniStatusFromEvpn>> {
    using Reactor::Reactor;
  };
  Orb::Ptr<OrbVniDir> const& orbVniDir() const { return vniDir_.reactor(); }
  Orb::Ptr<OrbVniStatusDirFromEvpn> const& orbVniStatusDirFromEvpn() const {
    return vniStatusDirFromEvpn_.reactor();
  }

 private:
  friend StateMachine;
  auto inputs() { return std::tie(vniDir_, vniStatusDirFromEvpn_); }
  auto children() { return std::tie(vniFdbStatusSm_); }

  Orb::Input<OrbVniDir> vniDir_;
  Orb::Input<OrbVniStatusDirFromEvpn> vniStatusDirFromEvpn_;
  Orb::Ptr<QorBrIdList> qorBrIdList_;
  Orb::Ptr<HostTable> hostTableOut_;
  Orb::Ptr<FloodTable> floodTableOut_;
  VniFdbStatusSms vniFdbStatusSm_{4};
  bool initialized_ = false;
};

/// Creates the root; its first pass runs before this returns. Every argument must be given.
Orb::Ptr<QorEvpnTxSm> qorEvpnTxSmFactory(QorEvpnTxSm::VniDirPtr vniDir,
                                         QorEvpnTxSm::VniStatusDirPtr vniStatusDirFromEvpn,
                                         Orb::Ptr<QorBrIdList> qorBrIdList, Orb::Ptr<HostTable> hostTableOut,
                                         Orb::Ptr<FloodTable> floodTableOut);

/// The VNI that the name of an entry of the directory stands for: the low 32 bits of the number at its
/// beginning, 0 without one. Raises the range error above 24 bits.
Vxlan::Vni vniOfName(Orb::Name const& name);

/// The stale-VNI sweep: removes everything of the given VNIs from the root's outputs: first their bridge
/// identifiers, then host rows, then flood rows. Rows are chosen by VNI alone, whoever wrote them, so rows of
/// an earlier run go too. Both tables are walked whatever the size of the set; a damaged table ends its own
/// walk and nothing else. The root's `initialized` is not looked at: that is the callers' part.
void cleanupStaleVniEntries(Orb::Ptr<QorEvpnTxSm> sm, std::set<Vxlan::Vni> const& staleVnis);

}  // namespace QorEvpn
