/// Agent::MetricsServer: answers GET /metrics over HTTP, from the loop, with a text that is made for each
/// answer. So there is neither a thread nor a copy of the process's state, as a web server beside the loop
/// would need.
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <string>

#include "agent/base/HostPort.h"
#include "agent/base/Loop.h"

namespace Agent {

class MetricsServer {
 public:
  /// Raises std::system_error naming the address.
  MetricsServer(Loop& loop, HostPort const& address, std::function<std::string()> text);
  ~MetricsServer();
  MetricsServer(MetricsServer const&) = delete;
  MetricsServer& operator=(MetricsServer const&) = delete;

 private:
  struct Client {
    Fd fd;
    std::string request;
    std::string answer;
    std::size_t written = 0;
  };

  void accept();
  void read(int fd);
  void write(int fd);
  void drop(int fd);
  std::string answerTo(std::string const& request) const;

  Loop& loop_;
  std::function<std::string()> text_;
  Fd listening_;
  std::map<int, Client> clients_;
  std::deque<int> order_;  ///< Of arrival: who is idle makes room for others.
};

}  // namespace Agent
