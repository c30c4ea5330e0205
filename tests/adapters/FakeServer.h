#pragma once

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <array>
#include <functional>
#include <list>
#include <string>

#include "agent/base/Loop.h"
#include "support/Child.h"

namespace TestSupport {

/// Turns the loop until the condition holds, also where only another process brings that about. False after a
/// minute, which only a fault takes.
inline bool becomes(Agent::Loop& loop, std::function<bool()> const& condition) {
  bool inTime = true;
  Agent::Timer patience(loop, [&] {
    inTime = false;
    loop.stop();
  });
  Agent::Timer tick(loop, [] {});
  patience.start(std::chrono::milliseconds(patienceMs));
  loop.turnEndIs([&] {
    if (condition()) loop.stop();
    if (!tick.isRunning()) tick.start(std::chrono::milliseconds(5));
  });
  tick.start({});
  loop.run();
  loop.turnEndIs({});
  return inTime;
}

/// A socket with an address of its own: a path, or a port of 127.0.0.1 that the system chooses.
inline Agent::Fd boundSocket(std::string const& path) {
  sockaddr_un address{AF_UNIX, {}};
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  Agent::Fd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  EXPECT_EQ(::bind(fd.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  return fd;
}
inline Agent::Fd boundSocket(unsigned& port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  Agent::Fd fd(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  EXPECT_EQ(::bind(fd.get(), reinterpret_cast<sockaddr*>(&address), size), 0);
  ::getsockname(fd.get(), reinterpret_cast<sockaddr*>(&address), &size);
  port = ntohs(address.sin_port);
  return fd;
}

/// A server of the test's own on its client's loop, which answers as it is told.
class FakeServer {
 public:
  /// Takes what it understands off the front of what a client has sent, and returns the octets to answer
  /// with; "CLOSE" at their end ends the connection behind them. `attempt`: how many connections came before.
  using Answer = std::function<std::string(std::string& input, int attempt)>;

  FakeServer(Agent::Loop& loop, Agent::Fd socket, Answer answer)
      : loop_(loop), answer_(std::move(answer)), listener_(std::move(socket)) {
    EXPECT_EQ(::listen(listener_.get(), 8), 0);
    loop_.watchInput(listener_.get(), [this] { accept(); });
  }
  ~FakeServer() {
    loop_.unwatch(listener_.get());
    for (Client& client : clients_) loop_.unwatch(client.socket.get());
  }

  /// Sends something that nobody asked for.
  void say(std::string const& octets) { clients_.back().output += octets; }
  /// Sends one octet a turn.
  bool isSlow = false;

 private:
  struct Client {
    Agent::Fd socket;
    int attempt;
    std::string input;
    std::string output;
  };
  void accept() {
    clients_.push_back(
        {Agent::Fd(::accept4(listener_.get(), nullptr, nullptr, SOCK_NONBLOCK)), attempts_++, {}, {}});
    Client& client = clients_.back();
    loop_.watch(
        client.socket.get(), [this, &client] { serve(client); }, EPOLLIN | EPOLLOUT);
  }
  void serve(Client& client) {
    std::array<char, 65536> piece;
    ssize_t const count = ::recv(client.socket.get(), piece.data(), piece.size(), 0);
    if (count == 0) {
      loop_.unwatch(client.socket.get());
      client.socket = Agent::Fd();
      return;
    }
    if (count > 0) client.input.append(piece.data(), static_cast<std::size_t>(count));
    if (count > 0) client.output += answer_(client.input, client.attempt);
    bool const closes = client.output.ends_with("CLOSE");
    std::size_t const length = isSlow ? 1 : client.output.size() - (closes ? 5 : 0);
    if (!client.output.empty()) {
      ssize_t const sent = ::send(client.socket.get(), client.output.data(), length, MSG_NOSIGNAL);
      client.output.erase(0, static_cast<std::size_t>(std::max<ssize_t>(sent, 0)));
    }
    if (client.output != "CLOSE") return;
    ::shutdown(client.socket.get(), SHUT_WR);
    client.output.clear();
  }

  Agent::Loop& loop_;
  Answer answer_;
  Agent::Fd listener_;
  std::list<Client> clients_;
  int attempts_ = 0;
};

}  // namespace TestSupport
