#include "adapters/gobgp/LearnedRoutes.h"

#include <algorithm>

namespace Gobgp {

namespace {

bool isBetter(RowValue const& left, RowValue const& right) {
  return left.seq != right.seq ? left.seq > right.seq : left.vtep < right.vtep;
}

}  // namespace

std::optional<std::string> LearnedRoutes::take(apipb::Path const& path, bool isGone) {
  std::string key = routeKeyOf(path);
  if (auto const found = routes_.find(key); found != routes_.end()) {
    remove(found->second);
    routes_.erase(found);
  }
  if (isGone) return std::nullopt;
  auto const& decoded = routes_.insert_or_assign(std::move(key), rowOf(path)).first->second;
  add(decoded);
  auto const* const unusable = std::get_if<Unusable>(&decoded);
  return unusable && ++unusable_[unusable->cause] == 1 ? std::optional(unusable->cause) : std::nullopt;
}

LearnedRoutes::Candidates& LearnedRoutes::dirtyOf(RowKey const& key) {
  if (!rows_.contains(key)) rows_.put(key, {});
  Candidates& candidates = *rows_.find(key);
  if (!candidates.isDirty) dirty_.push_back(key);
  candidates.isDirty = true;
  return candidates;
}

void LearnedRoutes::add(Decoded const& decoded) {
  if (auto const* const row = std::get_if<Row>(&decoded)) dirtyOf(row->key).values.push_back(row->value);
}

void LearnedRoutes::remove(Decoded const& decoded) {
  if (auto const* const row = std::get_if<Row>(&decoded)) {
    auto& values = dirtyOf(row->key).values;
    values.erase(std::find(values.begin(), values.end(), row->value));
  } else {
    --unusable_[std::get<Unusable>(decoded).cause];
  }
}

bool LearnedRoutes::drain(std::size_t limit, std::function<void(Agent::Event const&)> const& emit) {
  for (; limit > 0 && !dirty_.empty(); --limit) {
    RowKey const key = dirty_.front();
    dirty_.pop_front();
    tell(key, emit);
  }
  return !dirty_.empty();
}

bool LearnedRoutes::shrink(std::size_t limit) {
  for (; limit > 0 && !routes_.empty(); --limit) routes_.erase(routes_.begin());
  return !routes_.empty();
}

void LearnedRoutes::tell(RowKey const& key, std::function<void(Agent::Event const&)> const& emit) {
  Candidates& candidates = *rows_.find(key);
  candidates.isDirty = false;
  auto const& values = candidates.values;
  auto const best = std::min_element(values.begin(), values.end(), isBetter);
  auto const now = best == values.end() ? std::nullopt : std::optional(*best);
  auto const before = std::exchange(candidates.told, now);
  if (!now) rows_.erase(key);
  if (now == before) return;

  auto& count = key.isHost() ? hosts_ : floods_;
  if (!before) ++count;
  if (!now) --count;
  Agent::Event event;
  event.from = Agent::Origin::evpn;
  event.vni = key.vni();
  if (key.isHost()) {
    event.op = now ? Agent::Op::mac : Agent::Op::macDel;
    event.mac = key.mac();
    if (now) event.vtep = now->vtep;
    if (now) event.seq = now->seq;
  } else {
    event.op = now ? Agent::Op::flood : Agent::Op::floodDel;
    event.vtep = key.vtep();
  }
  emit(event);
}

}  // namespace Gobgp
