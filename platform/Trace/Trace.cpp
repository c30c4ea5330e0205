#include "Trace/Trace.h"

#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <map>
#include <memory>
#include <mutex>

namespace Trace {

namespace {

struct Registry {
  std::mutex mutex;
  std::map<std::string, LevelMask, std::less<>> levels;
  std::vector<Handle*> handles;
  std::shared_ptr<Sink const> sink = std::make_shared<Sink const>(writeToStandardError);
};

// Never destroyed, since destructors of statics may trace.
Registry& registry() {
  static Registry& instance = *new Registry;
  return instance;
}

// A thread's last destructors may trace after the thread's variables are gone, hence the flag, which needs no
// destruction and so outlives them.
thread_local bool isSpareGone = false;
struct Spare {
  std::string text;
  ~Spare() { isSpareGone = true; }
};
thread_local Spare spare;

}  // namespace

Handle::Handle(std::string_view name) : name_(name), mask_(0) {
  Registry& r = registry();
  std::lock_guard const lock(r.mutex);
  mask_ = r.levels.try_emplace(name_, LevelMask{0}).first->second;
  r.handles.push_back(this);
}

Handle::~Handle() {
  Registry& r = registry();
  std::lock_guard const lock(r.mutex);
  std::erase(r.handles, this);
}

void levelsIs(std::string_view handle, LevelMask levels) {
  auto const mask = static_cast<LevelMask>(levels & allLevels);
  Registry& r = registry();
  std::lock_guard const lock(r.mutex);
  r.levels.insert_or_assign(std::string(handle), mask);
  for (Handle* each : r.handles) {
    if (each->name_ == handle) each->mask_.store(mask, std::memory_order_relaxed);
  }
}

LevelMask levels(std::string_view handle) {
  Registry& r = registry();
  std::lock_guard const lock(r.mutex);
  auto const found = r.levels.find(handle);
  return found == r.levels.end() ? LevelMask{0} : found->second;
}

std::vector<std::string> handleNames() {
  Registry& r = registry();
  std::lock_guard const lock(r.mutex);
  std::vector<std::string> names;
  for (auto const& [name, mask] : r.levels) names.push_back(name);
  return names;
}

void enable(std::string_view handleAndLevels) {
  Orb::TextCursor text(handleAndLevels);
  std::string_view const name = handleAndLevels.substr(0, handleAndLevels.find('/'));
  if (name.empty()) text.fail("a trace handle's name");
  text.skip(name.size());
  text.expect("/");
  LevelMask mask = 0;
  if (text.next() == '*') {
    text.skip(1);
    mask = allLevels;
  } else {
    for (;;) {
      uint64_t const level = Orb::parseUnsigned(text, levelCount - 1, "trace level > 9 not allowed");
      mask = static_cast<LevelMask>(mask | 1U << level);
      if (text.next() != ',') break;
      text.skip(1);
    }
  }
  text.expectEnd();
  levelsIs(name, mask);
}

Sink sinkIs(Sink sink) {
  auto fresh = std::make_shared<Sink const>(sink ? std::move(sink) : Sink(writeToStandardError));
  Registry& r = registry();
  std::lock_guard const lock(r.mutex);
  r.sink.swap(fresh);
  return *fresh;
}

void writeToStandardError(Record const& record) { writeTo(STDERR_FILENO, record); }

void writeTo(int fd, Record const& record) {
  timespec now{};
  ::clock_gettime(CLOCK_REALTIME, &now);
  tm utc{};
  ::gmtime_r(&now.tv_sec, &utc);
  Impl::Buffer line;
  auto const padded = [&line](long value, int width, char end) {
    std::string const digits = std::to_string(value);
    line.text().append(static_cast<size_t>(width) - std::min(digits.size(), static_cast<size_t>(width)), '0');
    line.text().append(digits).push_back(end);
  };
  padded(utc.tm_year + 1900, 4, '-');
  padded(utc.tm_mon + 1, 2, '-');
  padded(utc.tm_mday, 2, 'T');
  padded(utc.tm_hour, 2, ':');
  padded(utc.tm_min, 2, ':');
  padded(utc.tm_sec, 2, '.');
  padded(now.tv_nsec / 1000, 6, 'Z');
  Orb::appendTexts(line.text(), " ", record.level, " ", record.handle, " ", record.where.function, " ",
                   record.where.file, ":", record.where.line, " ", record.text, "\n");
  // A trace that cannot be written is lost: the tracing code has better to do than to fail for it.
  [[maybe_unused]] ssize_t const written = ::write(fd, line.text().data(), line.text().size());
}

namespace Impl {

Buffer::Buffer() noexcept : spare_(isSpareGone ? nullptr : &spare.text) {
  if (spare_ != nullptr) text_.swap(*spare_);
}

Buffer::~Buffer() {
  text_.clear();
  if (spare_ != nullptr && spare_->capacity() < text_.capacity()) text_.swap(*spare_);
}

void deliver(Record const& record) {
  std::shared_ptr<Sink const> sink;
  {
    Registry& r = registry();
    std::lock_guard const lock(r.mutex);
    sink = r.sink;
  }
  (*sink)(record);
}

}  // namespace Impl

}  // namespace Trace
