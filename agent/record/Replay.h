/// Agent::Replay: repeats, in a site of its own, what a recorded process did (agent/record/Recorder.h). It
/// uses the same machines, tables and ledgers, but no sources and no clock.
///
/// At the beginning of each recorded run all objects are built again, on tables as the run found them. Files
/// of one run follow each other: the state at the beginning of a later file is skipped.
#pragma once

#include <optional>

#include "agent/evpn/EvpnSide.h"
#include "agent/site/HostedModule.h"
#include "agent/views/EvpnStatus.h"

namespace Agent {

/// A temporary directory, in /dev/shm if possible, which is removed with its owner.
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

  /// Applies the next event of the recording.
  void apply(Event const& event);
  /// Publishes the changes to readers of the tables.
  void endTurn();

  Site const& site() const { return site_; }
  /// `controller` for the recording of an agent, `evpn` for that of an EVPN side.
  Origin side() const { return side_; }
  /// Whether the tables exist: more was read than the beginning of a run.
  bool isBuilt() const { return evpn_.has_value(); }
  /// The status that the agent had from EVPN; empty for the recording of an EVPN side.
  EvpnStatus evpnStatus() const;
  /// The agent's answer (HostedModule::why()). Raises std::runtime_error for the recording of an EVPN side.
  nlohmann::ordered_json why(std::string_view argument) const;

 private:
  void beginRun(Event const& event);
  void build();
  void applyTo(Sources& sources, SourceLedgers& ledgers, Event const& event);

  ScratchDir dir_;
  Site site_;
  Loop loop_;  ///< Never runs.
  Origin side_ = Origin::controller;
  std::optional<EvpnSide> evpn_;
  std::optional<HostedModule> module_;
  SiteRows earlierExported_, earlierLearned_;  ///< The rows that the run found.
  std::string run_;
  std::uint32_t part_ = 0;
  bool isKnown_ = false;  ///< The state at the beginning of the present file is in force here already.
};

}  // namespace Agent
