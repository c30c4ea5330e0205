/// Agent::UsageError: the command line is at odds with itself in a way that its parser cannot see.
#pragma once

#include <stdexcept>

namespace Agent {

/// Reported by its text; the program then exits with `exitUsage`.
class UsageError : public std::runtime_error {
 public:
  using runtime_error::runtime_error;
};

}  // namespace Agent
