#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <utility>

namespace Brine {

/// What a huge page holds on the machines that matter; elsewhere nothing is gained and nothing lost.
inline constexpr size_t hugePageBytes = size_t{2} << 20;

/// What `System::advise` is asked for, by numbers that many headers and kernels do not know yet.
inline constexpr int populateForWriting = 23;     // MADV_POPULATE_WRITE
inline constexpr int collapseIntoHugePages = 25;  // MADV_COLLAPSE

/// The system calls that the engine makes, as pointers, so that tests can make each of them fail. They keep
/// the conventions of the calls that they stand for (-1 and errno; `allocate` returns an error number).
/// Change them only while no table is in use. No descriptor that they give is 0, 1 or 2: in a process that
/// was started without these, whatever it prints would go into the file that got the number.
struct System {
  int (*openFile)(int folder, char const* path, int flags, mode_t mode);
  int (*makeFolder)(char const* path, mode_t mode);
  int (*status)(int fd, struct stat* out);
  int (*statusAt)(int folder, char const* path, struct stat* out);  ///< Does not follow a link.
  int (*changeMode)(int fd, mode_t mode);
  int (*truncate)(int fd, off_t size);
  int (*allocate)(int fd, off_t offset, off_t size);  ///< EFBIG, not a signal, beyond the process's limit.
  /// Shared, at an address that lies in huge pages as the offset does. A forked child does not have what is
  /// mapped for writing.
  void* (*map)(size_t size, int protection, int fd, off_t offset);
  int (*unmap)(void* address, size_t size);
  int (*advise)(void* address, size_t size, int advice);  ///< May fail without harm.
  int (*rename)(int folder, char const* from, char const* to);
  int (*unlink)(int folder, char const* path);
  int (*lock)(int fd, int command, struct flock* lock);
  ssize_t (*writeAt)(int fd, void const* data, size_t size, off_t offset);
  ssize_t (*readAt)(int fd, void* data, size_t size, off_t offset);
  // Waiting, Linux only; used by Watch.cpp alone.
  int (*watchOpen)();
  int (*watchAdd)(int fd, char const* path, uint32_t events);
  int (*pollOpen)();
  int (*pollAdd)(int poll, int fd);
  int (*timerOpen)();
  uint64_t (*now)();  ///< Of the clock that such timers go by, in nanoseconds; cannot fail.
};

/// The calls in use: the real ones, unless a test has changed them.
extern System sys;

/// The real ones.
System const& realSystem();

/// A descriptor that is closed with its owner.
class Fd {
 public:
  Fd() = default;
  explicit Fd(int fd) : fd_(fd) {}
  Fd(Fd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  Fd& operator=(Fd&& other) noexcept {
    reset(std::exchange(other.fd_, -1));
    return *this;
  }
  ~Fd() { reset(); }

  int get() const { return fd_; }
  explicit operator bool() const { return fd_ >= 0; }
  void reset(int fd = -1);

 private:
  int fd_ = -1;
};

}  // namespace Brine
