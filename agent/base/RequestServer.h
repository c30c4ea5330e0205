/// Agent::RequestServer: serves the clients of a listening socket, from the loop. Each sends one request and
/// reads one answer, up to the end of the stream. A client that does not read its answer does not delay
/// others, except that it takes one of the places for clients.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>

#include "agent/base/Fd.h"
#include "agent/base/Loop.h"

namespace Agent {

class RequestServer {
 public:
  struct Limits {
    std::size_t request;  ///< In bytes; a client that sends more gets no answer.
    std::size_t clients;  ///< At a time.
    bool replaces;        ///< One client more: it replaces the oldest one; otherwise it waits for a place.
  };
  /// Called with all that has come of a request whenever more has: none while it is not whole.
  using Answer = std::function<std::optional<std::string>(std::string const& request)>;

  /// `listening` must not block.
  RequestServer(Loop& loop, Fd listening, Limits limits, Answer answer);
  ~RequestServer();
  RequestServer(RequestServer const&) = delete;
  RequestServer& operator=(RequestServer const&) = delete;

 private:
  struct Client {
    Fd fd;
    std::uint64_t arrival = 0;
    std::string request;
    std::string answer;
    std::size_t written = 0;
  };

  void watchForClients();
  void accept();
  void read(int fd);
  void write(int fd);
  void drop(int fd);
  void dropOldest();

  Loop& loop_;
  Fd listening_;
  Limits limits_;
  Answer answer_;
  std::map<int, Client> clients_;
  std::uint64_t arrivals_ = 0;
  Timer later_;  ///< Runs while clients are not looked for, since one could not be taken on.
};

}  // namespace Agent
