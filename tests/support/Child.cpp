#include "support/Child.h"

#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <exception>

namespace TestSupport {

Child::Child(std::function<void(Child&)> const& body) {
  int ends[2];
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) std::abort();
  std::fflush(nullptr);
  pid_ = ::fork();
  if (pid_ < 0) std::abort();
  channel_ = ends[pid_ == 0 ? 1 : 0];
  ::close(ends[pid_ == 0 ? 0 : 1]);
  if (pid_ != 0) return;
  pid_ = -1;
  ::fcntl(channel_, F_SETFD, 0);       // a program that takes its place ends the channel with its own end
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);  // no child outlives a test that was ended
  int status = 0;
  try {
    body(*this);
  } catch (std::exception const& error) {
    std::printf("a child ended by an exception: %s\n", error.what());
    status = 1;
  }
  if (testing::Test::HasFailure()) status = 1;
  std::fflush(nullptr);
  ::_exit(status);
}

Child::~Child() {
  kill();
  ::close(channel_);
}

void Child::tell() const { ::send(channel_, "", 1, MSG_NOSIGNAL); }

bool Child::hear() const {
  pollfd poll{channel_, POLLIN, 0};
  if (::poll(&poll, 1, patienceMs) == 0) {
    std::fputs("a process of the test hangs\n", stderr);
    std::abort();
  }
  char byte;
  return ::recv(channel_, &byte, 1, 0) == 1;
}

int Child::wait() {
  int status = 0;
  if (pid_ < 0 || ::waitpid(pid_, &status, 0) != pid_) return -1;
  pid_ = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

void Child::kill() {
  if (pid_ >= 0) ::kill(pid_, SIGKILL);
  wait();
}

void execute(std::vector<std::string> command, std::string const& output) {
  if (!output.empty()) {
    int const out = ::open(output.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
    ::dup2(out, STDOUT_FILENO);
    ::dup2(out, STDERR_FILENO);
  }
  std::vector<char*> words;
  for (std::string& word : command) words.push_back(word.data());
  words.push_back(nullptr);
  ::execvp(words[0], words.data());
  ::_exit(126);
}

void becomeNobody(gid_t group) {
  if (::setgroups(0, nullptr) != 0 || ::setgid(group) != 0 || ::setuid(nobody) != 0) std::abort();
}

}  // namespace TestSupport
