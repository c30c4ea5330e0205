#include "support/Program.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <utility>

#include "support/Paths.h"

namespace TestSupport {

namespace {

[[noreturn]] void giveUp(char const* what) {
  std::fprintf(stderr, "qorevpn in a test: %s\n", what);
  std::abort();
}

std::array<int, 2> newPipe() {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) giveUp("no pipe");
  return ends;
}

void shut(int& end) {
  if (end >= 0) close(end);
  end = -1;
}

}  // namespace

Program::Program(std::vector<std::string> arguments, bool isNobodys)
    : input_(newPipe()),
      output_(newPipe()),
      errors_(memfd_create("errors", MFD_CLOEXEC)),
      process_([&](Child&) {
        arguments.insert(arguments.begin(), programPath());
        dup2(input_[0], STDIN_FILENO);
        dup2(output_[1], STDOUT_FILENO);
        dup2(errors_, STDERR_FILENO);
        std::signal(SIGPIPE, SIG_DFL);
        if (isNobodys) becomeNobody();
        execute(arguments);
      }) {
  // A program that ended must show as a failed write.
  std::signal(SIGPIPE, SIG_IGN);
  shut(input_[0]);
  shut(output_[1]);
}

Program::~Program() {
  endInput();
  closeOutput();
  close(errors_);
}

void Program::write(std::string const& text) const {
  for (std::size_t done = 0; done < text.size();) {
    ssize_t const count = ::write(input_[1], text.data() + done, text.size() - done);
    if (count < 0) giveUp("its standard input cannot be written");
    done += static_cast<std::size_t>(count);
  }
}

void Program::endInput() { shut(input_[1]); }

bool Program::fill() {
  pollfd wait{output_[0], POLLIN, 0};
  if (poll(&wait, 1, patienceMs) <= 0) giveUp("no output for a minute");
  std::array<char, 65536> buffer;
  ssize_t const count = read(output_[0], buffer.data(), buffer.size());
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

void Program::closeOutput() { shut(output_[0]); }

void Program::signal(int number) const {
  if (process_.pid() > 0) ::kill(process_.pid(), number);
}

void Program::stop() const {
  siginfo_t info{};
  signal(SIGSTOP);
  if (waitid(P_PID, static_cast<id_t>(process_.pid()), &info, WSTOPPED | WEXITED | WNOWAIT) != 0)
    giveUp("it cannot be stopped");
}

int Program::wait() {
  process_.hear();  // its end of the channel closes when it ends; gives up after a minute
  return process_.wait();
}

std::string Program::errors() const {
  struct stat status {};
  fstat(errors_, &status);
  std::string text(static_cast<std::size_t>(status.st_size), '\0');
  if (pread(errors_, text.data(), text.size(), 0) < 0) giveUp("its standard error cannot be read");
  return text;
}

Outcome run(std::vector<std::string> const& arguments, bool isNobodys, std::string const& input) {
  Program program(arguments, isNobodys);
  program.write(input);
  program.endInput();
  std::string out = program.rest();
  int const status = program.wait();
  return {status, std::move(out), program.errors()};
}

}  // namespace TestSupport
