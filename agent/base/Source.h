/// Agent::Source: the interface between a source of events (a feed, a switch's database, a BGP speaker) and
/// its listener (agent/feed/Sources.h). A source is in one of four states:
///
///   connecting  it is not connected yet; the listener keeps entries of an earlier run
///   syncing     it tells its state; entries are merged as they come, earlier entries are kept
///   synced      it has told its whole state; earlier entries that it did not repeat are withdrawn now
///   lost        its connection ended; its entries are kept for a while, then withdrawn
///
/// A source begins in the state connecting. Before it tells its first entry it changes to syncing. Whenever
/// it tells its state again (a new connection, another writer of a FIFO, a new snapshot of a database) it
/// changes to syncing, tells every entry that it holds, and changes to synced. From then on it tells
/// differences. It does not remember what it told; the listener does.
///
/// A source sets an event's `from`, `op` and the keys of the op (agent/feed/Event.h), not `time`. It does not
/// send the event `synced`; it changes its state instead. Switches have no sequence numbers: they leave `seq`
/// at 0, and the controller numbers their entries. A source may tell an invalid entry (a host with a group
/// MAC); the listener refuses, reports and counts it.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "agent/feed/Event.h"

namespace Agent {

enum class SourceState : std::uint8_t { connecting, syncing, synced, lost };

/// The listener's handlers, which the source calls from the loop, one at a time. A handler must not destroy
/// the source that calls it.
struct SourceHandlers {
  /// An entry was added, changed or removed, in the source's order. While the source is syncing: an entry
  /// that it holds.
  std::function<void(Event const&)> event;
  /// The source changed its state, or its state has another cause. `cause`: the reason, for people
  /// ("connection refused"); empty where there is no error.
  std::function<void(SourceState, std::string const& cause)> state;
  /// Takes a line for people that names the source's endpoint and the error.
  std::function<void(std::string const&)> report;
};

}  // namespace Agent
