/// Ovsdb::Session: JSON-RPC with a database server. A connection that breaks is made again, after growing
/// pauses, as long as the session exists. The session answers `echo`, and sends an `echo` when the server has
/// been silent for long.
///
/// A message is given as a whole, but its rows are not parsed. The receiver parses as many of them a turn as
/// it wants; with heldIs(true) it stops further messages until it is done.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "adapters/ovsdb/Connection.h"
#include "adapters/ovsdb/MessageCutter.h"

namespace Ovsdb {

using Json = nlohmann::json;

/// The times that a session waits.
struct Pauses {
  std::chrono::milliseconds first{1000};   ///< Before the second attempt; it doubles with each attempt,
  std::chrono::milliseconds last{30'000};  ///< up to this.
  /// A connection attempt or an answer is given up if nothing comes for so long.
  std::chrono::milliseconds silence{10'000};
};

/// "; tries again in 2 s".
std::string againText(std::chrono::milliseconds pause);

/// A pause that doubles until it is reset.
class GrowingPause {
 public:
  explicit GrowingPause(Pauses const& pauses) : pauses_(pauses), next_(pauses.first) {}
  std::chrono::milliseconds next() { return std::exchange(next_, std::min(next_ * 2, pauses_.last)); }
  void reset() { next_ = pauses_.first; }

 private:
  Pauses pauses_;
  std::chrono::milliseconds next_;
};

class Session {
 public:
  /// An answer. `error` is null for success; otherwise `result` has no meaning.
  struct Reply {
    Json result;
    Json error;
    std::vector<Message::Table> tables;
  };
  using Answer = std::function<void(Reply&&)>;

  /// Called from the loop. A handler may call fail(), request() and heldIs(); it must not destroy the
  /// session.
  struct Handlers {
    std::function<void()> opened;
    std::function<void(std::string const& method, Json const& params, std::vector<Message::Table>&& tables)>
        notified;
    /// The connection ended or could not be made; requests without an answer get none. `pause`: the time
    /// until the next attempt.
    std::function<void(std::string const& cause, std::chrono::milliseconds pause)> failed;
  };

  /// Connects in the loop's next turn.
  Session(Agent::Loop& loop, Endpoint endpoint, TlsFiles files, Pauses pauses, Handlers handlers);
  ~Session();
  Session(Session const&) = delete;
  Session& operator=(Session const&) = delete;

  bool isOpen() const { return open_; }
  void request(std::string const& method, Json params, Answer answer);
  /// While it is on, no handler is given a message.
  void heldIs(bool on);
  /// The session works: the next pause is the shortest again.
  void healthy() { pause_.reset(); }
  /// The server's data cannot be used: closes the connection and tries again after a pause.
  void fail(std::string const& cause);

 private:
  void connect();
  void received(std::string_view piece);
  void deliver();
  void take(Message&& message);
  void call(Json const& skeleton, std::vector<Message::Table>&& tables);
  void silent();
  void send(Json const& message);

  Agent::Loop& loop_;
  Endpoint endpoint_;
  TlsFiles files_;
  Pauses pauses_;
  Handlers handlers_;
  GrowingPause pause_;
  std::unique_ptr<Connection> connection_;
  MessageCutter cutter_;
  std::map<std::uint64_t, Answer> answers_;
  std::uint64_t lastId_ = 0;
  bool open_ = false;
  bool held_ = false;
  bool delivering_ = false;
  bool probed_ = false;  ///< The server has been silent for `silence`, and an `echo` was sent.
  Agent::Timer retry_;
  Agent::Timer silence_;
  Agent::Timer resume_;
};

}  // namespace Ovsdb
