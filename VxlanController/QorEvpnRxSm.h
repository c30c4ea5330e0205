/// QorEvpnRxSm is the receive path: it keeps the controller's per-VNI status in step with the host and flood
/// rows that the EVPN side publishes.
///
///   input                  handler                output (VniStatusDirV2.vniStatusV2 of the row's VNI)
///   HostTable.host         handleHost(key)        macVtepTable: MAC, VTEP, sequence number, preference
///   FloodTable.floodEntry  handleFloodEntry(key)  macVtepFloodListTable, list of MAC 00:00:00:00:00:00: VTEP
///   (construction)         initSm()               every row that is there already
///   (the agent, by name)   cleanup()              what the rows put there is withdrawn
///
/// Invariants: a VNI's status is made by its first row and removed by the deletion that leaves both its
/// MAC table and its flood lists empty. A row that equals the default row counts as absent. A deletion for
/// a VNI without status, or of a flood VTEP without list, fails an assertion: a HostTable or FloodTable,
/// in either reading mode, never announces the removal of a row that it did not announce. Nobody else may
/// fill the multipath or the IP-to-MAC table of a status that this machine manages (asserted). Never give it
/// the tables that the same agent's transmit machines write: export and import would feed each other for
/// ever.
///
/// Ownership: created by the agent through qorEvpnRxSmFactory; counts references to its tables, which it
/// reads only, and to the directory that it writes. It traces nothing and has no `initialized`: its handlers
/// act whenever called.
#pragma once

#include "DataModel/VniStatusV2.h"
#include "Orb/StateMachine.h"
#include "VxlanController/QorEvpnBrine.h"

namespace VxlanController {

class QorEvpnRxSm : public Orb::StateMachine<QorEvpnRxSm> {
 public:
  using HostTablePtr = Orb::Ptr<QorEvpn::HostTable const>;
  using FloodTablePtr = Orb::Ptr<QorEvpn::FloodTable const>;
  using VniStatusDirPtr = Orb::Ptr<VniStatusDirV2>;

  static Orb::Ptr<QorEvpnRxSm> QorEvpnRxSmIs(HostTablePtr hostTable, FloodTablePtr floodTable,
                                             VniStatusDirPtr vniStatusDir);
  QorEvpnRxSm(HostTablePtr const& hostTable, FloodTablePtr const& floodTable,
              VniStatusDirPtr const& vniStatusDir);
  ~QorEvpnRxSm() override { teardown(); }
  static Orb::TypeDescriptor const& type();

  HostTablePtr const& hostTable() const { return hostTable_.notifier(); }
  HostTablePtr hostTableDel() { return hostTable_.del(); }
  FloodTablePtr const& floodTable() const { return floodTable_.notifier(); }
  FloodTablePtr floodTableDel() { return floodTable_.del(); }
  VniStatusDirPtr const& vniStatusDir() const { return vniStatusDir_; }

  /// Removes the status of a VNI, which must exist, if nothing is left in it.
  void maybeDeleteVniStatus(Vxlan::Vni vni);
  void deleteHostEntry(QorEvpn::MacVniPair const& key);
  void handleHost();
  void handleHost(QorEvpn::MacVniPair const& key);
  void deleteFloodEntry(QorEvpn::VniVtepPair const& key);
  void handleFloodEntry();
  void handleFloodEntry(QorEvpn::VniVtepPair const& key);
  /// Withdraws what the rows that are in the tables now put there. What a row put there whose removal was
  /// not delivered yet may stay: `deliver()` of both tables before. An addition that was not delivered yet is
  /// announced by the walk, and withdrawn; with notification off it has no status to be withdrawn from,
  /// which fails an assertion. Drop the machine, or switch its notification off, before the next delivery:
  /// the removal of a withdrawn row fails the same assertion.
  void cleanup();
  void initSm();

  class OrbHostTable
      : public Reactor<QorEvpn::HostTable, On<QorEvpn::HostTable::hostAttr, &QorEvpnRxSm::handleHost>> {
    using Reactor::Reactor;
  };
  class OrbFloodTable
      : public Reactor<QorEvpn::FloodTable,
                       On<QorEvpn::FloodTable::floodEntryAttr, &QorEvpnRxSm::handleFloodEntry>> {
    using Reactor::Reactor;
  };
  Orb::Ptr<OrbHostTable> const& orbHostTable() const { return hostTable_.reactor(); }
  Orb::Ptr<OrbFloodTable> const& orbFloodTable() const { return floodTable_.reactor(); }

 private:
  friend StateMachine;
  auto inputs() { return std::tie(hostTable_, floodTable_); }

  Orb::Input<OrbHostTable> hostTable_;
  Orb::Input<OrbFloodTable> floodTable_;
  VniStatusDirPtr vniStatusDir_;
};

/// Creates the machine; rows that are in the tables are mirrored before this returns. Every argument must be
/// given.
Orb::Ptr<QorEvpnRxSm> qorEvpnRxSmFactory(QorEvpnRxSm::HostTablePtr hostTable,
                                         QorEvpnRxSm::FloodTablePtr floodTable,
                                         QorEvpnRxSm::VniStatusDirPtr vniStatusDir);

}  // namespace VxlanController
