/// Agent::Duplicates: notices a MAC address that two sites have at a time, for it moves between them again
/// and again.
#pragma once

#include <chrono>
#include <deque>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>

#include "DataModel/MacVtepV2.h"
#include "Vxlan/Vni.h"

namespace Agent {

class Duplicates {
 public:
  using Clock = std::chrono::steady_clock;
  /// A MAC is a duplicate that moves `moves` times within `window`.
  struct Rule {
    unsigned moves = 5;  ///< 0: none is.
    std::chrono::seconds window{180};
    /// A duplicate stays with the other site, whatever switches hear, until `window` has passed.
    bool freezes = false;
  };

  /// `log` takes a line for people about each one; `now` tells the time.
  Duplicates(Rule rule, std::function<void(std::string const&)> log,
             std::function<Clock::time_point()> now = Clock::now);

  /// The entry of a MAC went from one site to another.
  void moved(Vxlan::Vni vni, VxlanController::MacVtepV2 const& from, VxlanController::MacVtepV2 const& to);
  bool isFrozen(Vxlan::Vni vni, Wirix::EthAddr mac) const;

  /// How many moves there were, and how often a MAC was reported.
  std::uint64_t moves() const { return movesCount_; }
  std::uint64_t reports() const { return reportsCount_; }

  /// [{"vni": 5000, "mac": "02:00:00:00:00:01", "vteps": ["10.0.0.1", "10.9.0.1"], "frozen": false}, ..]:
  /// those that were reported and have not been quiet for `window` since.
  nlohmann::ordered_json state() const;

 private:
  struct Moves {
    std::deque<Clock::time_point> times;
    std::optional<Clock::time_point> reported;
    Wirix::IpAddr from, to;
  };
  using Key = std::pair<Vxlan::Vni, Wirix::EthAddr>;

  bool isReported(Moves const& moves) const;
  void forgetOld();

  Rule rule_;
  std::function<void(std::string const&)> log_;
  std::function<Clock::time_point()> now_;
  std::map<Key, Moves> moves_;
  std::uint64_t movesCount_ = 0, reportsCount_ = 0;
  std::size_t forgetAt_ = 1024;  ///< How many MACs there are when old ones are looked for.
};

}  // namespace Agent
