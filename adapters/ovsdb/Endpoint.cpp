#include "adapters/ovsdb/Endpoint.h"

#include <sys/un.h>

#include <cstddef>
#include <cstring>
#include <stdexcept>

#include "agent/base/HostPort.h"

namespace Ovsdb {

Endpoint::Endpoint(std::string_view text) : text_(text) {
  if (text.starts_with("unix:")) {
    unixPathIs(text.substr(5));
  } else if (text.starts_with("tcp:") || text.starts_with("ssl:")) {
    isSsl_ = text.starts_with("ssl:");
    Agent::HostPort const host(text.substr(4), text);
    address_ = host.socket;
    addressLength_ = host.length;
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

}  // namespace Ovsdb
