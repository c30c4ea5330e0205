#include "agent/record/Recorder.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <filesystem>

namespace Agent {

namespace {

constexpr std::chrono::seconds againDelay{30};
constexpr std::size_t flushBytes = std::size_t{1} << 20;
constexpr std::size_t endBytes = std::size_t{1} << 16;
constexpr std::size_t lineBytes = 128;  // of a line in the state, about
constexpr int openFlags = O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC;

double unixTime() {
  return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

Event lineOf(Origin side, Op op) {
  Event event;
  event.from = side;
  event.op = op;
  return event;
}

}  // namespace

/// Stands before the ledgers of a side.
class Recorder::Tap : public SourceLedgers {
 public:
  Tap(Recorder& recorder, Origin side, Sources const& sources, SourceLedgers& ledgers)
      : recorder_(recorder), side_(side), sources_(sources), ledgers_(ledgers) {}

  void sourceIs(SourceId source, bool isNumbered) override {
    tellSource(source);
    ledgers_.sourceIs(source, isNumbered);
  }
  void begin(SourceId source) override {
    recorder_.write(source, lineOf(side_, Op::begin));
    ledgers_.begin(source);
  }
  void apply(SourceId source, Event const& event) override {
    recorder_.write(source, event);
    ledgers_.apply(source, event);
  }
  /// Flags of the controller are recorded by their owner, when they come into force.
  void flag(SourceId source, Event const& event) override {
    if (side_ == Origin::evpn) recorder_.write(source, event);
    ledgers_.flag(source, event);
  }
  bool whole(SourceId source) override { return told(Op::whole, source, ledgers_.whole(source)); }
  bool withdraw(SourceId source) override { return told(Op::withdraw, source, ledgers_.withdraw(source)); }
  bool settled() override { return told(Op::settled, earlierRun, ledgers_.settled()); }
  std::size_t entries(SourceId source) const override { return ledgers_.entries(source); }

  void tellState(Tell const& tell) const override { ledgers_.tellState(tell); }

  /// How many lines the state has, about.
  std::size_t stateLines() const {
    std::size_t count = 0;
    tellState([&](SourceId, Event const&) { ++count; });
    return count;
  }

  /// Records the state: what an earlier run left, and the entries since.
  void recordState(bool ofEarlierRun) const {
    for (SourceId source = 0; !ofEarlierRun && source < sources_.size(); ++source) tellSource(source);
    tellState([&](SourceId source, Event const& event) {
      bool const isEarliers = source == earlierRun && event.op < Op::enabled;
      if (isEarliers == ofEarlierRun) recorder_.write(source, event);
    });
    if (!ofEarlierRun && sources_.isSettled()) told(Op::settled, earlierRun, true);
  }

 private:
  void tellSource(SourceId source) const {
    Event line = lineOf(side_, Op::source);
    line.name = sources_.name(source);
    line.on = sources_.isNumbered(source);
    recorder_.write(source, line);
  }
  bool told(Op op, SourceId source, bool isAll) const {
    Event line = lineOf(side_, op);
    line.value = isAll;
    recorder_.write(source, line);
    return isAll;
  }

