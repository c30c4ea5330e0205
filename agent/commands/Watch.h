/// `qorevpn watch`: writes changes of tables as they come, each with the row before and after.
#pragma once

#include <functional>
#include <memory>

#include "agent/commands/FormatOptions.h"
#include "agent/views/Format.h"

namespace Agent {

struct WatchOptions : ViewOptions {
  std::vector<std::string> subjects;
  bool initial = false;              ///< Write the present rows first, and a line after the last of them.
  bool stay = false;                 ///< Wait for a table, and for the next writer when one ends.
  std::function<std::string()> now;  ///< Gives the text of the time; empty: the clock's time.
};

/// Watches tables that this process writes itself. The caller calls deliver() after each write. For replays.
class TableWatch {
 public:
  TableWatch(WatchOptions options, Output& out);
  ~TableWatch();
  void deliver();

 private:
  struct Parts;
  std::unique_ptr<Parts> parts_;
};

/// Writes changes to `out` until the last writer ends, `stopFd` becomes readable, or the reader of `out`
/// closes it. Returns the exit status; raises if one of the tables cannot be watched.
///
/// A change is a difference from the row that was written last, so several changes of one row between two
/// deliveries are one. A watcher that cannot keep up does not delay the writer: it writes a marker, compares
/// the whole table, and writes the differences.
int watch(WatchOptions const& options, Output& out, int stopFd);

}  // namespace Agent
