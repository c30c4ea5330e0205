#include "Counter/Counter.h"

#include <set>
#include <tuple>

namespace Counter {

namespace {

struct ByOwnerAndName {
  bool operator()(Counter const* left, Counter const* right) const {
    return std::tie(left->owner(), left->name(), left) < std::tie(right->owner(), right->name(), right);
  }
};

// Made by the first counter, before its construction ends, so it outlives every counter that is a static.
std::set<Counter const*, ByOwnerAndName>& registry() {
  static std::set<Counter const*, ByOwnerAndName> instance;
  return instance;
}

}  // namespace

Counter::Counter(std::string_view owner, std::string_view name) : owner_(owner), name_(name) {
  registry().insert(this);
}

Counter::~Counter() { registry().erase(this); }

std::vector<Counter const*> counters() { return {registry().begin(), registry().end()}; }

std::vector<Counter const*> countersOf(std::string_view owner) {
  std::vector<Counter const*> found = counters();
  std::erase_if(found, [owner](Counter const* counter) { return counter->owner() != owner; });
  return found;
}

uint64_t value(std::string_view owner, std::string_view name) {
  uint64_t sum = 0;
  for (Counter const* counter : countersOf(owner)) {
    if (counter->name() == name) sum += counter->value();
  }
  return sum;
}

}  // namespace Counter
