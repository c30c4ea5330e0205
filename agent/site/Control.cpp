#include "agent/site/Control.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <cstdio>

#include "agent/views/Json.h"

namespace Agent {

namespace {

/// Where a socket is, for bind and connect. A path that an address cannot hold is reached through its folder.
class Place {
 public:
  explicit Place(std::string path) {
    if (path.size() >= sizeof address_.sun_path) {
      auto const slash = path.rfind('/');
      folder_ =
          Fd(checked(open(path.substr(0, slash).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC), path.c_str()));
      path = "/proc/self/fd/" + std::to_string(folder_.get()) + path.substr(slash);
    }
    address_.sun_family = AF_UNIX;
    path.copy(address_.sun_path, sizeof address_.sun_path - 1);
  }

  sockaddr const* address() const {
    return static_cast<sockaddr const*>(static_cast<void const*>(&address_));
  }
  static constexpr socklen_t size = sizeof(sockaddr_un);

 private:
  Fd folder_;
  sockaddr_un address_{};
};

/// One side of a site, as people call it.
struct Asked {
  std::string who;
  std::string socket;
};

Asked askedOf(Site const& site, ControlSide side) {
  if (side == ControlSide::agent) return {"agent", site.controlSocket()};
  return {"EVPN side", site.evpnControlSocket()};
}

Fd newSocket(int flags) {
  return Fd(checked(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | flags, 0), "socket"));
}

/// A socket that listens at the path; one that a killed process left there is replaced. It gets the name only
/// when it listens, so that every client that finds it gets an answer.
Fd listeningAt(std::string const& path) {
  std::string const unnamed = path + ".new";
  Place const place(unnamed);
  Fd fd = newSocket(SOCK_NONBLOCK);
  unlink(unnamed.c_str());
  mode_t const mask = umask(0177);
  int const bound = bind(fd.get(), place.address(), Place::size);
  umask(mask);
  if (bound != 0 || listen(fd.get(), 8) != 0 || std::rename(unnamed.c_str(), path.c_str()) != 0)
    throwErrno("control socket " + path);
  return fd;
}

/// A request is a line.
std::optional<std::string> answerTo(std::string const& request, ControlServer::Answer const& answer) {
  auto const end = request.find('\n');
  if (end == std::string::npos) return std::nullopt;
  std::string_view const line(request.data(), end);
  auto const blank = line.find(' ');
  nlohmann::ordered_json document;
  try {
    document = answer(line.substr(0, blank),
                      blank == std::string_view::npos ? std::string_view() : line.substr(blank + 1));
  } catch (std::exception const& error) {
    document = {{"error", error.what()}};
  }
  return toLine(document) + '\n';
}

Fd connectedTo(Site const& site, Asked const& asked) {
  Fd fd = newSocket(0);
  // A stopped process does not block the client.
  timeval const patience{5, 0};
  checked(setsockopt(fd.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience), "setsockopt");
  checked(setsockopt(fd.get(), SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience), "setsockopt");
  int error = 0;
  try {
    if (connect(fd.get(), Place(asked.socket).address(), Place::size) == 0) return fd;
    error = errno;
  } catch (std::system_error const& folder) {
    error = folder.code().value();
  }
  switch (error) {
    case ENOENT:
    case ECONNREFUSED:
      throw NotRunning("no " + asked.who + " runs for " + site.dir() + ", and only a running one can tell");
    case EACCES:
    case EPERM:
      throw std::runtime_error("only its user and root may ask the " + asked.who + " of " + site.dir());
    default: throw std::system_error(error, std::generic_category(), "control socket " + asked.socket);
  }
}

}  // namespace

ControlServer::ControlServer(Loop& loop, std::string path, Answer answer)
    : path_(std::move(path)),
      // More clients wait, so that idle ones cannot take every descriptor.
      server_(
          loop, listeningAt(path_), {.request = 4096, .clients = 64, .replaces = false},
          [answer = std::move(answer)](std::string const& request) { return answerTo(request, answer); }) {}

ControlServer::~ControlServer() { unlink(path_.c_str()); }

nlohmann::ordered_json controlRequest(Site const& site, std::string_view request, ControlSide side) {
  if (request.find('\n') != std::string_view::npos) throw std::runtime_error("a request is one line");
  Asked const asked = askedOf(site, side);
  Fd const fd = connectedTo(site, asked);
  std::string line(request);
  line += '\n';
  for (std::size_t sent = 0; sent < line.size();) {
    ssize_t const count = send(fd.get(), line.data() + sent, line.size() - sent, MSG_NOSIGNAL);
    if (count < 0 && errno != EINTR) throwErrno("control socket " + asked.socket);
    if (count > 0) sent += static_cast<std::size_t>(count);
  }
  std::string answer;
  for (;;) {
    char buffer[65536];
    ssize_t const count = read(fd.get(), buffer, sizeof buffer);
    if (count < 0 && errno == EAGAIN)
      throw std::runtime_error("the " + asked.who + " of " + site.dir() + " does not answer");
    if (count < 0 && errno != EINTR) throwErrno("control socket " + asked.socket);
    if (count == 0) break;
    if (count > 0) answer.append(buffer, static_cast<std::size_t>(count));
  }
  auto document = nlohmann::ordered_json::parse(answer, nullptr, false);
  if (document.is_discarded())
    throw std::runtime_error("the " + asked.who + " of " + site.dir() + " gave no answer");
  if (auto const error = document.find("error"); error != document.end()) {
    throw std::runtime_error(error->get<std::string>());
  }
  return document;
}

}  // namespace Agent
