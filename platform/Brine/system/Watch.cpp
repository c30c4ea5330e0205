#include "Brine/system/Watch.h"

#include <sys/inotify.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstring>

#include "Brine/Errors.h"

namespace Brine {
namespace {

constexpr uint32_t folderEvents = IN_CREATE | IN_MOVED_TO | IN_DELETE | IN_MOVE_SELF | IN_ATTRIB | IN_ONLYDIR;
constexpr uint32_t tableEvents = IN_MODIFY | IN_CLOSE_WRITE;

constexpr uint64_t lookPeriod = 1'000'000'000;  // In nanoseconds.

}  // namespace

Watch::Watch(std::string const& path, std::string const& tableFile) : path_(path), tableFile_(tableFile) {
  watch_.reset(sys.watchOpen());
  if (!watch_) throw MountFailure::ofErrno(errno, "no file watches left");
  timer_.reset(sys.timerOpen());
  if (!timer_) throw MountFailure::ofErrno(errno, "making a timer");
  poll_.reset(sys.pollOpen());
  if (!poll_ || sys.pollAdd(poll_.get(), watch_.get()) != 0 || sys.pollAdd(poll_.get(), timer_.get()) != 0)
    throw MountFailure::ofErrno(errno, "making a poll set");
  watchFolder();
  kick();
}

/// Watches the directory that the path leads to now. True if it is another one than before: what happened
/// there until now was not seen. One that may not be watched is looked at once a second all the same.
bool Watch::watchFolder() {
  int const watch = sys.watchAdd(watch_.get(), path_.c_str(), folderEvents);
  if (watch < 0 || watch == folderWatch_) return false;
  if (folderWatch_ >= 0) ::inotify_rm_watch(watch_.get(), folderWatch_);
  folderWatch_ = watch;
  return true;
}

void Watch::lookAt(uint64_t time) {
  nextLook_ = time;
  itimerspec wait{};
  wait.it_value.tv_sec = static_cast<time_t>(time / lookPeriod);
  wait.it_value.tv_nsec = static_cast<long>(time % lookPeriod);
  // Also takes back that the last wait has ended. It cannot fail with such a time.
  ::timerfd_settime(timer_.get(), TFD_TIMER_ABSTIME, &wait, nullptr);
}

void Watch::watchTable() {
  int const watch = sys.watchAdd(watch_.get(), (path_ + "/" + tableFile_).c_str(), tableEvents);
  if (watch < 0) {
    std::string const what = "watching " + path_ + "/" + tableFile_;
    // Here it says that the user has no watches left, not that a file system is full.
    if (errno == ENOSPC) throw MountFailure(MountStatus::noResources, what + ": " + strerror(errno));
    throw MountFailure::ofErrno(errno, what);
  }
  if (tableWatch_ >= 0 && tableWatch_ != watch) ::inotify_rm_watch(watch_.get(), tableWatch_);
  tableWatch_ = watch;
}

WatchEvents Watch::take() {
  WatchEvents events;
  if (uint64_t const now = sys.now(); now >= nextLook_) {
    events.mustLook = true;
    lookAt(now + lookPeriod);
  }
  char buffer[4096];
  // A read that left room for one more event has taken the last one.
  constexpr ssize_t full = sizeof buffer - sizeof(inotify_event) - NAME_MAX - 1;
  for (ssize_t size = full + 1; size > full && (size = ::read(watch_.get(), buffer, sizeof buffer)) > 0;) {
    for (char const* at = buffer; at < buffer + size;) {
      inotify_event event;
      std::memcpy(&event, at, sizeof event);
      char const* const name = at + sizeof event;
      if ((event.mask & IN_Q_OVERFLOW) != 0) {
        events.rung = events.mustLook = true;
      } else if (event.wd == tableWatch_) {
        // In order: a writer that opens the file after another one closed it rings when it is ready.
        if ((event.mask & IN_MODIFY) != 0) events.writerClosed = !(events.rung = true);
        if ((event.mask & IN_CLOSE_WRITE) != 0) events.writerClosed = true;
      } else if (event.wd == folderWatch_ && (event.len == 0 || tableFile_ == name)) {
        events.renamed = true;
      }
      at += sizeof event + event.len;
    }
  }
  events.renamed |= events.mustLook;
  if (events.renamed || folderWatch_ < 0) events.renamed |= watchFolder();
  return events;
}

}  // namespace Brine
