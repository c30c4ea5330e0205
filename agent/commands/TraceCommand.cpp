#include <unistd.h>
#include <CLI/CLI.hpp>

#include "agent/commands/Commands.h"
#include "agent/site/Control.h"
#include "agent/site/Site.h"
#include "agent/views/Format.h"

namespace Agent {

namespace {

struct TraceOptions {
  std::string dir{Site::defaultDir};
  std::vector<std::string> levels;
  bool json = false;
};

int runTrace(TraceOptions const& options) {
  Site const site(options.dir);
  nlohmann::ordered_json now = controlRequest(site, "trace");
  for (std::string const& level : options.levels) now = controlRequest(site, "trace " + level);
  Output out(STDOUT_FILENO);
  if (options.json) {
    out.write(now.dump(), "\n");
    now.clear();
  }
  for (auto const& [handle, levels] : now.items()) {
    out.write(handle, "/");
    std::string_view separator;
    for (auto const& level : levels) {
      out.write(separator, level.template get<unsigned>());
      separator = ",";
    }
    out.write("\n");
  }
  out.flush();
  return exitOk;
}

}  // namespace

void addTraceCommand(CLI::App& app, Run& run) {
  auto const options = std::make_shared<TraceOptions>();
  CLI::App* const command = app.add_subcommand("trace", "Switch the trace levels of a running agent");
  command->add_option("--dir", options->dir, "The site's directory")->capture_default_str();
  command->add_option("levels", options->levels,
                      "HANDLE/LEVELS, such as QorEvpnModeSm/8; HANDLE/* for all, HANDLE/ for none");
  command->add_flag("-j,--json", options->json, "For programs");
  command->footer(
      "Prints the levels that are then on, one trace handle a line.\n\n"
      "Examples:\n"
      "  qorevpn trace                                       what is on now\n"
      "  qorevpn trace QorEvpnModeSm/8 VxlanControllerEvpnTxSm/3,4,8\n"
      "  qorevpn trace --dir /dev/shm/east QorEvpnModeSm/    all levels of that handle off");
  command->callback([options, &run] { run = [options] { return runTrace(*options); }; });
}

}  // namespace Agent
