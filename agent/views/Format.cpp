#include "agent/views/Format.h"

#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <system_error>

namespace Agent {
namespace {

bool wantsColours(int fd) {
  char const* const refusal = std::getenv("NO_COLOR");
  char const* const terminal = std::getenv("TERM");
  return isatty(fd) == 1 && (refusal == nullptr || *refusal == '\0') && terminal != nullptr &&
         std::string_view(terminal) != "dumb";
}

}  // namespace

Output::Output(int fd) : fd_(fd), hasColours_(wantsColours(fd)) {}

void Output::flush() {
  std::string_view rest = pending_;
  while (!rest.empty()) {
    std::size_t size = rest.size();
    if (stopFd_ >= 0) {
      // A pipe that is ready takes this many bytes without blocking.
      size = std::min<std::size_t>(size, PIPE_BUF);
      std::array<pollfd, 2> waits = {{{fd_, POLLOUT, 0}, {stopFd_, POLLIN, 0}}};
      if (poll(waits.data(), waits.size(), -1) < 0) continue;
      if (waits[1].revents != 0) throw OutputClosed();
    }
    ssize_t const count = ::write(fd_, rest.data(), size);
    if (count >= 0) {
      rest.remove_prefix(static_cast<std::size_t>(count));
    } else if (errno == EPIPE) {
      throw OutputClosed();
    } else if (errno != EINTR) {
      throw std::system_error(errno, std::generic_category(), "cannot write the output");
    }
  }
  pending_.clear();
}

Colours::Colours(bool on) {
  if (!on) return;
  heading = "\033[1m";
  added = "\033[32m";
  changed = "\033[33m";
  removed = "\033[31m";
  faint = "\033[2m";
  reset = "\033[0m";
}

std::string countText(std::size_t count, std::string_view noun) {
  std::string text = std::to_string(count);
  for (std::size_t i = text.size(); i > 3; i -= 3) text.insert(i - 3, ",");
  Orb::appendTexts(text, " ", noun, count == 1 ? "" : "s");
  return text;
}

}  // namespace Agent
