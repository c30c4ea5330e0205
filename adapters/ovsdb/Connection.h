/// Ovsdb::Connection: a stream to an endpoint, with or without TLS, on the agent's loop. No call blocks.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "adapters/ovsdb/Endpoint.h"
#include "adapters/ovsdb/Tls.h"
#include "agent/base/Loop.h"

namespace Ovsdb {

class Connection {
 public:
  /// Called from the loop. A handler may shut the connection; it must not destroy it.
  struct Handlers {
    std::function<void()> opened;  ///< Once: the connection is open.
    /// Takes the next octets that came, at most 64 KiB.
    std::function<void(std::string_view)> received;
    /// At most once, and the last call: the connection could not be opened, or it broke.
    std::function<void(std::string const& cause)> failed;
  };

  /// Begins to connect. Raises std::system_error or std::runtime_error if no attempt can be made.
  Connection(Agent::Loop& loop, Endpoint const& endpoint, TlsFiles const& files, Handlers handlers);
  ~Connection() { shut(); }
  Connection(Connection const&) = delete;
  Connection& operator=(Connection const&) = delete;

  /// Sends the text, in the background as the socket takes it.
  void send(std::string_view text);
  /// While it is off, nothing is read from the socket; octets that were read already are still given.
  void readingIs(bool on);
  /// Closes the connection; no handler is called after that.
  void shut();

 private:
  void ready();
  void connected();
  void read();
  void decipher();
  void flush();
  void watch();
  void fail(std::string const& cause);

  Agent::Loop& loop_;
  Handlers handlers_;
  Agent::Fd socket_;
  std::optional<Tls> tls_;
  std::string output_;
  std::uint32_t watched_ = 0;
  bool isConnected_ = false;
  bool isOpen_ = false;
  bool reading_ = true;
};

}  // namespace Ovsdb
