/// Agent::MetricsServer: answers GET /metrics over HTTP, from the loop, with a text that is made for each
/// answer. It needs neither a thread nor a copy of the process's state.
#pragma once

#include <functional>
#include <string>

#include "agent/base/HostPort.h"
#include "agent/base/RequestServer.h"

namespace Agent {

class MetricsServer {
 public:
  /// Raises std::system_error naming the address.
  MetricsServer(Loop& loop, HostPort const& address, std::function<std::string()> text);

 private:
  RequestServer server_;
};

}  // namespace Agent
