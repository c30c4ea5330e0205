/// Agent::Replay: does again, in a site of its own, what a process did whose recording it is told
/// (agent/record/Recorder.h), with the same machines, tables and ledgers, and neither sources nor time.
///
/// Where a run of the process begins, all is built anew on the tables that the run found. Files that follow
/// one another in a run are one: what holds at the beginning of the next is known already.
#pragma once

#include <optional>

#include "agent/evpn/EvpnSide.h"
#include "agent/site/HostedModule.h"
#include "agent/views/EvpnStatus.h"

namespace Agent {

/// A directory of its own, in memory if there is any, that goes with its owner.
class ScratchDir {
 public:
  ScratchDir();
  ~ScratchDir();
  ScratchDir(ScratchDir const&) = delete;
  ScratchDir& operator=(ScratchDir const&) = delete;
  std::string const& path() const { return path_; }

 private:
  std::string path_;
};

class Replay {
 public:
  Replay();
  ~Replay();

  /// The next line.
  void apply(Event const& event);
  /// Readers of the tables are told what has changed.
  void endTurn();

  Site const& site() const { return site_; }
  /// Whose recording it is.
  Origin side() const { return side_; }
  /// There is something to be looked at: more was read than the beginning of a run.
  bool isBuilt() const { return evpn_.has_value(); }
  /// What the agent had from EVPN; empty for the EVPN side's own recording.
  EvpnStatus evpnStatus() const;
  /// As the agent's answer (HostedModule::why()). Raises std::runtime_error for the EVPN side's recording.
  nlohmann::ordered_json why(std::string_view argument) const;

 private:
  void beginRun(Event const& event);
  void build();
  void applyTo(Sources& sources, SourceLedgers& ledgers, Event const& event);

  ScratchDir dir_;
  Site site_;
  Loop loop_;  ///< Never turns.
  Origin side_ = Origin::controller;
  std::optional<EvpnSide> evpn_;
  std::optional<HostedModule> module_;
  SiteRows earlierExported_, earlierLearned_;  ///< What the run found.
  std::string run_;
  std::uint32_t part_ = 0;
  bool isKnown_ = false;  ///< What holds at the beginning of a file has come about here, too.
};

}  // namespace Agent
