/// Gobgp::Channel: calls of a gRPC server over one connection (HTTP/2 without TLS), on the loop.
///
/// A call is one request message, or several, and any number of answers. Every answer and end of a call is
/// told from the loop, never from within call(). A connection that fails is told once, calls and all: the
/// channel is then good for nothing but to be destroyed.
#pragma once

#include <sys/socket.h>

#include <chrono>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "agent/base/HostPort.h"
#include "agent/base/Loop.h"

struct nghttp2_session;

namespace Gobgp {

/// How a call ended: gRPC's code, 0 where all is well, and the server's words.
struct Status {
  int code = 0;
  std::string message;

  static constexpr int unimplemented = 12;
  bool isOk() const { return code == 0; }
};

class Channel {
 public:
  /// Any of them may destroy the channel.
  struct CallHandlers {
    std::function<void(std::string_view message)> message;
    std::function<void(Status const&)> end;
  };

  /// Connects. `failed`: why the connection failed or ended, for people.
  Channel(Agent::Loop& loop, Agent::HostPort const& address,
          std::function<void(std::string const& cause)> failed);
  ~Channel();
  Channel(Channel const&) = delete;
  Channel& operator=(Channel const&) = delete;

  /// Calls a method, "/package.Service/Method". The connection fails where the server says nothing on this
  /// call for as long as `limit`; 0: no limit.
  void call(std::string method, std::string_view request, CallHandlers handlers,
            std::chrono::nanoseconds limit);

 private:
  using Clock = std::chrono::steady_clock;
  struct Call {
    std::string method;
    CallHandlers handlers;
    std::chrono::nanoseconds limit;
    Clock::time_point deadline;
    std::string body;  ///< What is left to send, from `sent`.
    std::size_t sent = 0;
    std::string received;  ///< No whole message yet.
    int httpStatus = 0;
    int grpcStatus = -1;
    std::string grpcMessage;
  };
  struct Told {  ///< An answer, or the end of a call where `status` is there.
    std::shared_ptr<Call> call;
    std::string message;
    std::unique_ptr<Status> status;
  };
  struct Callbacks;

  void ready();
  void finishConnect();
  void receive();
  void deliver();
  void send();
  void watch(bool forOutput);
  void startTimer();
  void checkLimits();
  void takeData(std::shared_ptr<Call> const& call, std::string_view data);
  void fail(std::string cause);
  bool has(std::weak_ptr<void> const& self) const { return !self.expired(); }

  Agent::Loop& loop_;
  std::function<void(std::string const&)> failed_;
  Agent::Fd socket_;
  nghttp2_session* session_ = nullptr;
  std::string authority_;
  std::map<std::int32_t, std::shared_ptr<Call>> calls_;
  std::deque<Told> told_;
  std::string out_;
  std::string broken_;  ///< What a callback found wrong.
  bool isConnected_ = false;
  bool watchesOutput_ = false;
  Clock::time_point connectDeadline_;
  Agent::Timer timer_;
  /// Gone when the channel is, which a handler may cause.
  std::shared_ptr<void> self_ = std::make_shared<int>();
};

}  // namespace Gobgp
