#include "agent/feed/Feed.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "agent/views/Format.h"

namespace Agent {

namespace {

constexpr std::size_t pieceSize = 65536;  ///< Of bytes read in one turn: some 600 events.

}  // namespace

std::optional<LineCutter::Line> LineCutter::next() {
  auto const end = buffer_.find('\n', scanned_);
  if (end == std::string::npos && !(ended_ && (begin_ < buffer_.size() || skipping_))) {
    buffer_.erase(0, begin_);
    begin_ = 0;
    if (buffer_.size() > lengthLimit) {
      skipping_ = true;
      buffer_.clear();
    }
    scanned_ = buffer_.size();
    return std::nullopt;
  }
  auto const length = std::min(end, buffer_.size()) - begin_;
  Line line{++number_, {}, skipping_ || length > lengthLimit};
  if (!line.tooLong) line.text = std::string_view(buffer_).substr(begin_, length);
  if (line.text.ends_with('\r')) line.text.remove_suffix(1);
  begin_ = scanned_ = end == std::string::npos ? buffer_.size() : end + 1;
  skipping_ = false;
  return line;
}

Feed::Feed(Loop& loop, Options options)
    : loop_(loop),
      options_(std::move(options)),
      name_(options_.file == "-" ? "standard input" : options_.file),
      timer_(loop, [this] { takeLines(); }),
      piece_(loop, [this] { readPiece(); }) {
  open();
  isPartial_ = isPartlyRead();
}

/// The former descriptor is closed after the new one is open, so that no octets of the next writer are lost.
void Feed::open() {
  if (options_.file == "-") {
    fd_ = STDIN_FILENO;
  } else {
    Fd opened(::open(options_.file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!opened) throwErrno("cannot open the feed " + name_);
    opened_ = std::move(opened);
    fd_ = opened_.get();
  }
  struct stat status;
  if (fstat(fd_, &status) != 0) throwErrno(name_);
  if (S_ISDIR(status.st_mode)) throw std::system_error(EISDIR, std::generic_category(), name_);
  // All other kinds can be read at once, and epoll does not take them.
  isFile_ = !S_ISFIFO(status.st_mode) && !S_ISSOCK(status.st_mode) && isatty(fd_) == 0;
  isFifo_ = options_.file != "-" && S_ISFIFO(status.st_mode);
}

/// Octets that a FIFO holds when it is opened were written to an earlier reader, which may have read the
/// beginning.
bool Feed::isPartlyRead() const {
  int bytes = 0;
  return isFifo_ && ioctl(fd_, FIONREAD, &bytes) == 0 && bytes != 0;
}

void Feed::start(Handlers handlers) {
  handlers_ = std::move(handlers);
  if (!isFifo_) state(SourceState::syncing);  // a FIFO may have no writer yet
  resume();
}

Feed::~Feed() { pause(); }

std::string Feed::tally() const {
  return countText(events_, "event") + ", " + countText(errors_, "bad line");
}

void Feed::resume() {
  if (reading_ || readToEnd_) return;
  reading_ = true;
  if (isFile_) {
    piece_.start({});
  } else {
    loop_.watchInput(fd_, [this] { readPiece(); });
  }
}

void Feed::pause() {
  if (!reading_) return;
  reading_ = false;
  if (isFile_) {
    piece_.cancel();
  } else {
    loop_.unwatch(fd_);
  }
}

void Feed::readPiece() {
  char piece[pieceSize];
  ssize_t const count = read(fd_, piece, sizeof piece);
  if (count < 0) {
    if (errno == EAGAIN || errno == EINTR) return;
    std::string const cause = std::generic_category().message(errno);
    handlers_.report(name_ + ": " + cause);
    state(SourceState::lost, cause);
    return finish(true);
  }
  if (count == 0) {
    lines_.end();
    readToEnd_ = true;
    pause();
  } else {
    if (isFifo_ && !hasWriter_) state(SourceState::syncing);
    hasWriter_ = true;
    lines_.append({piece, static_cast<std::size_t>(count)});
    if (isRecording()) reportProgress();
    if (isFile_) piece_.start({});
  }
  takeLines();
}

/// Takes lines until one must wait or none is left, and then waits or reads on.
void Feed::takeLines() {
  while (!ended_) {
    if (waiting_) {
      auto const wait = waitFor(*waiting_);
      if (wait.count() > 0) {
        pause();
        timer_.start(wait);
        return;
      }
      apply(*std::exchange(waiting_, std::nullopt));
    } else if (auto line = lines_.next()) {
      take(*line);
    } else if (readToEnd_) {
      return endOfInput();
    } else {
      return resume();
    }
  }
}

void Feed::take(LineCutter::Line const& line) {
  if (line.tooLong) return bad(line, "longer than " + std::to_string(LineCutter::lengthLimit) + " bytes");
  if (line.text.find_first_not_of(" \t") == std::string::npos) return;
  try {
    waiting_ = parseEvent(line.text);
  } catch (EventError const& error) {
    return bad(line, error.what());
  }
  if (!waiting_->time) return;
  if (*waiting_->time < lastTime_) {
    waiting_.reset();
    return bad(line, "t goes back in time");
  }
  lastTime_ = *waiting_->time;
}

/// In a recording every entry counts as this feed's, whichever source told it, except an earlier run's. Where
/// the recorded process started again, the feed begins to tell its state again.
void Feed::apply(Event const& event) {
  ++events_;
  ++writersEvents_;
  bool const isRunsFirst = event.op == Op::recording && event.seq == Seqno32();
  bool const isAgain = isRunsFirst && std::exchange(isRecorded_, true);
  bool const isEarliers = isRecorded_ && event.source == earlierRun && event.op < Op::enabled;
  if (event.op == Op::synced || (event.op == Op::settled && event.value)) {
    sync(event.from);
  } else if (isAgain) {
    state(SourceState::syncing);
  } else if (auto const& handler = side(event.from).event; handler && event.op < Op::synced && !isEarliers) {
    handler(event);
  }
}

void Feed::bad(LineCutter::Line const& line, std::string const& what) {
  ++errors_;
  ++writersErrors_;
  handlers_.report(name_ + ':' + std::to_string(line.number) + ": " + what);
  if (!options_.strict) return;
  state(SourceState::lost, "a bad line");
  finish(true);
}

std::chrono::nanoseconds Feed::waitFor(Event const& event) {
  if (options_.pace <= 0 || !event.time) return {};
  auto const now = Clock::now();
  if (!start_) {
    start_ = now;
    firstTime_ = *event.time;
  }
  std::chrono::duration<double> const due((*event.time - firstTime_) / options_.pace);
  return std::chrono::duration_cast<std::chrono::nanoseconds>(due) - (now - *start_);
}

SourceHandlers const& Feed::side(Origin origin) const {
  return origin == Origin::controller ? handlers_.controller : handlers_.evpn;
}

void Feed::state(Origin origin, SourceState state, std::string const& cause) {
  states_[static_cast<std::size_t>(origin)] = state;
  if (auto const& handler = side(origin).state) handler(state, cause);
}

void Feed::state(SourceState next, std::string const& cause) {
  for (Origin const origin : {Origin::controller, Origin::evpn}) state(origin, next, cause);
}

/// The side's state is complete.
void Feed::sync(Origin origin) {
  if (states_[static_cast<std::size_t>(origin)] == SourceState::synced) return;
  if (isPartial_) {
    state(origin, SourceState::syncing, "not whole: its writer began before this program did");
  } else if (writersErrors_ != 0) {
    state(origin, SourceState::syncing, "not whole: " + countText(writersErrors_, "bad line"));
  } else {
    state(origin, SourceState::synced);
  }
}

void Feed::endOfInput() {
  if (isFifo_ && options_.reopens) return nextWriter();
  if (writersEvents_ == 0) {
    // A writer that ends before its first event has not said that its state is empty.
    state(SourceState::lost, "it ended before its first event");
  } else {
    // What EVPN learned comes first: it decides what is exported.
    for (Origin const origin : {Origin::evpn, Origin::controller}) sync(origin);
  }
  finish(false);
}

void Feed::nextWriter() {
  state(SourceState::lost, "its writer ended");
  lines_ = {};
  readToEnd_ = hasWriter_ = isPartial_ = isRecorded_ = false;
  writersEvents_ = writersErrors_ = 0;
  lastTime_ = 0;
  start_.reset();
  try {
    open();
  } catch (std::system_error const& error) {
    handlers_.report(error.what());
    return finish(true);
  }
  resume();
}

void Feed::finish(bool failed) {
  pause();
  ended_ = true;
  readToEnd_ = true;
  handlers_.end(failed);
}

void Feed::reportProgress() {
  auto const now = Clock::now();
  if (nextReport_ && now < *nextReport_) return;
  if (nextReport_) handlers_.report(name_ + ": so far " + tally());
  nextReport_ = now + std::chrono::seconds(2);
}

}  // namespace Agent
