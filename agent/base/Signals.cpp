#include "agent/base/Signals.h"

#include <signal.h>
#include <sys/signalfd.h>

namespace Agent {

Fd signalFd(std::initializer_list<int> signals) {
  sigset_t set;
  sigemptyset(&set);
  for (int const signal : signals) sigaddset(&set, signal);
  sigprocmask(SIG_BLOCK, &set, nullptr);
  return Fd(checked(signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK), "signalfd"));
}

int takeSignal(Fd const& fd) {
  signalfd_siginfo info;
  if (read(fd.get(), &info, sizeof info) != static_cast<ssize_t>(sizeof info)) return 0;
  return static_cast<int>(info.ssi_signo);
}

}  // namespace Agent
