#include "adapters/ovsdb/Connection.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#include <array>

namespace Ovsdb {

Connection::Connection(Agent::Loop& loop, Endpoint const& endpoint, TlsFiles const& files, Handlers handlers)
    : loop_(loop), handlers_(std::move(handlers)) {
  if (endpoint.isSsl()) tls_.emplace(files);
  socket_ = Agent::Fd(
      Agent::checked(socket(endpoint.family(), SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0), "socket"));
  if (endpoint.family() != AF_UNIX) {
    int const on = 1;
    setsockopt(socket_.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  }
  if (connect(socket_.get(), endpoint.address(), endpoint.addressLength()) != 0 && errno != EINPROGRESS) {
    throw std::system_error(errno, std::generic_category());
  }
  watch();
}

void Connection::shut() {
  if (!socket_) return;
  if (watched_ != 0) loop_.unwatch(socket_.get());
  watched_ = 0;
  Agent::Fd const closed = std::move(socket_);
}

void Connection::fail(std::string const& cause) {
  shut();
  handlers_.failed(cause);
}

void Connection::send(std::string_view text) {
  if (!socket_) return;
  if (tls_) {
    try {
      tls_->write(text);
      tls_->takeOutput(output_);
    } catch (std::exception const& error) {
      return fail(error.what());
    }
  } else {
    output_ += text;
  }
  // The text is sent when the socket is ready, so that the loop finds a broken connection, not the caller.
  watch();
}

void Connection::readingIs(bool on) {
  reading_ = on;
  if (socket_) watch();
}

/// Waits only for events that can be handled now: the end of a stream that is not read would keep the loop
/// busy.
void Connection::watch() {
  std::uint32_t wanted = 0;
  if (!isConnected_ || !output_.empty()) wanted |= EPOLLOUT;
  if (isConnected_ && reading_) wanted |= EPOLLIN;
  if (wanted == watched_) return;
  watched_ = wanted;
  if (wanted == 0) {
    loop_.unwatch(socket_.get());
  } else {
    loop_.watch(
        socket_.get(), [this] { ready(); }, wanted);
  }
}

void Connection::ready() {
  try {
    if (!isConnected_) {
      connected();
    } else {
      if (!output_.empty()) flush();
      if (socket_ && reading_) read();
    }
    if (socket_) watch();
  } catch (std::exception const& error) {
    fail(error.what());
  }
}

void Connection::connected() {
  int error = 0;
  socklen_t length = sizeof error;
  getsockopt(socket_.get(), SOL_SOCKET, SO_ERROR, &error, &length);
  if (error != 0) return fail(std::generic_category().message(error));
  isConnected_ = true;
  if (tls_) return decipher();
  isOpen_ = true;
  handlers_.opened();
}

void Connection::read() {
  static std::array<char, 65536> piece;
  ssize_t const count = recv(socket_.get(), piece.data(), piece.size(), 0);
  if (count < 0) {
    if (errno == EAGAIN || errno == EINTR) return;
    return fail(std::generic_category().message(errno));
  }
  std::string_view const octets(piece.data(), static_cast<std::size_t>(count));
  if (count == 0) {
    fail(isOpen_ ? "closed by the server" : "closed by the server in the middle of the TLS handshake");
  } else if (tls_) {
    tls_->received(octets);
    decipher();
  } else {
    handlers_.received(octets);
  }
}

void Connection::decipher() {
  std::string cause;
  try {
    bool const wasOpen = isOpen_;
    isOpen_ = tls_->isOpen();
    if (isOpen_ && !wasOpen) handlers_.opened();
    while (socket_ && isOpen_) {
      std::string_view const plain = tls_->read();
      if (plain.empty()) break;
      handlers_.received(plain);
    }
    if (tls_->hasEnded()) cause = "closed by the server";
  } catch (std::exception const& error) {
    cause = error.what();
  }
  if (!socket_) return;
  // Also after an error: an alert informs the server.
  tls_->takeOutput(output_);
  flush();
  if (socket_ && !cause.empty()) fail(cause);
}

void Connection::flush() {
  ssize_t const count = ::send(socket_.get(), output_.data(), output_.size(), MSG_NOSIGNAL);
  if (count >= 0) {
    output_.erase(0, static_cast<std::size_t>(count));
  } else if (errno == EPIPE) {
    fail("closed by the server");
  } else if (errno != EAGAIN && errno != EINTR) {
    fail(std::generic_category().message(errno));
  }
}

}  // namespace Ovsdb
