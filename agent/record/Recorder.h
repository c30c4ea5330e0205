/// Agent::Recorder: records every event that a process handles, so that `qorevpn replay` can repeat what the
/// process did.
///
/// A recording is a feed (agent/feed/Event.h). It holds, in order, the calls that the sources of a side made
/// on its ledgers, and an agent's flags when they came into force. The first line of each turn has `t`, the
/// Unix time. Each file begins with `recording`, which names the run of the process and the number of the
/// file, and with the state at that time, up to `state-end`; so each file can be read alone. The state is:
/// what an earlier run left, then the entries of each source. (There the `seq` of a switch's entry is its
/// place in the order in which entries were heard.)
///
///   FILE      is written; a later run appends to it
///   FILE.1    the file before, and so on; the oldest is removed. A device keeps its name.
///
/// A turn is written at its end, in one piece. A process that is killed loses at most one turn; the tables
/// have the results of that turn, and the next run begins with the tables. An error of writing is logged and
/// does not stop the process; it is tried again every 30 seconds, beginning with the state at that time.
#pragma once

#include <memory>
#include <string>

#include "agent/base/Loop.h"
#include "agent/feed/Sources.h"

namespace Agent {

class Recorder {
 public:
  struct Options {
    std::string file;
    /// Bytes of a file. It becomes larger where the state, at its beginning or for the next file, would take
    /// more than what happened between the two.
    std::uint64_t size = 64'000'000;
    unsigned files = 4;  ///< At least 1.
  };

  /// `side`: `controller` in an agent, `evpn` in an EVPN side.
  Recorder(Loop& loop, Options options, Origin side, Logs logs);
  ~Recorder();
  Recorder(Recorder const&) = delete;
  Recorder& operator=(Recorder const&) = delete;

  /// Records the calls of `sources` on `ledgers`. Call it before a source is added. Both must outlive the
  /// last turn.
  void tap(Sources& sources, SourceLedgers& ledgers);
  /// Opens the file. Raises std::runtime_error naming it.
  void begin();

  /// Records an event of a source, or, with `earlierRun`, of no source.
  void write(SourceId source, Event const& event);
  /// Writes the turn's events to the file. Call it at the end of each turn of the loop.
  void endTurn();

 private:
  class Tap;

  void open();
  void continueFile();
  void beginFile();
  void rotate();
  void flush();
  void fail(std::string const& cause);

  Options options_;
  Origin side_;
  Logs logs_;
  Timer again_;
  std::unique_ptr<Tap> tap_;
  std::string run_;
  std::uint32_t part_ = 0;
  Fd fd_;                       ///< Empty before begin() and after an error.
  std::string pending_;         ///< Not written yet.
  std::uint64_t size_ = 0;      ///< Of the file.
  std::uint64_t stateEnd_ = 0;  ///< The size of the file when this run had written its state.
  std::uint64_t rotateAt_ = 0;  ///< The size at which the next file may begin.
  double lastTime_ = 0;         ///< Seconds.
  bool isTurnsFirst_ = true;    ///< The next line is the first one of its turn.
  bool isRegular_ = false;      ///< The file is neither a device nor a pipe, which keep their names.
  bool hasFailed_ = false;      ///< An error has been logged.
};

}  // namespace Agent
