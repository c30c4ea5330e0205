/// Agent::Recording: the lines of a recording's files, in the order in which they were written.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "agent/feed/Event.h"

namespace Agent {

class Recording {
 public:
  /// The files in any order. Raises std::runtime_error naming the one that cannot be read.
  explicit Recording(std::vector<std::string> const& files);
  ~Recording();

  /// The next line; nothing behind the last one. One that is none is named on standard error and passed over;
  /// a last one without its end is being written still.
  std::optional<Event> next();
  bool hasBadLines() const { return hasBadLines_; }

 private:
  class File;
  std::vector<std::unique_ptr<File>> files_;
  std::size_t at_ = 0;
  bool hasBadLines_ = false;
};

}  // namespace Agent
