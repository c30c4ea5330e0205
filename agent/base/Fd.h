/// Agent::Fd: a descriptor that is closed with its owner.
#pragma once

#include <unistd.h>

#include <cerrno>
#include <string>
#include <system_error>
#include <utility>

namespace Agent {

class Fd {
 public:
  Fd() = default;
  explicit Fd(int fd) : fd_(fd) {}
  Fd(Fd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  Fd& operator=(Fd&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  ~Fd() {
    if (fd_ >= 0) ::close(fd_);
  }

  int get() const { return fd_; }
  explicit operator bool() const { return fd_ >= 0; }

 private:
  int fd_ = -1;
};

/// The error of the last system call, with what was attempted.
[[noreturn]] inline void throwErrno(std::string const& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

/// Returns the result of a system call; raises std::system_error where it is negative.
inline int checked(int result, char const* what) {
  if (result < 0) throwErrno(what);
  return result;
}

}  // namespace Agent
