#include <CLI/CLI.hpp>
#include <cmath>
#include <csignal>
#include <iostream>

#include "agent/base/Signals.h"
#include "agent/commands/Commands.h"
#include "agent/commands/ReplayOptions.h"
#include "agent/commands/Show.h"
#include "agent/commands/Watch.h"

namespace Agent {

namespace {

struct ReplayCommandOptions : ViewOptions {
  ReplayOptions recording;
  bool trace = false;
};

/// Unix time as a date; a recording has microseconds.
std::string timeText(double seconds) {
  auto const micros = std::llround(seconds * 1e6);
  auto const whole = static_cast<std::time_t>(micros / 1'000'000);
  std::tm parts{};
  gmtime_r(&whole, &parts);
  char text[64];
  std::size_t const size = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &parts);
  std::snprintf(text + size, sizeof text - size, ".%06dZ", static_cast<int>(micros % 1'000'000));
  return text;
}

/// The tables of that side whose rows can be told by the filter.
std::vector<std::string> tablesOf(ViewOptions const& options) {
  std::vector<std::string> words{"hosts", "floods"};
  if (!options.learned) words.emplace_back("bridge-ids");
  std::erase_if(words, [&](std::string const& word) {
    try {
      return placeOf(word, options.learned, options.filter), false;
    } catch (UsageError const&) {
      return true;
    }
  });
  return words;
}

/// Writes what changes in the tables of a replay.
class ChangeTrace {
 public:
  ChangeTrace(ViewOptions const& options, Output& out) : options_(options), out_(out) {}

  void look(Replay& replay, double time) {
    time_ = time;
    if (!replay.isBuilt()) return;
    replay.endTurn();
    if (!watch_) {
      WatchOptions changes;
      static_cast<ViewOptions&>(changes) = options_;
      changes.dir = replay.site().dir();
      changes.learned = options_.learned || replay.side() == Origin::evpn;
      changes.subjects = tablesOf(changes);
      changes.initial = true;
      changes.now = [this] { return timeText(time_); };
      watch_.emplace(std::move(changes), out_);
    }
    watch_->deliver();
  }

 private:
  ViewOptions const& options_;
  Output& out_;
  double time_ = 0;
  std::optional<TableWatch> watch_;
};

int showEnd(Replay const& replay, ViewOptions const& options, Output& out) {
  if (!replay.isBuilt()) throw std::runtime_error("the recording has nothing before that time");
  EvpnStatus const evpnStatus = replay.evpnStatus();
  ShowOptions state{options, {}, &evpnStatus};
  state.dir = replay.site().dir();
  state.learned = options.learned || replay.side() == Origin::evpn;
  state.subjects = tablesOf(state);
  if (!state.learned) state.subjects.emplace_back("evpn-status");
  return show(state, out);
}

int runReplay(ReplayCommandOptions const& options) {
  Fd const stopFd = signalFd({SIGINT, SIGTERM});
  Output out(STDOUT_FILENO);
  Replay replay;
  ChangeTrace trace(options, out);
  std::uint64_t steps = 0;
  try {
    bool const isWhole = options.recording.run(replay, [&](double time) {
      if (options.trace) trace.look(replay, time);
      return ++steps % 1024 != 0 || takeSignal(stopFd) == 0;
    });
    if (options.trace) out.flush();
    int const status = options.trace ? int{exitOk} : showEnd(replay, options, out);
    return isWhole ? status : int{exitFailed};
  } catch (OutputClosed const&) {
    return exitOk;
  }
}

}  // namespace

void addReplayCommand(CLI::App& app, Run& run) {
  auto const options = std::make_shared<ReplayCommandOptions>();
  CLI::App* const command =
      app.add_subcommand("replay", "Do again what was recorded, and show what came of it");
  command->add_option("files", options->recording.files, "A recording's files, in any order")
      ->required()
      ->type_name("FILE");
  options->recording.addTo(*command);
  command->add_flag("--trace", options->trace, "Print each change, with its time, instead of the state");
  command->add_flag("-j,--json", options->json, "For programs");
  addRowOptions(*command, *options);
  command->footer(
      "Prints what the tables of the process held whose recording it is (--record of `agent` and `evpn`), "
      "as\n"
      "`show hosts floods bridge-ids evpn-status` would have then, or of an EVPN side `show hosts floods\n"
      "--learned`. No site is touched.\n\n"
      "Examples:\n"
      "  qorevpn replay agent.rec*                                   the end\n"
      "  qorevpn replay agent.rec* --until 2026-11-22T03:12:05Z      the state at that time\n"
      "  qorevpn replay agent.rec --trace --mac 0200.0000.0001       how one MAC came and went");
  command->callback([options, &run] { run = [options] { return runReplay(*options); }; });
}

}  // namespace Agent
