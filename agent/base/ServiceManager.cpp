#include "agent/base/ServiceManager.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <charconv>
#include <cstdlib>
#include <cstring>

#include "agent/base/Fd.h"

namespace Agent {

namespace {

std::string environment(char const* name) {
  char const* const value = std::getenv(name);
  return value ? value : "";
}

}  // namespace

ServiceManager::ServiceManager(Loop& loop)
    : socket_(environment("NOTIFY_SOCKET")), watchdog_(loop, [this] { feedWatchdog(); }) {
  std::string const interval = environment("WATCHDOG_USEC");
  std::string const pid = environment("WATCHDOG_PID");
  std::uint64_t microseconds = 0;
  std::from_chars(interval.data(), interval.data() + interval.size(), microseconds);
  if (!socket_.empty() && microseconds > 0 && (pid.empty() || pid == std::to_string(getpid()))) {
    watchdogEvery_ = std::chrono::microseconds(microseconds / 2);
    feedWatchdog();
  }
}

void ServiceManager::ready() {
  if (ready_) return;
  ready_ = true;
  tell("READY=1");
}

void ServiceManager::feedWatchdog() {
  tell("WATCHDOG=1");
  watchdog_.start(watchdogEvery_);
}

void ServiceManager::tell(std::string_view message) const {
  sockaddr_un address{};
  if (socket_.empty() || socket_.size() >= sizeof(address.sun_path)) return;
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, socket_.data(), socket_.size());
  if (address.sun_path[0] == '@') address.sun_path[0] = '\0';  // an abstract name
  Fd const fd(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  auto const length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + socket_.size());
  // A message that cannot be sent is dropped: the manager reads its socket while it wants messages.
  if (fd.get() >= 0) {
    sendto(fd.get(), message.data(), message.size(), MSG_NOSIGNAL,
           reinterpret_cast<sockaddr const*>(&address), length);
  }
}

}  // namespace Agent
