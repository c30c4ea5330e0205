#include "agent/feed/Feed.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include "agent/views/Format.h"

namespace Agent {

namespace {

constexpr std::size_t pieceSize = 16384;

bool isReadable(int fd) {
  pollfd poll{fd, POLLIN, 0};
  return ::poll(&poll, 1, 0) > 0;
}

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
  if (!line.tooLong) line.text = buffer_.substr(begin_, length);
  if (line.text.ends_with('\r')) line.text.pop_back();
  begin_ = scanned_ = end == std::string::npos ? buffer_.size() : end + 1;
  skipping_ = false;
  return line;
}

Feed::Feed(Loop& loop, Options options, Handlers handlers)
    : loop_(loop),
      options_(std::move(options)),
      handlers_(std::move(handlers)),
      name_(options_.file == "-" ? "standard input" : options_.file),
      fd_(STDIN_FILENO),
      timer_(loop, [this] { takeLines(); }) {
  if (options_.file != "-") {
    opened_ = Fd(open(options_.file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!opened_) throwErrno("cannot open the feed " + name_);
    fd_ = opened_.get();
  }
  struct stat status;
  if (fstat(fd_, &status) != 0) throwErrno(name_);
  if (S_ISDIR(status.st_mode)) throw std::system_error(EISDIR, std::generic_category(), name_);
  // Everything else than these can be read at once, and cannot be waited for.
  isFile_ = !S_ISFIFO(status.st_mode) && !S_ISSOCK(status.st_mode) && isatty(fd_) == 0;
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
    loop_.workIs([this] { readPiece(); });
  } else {
    loop_.watchInput(fd_, [this] { readPiece(); });
  }
}

void Feed::pause() {
  if (!reading_) return;
  reading_ = false;
  if (isFile_) {
    loop_.workIs({});
  } else {
    loop_.unwatch(fd_);
  }
}

void Feed::readPiece() {
  char piece[pieceSize];
  ssize_t const count = read(fd_, piece, sizeof piece);
  if (count < 0) {
    if (errno == EAGAIN || errno == EINTR) return;
    handlers_.report(name_ + ": " + std::generic_category().message(errno));
    finish(true);
    return;
  }
  if (count == 0) {
    lines_.end();
    readToEnd_ = true;
    pause();
  } else {
    lines_.append({piece, static_cast<std::size_t>(count)});
    if (isFile_ && options_.pace <= 0) reportProgress();
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
        reportIdle();
        timer_.start(wait);
        return;
      }
      Event const due = *std::exchange(waiting_, std::nullopt);
      ++events_;
      handlers_.event(due);
    } else if (auto const line = lines_.next()) {
      take(*line);
    } else if (readToEnd_) {
      finish(false);
    } else {
      resume();
      if (!isFile_ && !isReadable(fd_)) reportIdle();
      return;
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

void Feed::bad(LineCutter::Line const& line, std::string const& what) {
  ++errors_;
  handlers_.report(name_ + ':' + std::to_string(line.number) + ": " + what);
  if (options_.strict) finish(true);
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

void Feed::finish(bool failed) {
  pause();
  ended_ = true;
  readToEnd_ = true;
  if (!failed) reportIdle();
  handlers_.end(failed);
}

/// A source that has not said anything yet, or died before it did, has not said that nothing is there.
void Feed::reportIdle() {
  if (events_ != 0) handlers_.idle();
}

void Feed::reportProgress() {
  auto const now = Clock::now();
  if (nextReport_ && now < *nextReport_) return;
  if (nextReport_) handlers_.report(name_ + ": so far " + tally());
  nextReport_ = now + std::chrono::seconds(2);
}

}  // namespace Agent
