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
  /// Opens the files, which are given in any order. Raises std::runtime_error naming one that cannot be read.
  explicit Recording(std::vector<std::string> const& files);
  ~Recording();

  /// The next event; nothing after the last one. A line that is not an event is named on standard error and
  /// skipped. A last line without its end is ignored: it is still being written.
  std::optional<Event> next();
  bool hasBadLines() const { return hasBadLines_; }

 private:
  class File;
  std::vector<std::unique_ptr<File>> files_;
  std::size_t at_ = 0;
  bool hasBadLines_ = false;
};

}  // namespace Agent
