/// Agent::Loop: the one loop of a process, over epoll. Everything that the process does happens in a handler
/// that the loop calls, one at a time, on the thread that runs it.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>

#include "agent/base/Fd.h"

namespace Agent {

class Loop {
 public:
  using Handler = std::function<void()>;

  Loop();
  Loop(Loop const&) = delete;
  Loop& operator=(Loop const&) = delete;

  /// Calls `handler` whenever `fd` is ready for `events` (EPOLLIN, EPOLLOUT), for as long as it is: once a
  /// turn, with everything else in turn. Replaces a former handler of `fd`. Raises std::system_error.
  void watch(int fd, Handler handler, std::uint32_t events);
  void watchInput(int fd, Handler handler);
  /// Takes `fd` off, before it is closed; does nothing for one that is not watched. A handler may take off
  /// any descriptor, its own too.
  void unwatch(int fd);

  /// Calls `handler` at the end of each turn, before the wait of the next one: what it leaves undone is not
  /// done while the loop waits.
  void turnEndIs(Handler handler) { turnEnd_ = std::move(handler); }

  /// SIGINT and SIGTERM end run() from now on, whatever else is ready; SIGHUP ends nothing and calls the
  /// handler of `hangupIs`. Call it before a second thread starts. Raises std::system_error.
  void takeSignals();
  void hangupIs(Handler handler) { hangup_ = std::move(handler); }
  /// The signal that ended run(), or 0.
  int stopSignal() const { return stopSignal_; }

  /// Turns until stop() is called, by a handler or before. What a handler raises leaves through here.
  void run();
  void stop() { stopped_ = true; }

 private:
  void turn();

  Fd epoll_;
  Fd signals_;
  /// Shared, for a handler that takes itself off lives until it returns.
  std::map<int, std::shared_ptr<Handler>> handlers_;
  Handler turnEnd_;
  Handler hangup_;
  bool stopped_ = false;
  int stopSignal_ = 0;
};

/// Calls a handler once, after a delay, from the loop. The loop outlives the timer.
class Timer {
 public:
  Timer(Loop& loop, Loop::Handler handler);
  ~Timer();
  Timer(Timer const&) = delete;
  Timer& operator=(Timer const&) = delete;

  /// Replaces a delay that still runs. Zero or less fires in the next turn. Raises std::system_error.
  void start(std::chrono::nanoseconds delay);
  void cancel();
  bool isRunning() const { return running_; }

 private:
  Loop& loop_;
  Fd timer_;
  bool running_ = false;
};

}  // namespace Agent
