/// Agent::Source: whatever tells a process events - a feed, a switch's database, a BGP speaker - is whole, or it
/// is not.
///
///   connecting  it is not there yet: entries of an earlier run are kept
///   syncing     it tells its state: entries are merged as they come, what it has not repeated yet is kept
///   synced      it has told all of its state: what it did not repeat goes now, and nothing else
///   lost        it went away: its entries are kept for a while, then withdrawn
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "agent/feed/Event.h"

namespace Agent {

enum class SourceState : std::uint8_t { connecting, syncing, synced, lost };

/// What a source tells whoever listens to it, one call at a time, from the loop. A handler must not destroy the
/// source that calls it.
struct SourceHandlers {
  /// An entry came, changed or went, in the source's order. While the source is syncing: an entry that it holds.
  std::function<void(Event const&)> event;
  /// The source is in another state. `cause`: why, for people ("connection refused"); empty where all is well.
  std::function<void(SourceState, std::string const& cause)> state;
  /// A line for people that names the source's endpoint and what is wrong there.
  std::function<void(std::string const&)> report;
};

}  // namespace Agent
