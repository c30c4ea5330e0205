/// Agent::EvpnSide: the EVPN side of a site that learns from sources - speakers, feeds, other sites.
#pragma once

#include "agent/evpn/LearnedSources.h"
#include "agent/record/Recorder.h"

namespace Agent {

class EvpnSide {
 public:
  /// Raises MountError where another process writes the tables. `hold`: how long what a lost source told is
  /// kept; 0 is for ever.
  EvpnSide(Loop& loop, Site const& site, bool repair, std::chrono::seconds hold, Logs logs)
      : learned_(site, repair), ledgers_(learned_), sources_(loop, ledgers_, hold, std::move(logs)) {
    sources_.keepsEarlierIs(learned_.rows() != 0);
  }
  EvpnSide(EvpnSide const&) = delete;
  EvpnSide& operator=(EvpnSide const&) = delete;

  /// Writes down what sources tell, before the first one is added. The recorder outlives this.
  void recorderIs(Recorder& recorder) { recorder.tap(sources_, ledgers_); }

  /// Where sources of EVPN events are added.
  Sources& sources() { return sources_; }
  Sources const& sources() const { return sources_; }
  LearnedSources& ledgers() { return ledgers_; }
  LearnedSources const& ledgers() const { return ledgers_; }
  Learned& learned() { return learned_; }
  /// It has sources that know of no capability.
  void assumeCapability() { ledgers_.assumeCapability(); }

 private:
  Learned learned_;
  LearnedSources ledgers_;
  Sources sources_;
};

}  // namespace Agent
