/// The control sockets of a site: ask the running agent and the EVPN side for what no table shows, and switch
/// the agent's trace levels.
///
/// A client connects to the unix stream socket `Site::controlSocket()`, or `evpnControlSocket()` (mode 0600:
/// the process's own user and root), writes one request line and reads one JSON document up to the end of the
/// stream. The EVPN side answers `state`, and `why`
/// about one VNI (agent/explain/WhyLearned.h).
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
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "agent/base/Loop.h"
#include "agent/site/Site.h"

namespace Agent {

/// Answers requests, from the loop. A client that does not read its answer holds up nothing but itself, and
/// whoever comes when there are 64 of them.
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
  struct Client {
    Fd fd;
    std::string request;
    std::string answer;
    std::size_t written = 0;
  };

  void watchForClients();
  void accept();
  void serve(int fd);
  void write(int fd);
  void drop(int fd);

  Loop& loop_;
  std::string path_;
  Answer answer_;
  Fd listening_;
  std::map<int, Client> clients_;
  Timer later_;  ///< Runs while clients are not looked for, since one could not be taken on.
};

enum class ControlSide { agent, evpn };

/// Asks that side of a site and returns its answer. Raises std::runtime_error that says so where it does not
/// run or this user may not ask it, and with its own error.
nlohmann::ordered_json controlRequest(Site const& site, std::string_view request,
                                      ControlSide side = ControlSide::agent);

}  // namespace Agent
