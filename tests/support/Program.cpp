#include "support/Program.h"

#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <utility>

#include "support/Paths.h"

namespace TestSupport {

namespace {

constexpr int patienceMs = 60'000;

[[noreturn]] void giveUp(char const* what) {
  std::fprintf(stderr, "qorevpn in a test: %s\n", what);
  std::abort();
}

std::array<int, 2> newPipe() {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) giveUp("no pipe");
  return ends;
}

}  // namespace

Program::Program(std::vector<std::string> const& arguments, uid_t user)
    : errors_(memfd_create("errors", MFD_CLOEXEC)) {
  // A program that ended must show as a failed write.
  std::signal(SIGPIPE, SIG_IGN);
  std::string path = programPath();
  std::vector<std::string> copy = arguments;
  std::vector<char*> pointers = {path.data()};
  for (std::string& argument : copy) pointers.push_back(argument.data());
  pointers.push_back(nullptr);
  auto const input = newPipe();
  auto const output = newPipe();
  pid_ = fork();
  if (pid_ < 0) giveUp("no process");
  if (pid_ == 0) {
    dup2(input[0], STDIN_FILENO);
    dup2(output[1], STDOUT_FILENO);
    dup2(errors_, STDERR_FILENO);
    std::signal(SIGPIPE, SIG_DFL);
    if (user != 0 && (setgroups(0, nullptr) != 0 || setgid(user) != 0 || setuid(user) != 0)) _exit(125);
    execv(path.c_str(), pointers.data());
    _exit(126);
  }
  close(input[0]);
  close(output[1]);
  input_ = input[1];
  output_ = output[0];
}

Program::~Program() {
  if (!status_) {
    ::kill(pid_, SIGKILL);
    wait();
  }
  endInput();
  closeOutput();
  close(errors_);
}

void Program::write(std::string const& text) const {
  for (std::size_t done = 0; done < text.size();) {
    ssize_t const count = ::write(input_, text.data() + done, text.size() - done);
    if (count < 0) giveUp("its standard input cannot be written");
    done += static_cast<std::size_t>(count);
  }
}

void Program::endInput() {
  if (input_ >= 0) close(input_);
  input_ = -1;
}

bool Program::fill() {
  pollfd wait{output_, POLLIN, 0};
  if (poll(&wait, 1, patienceMs) <= 0) giveUp("no output for a minute");
  std::array<char, 65536> buffer;
  ssize_t const count = read(output_, buffer.data(), buffer.size());
  if (count > 0) pending_.append(buffer.data(), static_cast<std::size_t>(count));
  return count > 0;
}

std::optional<std::string> Program::line() {
  std::size_t end;
  while ((end = pending_.find('\n')) == std::string::npos) {
    if (!fill()) return std::nullopt;
  }
  std::string text = pending_.substr(0, end);
  pending_.erase(0, end + 1);
  return text;
}

std::string Program::rest() {
  while (fill()) {
  }
  return std::exchange(pending_, {});
}

void Program::closeOutput() {
  if (output_ >= 0) close(output_);
  output_ = -1;
}

void Program::signal(int number) const {
  if (!status_) ::kill(pid_, number);
}

void Program::stop() const {
  siginfo_t info{};
  signal(SIGSTOP);
  if (waitid(P_PID, static_cast<id_t>(pid_), &info, WSTOPPED | WEXITED | WNOWAIT) != 0)
    giveUp("it cannot be stopped");
}

int Program::wait() {
  for (int waited = 0; !status_; ++waited) {
    int status = 0;
    if (waitpid(pid_, &status, WNOHANG) == pid_) {
      status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    } else if (waited == patienceMs) {
      giveUp("no end for a minute");
    } else {
      usleep(1000);
    }
  }
  return *status_;
}

std::string Program::errors() const {
  struct stat status {};
  fstat(errors_, &status);
  std::string text(static_cast<std::size_t>(status.st_size), '\0');
  if (pread(errors_, text.data(), text.size(), 0) < 0) giveUp("its standard error cannot be read");
  return text;
}

Outcome run(std::vector<std::string> const& arguments, uid_t user) {
  Program program(arguments, user);
  program.endInput();
  std::string out = program.rest();
  int const status = program.wait();
  return {status, std::move(out), program.errors()};
}

ScratchFolder::ScratchFolder()
    : path_((std::filesystem::temp_directory_path() / "qorevpn-test-XXXXXX").string()) {
  if (mkdtemp(path_.data()) == nullptr || chmod(path_.c_str(), 0755) != 0) giveUp("no folder for a test");
}

ScratchFolder::~ScratchFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

}  // namespace TestSupport
