#include "agent/metrics/MetricsServer.h"

#include <sys/epoll.h>
#include <sys/socket.h>

#include <algorithm>

namespace Agent {

namespace {

constexpr std::size_t headLimit = 8192;
constexpr std::size_t scraperLimit = 16;

std::string response(std::string_view status, std::string_view type, std::string_view body) {
  std::string text("HTTP/1.1 ");
  text.append(status).append("\r\nContent-Type: ").append(type);
  text.append("\r\nContent-Length: ").append(std::to_string(body.size()));
  return text.append("\r\nConnection: close\r\n\r\n").append(body);
}

}  // namespace

MetricsServer::MetricsServer(Loop& loop, HostPort const& address, std::function<std::string()> text)
    : loop_(loop),
      text_(std::move(text)),
      listening_(checked(
          ::socket(address.address()->sa_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0), "socket")) {
  int const on = 1;
  setsockopt(listening_.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  if (bind(listening_.get(), address.address(), address.length) != 0 || listen(listening_.get(), 16) != 0)
    throwErrno("--metrics " + address.text);
  loop_.watchInput(listening_.get(), [this] { accept(); });
}

MetricsServer::~MetricsServer() {
  for (auto const& each : clients_) loop_.unwatch(each.first);
  loop_.unwatch(listening_.get());
}

void MetricsServer::accept() {
  if (clients_.size() == scraperLimit) drop(order_.front());
  Fd fd(accept4(listening_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
  if (!fd) {
    if (!order_.empty()) drop(order_.front());  // no descriptor may be left for it
    return;
  }
  int const number = fd.get();
  clients_[number].fd = std::move(fd);
  order_.push_back(number);
  loop_.watchInput(number, [this, number] { read(number); });
}

void MetricsServer::read(int fd) {
  Client& client = clients_.at(fd);
  char buffer[2048];
  ssize_t const count = recv(fd, buffer, sizeof buffer, 0);
  if (count < 0 && (errno == EAGAIN || errno == EINTR)) return;
  if (count > 0) client.request.append(buffer, static_cast<std::size_t>(count));
  if (count <= 0 || client.request.size() > headLimit) return drop(fd);
  if (client.request.find("\r\n\r\n") == std::string::npos) return;
  client.answer = answerTo(client.request);
  loop_.watch(
      fd, [this, fd] { write(fd); }, EPOLLOUT);
}

std::string MetricsServer::answerTo(std::string const& request) const {
  constexpr std::string_view plain = "text/plain; charset=utf-8";
  auto const is = [&](std::string_view begin) { return request.starts_with(begin); };
  if (!is("GET ")) return response("405 Method Not Allowed", plain, "only GET\n");
  if (!is("GET /metrics ") && !is("GET /metrics?") && !is("GET / "))
    return response("404 Not Found", plain, "there is /metrics\n");
  try {
    return response("200 OK", "text/plain; version=0.0.4; charset=utf-8", text_());
  } catch (std::exception const& error) {
    return response("500 Internal Server Error", plain, std::string(error.what()) + '\n');
  }
}

void MetricsServer::write(int fd) {
  Client& client = clients_.at(fd);
  ssize_t const count =
      send(fd, client.answer.data() + client.written, client.answer.size() - client.written, MSG_NOSIGNAL);
  if (count < 0 && (errno == EAGAIN || errno == EINTR)) return;
  if (count > 0) client.written += static_cast<std::size_t>(count);
  if (count < 0 || client.written == client.answer.size()) drop(fd);
}

void MetricsServer::drop(int fd) {
  loop_.unwatch(fd);
  std::erase(order_, fd);
  clients_.erase(fd);
}

}  // namespace Agent
