#include "Brine/system/System.h"

#include <sys/epoll.h>
#include <sys/inotify.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <bit>
#include <cerrno>
#include <chrono>
#include <cstdio>

namespace Brine {

namespace {

void* mapShared(size_t size, int protection, int fd, off_t offset) {
  if (size < hugePageBytes) return ::mmap(nullptr, size, protection, MAP_SHARED, fd, offset);
  // Addresses are reserved first, with room to choose among them.
  size_t const room = size + hugePageBytes;
  void* const reserved = ::mmap(nullptr, room, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (reserved == MAP_FAILED) return MAP_FAILED;
  auto* const start = static_cast<std::byte*>(reserved);
  size_t const before = (static_cast<size_t>(offset) - std::bit_cast<uintptr_t>(start)) % hugePageBytes;
  void* const mapped = ::mmap(start + before, size, protection, MAP_SHARED | MAP_FIXED, fd, offset);
  if (mapped == MAP_FAILED) {
    ::munmap(reserved, room);
    return MAP_FAILED;
  }
  if (before != 0) ::munmap(start, before);
  ::munmap(start + before + size, hugePageBytes - before);
  return mapped;
}

int allocate(int fd, off_t offset, off_t size) {
  // The call would end the process by a signal.
  rlimit limit{};
  struct stat status {};
  bool const isLimited =
      ::getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur < static_cast<rlim_t>(offset + size);
  if (isLimited && ::fstat(fd, &status) == 0 && status.st_size < offset + size) return EFBIG;
  return ::posix_fallocate(fd, offset, size);
}

/// The same descriptor under a number above the standard ones.
int aboveStandard(int fd) {
  if (fd < 0 || fd > STDERR_FILENO) return fd;
  int const above = ::fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  int const error = errno;
  ::close(fd);
  errno = error;
  return above;
}

}  // namespace

System const& realSystem() {
  static System const real = {
      .openFile = [](int folder, char const* path, int flags,
                     mode_t mode) { return aboveStandard(::openat(folder, path, flags, mode)); },
      .makeFolder = ::mkdir,
      .status = [](int fd, struct stat* out) { return ::fstat(fd, out); },
      .statusAt = [](int folder, char const* path,
                     struct stat* out) { return ::fstatat(folder, path, out, AT_SYMLINK_NOFOLLOW); },
      .changeMode = ::fchmod,
      .truncate = ::ftruncate,
      .allocate = allocate,
      .map =
          [](size_t size, int protection, int fd, off_t offset) {
            void* const address = mapShared(size, protection, fd, offset);
            // Through it a child would keep the file open for writing, and the writer's mark on it.
            if (address != MAP_FAILED && (protection & PROT_WRITE) != 0)
              ::madvise(address, size, MADV_DONTFORK);
            return address;
          },
      .unmap = ::munmap,
      .advise = ::madvise,
      .rename = [](int folder, char const* from,
                   char const* to) { return ::renameat(folder, from, folder, to); },
      .unlink = [](int folder, char const* path) { return ::unlinkat(folder, path, 0); },
      .lock = [](int fd, int command, struct flock* lock) { return ::fcntl(fd, command, lock); },
      .writeAt = ::pwrite,
      .readAt = ::pread,
      .watchOpen = [] { return aboveStandard(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)); },
      .watchAdd = ::inotify_add_watch,
      .pollOpen = [] { return aboveStandard(::epoll_create1(EPOLL_CLOEXEC)); },
      .pollAdd =
          [](int poll, int fd) {
            epoll_event event{};
            event.events = EPOLLIN;
            return ::epoll_ctl(poll, EPOLL_CTL_ADD, fd, &event);
          },
      .timerOpen =
          [] { return aboveStandard(::timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC)); },
      .now =
          [] {
            auto const now = std::chrono::steady_clock::now().time_since_epoch();
            return static_cast<uint64_t>(std::chrono::nanoseconds(now).count());
          },
  };
  return real;
}

System sys = realSystem();

void Fd::reset(int fd) {
  if (fd_ >= 0) ::close(fd_);
  fd_ = fd;
}

}  // namespace Brine
