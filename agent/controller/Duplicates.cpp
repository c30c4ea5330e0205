#include "agent/controller/Duplicates.h"

#include <algorithm>

#include "Orb/Text.h"

namespace Agent {

Duplicates::Duplicates(Rule rule, std::function<void(std::string const&)> log, Freeze freeze,
                       std::function<Clock::time_point()> now)
    : rule_(rule), log_(std::move(log)), freeze_(std::move(freeze)), now_(std::move(now)) {}

void Duplicates::moved(Vxlan::Vni vni, VxlanController::MacVtepV2 const& from,
                       VxlanController::MacVtepV2 const& to) {
  ++movesCount_;
  if (rule_.moves == 0) return;
  auto const now = now_();
  Moves& moves = moves_[{vni, to.macAddr()}];
  moves.from = from.vtepAddr();
  moves.to = to.vtepAddr();
  while (!moves.times.empty() && now - moves.times.front() >= rule_.window) moves.times.pop_front();
  moves.times.push_back(now);
  if (moves.times.size() >= rule_.moves) {
    moves.times.clear();
    if (!isReported(moves)) {
      ++reportsCount_;
      std::string line = "duplicate: vni ";
      Orb::appendTexts(line, vni, " mac ", to.macAddr(), " moved ", std::to_string(rule_.moves), " times in ",
                       std::to_string(rule_.window.count()), " s, last from ", moves.from, " to ", moves.to,
                       rule_.freezes ? "; it is frozen" : "");
      log_(line);
    }
    moves.reported = now;
    if (rule_.freezes && !std::exchange(moves.isFrozen, true)) freeze_(vni, to.macAddr(), true);
  }
  if (moves_.size() >= forgetAt_) forgetOld();
}

bool Duplicates::isReported(Moves const& moves) const {
  return moves.reported && now_() - *moves.reported < rule_.window;
}

std::optional<Duplicates::Clock::duration> Duplicates::thaw() {
  std::optional<Clock::duration> next;
  for (auto& [key, moves] : moves_) {
    if (!moves.isFrozen) continue;
    if (isReported(moves)) {
      auto const left = *moves.reported + rule_.window - now_();
      next = std::min(next.value_or(left), left);
    } else {
      moves.isFrozen = false;
      freeze_(key.first, key.second, false);
    }
  }
  return next;
}

void Duplicates::forgetOld() {
  auto const now = now_();
  std::erase_if(moves_, [&](auto const& each) {
    Moves const& moves = each.second;
    bool const isOld = moves.times.empty() || now - moves.times.back() >= rule_.window;
    return isOld && !isReported(moves) && !moves.isFrozen;
  });
  forgetAt_ = std::max<std::size_t>(1024, 2 * moves_.size());
}

nlohmann::ordered_json Duplicates::state() const {
  auto result = nlohmann::ordered_json::array();
  for (auto const& [key, moves] : moves_) {
    if (!isReported(moves)) continue;
    result.push_back({{"vni", key.first.value()},
                      {"mac", Orb::toText(key.second)},
                      {"vteps", {Orb::toText(moves.from), Orb::toText(moves.to)}},
                      {"frozen", moves.isFrozen}});
  }
  return result;
}

}  // namespace Agent
