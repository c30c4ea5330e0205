/// Agent::LearnedTap: records what an agent takes of the tables that EVPN's side writes, in this process or
/// in another, as one source.
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
  /// The tables are not mounted yet: deliveries tell every row.
  LearnedTap(TablePair const& learned, Recorder& recorder);
  ~LearnedTap() override { teardown(); }
  static Orb::TypeDescriptor const& type();

  /// All that was there has been told.
  void whole();
  /// Tells what has been imported so far, as if the source began anew.
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
