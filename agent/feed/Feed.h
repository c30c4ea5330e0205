/// Agent::Feed: reads events from a file or a stream, as the loop turns.
///
/// A regular file is read as fast as it goes, a piece a turn, so that table changes and signals get their
/// turns; a stream (pipe, terminal, socket) as its lines come, and it may stay open for ever. Paced, an
/// event waits until as much time has passed since the first one as their timestamps say.
///
/// A feed is a source for each side that it has events of (agent/base/Source.h). Its line `synced` says that
/// the side's state has been told; the end of a file and of standard input says so for both sides, unless not
/// one event came before it. When the writer of a FIFO ends, both are lost, and the FIFO is opened again for
/// the next one.
///
/// A line that is no event, is longer than a mebibyte, or goes back in time is reported with its number and
/// skipped; strict, it ends the feed. Events before it stay in force. Who has skipped a line does not know
/// all: such a feed is not synced, whatever it says. Nor is what is found in a FIFO at the start, for a
/// reader that is gone may have had the beginning.
#pragma once

#include <array>
#include <chrono>
#include <functional>
#include <optional>
#include <string>

#include "agent/base/Loop.h"
#include "agent/base/Source.h"
#include "agent/feed/Event.h"

namespace Agent {

/// Cuts a stream into numbered lines.
class LineCutter {
 public:
  static constexpr std::size_t lengthLimit = std::size_t{1} << 20;

  struct Line {
    std::uint64_t number;  ///< From 1.
    std::string text;      ///< Without its end, which is "\n" or "\r\n".
    bool tooLong = false;  ///< Then `text` is empty.
  };

  void append(std::string_view piece) { buffer_ += piece; }
  /// The stream has ended: what is left is the last line, if anything is.
  void end() { ended_ = true; }
  /// The next whole line, if there is one.
  std::optional<Line> next();

 private:
  std::string buffer_;
  std::size_t begin_ = 0;
  std::size_t scanned_ = 0;  ///< No line ends between `begin_` and here.
  std::uint64_t number_ = 0;
  bool skipping_ = false;
  bool ended_ = false;
};

class Feed {
 public:
  struct Options {
    std::string file;  ///< "-" is standard input.
    bool strict = false;
    /// How fast timestamps pass: 1 as recorded, 2 twice as fast; 0 does not look at them.
    double pace = 0;
    bool reopens = true;  ///< The end of a FIFO's writer is not the feed's.
  };
  struct Handlers {
    /// What each side of the process makes of the feed; empty functions where it has no such side.
    SourceHandlers controller, evpn;
    /// Nothing comes after this. `failed`: the feed could not be read to its end, or a bad line ended it.
    std::function<void(bool failed)> end;
    /// "FILE:LINE: what is wrong", "FILE: what is wrong", or, every other second while a file is read as fast
    /// as it goes, "FILE: so far " and the tally.
    std::function<void(std::string const&)> report;
  };

  /// Opens the file. Raises std::system_error naming it.
  Feed(Loop& loop, Options options);
  ~Feed();
  Feed(Feed const&) = delete;
  Feed& operator=(Feed const&) = delete;

  /// Begins to read, as the loop turns.
  void start(Handlers handlers);

  std::string const& name() const { return name_; }
  /// A file that is read as fast as it goes.
  bool isRecording() const { return isFile_ && options_.pace <= 0; }
  std::uint64_t events() const { return events_; }
  std::uint64_t errors() const { return errors_; }
  bool hasEnded() const { return ended_; }
  /// What it has given so far: "592 events, 1 bad line".
  std::string tally() const;

 private:
  using Clock = std::chrono::steady_clock;

  void open();
  bool isPartlyRead() const;
  void resume();
  void pause();
  void readPiece();
  void takeLines();
  void take(LineCutter::Line& line);
  void apply(Event const& event);
  void bad(LineCutter::Line const& line, std::string const& what);
  std::chrono::nanoseconds waitFor(Event const& event);
  void reportProgress();
  SourceHandlers const& side(Origin origin) const;
  void state(SourceState state, std::string const& cause = {});
  void state(Origin origin, SourceState state, std::string const& cause = {});
  void sync(Origin origin);
  void endOfInput();
  void nextWriter();
  void finish(bool failed);

  Loop& loop_;
  Options options_;
  Handlers handlers_;
  std::string name_;
  Fd opened_;
  int fd_ = -1;
  bool isFile_ = false;
  bool isFifo_ = false;
  bool hasWriter_ = false;               ///< A FIFO that something has come out of.
  bool isRecorded_ = false;              ///< It is a recording.
  bool isPartial_ = false;               ///< Its writer has told somebody else the beginning, perhaps.
  std::array<SourceState, 2> states_{};  ///< By origin.
  bool reading_ = false;
  bool readToEnd_ = false;
  bool ended_ = false;
  LineCutter lines_;
  std::optional<Event> waiting_;
  std::string waitingLine_;  ///< To which it refers.
  Timer timer_;              ///< Until an event is due.
  Timer piece_;              ///< Until the next turn, for the next piece of a file.
  std::optional<Clock::time_point> start_;
  std::optional<Clock::time_point> nextReport_;
  double firstTime_ = 0;
  double lastTime_ = 0;
  std::uint64_t events_ = 0;
  std::uint64_t errors_ = 0;
  std::uint64_t writersEvents_ = 0;  ///< Of this writer's only.
  std::uint64_t writersErrors_ = 0;
};

}  // namespace Agent