  Recorder& recorder_;
  Origin side_;
  Sources const& sources_;
  SourceLedgers& ledgers_;
};

Recorder::Recorder(Loop& loop, Options options, Origin side, Logs logs)
    : options_(std::move(options)),
      side_(side),
      logs_(std::move(logs)),
      again_(loop,
             [this] {
               try {
                 open();
               } catch (std::system_error const& error) {
                 fail(error.code().message());
               }
             }),
      run_(std::to_string(static_cast<std::uint64_t>(unixTime() * 1e6)) + '-' + std::to_string(getpid())) {}

Recorder::~Recorder() { flush(); }

void Recorder::tap(Sources& sources, SourceLedgers& ledgers) {
  tap_ = std::make_unique<Tap>(*this, side_, sources, ledgers);
  sources.ledgersAre(*tap_);
}

void Recorder::begin() {
  // A link keeps its name, what it leads to is rotated.
  if (std::error_code none; std::filesystem::is_symlink(options_.file, none)) {
    auto const target = std::filesystem::canonical(options_.file, none);
    if (!none) options_.file = target;
  }
  try {
    open();
  } catch (std::system_error const& error) {
    throw std::runtime_error(
        "--record " + options_.file + ": " +
        (error.code() == std::errc::file_exists ? "this file is no recording" : error.code().message()));
  }
}

/// Time never goes back in a file, whatever the clock does.
void Recorder::write(SourceId source, Event const& event) {
  if (!fd_) return;
  char time[32];
  std::size_t size = 0;
  if (isTurnsFirst_) {
    isTurnsFirst_ = false;
    lastTime_ = std::max(unixTime(), lastTime_);
    size = static_cast<std::size_t>(std::snprintf(time, sizeof time, "%.6f", lastTime_));
  }
  appendLine(pending_, {time, size}, source, event);
  if (pending_.size() >= flushBytes) flush();
}

void Recorder::endTurn() {
  isTurnsFirst_ = true;
  if (pending_.empty()) return;
  flush();
  if (!fd_ || size_ < rotateAt_) return;
  std::uint64_t const enough = stateEnd_ + lineBytes * tap_->stateLines();
  if (size_ >= enough) return rotate();
  rotateAt_ = std::max(enough, size_ + options_.size);  // to count seldom, which takes a turn its time
}

void Recorder::open() {
  fd_ = Fd(checked(::open(options_.file.c_str(), openFlags, 0640), "open"));
  try {
    continueFile();
  } catch (...) {
    fd_.reset();
    throw;
  }
  if (size_ >= options_.size) return rotate();
  beginFile();
}

/// Continues an existing file, which must be a recording, after its last whole line.
void Recorder::continueFile() {
  struct stat status;
  checked(fstat(fd_.get(), &status), "stat");
  isRegular_ = S_ISREG(status.st_mode);
  size_ = isRegular_ ? static_cast<std::uint64_t>(status.st_size) : 0;
  if (size_ == 0) return;
  auto const piece = [&](std::uint64_t at) {
    std::string text(endBytes, '\0');
    ssize_t const count = pread(fd_.get(), text.data(), text.size(), static_cast<off_t>(at));
    text.resize(static_cast<std::size_t>(checked(static_cast<int>(count), "read")));
    return text;
  };
  std::string const head = piece(0);
  if (head.substr(0, head.find('\n')).find(R"("op":"recording")") == std::string::npos)
    throw std::system_error(EEXIST, std::generic_category());
  std::uint64_t const at = size_ - std::min<std::uint64_t>(size_, endBytes);
  std::string const tail = piece(at);
  constexpr std::string_view timedLine = "\n{\"t\":";
  if (auto const time = tail.rfind(timedLine); time != std::string::npos)
    std::from_chars(tail.data() + time + timedLine.size(), tail.data() + tail.size(), lastTime_);
  size_ = at + tail.rfind('\n') + 1;
  checked(ftruncate(fd_.get(), static_cast<off_t>(size_)), "truncate");
}

/// The state is written at once, so that every file of a run has it.
void Recorder::beginFile() {
  std::uint64_t const before = size_;
  isTurnsFirst_ = true;
  Event line = lineOf(side_, Op::recording);
  line.name = run_;
  line.seq = Seqno32(part_++);
  write(earlierRun, line);
  for (bool const ofEarlierRun : {true, false}) tap_->recordState(ofEarlierRun);
  write(earlierRun, lineOf(side_, Op::stateEnd));
  flush();
  stateEnd_ = size_;
  rotateAt_ = isRegular_ ? std::max(options_.size, size_ + (size_ - before)) : UINT64_MAX;
  if (fd_ && std::exchange(hasFailed_, false)) logs_.info("recording goes on: " + options_.file);
}

void Recorder::rotate() {
  fd_.reset();
  auto const nameOf = [&](unsigned number) {
    return number == 0 ? options_.file : options_.file + '.' + std::to_string(number);
  };
  for (unsigned number = options_.files - 1; number > 0; --number) {
    if (rename(nameOf(number - 1).c_str(), nameOf(number).c_str()) != 0 && errno != ENOENT)
      return fail(std::generic_category().message(errno));
  }
  fd_ = Fd(::open(options_.file.c_str(), openFlags | (options_.files == 1 ? O_TRUNC : 0), 0640));
  if (!fd_) return fail(std::generic_category().message(errno));
  size_ = 0;
  beginFile();
}

void Recorder::flush() {
  for (std::string_view rest = pending_; fd_ && !rest.empty();) {
    ssize_t const count = ::write(fd_.get(), rest.data(), rest.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return fail(std::generic_category().message(errno));
    rest.remove_prefix(static_cast<std::size_t>(count));
  }
  size_ += pending_.size();
  pending_.clear();
}

/// The file ends with the last line that is whole.
void Recorder::fail(std::string const& cause) {
  if (!std::exchange(hasFailed_, true))
    logs_.warning("recording stops, and is tried again: " + options_.file + ": " + cause);
  if (fd_) {
    [[maybe_unused]] int const cut = ftruncate(fd_.get(), static_cast<off_t>(size_));
  }
  fd_.reset();
  pending_.clear();
  ++part_;  // the next file does not go on where this one ends
  again_.start(againDelay);
}

}  // namespace Agent
