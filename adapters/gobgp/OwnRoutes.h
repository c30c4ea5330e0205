/// Gobgp::OwnRoutes: compares the routes of the rows that this site exports with this site's routes that the
/// speaker has.
///
/// Keys that differ wait in a queue, each key once, and are taken in batches. The route that is sent is the
/// key's route at the time of the batch.
#pragma once

#include <deque>
#include <optional>

#include "Orb/FlatMap.h"
#include "adapters/gobgp/Route.h"

namespace Gobgp {

class OwnRoutes {
 public:
  explicit OwnRoutes(Identity const& identity) : identity_(identity) {}

  /// Sets the row that the site exports, or none. VTEP 0.0.0.0 cannot be announced and counts as none.
  void wantedIs(RowKey const& key, std::optional<RowValue> const& value);

  /// The connection is a new one: it is not known which routes the speaker has.
  void forgetPresent();
  /// The speaker has this path of its own. The octets of its attributes are compared with ours.
  void presentIs(apipb::Path const& path);
  /// This path of the speaker's own was withdrawn, by this program or another one.
  void presentDel(apipb::Path const& path);
  /// Queues every key that differs.
  void compare();

  /// Moves up to `limit` differences into a request and assumes that the speaker has them from now on.
  std::vector<RowKey> takeBatch(std::size_t limit, apipb::AddPathStreamRequest& request);
  /// The speaker refused a batch: it is not known which of its routes the speaker has.
  void giveBack(std::vector<RowKey> const& keys);

  /// The state of one row: what the site exports, what the speaker has, and whether the key is in the queue.
  struct State {
    std::optional<RowValue> wanted;
    /// VTEP 0.0.0.0: not known, or not in the form that this program sends.
    std::optional<RowValue> present;
    bool isQueued = false;
    friend bool operator==(State const&, State const&) = default;
  };
  State stateOf(RowKey const& key) const {
    State const* const found = routes_.find(key);
    return found ? *found : State();
  }

  std::uint64_t wanted() const { return wanted_; }
  std::uint64_t queued() const { return queue_.size(); }

 private:
  using Own = State;

  Own& ownOf(RowKey const& key);
  void queue(RowKey const& key, Own& own);

  Identity identity_;
  Orb::FlatMap<RowKey, Own> routes_;
  std::deque<RowKey> queue_;
  std::uint64_t wanted_ = 0;
};

}  // namespace Gobgp
