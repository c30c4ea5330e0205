/// Agent::ServiceManager: tells the service manager that started the process (systemd, `Type=notify`) when it
/// is ready and that it is alive. Without a manager every call does nothing.
#pragma once

#include <chrono>
#include <string>
#include <string_view>

#include "agent/base/Loop.h"

namespace Agent {

class ServiceManager {
 public:
  /// Reads NOTIFY_SOCKET and WATCHDOG_USEC, and tells the manager twice in each watchdog interval, from the
  /// loop, that the loop still turns.
  explicit ServiceManager(Loop& loop);

  /// The process does what it is for: every source is synced or given up. A second call does nothing.
  void ready();
  /// One line that `systemctl status` shows.
  void statusIs(std::string_view text) { tell("STATUS=" + std::string(text)); }
  void stopping() { tell("STOPPING=1"); }

 private:
  void tell(std::string_view message) const;
  void feedWatchdog();

  std::string socket_;  ///< Empty: nobody asks.
  std::chrono::microseconds watchdogEvery_{0};
  Timer watchdog_;
  bool ready_ = false;
};

}  // namespace Agent
