#include "Brine/system/Watch.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstring>
#include <utility>

#include "Brine/Errors.h"

namespace Brine {
namespace {

constexpr uint32_t folderEvents = IN_CREATE | IN_MOVED_TO | IN_DELETE | IN_MOVE_SELF | IN_ATTRIB | IN_ONLYDIR;
constexpr uint32_t tableEvents = IN_MODIFY | IN_CLOSE_WRITE;

std::string parentOf(std::string const& path) {
  size_t const end = path.find_last_not_of('/');
  size_t const slash = end == std::string::npos ? std::string::npos : path.find_last_of('/', end);
  if (slash == std::string::npos) return end == std::string::npos ? "/" : ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

bool isMissing(int error) { return error == ENOENT || error == ENOTDIR; }

}  // namespace

Watch::Watch(std::string const& path, std::string const& tableFile) : path_(path), tableFile_(tableFile) {
  watch_.reset(sys.watchOpen());
  if (!watch_)
    throw MountFailure(MountStatus::noResources, "no file watches left: " + std::string(strerror(errno)));
  event_.reset(sys.eventOpen());
  if (!event_) throw MountFailure::ofErrno(errno, "making an event");
  poll_.reset(sys.pollOpen());
  if (!poll_ || sys.pollAdd(poll_.get(), watch_.get()) != 0 || sys.pollAdd(poll_.get(), event_.get()) != 0) {
    throw MountFailure::ofErrno(errno, "making a poll set");
  }
  watchFolder();
}

int Watch::addFolder(std::string const& path) {
  return sys.watchAdd(watch_.get(), path.c_str(), folderEvents);
}

void Watch::replace(int& watch, int other) {
  bool const unused = watch != other && watch != (&watch == &folderWatch_ ? aboveWatch_ : folderWatch_);
  if (watch >= 0 && unused) ::inotify_rm_watch(watch_.get(), watch);
  watch = other;
}

void Watch::watchFolder() {
  std::string const parent = parentOf(path_);
  // From above: a directory that is made or removed after it was looked for is seen to be.
  for (std::string last;;) {
    std::string above = parent;
    int watch = addFolder(above);
    while (watch < 0 && isMissing(errno) && above != parentOf(above)) {
      above = parentOf(above);
      watch = addFolder(above);
    }
    replace(aboveWatch_, watch);
    if (watch < 0 || above == parent || above == last) break;
    last = above;
  }
  int const watch = addFolder(path_);
  int const error = errno;
  // One that may not be made anew goes on as it is.
  if (watch >= 0 || isMissing(error)) replace(folderWatch_, watch);
  // Of a table that is there, the directory tells enough.
  if (watch >= 0 && tableWatch_ >= 0) replace(aboveWatch_, -1);
  if (watch >= 0 || (isMissing(error) && aboveWatch_ >= 0)) return;
  throw MountFailure(error == EACCES ? MountStatus::notPermitted : MountStatus::noResources,
                     "watching " + path_ + ": " + strerror(error));
}

void Watch::watchTable() {
  int const watch = sys.watchAdd(watch_.get(), (path_ + "/" + tableFile_).c_str(), tableEvents);
  if (watch < 0) {
    std::string const what = "watching " + path_ + "/" + tableFile_;
    // What there is no space for is the watch.
    if (errno == ENOSPC) throw MountFailure(MountStatus::noResources, what + ": " + strerror(errno));
    throw MountFailure::ofErrno(errno, what);
  }
  if (tableWatch_ != watch) unwatchTable();
  tableWatch_ = watch;
  // Before the directory can go, the table must.
  replace(aboveWatch_, -1);
}

void Watch::unwatchTable() {
  if (tableWatch_ >= 0) ::inotify_rm_watch(watch_.get(), tableWatch_);
  tableWatch_ = -1;
}

void Watch::kick() {
  uint64_t const one = 1;
  kicked_ = true;
  // Fails only when the counter is full, in which case the descriptor is readable all the same.
  [[maybe_unused]] ssize_t const written = ::write(event_.get(), &one, sizeof one);
}

WatchEvents Watch::take() {
  WatchEvents& events = pending_;
  if (std::exchange(kicked_, false)) {
    uint64_t kicks = 0;
    [[maybe_unused]] ssize_t const taken = ::read(event_.get(), &kicks, sizeof kicks);
  }
  char buffer[4096];
  // Where there was room for one more event, there is none.
  constexpr ssize_t full = sizeof buffer - sizeof(inotify_event) - NAME_MAX - 1;
  for (ssize_t size = full + 1; size > full && (size = ::read(watch_.get(), buffer, sizeof buffer)) > 0;) {
    for (char const* at = buffer; at < buffer + size;) {
      inotify_event event;
      std::memcpy(&event, at, sizeof event);
      char const* const name = at + sizeof event;
      if ((event.mask & IN_Q_OVERFLOW) != 0) {
        events.rung = events.renamed = events.lost = true;
      } else if (event.wd == tableWatch_) {
        // In order: a writer that opens the file after another one closed it rings when it is ready.
        if ((event.mask & IN_MODIFY) != 0) events.writerClosed = !(events.rung = true);
        if ((event.mask & IN_CLOSE_WRITE) != 0) events.writerClosed = true;
      } else if (event.wd == aboveWatch_ ||
                 (event.wd == folderWatch_ && (event.len == 0 || tableFile_ == name))) {
        events.renamed = true;
      }
      at += sizeof event + event.len;
    }
  }
  try {
    if (events.renamed) watchFolder();
  } catch (MountFailure const&) {
    // A table that is mounted can still be followed.
    if (tableWatch_ < 0) throw;
  }
  return std::exchange(pending_, {});
}

}  // namespace Brine
