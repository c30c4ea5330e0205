#include "agent/commands/ReplayOptions.h"

#include <CLI/CLI.hpp>
#include <ctime>
#include <limits>

#include "agent/base/UsageError.h"
#include "agent/record/Recording.h"

namespace Agent {

namespace {

/// Unix time of "2026-11-22T03:12:05Z", without Z in local time, or in seconds.
double secondsOf(std::string const& text) {
  char* end = nullptr;
  double const seconds = std::strtod(text.c_str(), &end);
  if (!text.empty() && *end == '\0' && seconds >= 0) return seconds;
  for (char const* const format : {"%Y-%m-%dT%H:%M:%S", "%Y-%m-%d %H:%M:%S"}) {
    std::tm parts{};
    parts.tm_isdst = -1;
    char const* const rest = strptime(text.c_str(), format, &parts);
    if (!rest) continue;
    double const fraction = *rest == '.' ? std::strtod(rest, &end) : 0;
    std::string_view const zone = *rest == '.' ? end : rest;
    if (zone == "Z") return static_cast<double>(timegm(&parts)) + fraction;
    if (zone.empty()) return static_cast<double>(mktime(&parts)) + fraction;
  }
  throw UsageError("--until " + text + ": not a time such as 2026-11-22T03:12:05Z or 1763781125.5");
}

}  // namespace

void ReplayOptions::addTo(CLI::App& command) {
  command
      .add_option("--until", until,
                  "Stop after this time: 2026-11-22T03:12:05Z (without Z in local time), or seconds of Unix "
                  "time")
      ->type_name("TIME");
}

bool ReplayOptions::run(Replay& replay, std::function<bool(double)> const& step) const {
  double const end = until.empty() ? std::numeric_limits<double>::infinity() : secondsOf(until);
  Recording recording(files);
  double time = 0;
  for (auto event = recording.next(); event; event = recording.next()) {
    if (event->time.value_or(time) > end) break;
    time = event->time.value_or(time);
    replay.apply(*event);
    if (!step(time)) return false;
  }
  replay.endTurn();
  if (!until.empty()) replayedTime = static_cast<std::uint32_t>(end);
  return !recording.hasBadLines();
}

}  // namespace Agent
