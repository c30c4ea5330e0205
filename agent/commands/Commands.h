/// The program and its subcommands. Each add..Command() function adds one subcommand to the command line. The
/// chosen subcommand sets `run`, which the program calls after the whole command line has been accepted.
#pragma once

#include <functional>

#include "agent/base/UsageError.h"

namespace CLI {
class App;
}

namespace Agent {

/// The program's exit status.
enum ExitStatus : int { exitOk = 0, exitFailed = 1, exitUsage = 2 };

/// Runs a command and returns the program's exit status. An exception is reported by its text and means
/// `exitFailed`, a UsageError `exitUsage`.
using Run = std::function<int()>;

void addAgentCommand(CLI::App& app, Run& run);
void addEvpnCommand(CLI::App& app, Run& run);
void addDemoCommand(CLI::App& app, Run& run);
void addShowCommand(CLI::App& app, Run& run);
void addWatchCommand(CLI::App& app, Run& run);
void addCheckCommand(CLI::App& app, Run& run);
void addAuditCommand(CLI::App& app, Run& run);
void addTraceCommand(CLI::App& app, Run& run);
void addWhyCommand(CLI::App& app, Run& run);
void addReplayCommand(CLI::App& app, Run& run);
void addMetricsCommand(CLI::App& app, Run& run);
void addManualCommand(CLI::App& app, Run& run);

/// The whole program, from its command line to its exit status. Called once, by main().
int program(int argc, char** argv);

}  // namespace Agent
