/// The options of the commands that replay a recording, and the replay itself.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "agent/record/Replay.h"

namespace CLI {
class App;
}

namespace Agent {

struct ReplayOptions {
  std::vector<std::string> files;
  std::string until;

  /// Adds --until. `this` must live as long as the command line.
  void addTo(CLI::App& command);
  /// Replays the files up to `until`. After each line it calls `step` with the line's time; the replay ends
  /// if `step` returns false. Returns whether every line was valid. Raises UsageError for a wrong time and
  /// std::runtime_error for files that are not a recording.
  bool run(Replay& replay, std::function<bool(double time)> const& step) const;
};

}  // namespace Agent
