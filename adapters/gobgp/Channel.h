/// Gobgp::Channel: calls of a gRPC server over one connection (HTTP/2 without TLS), on the loop.
///
/// A call has one or more request messages and any number of answers. Handlers are called from the loop,
/// never from within call(). If the connection fails, `failed` is called once for it and all its calls; after
/// that the channel can only be destroyed.
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

/// How a call ended: the gRPC status code, 0 for success, and the server's message.
struct Status {
  int code = 0;
  std::string message;

  static constexpr int unimplemented = 12;
  bool isOk() const { return code == 0; }
};

class Channel {
 public:
  /// The handlers of one call: of each answer, and of the call's end. Each may destroy the channel.
  struct CallHandlers {
    std::function<void(std::string_view message)> message;
    std::function<void(Status const&)> end;
  };

  /// Begins to connect. `failed` takes the reason for which the connection failed or ended, for people.
  Channel(Agent::Loop& loop, Agent::HostPort const& address,
          std::function<void(std::string const& cause)> failed);
  ~Channel();
  Channel(Channel const&) = delete;
  Channel& operator=(Channel const&) = delete;

  /// Calls a method, "/package.Service/Method". The connection fails if the server sends nothing for this
  /// call within `limit`; 0: no limit.
  void call(std::string method, std::string_view request, CallHandlers handlers,
            std::chrono::nanoseconds limit);

 private:
  using Clock = std::chrono::steady_clock;
  struct Call {
    std::string method;
    CallHandlers handlers;
    std::chrono::nanoseconds limit;
    Clock::time_point deadline;
    std::string body;  ///< The request; bytes from `sent` on are not sent yet.
    std::size_t sent = 0;
    std::string received;  ///< The beginning of a message that is not complete.
    int httpStatus = 0;
    int grpcStatus = -1;
    std::string grpcMessage;
  };
  struct Told {  ///< An answer, or, if `status` is set, the end of a call.
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
  std::string broken_;  ///< The error that a callback found.
  bool isConnected_ = false;
  bool watchesOutput_ = false;
  Clock::time_point connectDeadline_;
  Agent::Timer timer_;
  /// Tells members whether a handler has destroyed the channel.
  std::shared_ptr<void> self_ = std::make_shared<int>();
};

}  // namespace Gobgp
