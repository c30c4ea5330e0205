/// The log of the commands that run until a signal ends them.
#pragma once

#include <functional>
#include <string>

#include "agent/base/Log.h"
#include "agent/base/Loop.h"

namespace CLI {
class App;
}

namespace Agent {

struct LogOptions {
  std::string file;  ///< Empty for standard error.

  /// Adds --log. `this` must live as long as the command line.
  void addTo(CLI::App& command);
  /// Opens the log. From then on SIGHUP opens it again and calls `alsoOpens`. Raises std::system_error naming
  /// the file.
  void begin(Loop& loop, Loop::Handler alsoOpens = {}) const;
};

/// A function that writes its line to the log, after the name `who` ("agent /dev/shm/west"), at that level.
std::function<void(std::string const&)> loggerOf(std::string const& who, LogLevel level = LogLevel::info);

}  // namespace Agent
