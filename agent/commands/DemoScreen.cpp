#include "agent/commands/DemoScreen.h"

#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>

#include "agent/base/Signals.h"

namespace Agent {

namespace {

/// Without a terminal: seconds of the recording between two lines of progress.
constexpr double progressStep = 8;

std::string siteText(std::string_view name, std::uint64_t out, std::uint64_t in) {
  char text[64];
  std::snprintf(text, sizeof text, "   %.*s %3llu out %3llu in", static_cast<int>(name.size()), name.data(),
                static_cast<unsigned long long>(out), static_cast<unsigned long long>(in));
  return text;
}

}  // namespace

DemoScreen::DemoScreen(bool isSilent)
    : out_(STDOUT_FILENO),
      colours_(out_.hasColours()),
      signals_(signalFd({SIGHUP, SIGINT, SIGTERM})),
      isSilent_(isSilent),
      isTerminal_(isatty(STDOUT_FILENO)) {
  out_.stopFdIs(signals_.get());
}

std::string DemoScreen::seconds(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.1f s", value);
  return text;
}

std::string DemoScreen::number(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%g", value);
  return text;
}

void DemoScreen::line(std::string const& text) {
  if (!isSilent_) lastLine(text);
}

void DemoScreen::lastLine(std::string const& text) {
  out_.write(text, "\n");
  out_.flush();
}

void DemoScreen::heading(std::string const& text) {
  line("\n" + std::string(colours_.heading) + text + std::string(colours_.reset));
}

void DemoScreen::note(std::string const& text) {
  progressEnds();
  line("  " + text);
}

void DemoScreen::progress(DemoProgress const& progress, bool isLast) {
  if (isSilent_) return;
  bool const isDue = isTerminal_ || isLast || lastShown_ < 0 || progress.now >= lastShown_ + progressStep ||
                     progress.now < lastShown_;
  if (!isDue) return;
  lastShown_ = progress.now;
  constexpr std::size_t width = 12;
  auto const filled = static_cast<std::size_t>(progress.now / progress.end * double{width});
  char time[48];
  std::snprintf(time, sizeof time, "%5.1f of %.1f s", progress.now, progress.end);
  out_.write(isTerminal_ ? "\r\x1b[K" : "", "  [", std::string(filled, '#'), std::string(width - filled, '.'),
             "] ", std::string_view(time), siteText("west", progress.westHosts, progress.westLearned),
             siteText("east", progress.eastHosts, progress.eastLearned), isTerminal_ ? "" : "\n");
  out_.flush();
  inProgress_ = isTerminal_;
}

void DemoScreen::progressEnds() {
  if (inProgress_) line("");
  inProgress_ = false;
}

void DemoScreen::verdict(std::vector<Check> const& checks) {
  if (isSilent_) return;
  for (Check const& check : checks) {
    bool const good = check.fault.empty();
    out_.write(good ? colours_.added : colours_.removed, good ? "  ok      " : "  FAILED  ", colours_.reset,
               check.claim, good ? "" : ": ", check.fault, "\n");
  }
  out_.flush();
}

void DemoScreen::wait(std::chrono::milliseconds time) {
  pollfd poll{signals_.get(), POLLIN, 0};
  if (::poll(&poll, 1, static_cast<int>(time.count())) > 0) throw DemoInterrupted();
}

}  // namespace Agent
