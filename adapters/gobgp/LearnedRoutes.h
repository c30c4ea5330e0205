/// Gobgp::LearnedRoutes: the routes that neighbours told the speaker, converted to events of rows.
///
/// Several routes may exist for one MAC address: the one with the highest sequence number counts, then the
/// one with the lowest VTEP. A route with an IP address counts as one more route of its MAC.
///
/// take() only stores a route. drain() gives the rows that differ from those that it gave before.
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "Orb/FlatMap.h"
#include "adapters/gobgp/Route.h"
#include "agent/feed/Event.h"

namespace Gobgp {

class LearnedRoutes {
 public:
  /// A route was added, changed or removed (`isGone`). If no row can hold it, returns the cause, once for
  /// each cause.
  std::optional<std::string> take(apipb::Path const& path, bool isGone);

  /// Gives up to `limit` differences to `emit`; true if more are left.
  bool drain(std::size_t limit, std::function<void(Agent::Event const&)> const& emit);
  bool isDrained() const { return dirty_.empty(); }
  /// Frees up to `limit` routes without events, before the object is destroyed; false if none is left.
  bool shrink(std::size_t limit);

  std::uint64_t hosts() const { return hosts_; }
  std::uint64_t floods() const { return floods_; }
  /// Routes that no row can hold, by cause.
  std::map<std::string, std::uint64_t> const& unusable() const { return unusable_; }

 private:
  using Decoded = std::variant<Row, Unusable>;
  /// The values that routes give one row: one value in most networks.
  struct Candidates {
    std::vector<RowValue> values;
    std::optional<RowValue> told;
    bool isDirty = false;
    friend bool operator==(Candidates const&, Candidates const&) = default;
  };

  void add(Decoded const& decoded);
  void remove(Decoded const& decoded);
  Candidates& dirtyOf(RowKey const& key);
  void tell(RowKey const& key, std::function<void(Agent::Event const&)> const& emit);

  std::unordered_map<std::string, Decoded> routes_;
  Orb::FlatMap<RowKey, Candidates> rows_;
  std::deque<RowKey> dirty_;
  std::map<std::string, std::uint64_t> unusable_;
  std::uint64_t hosts_ = 0;
  std::uint64_t floods_ = 0;
};

}  // namespace Gobgp
