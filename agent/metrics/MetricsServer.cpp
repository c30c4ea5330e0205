#include "agent/metrics/MetricsServer.h"

#include <sys/socket.h>

namespace Agent {

namespace {

Fd listeningAt(HostPort const& address) {
  Fd fd(checked(::socket(address.address()->sa_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0),
                "socket"));
  int const on = 1;
  setsockopt(fd.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  if (bind(fd.get(), address.address(), address.length) != 0 || listen(fd.get(), 16) != 0)
    throwErrno("--metrics " + address.text);
  return fd;
}

std::string response(std::string_view status, std::string_view type, std::string_view body) {
  std::string text("HTTP/1.1 ");
  text.append(status).append("\r\nContent-Type: ").append(type);
  text.append("\r\nContent-Length: ").append(std::to_string(body.size()));
  return text.append("\r\nConnection: close\r\n\r\n").append(body);
}

std::optional<std::string> answerTo(std::string const& request, std::function<std::string()> const& figures) {
  constexpr std::string_view plain = "text/plain; charset=utf-8";
  auto const is = [&](std::string_view begin) { return request.starts_with(begin); };
  if (request.find("\r\n\r\n") == std::string::npos) return std::nullopt;
  if (!is("GET ")) return response("405 Method Not Allowed", plain, "only GET\n");
  if (!is("GET /metrics ") && !is("GET /metrics?") && !is("GET / "))
    return response("404 Not Found", plain, "there is /metrics\n");
  try {
    return response("200 OK", "text/plain; version=0.0.4; charset=utf-8", figures());
  } catch (std::exception const& error) {
    return response("500 Internal Server Error", plain, std::string(error.what()) + '\n');
  }
}

}  // namespace

MetricsServer::MetricsServer(Loop& loop, HostPort const& address, std::function<std::string()> text)
    // An idle client is dropped when another one comes.
    : server_(loop, listeningAt(address), {.request = 8192, .clients = 16, .replaces = true},
              [text = std::move(text)](std::string const& request) { return answerTo(request, text); }) {}

}  // namespace Agent
