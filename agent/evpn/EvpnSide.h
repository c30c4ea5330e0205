/// Agent::EvpnSide: the EVPN side of a site: the tables that it writes, and the sources from which it learns
/// their rows (speakers, feeds, other sites).
#pragma once

#include "agent/evpn/LearnedSources.h"
#include "agent/record/Recorder.h"

namespace Agent {

class EvpnSide {
 public:
  /// Mounts the tables as their writer; raises MountError if another process writes them. `hold`: how long
  /// the entries of a lost source are kept; 0 is for ever.
  EvpnSide(Loop& loop, Site const& site, bool repair, std::chrono::seconds hold, Logs logs)
      : learned_(site, repair), ledgers_(learned_), sources_(loop, ledgers_, hold, std::move(logs)) {
    sources_.keepsEarlierIs(learned_.rows() != 0);
  }
  EvpnSide(EvpnSide const&) = delete;
  EvpnSide& operator=(EvpnSide const&) = delete;

  /// Records the events of all sources. Call it before the first source is added. The recorder must outlive
  /// this object.
  void recorderIs(Recorder& recorder) { recorder.tap(sources_, ledgers_); }

  /// Where sources of EVPN events are added.
  Sources& sources() { return sources_; }
  Sources const& sources() const { return sources_; }
  LearnedSources& ledgers() { return ledgers_; }
  LearnedSources const& ledgers() const { return ledgers_; }
  Learned& learned() { return learned_; }
  /// It has sources that cannot tell the capability (EvpnState::Capability::assumed).
  void assumeCapability() { ledgers_.assumeCapability(); }

 private:
  Learned learned_;
  LearnedSources ledgers_;
  Sources sources_;
};

}  // namespace Agent
