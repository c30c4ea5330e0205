/// Agent::Source: whatever tells a process events - a feed, a switch's database, a BGP speaker - is whole, or
/// it is not.
///
///   connecting  it is not there yet: entries of an earlier run are kept
///   syncing     it tells its state: entries are merged as they come, what it has not repeated yet is kept
///   synced      it has told all of its state: what it did not repeat goes now, and nothing else
///   lost        it went away: its entries are kept for a while, then withdrawn
///
/// A source begins as connecting, and goes on to syncing before it tells its first entry. Whenever it begins
/// to tell its state anew (connected again, another FIFO writer, a database's new snapshot), it says syncing
/// first, tells every entry that it holds, and says synced. It keeps no ledger of what it told: whoever
/// listens does (agent/feed/Sources.h). From synced on it tells differences.
///
/// A source fills in an event's `from`, `op` and the keys of the op (agent/feed/Event.h), not `time`.
/// `synced` is no event of its own here but a state. A switch has no sequence numbers and leaves `seq` at 0:
/// the controller numbers its entries. An entry that cannot be (a group MAC as a host's) may be told: it is
/// refused, named and counted by whoever listens.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "agent/feed/Event.h"

namespace Agent {

enum class SourceState : std::uint8_t { connecting, syncing, synced, lost };

/// What a source tells whoever listens to it, one call at a time, from the loop. A handler must not destroy
/// the source that calls it.
struct SourceHandlers {
  /// An entry came, changed or went, in the source's order. While the source is syncing: an entry that it
  /// holds.
  std::function<void(Event const&)> event;
  /// The source is in another state, or still in this one for another reason. `cause`: why, for people
  /// ("connection refused"); empty where all is well.
  std::function<void(SourceState, std::string const& cause)> state;
  /// A line for people that names the source's endpoint and what is wrong there.
  std::function<void(std::string const&)> report;
};

}  // namespace Agent
