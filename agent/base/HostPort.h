/// Agent::HostPort: HOST:PORT as people write it, ready for connect() and bind().
#pragma once

#include <sys/socket.h>

#include <string>
#include <string_view>

namespace Agent {

struct HostPort {
  /// HOST is an IPv4 address, an IPv6 address, which may stand in brackets, or `localhost`; PORT is 1 to
  /// 65535. Other names are refused: a look-up would block the loop until the name server answers.
  /// Raises std::invalid_argument, which quotes `whole`, the text that the user gave.
  HostPort(std::string_view given, std::string_view whole);
  explicit HostPort(std::string_view given) : HostPort(given, given) {}

  sockaddr const* address() const { return reinterpret_cast<sockaddr const*>(&socket); }

  std::string text;  ///< As given.
  sockaddr_storage socket{};
  socklen_t length = 0;
};

}  // namespace Agent
