/// Agent::Duplicates: detects MAC addresses that two sites have at the same time: such a MAC moves between
/// the sites again and again.
#pragma once

#include <chrono>
#include <deque>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>

#include "DataModel/MacVtepV2.h"
#include "Vxlan/Vni.h"

namespace Agent {

class Duplicates {
 public:
  using Clock = std::chrono::steady_clock;
  /// A MAC is a duplicate if it moves `moves` times within `window`.
  struct Rule {
    unsigned moves = 5;  ///< 0: no MAC is a duplicate.
    std::chrono::seconds window{180};
    /// A duplicate stays with the other site until `window` has passed, although a switch here hears it.
    bool freezes = false;
  };

  /// Freezes a MAC, or ends that.
  using Freeze = std::function<void(Vxlan::Vni, Wirix::EthAddr, bool isFrozen)>;

  /// `log` takes a line for people about each duplicate; `now` gives the time.
  Duplicates(Rule rule, std::function<void(std::string const&)> log, Freeze freeze,
             std::function<Clock::time_point()> now = Clock::now);

  /// The entry of a MAC moved from one site to another. Called by the controller.
  void moved(Vxlan::Vni vni, VxlanController::MacVtepV2 const& from, VxlanController::MacVtepV2 const& to);
  /// Ends the freezing of each MAC whose time is over. Returns how long the next one stays frozen; nothing
  /// where none is frozen.
  std::optional<Clock::duration> thaw();

  /// The numbers of moves and of reports since the start.
  std::uint64_t moves() const { return movesCount_; }
  std::uint64_t reports() const { return reportsCount_; }

  /// [{"vni": 5000, "mac": "02:00:00:00:00:01", "vteps": ["10.0.0.1", "10.9.0.1"], "frozen": false}, ..]:
  /// the MACs that were reported and have moved within the last `window`.
  nlohmann::ordered_json state() const;

 private:
  struct Moves {
    std::deque<Clock::time_point> times;
    std::optional<Clock::time_point> reported;
    bool isFrozen = false;
    Wirix::IpAddr from, to;
  };
  using Key = std::pair<Vxlan::Vni, Wirix::EthAddr>;

  bool isReported(Moves const& moves) const;
  void forgetOld();

  Rule rule_;
  std::function<void(std::string const&)> log_;
  Freeze freeze_;
  std::function<Clock::time_point()> now_;
  std::map<Key, Moves> moves_;
  std::uint64_t movesCount_ = 0, reportsCount_ = 0;
  std::size_t forgetAt_ = 1024;  ///< The size of `moves_` at which old entries are removed.
};

}  // namespace Agent
