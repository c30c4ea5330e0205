#include "agent/commands/LogOptions.h"

#include <CLI/CLI.hpp>

namespace Agent {

void LogOptions::addTo(CLI::App& command) {
  command.add_option("--log", file, "Append the log to this file, not standard error; SIGHUP opens it again")
      ->type_name("FILE");
}

void LogOptions::begin(Loop& loop, Loop::Handler alsoOpens) const {
  if (!file.empty()) logFileIs(file);
  loop.hangupIs([alsoOpens = std::move(alsoOpens)] {
    reopenLog();
    if (alsoOpens) alsoOpens();
  });
}

std::function<void(std::string const&)> loggerOf(std::string const& who, LogLevel level) {
  return [who, level](std::string const& line) { logLine(level, who + ": " + line); };
}

}  // namespace Agent
