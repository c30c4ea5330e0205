#include "adapters/ovsdb/Endpoint.h"

#include <netdb.h>
#include <sys/un.h>

#include <charconv>
#include <cstddef>
#include <cstring>
#include <stdexcept>

namespace Ovsdb {

Endpoint::Endpoint(std::string_view text) : text_(text) {
  if (text.starts_with("unix:")) {
    unixPathIs(text.substr(5));
  } else if (text.starts_with("tcp:") || text.starts_with("ssl:")) {
    isSsl_ = text.starts_with("ssl:");
    hostAndPortAre(text.substr(4));
  } else {
    throw std::invalid_argument("'" + text_ + "' is not unix:PATH, tcp:HOST:PORT or ssl:HOST:PORT");
  }
}

void Endpoint::unixPathIs(std::string_view path) {
  sockaddr_un unixAddress{};
  if (path.empty() || path.size() >= sizeof unixAddress.sun_path) {
    throw std::invalid_argument("'" + text_ + "': the path must have 1 to " +
                                std::to_string(sizeof unixAddress.sun_path - 1) + " characters");
  }
  unixAddress.sun_family = AF_UNIX;
  path.copy(unixAddress.sun_path, path.size());
  std::memcpy(&address_, &unixAddress, sizeof unixAddress);
  addressLength_ = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size() + 1);
}

void Endpoint::hostAndPortAre(std::string_view text) {
  auto const colon = text.rfind(':');
  unsigned port = 0;
  bool isPort = colon != std::string_view::npos;
  if (isPort) {
    char const* const end = text.data() + text.size();
    auto const [stop, error] = std::from_chars(text.data() + colon + 1, end, port);
    isPort = error == std::errc{} && stop == end && port >= 1 && port <= 65535;
  }
  if (!isPort) throw std::invalid_argument("'" + text_ + "': the port must be a number from 1 to 65535");

  std::string host(text.substr(0, colon));
  if (host.starts_with('[') && host.ends_with(']')) host = host.substr(1, host.size() - 2);
  if (host == "localhost") host = "127.0.0.1";
  addrinfo hints{};
  hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  if (host.empty() || getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &found) != 0) {
    throw std::invalid_argument("'" + text_ + "': the host must be an IP address or localhost");
  }
  std::memcpy(&address_, found->ai_addr, found->ai_addrlen);
  addressLength_ = found->ai_addrlen;
  freeaddrinfo(found);
}

}  // namespace Ovsdb
