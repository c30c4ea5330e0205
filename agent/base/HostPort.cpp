#include "agent/base/HostPort.h"

#include <netdb.h>

#include <charconv>
#include <cstring>
#include <stdexcept>

namespace Agent {

HostPort::HostPort(std::string_view given, std::string_view whole) : text(given) {
  std::string const quoted = "'" + std::string(whole) + "'";
  auto const colon = given.rfind(':');
  unsigned port = 0;
  bool isPort = colon != std::string_view::npos;
  if (isPort) {
    char const* const end = given.data() + given.size();
    auto const [stop, error] = std::from_chars(given.data() + colon + 1, end, port);
    isPort = error == std::errc{} && stop == end && port >= 1 && port <= 65535;
  }
  if (!isPort) throw std::invalid_argument(quoted + ": the port must be a number from 1 to 65535");

  std::string host(given.substr(0, colon));
  if (host.starts_with('[') && host.ends_with(']')) host = host.substr(1, host.size() - 2);
  if (host == "localhost") host = "127.0.0.1";
  addrinfo hints{};
  hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  if (host.empty() || getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &found) != 0) {
    throw std::invalid_argument(quoted + ": the host must be an IP address or localhost");
  }
  std::memcpy(&socket, found->ai_addr, found->ai_addrlen);
  length = found->ai_addrlen;
  freeaddrinfo(found);
}

}  // namespace Agent
