#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "Orb/Text.h"
#include "Trace/Trace.h"

namespace TestSupport {

/// While it lives, takes every trace and switches the given levels of one handle on; then all is as before.
class TraceCapture {
 public:
  explicit TraceCapture(std::string_view handle, Trace::LevelMask levels = Trace::allLevels)
      : handle_(handle), formerLevels_(Trace::levels(handle)) {
    formerSink_ = Trace::sinkIs([this](Trace::Record const& record) {
      std::string line;
      Orb::appendTexts(line, record.level, " ", record.text);
      lines_.push_back(std::move(line));
      functions_.emplace_back(record.where.function);
    });
    Trace::levelsIs(handle_, levels);
  }
  ~TraceCapture() {
    Trace::levelsIs(handle_, formerLevels_);
    Trace::sinkIs(std::move(formerSink_));
  }
  TraceCapture(TraceCapture const&) = delete;
  TraceCapture& operator=(TraceCapture const&) = delete;

  /// The traces so far, each as "<level> <text>"; forgets them.
  std::vector<std::string> take() {
    functions_.clear();
    return std::exchange(lines_, {});
  }
  /// The function names that go with them.
  std::vector<std::string> const& functions() const { return functions_; }

 private:
  std::string handle_;
  Trace::LevelMask formerLevels_;
  Trace::Sink formerSink_;
  std::vector<std::string> lines_;
  std::vector<std::string> functions_;
};

}  // namespace TestSupport
