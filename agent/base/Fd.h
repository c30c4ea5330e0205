/// Agent::Fd: a descriptor that is closed with its owner; errors of system calls.
#pragma once

#include <unistd.h>

#include <cerrno>
#include <string>
#include <system_error>

#include "Brine/system/System.h"

namespace Agent {

/// The same class that the table engine has.
using Brine::Fd;

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
