/// Gobgp::OwnRoutes: the routes of the rows that this site exports, beside those that the speaker has of it.
///
/// What differs waits in a queue, a key once, and is taken in batches; what a key's route is by then is what
/// is sent.
#pragma once

#include <deque>
#include <optional>

#include "Orb/FlatMap.h"
#include "adapters/gobgp/Route.h"

namespace Gobgp {

class OwnRoutes {
 public:
  explicit OwnRoutes(Identity const& identity) : identity_(identity) {}

  /// The site exports this row, or none. VTEP 0.0.0.0 cannot be announced and counts as none.
  void wantedIs(RowKey const& key, std::optional<RowValue> const& value);

  /// The speaker is another one or has been started again: nothing is known of what it has.
  void forgetPresent();
  /// The speaker has this path of its own. Octets of its attributes are looked at.
  void presentIs(apipb::Path const& path);
  /// Somebody withdrew this path of the speaker's own, we or another.
  void presentDel(apipb::Path const& path);
  /// Queues whatever differs.
  void compare();

  /// Moves up to `limit` differences into a request, as if the speaker had them by now.
  std::vector<RowKey> takeBatch(std::size_t limit, apipb::AddPathStreamRequest& request);
  /// The speaker refused a batch: what of it the speaker has is not known.
  void giveBack(std::vector<RowKey> const& keys);

  /// Of one row: what the site exports, what the speaker has, and whether they are about to be compared.
  struct State {
    std::optional<RowValue> wanted;
    std::optional<RowValue> present;  ///< VTEP 0.0.0.0: unlike what we announce, or not known.
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
