/// `qorevpn watch`: the changes of tables as they come, each with the row before and after.
#pragma once

#include "agent/commands/FormatOptions.h"
#include "agent/views/Format.h"

namespace Agent {

struct WatchOptions : ViewOptions {
  std::vector<std::string> subjects;
  bool initial = false;  ///< Begin with the rows that are there, and a line behind the last of them.
  bool stay = false;     ///< Wait for a table, and for the next writer when one ends.
};

/// Writes changes to `out` until the last writer ends, `stopFd` becomes readable, or the reader of `out`
/// goes. Returns the exit status; raises where one of the tables cannot be watched.
///
/// A change is what differs from what was last written, so changes of one row between two looks count as one.
/// A watcher that cannot keep up never delays the writer; it compares the whole table instead and writes a
/// marker first.
int watch(WatchOptions const& options, Output& out, int stopFd);

}  // namespace Agent
