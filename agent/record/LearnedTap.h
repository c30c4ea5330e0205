/// Agent::LearnedTap: records the rows that an agent reads from the EVPN side's tables, as the events of one
/// source. The EVPN side may run in this process or in another one.
///
///   input                handler                 output
///   learned host table   handleHost(key)         mac, mac-del
///   learned flood table  handleFloodEntry(key)   flood, flood-del
#pragma once

#include "DataModel/VniStatusV2.h"
#include "Orb/StateMachine.h"
#include "agent/record/Recorder.h"
#include "agent/site/Mount.h"

namespace Agent {

class LearnedTap : public Orb::StateMachine<LearnedTap> {
 public:
  /// Call it before the tables are mounted, so that deliveries tell every row.
  LearnedTap(TablePair const& learned, Recorder& recorder);
  ~LearnedTap() override { teardown(); }
  static Orb::TypeDescriptor const& type();

  /// All rows that the tables had at the start have been recorded.
  void whole();
  /// Calls `tell` with every row that has been imported, as a source that tells its state again.
  void tellState(VxlanController::VniStatusDirV2 const& imported, SourceLedgers::Tell const& tell) const;

  void handleHost(QorEvpn::MacVniPair const& key);
  void handleFloodEntry(QorEvpn::VniVtepPair const& key);

 private:
  friend StateMachine;
  auto inputs() { return std::tie(hostTable_, floodTable_); }

  Recorder& recorder_;
  bool isWhole_ = false;
  Orb::Input<Reactor<QorEvpn::HostTable, On<QorEvpn::HostTable::hostAttr, &LearnedTap::handleHost>>>
      hostTable_;
  Orb::Input<
      Reactor<QorEvpn::FloodTable, On<QorEvpn::FloodTable::floodEntryAttr, &LearnedTap::handleFloodEntry>>>
      floodTable_;
};

}  // namespace Agent
