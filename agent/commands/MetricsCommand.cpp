#include <CLI/CLI.hpp>
#include <filesystem>

#include "agent/commands/Commands.h"
#include "agent/metrics/Metrics.h"
#include "agent/site/Control.h"
#include "agent/views/Format.h"

namespace Agent {

namespace {

/// Null where the process does not run.
nlohmann::ordered_json asked(Site const& site, std::string_view request, ControlSide side) {
  try {
    return controlRequest(site, request, side);
  } catch (NotRunning const&) {
    return nullptr;
  }
}

}  // namespace

void addMetricsCommand(CLI::App& app, Run& run) {
  auto const dir = std::make_shared<std::string>(Site::defaultDir);
  CLI::App* const command = app.add_subcommand("metrics", "Print the figures of a site for Prometheus");
  command->add_option("--dir", *dir, "The site's directory")->capture_default_str();
  command->footer(
      "What does not run has no figures; the tables have theirs nevertheless. `--metrics ADDRESS:PORT` of\n"
      "`agent` and `evpn` serves the same, each its own, over HTTP.\n\n"
      "Examples:\n"
      "  qorevpn metrics | grep rows\n"
      "  qorevpn metrics > site.prom.new && mv site.prom.new site.prom    for a textfile collector");
  command->callback([dir, &run] {
    run = [dir] {
      Site const site(*dir);
      if (!std::filesystem::is_directory(*dir))
        throw std::runtime_error("there is no site " + *dir +
                                 ": no agent has run there, or --dir is another");
      ProcessFigures const processes{
          asked(site, "state", ControlSide::agent), asked(site, "counters", ControlSide::agent),
          asked(site, "state", ControlSide::evpn), asked(site, "counters", ControlSide::evpn)};
      Output out(STDOUT_FILENO);
      out.write(metricsText(site, processes));
      out.flush();
      return int{exitOk};
    };
  });
}

}  // namespace Agent
