#include "agent/commands/MetricsOptions.h"

#include <CLI/CLI.hpp>
#include <stdexcept>

namespace Agent {

void MetricsOptions::addTo(CLI::App& command) {
  command
      .add_option_function<std::string>(
          "--metrics",
          [this](std::string const& text) {
            try {
              address.emplace(text);
            } catch (std::invalid_argument const& error) {
              throw CLI::ValidationError("--metrics", error.what());
            }
          },
          "Serve figures for Prometheus over HTTP at this address and port; there is no password")
      ->type_name("ADDRESS:PORT");
}

}  // namespace Agent
