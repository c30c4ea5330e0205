#include "agent/base/RequestServer.h"

#include <sys/epoll.h>
#include <sys/socket.h>

#include <algorithm>
#include <utility>

namespace Agent {

RequestServer::RequestServer(Loop& loop, Fd listening, Limits limits, Answer answer)
    : loop_(loop),
      listening_(std::move(listening)),
      limits_(limits),
      answer_(std::move(answer)),
      later_(loop, [this] { watchForClients(); }) {
  watchForClients();
}

RequestServer::~RequestServer() {
  for (auto const& each : clients_) loop_.unwatch(each.first);
  loop_.unwatch(listening_.get());
}

void RequestServer::watchForClients() {
  loop_.watchInput(listening_.get(), [this] { accept(); });
}

void RequestServer::accept() {
  if (limits_.replaces && clients_.size() == limits_.clients) dropOldest();
  Fd fd(accept4(listening_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
  if (!fd && limits_.replaces && !clients_.empty()) return dropOldest();  // which frees a descriptor
  if (!fd) {
    // The client has gone, or no descriptor is left. Trying again at once would keep the loop busy.
    loop_.unwatch(listening_.get());
    later_.start(std::chrono::milliseconds(100));
    return;
  }
  int const number = fd.get();
  Client& client = clients_[number];
  client.fd = std::move(fd);
  client.arrival = ++arrivals_;
  loop_.watchInput(number, [this, number] { read(number); });
  if (!limits_.replaces && clients_.size() == limits_.clients) loop_.unwatch(listening_.get());
}

void RequestServer::read(int fd) {
  Client& client = clients_.at(fd);
  char buffer[2048];
  ssize_t const count = recv(fd, buffer, sizeof buffer, 0);
  if (count < 0 && (errno == EAGAIN || errno == EINTR)) return;
  if (count > 0) client.request.append(buffer, static_cast<std::size_t>(count));
  if (count <= 0 || client.request.size() > limits_.request) return drop(fd);
  std::optional<std::string> answer = answer_(client.request);
  if (!answer) return;
  client.answer = std::move(*answer);
  loop_.watch(
      fd, [this, fd] { write(fd); }, EPOLLOUT);
}

void RequestServer::write(int fd) {
  Client& client = clients_.at(fd);
  ssize_t const count =
      send(fd, client.answer.data() + client.written, client.answer.size() - client.written, MSG_NOSIGNAL);
  if (count < 0 && (errno == EAGAIN || errno == EINTR)) return;
  if (count > 0) client.written += static_cast<std::size_t>(count);
  if (count < 0 || client.written == client.answer.size()) drop(fd);
}

void RequestServer::drop(int fd) {
  loop_.unwatch(fd);
  if (!limits_.replaces && clients_.size() == limits_.clients) watchForClients();
  clients_.erase(fd);
}

void RequestServer::dropOldest() {
  drop(std::min_element(clients_.begin(), clients_.end(), [](auto const& left, auto const& right) {
         return left.second.arrival < right.second.arrival;
       })->first);
}

}  // namespace Agent
