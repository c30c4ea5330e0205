#include <fcntl.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdlib>
#include <iostream>

#include "Brine/Errors.h"
#include "agent/commands/Commands.h"
#include "agent/views/Format.h"

namespace Agent {

namespace {

/// Opens the standard streams that the caller closed, so that no file gets their descriptors and their
/// output.
void openStandardStreams() {
  for (int fd = 0; fd <= 2; ++fd) {
    if (fcntl(fd, F_GETFD) < 0 && open("/dev/null", O_RDWR) != fd) std::abort();
  }
}

/// `qorevpn help [COMMAND]`, for those who look for help under that name.
void addHelpCommand(CLI::App& app, Run& run) {
  CLI::App* const command = app.add_subcommand("help", "Print the help of a command");
  auto const name = std::make_shared<std::string>();
  command->add_option("command", *name, "The command; the whole program if none is named");
  command->callback([&app, &run, name] {
    run = [&app, name] {
      auto const named =
          app.get_subcommands([&](CLI::App* each) { return !name->empty() && each->get_name() == *name; });
      if (named.empty() && !name->empty())
        throw UsageError("there is no command '" + *name + "'; `qorevpn help` lists them");
      // Not App::help(), which would print the help of this very command.
      std::string const title = named.empty() ? "qorevpn" : "qorevpn " + *name;
      std::cout << app.get_formatter()->make_help(named.empty() ? &app : named.front(), title,
                                                  CLI::AppFormatMode::Normal);
      std::cout.flush();
      return std::cout ? exitOk : exitFailed;
    };
  });
}

}  // namespace

int program(int argc, char** argv) {
  openStandardStreams();
  CLI::App app("Joins a VXLAN controller's forwarding state with BGP EVPN.", "qorevpn");
  app.require_subcommand(-1);  // one at most: a word that is none is then named by the parser
  app.failure_message([](CLI::App const* all, CLI::Error const& error) {
    auto const chosen = all->get_subcommands();
    std::string const name = chosen.empty() ? "qorevpn" : "qorevpn " + chosen.front()->get_name();
    return "qorevpn: " + std::string(error.what()) + "\n`" + name + " --help` tells what there is.\n";
  });
  app.set_help_all_flag("--help-all", "Print the help of every command");
  app.set_version_flag("--version", "qorevpn " QOREVPN_VERSION, "Print the version");
  app.footer(
      "Examples:\n"
      "  qorevpn demo                            two sites, live, with a verdict\n"
      "  qorevpn agent --feed events.jsonl &     host the module for a site\n"
      "  qorevpn show hosts --vni 5000           what it exports\n"
      "  qorevpn agent --help                    more examples of a command\n\n"
      "Exit status: 0, 1 if it failed, 2 if the command line is wrong.");
  Run run;
  addAgentCommand(app, run);
  addEvpnCommand(app, run);
  addDemoCommand(app, run);
  addShowCommand(app, run);
  addWatchCommand(app, run);
  addCheckCommand(app, run);
  addWhyCommand(app, run);
  addAuditCommand(app, run);
  addReplayCommand(app, run);
  addMetricsCommand(app, run);
  addTraceCommand(app, run);
  addHelpCommand(app, run);
  addManualCommand(app, run);
  app.set_config("--config", "", "Take options from this file: below [agent] those of `agent`, and so on")
      ->type_name("FILE");
  app.allow_config_extras(CLI::config_extras_mode::error);
  for (CLI::App* const command : app.get_subcommands({})) {
    CLI::Option* const dir = command->get_option_no_throw("--dir");
    if (dir && command->get_name() != "demo") dir->envname("QOREVPN_DIR");  // the demo makes sites of its own
  }
  try {
    app.parse(argc, argv);
    if (!run) throw CLI::RequiredError("A command");
  } catch (CLI::ConfigError const& error) {
    std::cerr << "qorevpn: " << app.get_config_ptr()->as<std::string>() << ": " << error.what() << '\n';
    return exitUsage;
  } catch (CLI::ParseError const& error) {
    if (app.exit(error) != 0) return exitUsage;
    return std::cout.flush() ? exitOk : exitFailed;
  }

  // A reader of our output that goes away is seen as a failed write.
  std::signal(SIGPIPE, SIG_IGN);
  try {
    return run();
  } catch (UsageError const& error) {
    std::cerr << "qorevpn: " << error.what() << '\n';
    return exitUsage;
  } catch (Brine::SpaceError const& error) {
    std::cerr << "qorevpn: no space: " << error.what() << "; the rows are intact\n";
    return exitFailed;
  } catch (OutputClosed const&) {
    return exitFailed;  // the reader of the output has gone
  } catch (std::exception const& error) {
    std::cerr << "qorevpn: " << error.what() << '\n';
    return exitFailed;
  }
}

}  // namespace Agent
