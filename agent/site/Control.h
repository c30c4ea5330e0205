/// The control sockets of a site: ask the running agent and the EVPN side for what no table shows, and switch
/// the agent's trace levels.
///
/// A client connects to the unix stream socket `Site::controlSocket()`, or `evpnControlSocket()` (mode 0600:
/// the process's own user and root), writes one request line and reads one JSON document up to the end of the
/// stream. The EVPN side answers `state`, and `why` about one VNI (agent/explain/WhyLearned.h).
///
///   request                answer
///   evpn-status            {"5000": {"floods": ["10.99.0.2"],
///                                    "hosts": [{"mac": .., "preference": 16, "seq": 0, "vtep": ..}]}},
///                          sorted, of every VNI
///   evpn-status 5000       the same of one VNI at most
///   both-sides [5000]      what both sides know (agent/audit/BothSides.h)
///   why MAC [VNI]          why a row is exported, or is not (HostedModule::why()); also VTEP VNI
///   fdb                    the controller's entry of each MAC, and why (Controller::fdb())
///   counters               [{"name": "hostIs", "owner": "exported/host", "value": 278}, ..],
///                          by owner and name
///   state                  {"pid": .., "integration": true, "feed": {..}, ..}: what the agent is doing
///   trace                  {"QorEvpnModeSm": [], "VxlanControllerEvpnTxSm": [3, 4]}: levels on, by handle
///   trace HANDLE/LEVELS    switches levels as Trace::enable() does; then as `trace`
///   anything else          {"error": ".."}
#pragma once

#include <functional>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <string_view>

#include "agent/base/RequestServer.h"
#include "agent/site/Site.h"

namespace Agent {

/// Answers requests, from the loop, of 64 clients at a time.
class ControlServer {
 public:
  /// Answers the request, of which it is given the first word and the rest behind the blank. What it raises
  /// becomes the error of the answer.
  using Answer = std::function<nlohmann::ordered_json(std::string_view command, std::string_view argument)>;

  /// Takes the place of a socket that a killed process left behind. Raises std::system_error.
  ControlServer(Loop& loop, std::string path, Answer answer);
  ~ControlServer();
  ControlServer(ControlServer const&) = delete;
  ControlServer& operator=(ControlServer const&) = delete;

 private:
  std::string path_;
  RequestServer server_;
};

enum class ControlSide { agent, evpn };

/// Nobody is there to be asked.
class NotRunning : public std::runtime_error {
 public:
  using runtime_error::runtime_error;
};

/// Asks that side of a site and returns its answer. Raises NotRunning where it does not run, and
/// std::runtime_error where this user may not ask it, where it does not answer, and with its own error.
nlohmann::ordered_json controlRequest(Site const& site, std::string_view request,
                                      ControlSide side = ControlSide::agent);

}  // namespace Agent
