/// The output of a demonstration. On a terminal a progress line overwrites itself; elsewhere progress is a
/// line every few seconds.
#pragma once

#include <chrono>
#include <span>
#include <stdexcept>
#include <string>

#include "agent/base/Fd.h"
#include "agent/commands/Verdict.h"
#include "agent/views/Format.h"

namespace Agent {

/// SIGHUP, SIGINT or SIGTERM arrived.
class DemoInterrupted : public std::runtime_error {
 public:
  DemoInterrupted() : runtime_error("interrupted") {}
};

struct DemoProgress {
  double now;  ///< Seconds of the recording.
  double end;
  std::uint64_t westHosts, westLearned;
  std::uint64_t eastHosts, eastLearned;
};

class DemoScreen {
 public:
  /// Blocks SIGHUP, SIGINT and SIGTERM; wait() reports them. A silent screen writes its last line only.
  explicit DemoScreen(bool isSilent);

  static std::string seconds(double value);
  static std::string number(double value);

  void line(std::string const& text);
  void lastLine(std::string const& text);
  void heading(std::string const& text);
  /// Writes a line that ends the progress line, if there is one.
  void note(std::string const& text);
  /// Shows the progress; without a terminal every few seconds only, and the last one.
  void progress(DemoProgress const& progress, bool isLast = false);
  void progressEnds();
  void verdict(std::vector<Check> const& checks);

  /// Writes the first `limit` rows of a kind (0: all), sorted as `qorevpn show` sorts them.
  template <class Row>
  void rows(SiteRows const& all, std::size_t limit) {
    if (isSilent_) return;
    std::span<Row const> const rows = all.of<Row>();
    std::size_t const shown = limit == 0 ? rows.size() : std::min(limit, rows.size());
    writeColumns(out_, TableKind<Row>::fields(), rows.first(shown));
    out_.write(shown < rows.size() ? "... " : "", countText(rows.size(), TableKind<Row>::noun), "\n\n");
    out_.flush();
  }

  /// Waits that long. Raises DemoInterrupted if one of the signals arrives.
  void wait(std::chrono::milliseconds time);

 private:
  Output out_;
  Colours colours_;
  Fd signals_;
  bool isSilent_;
  bool isTerminal_;
  bool inProgress_ = false;
  double lastShown_ = -1;
};

}  // namespace Agent
