/// Gobgp::LearnedRoutes: what neighbours told the speaker, as events of rows.
///
/// Several routes may say where one MAC address is: of each the highest sequence number counts, then the
/// lowest VTEP. A route with an IP address is one more route of its MAC.
///
/// A route is told once it is settled: drain() gives what differs from what it gave before.
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
  /// A route came, changed or went. Returns why it is no row where that is seen for the first time.
  std::optional<std::string> take(apipb::Path const& path, bool isGone);

  /// Gives up to `limit` differences; true where more are left.
  bool drain(std::size_t limit, std::function<void(Agent::Event const&)> const& emit);
  bool isDrained() const { return dirty_.empty(); }
  /// Frees up to `limit` routes, telling nothing, before all of it goes; false where none is left.
  bool shrink(std::size_t limit);

  std::uint64_t hosts() const { return hosts_; }
  std::uint64_t floods() const { return floods_; }
  std::uint64_t routes() const { return routes_.size(); }
  /// Routes that no row can hold, by cause.
  std::map<std::string, std::uint64_t> const& unusable() const { return unusable_; }

 private:
  using Decoded = std::variant<Row, Unusable>;
  /// A row that routes tell of. They are few: one in most networks.
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
