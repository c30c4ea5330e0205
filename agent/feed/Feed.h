/// Agent::Feed: reads events from a file or a stream, in the turns of the loop.
///
/// A regular file is read as fast as possible, one piece a turn, so that table changes and signals are
/// handled in between. A stream (pipe, terminal, socket) is read as its lines come; it may stay open for
/// ever. With a pace, an event waits until the time since the first event has reached the difference of their
/// timestamps.
///
/// A feed is a source for each side that it has events of (agent/base/Source.h). Its line `synced` says that
/// the side's state is complete. The end of a file or of standard input says so for both sides if at least
/// one event came before it. When the writer of a FIFO ends, the feed is lost for both sides, and the FIFO is
/// opened again for the next writer.
///
/// A line is bad if it is not an event, is longer than a mebibyte, or has a lower `t` than the line before. A
/// bad line is reported with its number and skipped; with `strict` it ends the feed. Events before it stay in
/// force. A feed that skipped a line does not know its whole state, so it never becomes synced. The same
/// holds for the content that a FIFO has at the start: an earlier reader may have taken its beginning.
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
    std::uint64_t number;   ///< From 1.
    std::string_view text;  ///< Without its end, which is "\n" or "\r\n". Good until the next call.
    bool tooLong = false;   ///< Then `text` is empty.
  };

  void append(std::string_view piece) { buffer_ += piece; }
  /// The stream has ended: bytes that are left are the last line.
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
    /// Factor of the speed: 1 plays timestamps as recorded, 2 twice as fast; 0 ignores them.
    double pace = 0;
    bool reopens = true;  ///< A FIFO is opened again when its writer ends.
  };
  struct Handlers {
    /// The listener of each side; empty functions where the process has no such side.
    SourceHandlers controller, evpn;
    /// The last call. `failed`: the feed could not be read to its end, or a bad line ended it.
    std::function<void(bool failed)> end;
    /// Takes "FILE:LINE: error" and "FILE: error"; also, every two seconds while a file is read without a
    /// pace, "FILE: so far " and the tally.
    std::function<void(std::string const&)> report;
  };

  /// Opens the file. Raises std::system_error naming it.
  Feed(Loop& loop, Options options);
  ~Feed();
  Feed(Feed const&) = delete;
  Feed& operator=(Feed const&) = delete;

  /// Begins to read, in the turns of the loop. Call it once.
  void start(Handlers handlers);

  /// For people: the file, or "standard input".
  std::string const& name() const { return name_; }
  /// It reads a regular file without a pace.
  bool isRecording() const { return isFile_ && options_.pace <= 0; }
  std::uint64_t events() const { return events_; }
  std::uint64_t errors() const { return errors_; }
  bool hasEnded() const { return ended_; }
  /// The counts so far: "592 events, 1 bad line".
  std::string tally() const;

 private:
  using Clock = std::chrono::steady_clock;

  void open();
  bool isPartlyRead() const;
  void resume();
  void pause();
  void readPiece();
  void takeLines();
  void take(LineCutter::Line const& line);
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
  bool hasWriter_ = false;               ///< A FIFO from which something was read.
  bool isRecorded_ = false;              ///< It is a recording.
  bool isPartial_ = false;               ///< An earlier reader may have taken the beginning.
  std::array<SourceState, 2> states_{};  ///< By origin.
  bool reading_ = false;
  bool readToEnd_ = false;
  bool ended_ = false;
  LineCutter lines_;
  std::optional<Event> waiting_;  ///< Refers to the line that `lines_` gave last; nothing is read meanwhile.
  Timer timer_;                   ///< Until an event is due.
  Timer piece_;                   ///< Until the next turn, for the next piece of a file.
  std::optional<Clock::time_point> start_;
  std::optional<Clock::time_point> nextReport_;
  double firstTime_ = 0;
  double lastTime_ = 0;
  std::uint64_t events_ = 0;
  std::uint64_t errors_ = 0;
  std::uint64_t writersEvents_ = 0;  ///< Of the FIFO's present writer alone, as the next.
  std::uint64_t writersErrors_ = 0;
};

}  // namespace Agent
