/// Agent::Recorder: writes down every event that a process takes in, so that `qorevpn replay` can do later
/// what the process did.
///
/// A recording is a feed (agent/feed/Event.h). It holds, in their order, the calls that the sources of a
/// side made on its ledgers, and the flags of an agent as they counted. `t` is Unix time, in the first line
/// of each turn. Each file begins with `recording`, which names the run of the process and counts its files,
/// then tells what holds at the time, as far as `state-end`, so that each can be read alone: first what an
/// earlier run left, then what each source has told. (A switch's entry has there as `seq` its place in the
/// order of hearing.)
///
///   FILE      is written to; a run goes on in it behind the earlier one's
///   FILE.1    the one before, and so on; the oldest is removed
///
/// A turn is written at its end, in one piece, so who is killed loses a turn at most, of which the tables
/// have all that came of it, and the next run begins with those. What cannot be written is said and never
/// stops the process: it is tried again every half minute, with what holds then.
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
    /// Bytes of a file; more where what holds at its beginning takes more than half of them.
    std::uint64_t size = 64'000'000;
    unsigned files = 4;  ///< At least 1.
  };

  /// `side`: whose process it is.
  Recorder(Loop& loop, Options options, Origin side, Logs logs);
  ~Recorder();
  Recorder(Recorder const&) = delete;
  Recorder& operator=(Recorder const&) = delete;

  /// Writes down from now on what `sources`, of which there is none yet, tell `ledgers`. Both outlive the
  /// last turn.
  void tap(Sources& sources, SourceLedgers& ledgers);
  /// Opens the file. Raises std::runtime_error naming it.
  void begin();

  /// A line of a source, or of nobody in particular.
  void write(SourceId source, Event const& event);
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
  Fd fd_;                       ///< None: not begun, or it cannot be written.
  std::string pending_;         ///< Not written yet.
  std::uint64_t size_ = 0;      ///< Of the file.
  std::uint64_t rotateAt_ = 0;  ///< At which size it is another's turn.
  double lastTime_ = 0;         ///< Seconds.
  bool isTurnsFirst_ = true;    ///< The next line is.
  bool hasFailed_ = false;      ///< And said so.
};

}  // namespace Agent
