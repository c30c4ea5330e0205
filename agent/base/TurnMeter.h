/// Agent::TurnMeter: how long the longest turn of a loop was, of those that the process spent working.
#pragma once

#include <algorithm>
#include <ctime>

namespace Agent {

class TurnMeter {
 public:
  /// At the end of each turn, on the loop's thread.
  void endTurn() {
    timespec used{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &used);
    double const now = static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) * 1e-9;
    longest_ = std::max(longest_, now - last_);
    last_ = now;
  }
  /// Seconds of processor time.
  double longest() const { return longest_; }

 private:
  double last_ = 0;
  double longest_ = 0;
};

}  // namespace Agent
