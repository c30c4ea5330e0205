/// Ovsdb::Endpoint: the address of a database server, in the notation of the database's own tools:
///
///   unix:PATH         a socket of this machine
///   tcp:HOST:PORT     HOST is an IPv4 address, an IPv6 address in brackets, or `localhost`
///   ssl:HOST:PORT     the same with TLS
///
/// Other host names are refused: a look-up would block the loop until the name server answers.
#pragma once

#include <sys/socket.h>

#include <string>
#include <string_view>

namespace Ovsdb {

class Endpoint {
 public:
  /// Raises std::invalid_argument with the error in the text.
  explicit Endpoint(std::string_view text);

  std::string const& text() const { return text_; }
  bool isSsl() const { return isSsl_; }
  sockaddr const* address() const { return reinterpret_cast<sockaddr const*>(&address_); }
  socklen_t addressLength() const { return addressLength_; }
  int family() const { return address_.ss_family; }

 private:
  void unixPathIs(std::string_view path);

  std::string text_;
  bool isSsl_ = false;
  sockaddr_storage address_{};
  socklen_t addressLength_ = 0;
};

}  // namespace Ovsdb
