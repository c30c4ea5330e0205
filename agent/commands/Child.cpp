#include "agent/commands/Child.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include "agent/base/Fd.h"

namespace Agent {

Child::Child(std::vector<std::string> arguments, std::string const& log) {
  arguments.insert(arguments.begin(), "qorevpn");
  std::vector<char*> pointers;
  for (std::string& argument : arguments) pointers.push_back(argument.data());
  pointers.push_back(nullptr);
  Fd const output(checked(open(log.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0640), log.c_str()));
  pid_t const parent = getpid();
  pid_ = checked(fork(), "fork");
  if (pid_ != 0) return;

  // Only calls that are safe between fork and exec.
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != parent) _exit(1);
  setpgid(0, 0);
  dup2(output.get(), STDOUT_FILENO);
  dup2(output.get(), STDERR_FILENO);
  execv("/proc/self/exe", pointers.data());
  _exit(127);
}

Child::~Child() { stop(SIGKILL); }

bool Child::isRunning() {
  if (pid_ > 0 && waitpid(pid_, nullptr, WNOHANG) != 0) pid_ = -1;
  return pid_ > 0;
}

void Child::stop(int signal) {
  if (!isRunning()) return;
  kill(pid_, signal);
  while (waitpid(pid_, nullptr, 0) < 0 && errno == EINTR) {
  }
  pid_ = -1;
}

}  // namespace Agent
