/// `qorevpn watch`: the changes of tables as they come, each with the row before and after.
#pragma once

#include <functional>
#include <memory>

#include "agent/commands/FormatOptions.h"
#include "agent/views/Format.h"

namespace Agent {

struct WatchOptions : ViewOptions {
  std::vector<std::string> subjects;
  bool initial = false;  ///< Begin with the rows that are there, and a line behind the last of them.
  bool stay = false;     ///< Wait for a table, and for the next writer when one ends.
  std::function<std::string()> now;  ///< The text of the time; the clock's where there is none.
};

/// Watches tables for a caller who has them written in this process, and says when to look.
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
/// goes. Returns the exit status; raises where one of the tables cannot be watched.
///
/// A change is what differs from what was last written, so changes of one row between two looks count as one.
/// A watcher that cannot keep up never delays the writer; it compares the whole table instead and writes a
/// marker first.
int watch(WatchOptions const& options, Output& out, int stopFd);

}  // namespace Agent
