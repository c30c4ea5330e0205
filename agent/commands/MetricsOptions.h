/// The option --metrics of the commands that serve metrics.
#pragma once

#include <optional>

#include "agent/base/HostPort.h"

namespace CLI {
class App;
}

namespace Agent {

struct MetricsOptions {
  std::optional<HostPort> address;

  /// Adds --metrics. `this` must live as long as the command line.
  void addTo(CLI::App& command);
};

}  // namespace Agent
