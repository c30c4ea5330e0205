/// The control sockets of a site: requests to the running agent or EVPN side for data that no table holds,
/// and for other trace levels.
///
/// A client connects to the unix stream socket `Site::controlSocket()`, or `evpnControlSocket()` (mode 0600:
/// the process's own user and root), writes one request line and reads one JSON document up to the end of the
/// stream. The EVPN side answers `state` and `why` (agent/explain/WhyLearned.h).
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

/// Answers requests, from the loop, of up to 64 clients at a time; further clients wait.
class ControlServer {
 public:
  /// Answers one request: its first word, and the rest behind the blank. An exception that it raises is sent
  /// as {"error": ".."}.
  using Answer = std::function<nlohmann::ordered_json(std::string_view command, std::string_view argument)>;

  /// Listens at `path`; replaces a socket that a killed process left there. Raises std::system_error.
  ControlServer(Loop& loop, std::string path, Answer answer);
  ~ControlServer();
  ControlServer(ControlServer const&) = delete;
  ControlServer& operator=(ControlServer const&) = delete;

 private:
  std::string path_;
  RequestServer server_;
};

enum class ControlSide { agent, evpn };

/// No process listens at the control socket.
class NotRunning : public std::runtime_error {
 public:
  using runtime_error::runtime_error;
};

/// Sends a request to one side of a site and returns its answer. Raises NotRunning if that side does not run;
/// std::runtime_error if this user may not connect, if no answer comes, and with the text of an answer that
/// is an error.
nlohmann::ordered_json controlRequest(Site const& site, std::string_view request,
                                      ControlSide side = ControlSide::agent);

}  // namespace Agent
