#pragma once

#include <unordered_map>

#include "Orb/FlatMap.h"
#include "Orb/Hash.h"
#include "Peer.h"

namespace Bench {

/// The project's own flat map, in this process: no sharing, no crash safety, no change delivery.
class FlatMapStore {
 public:
  static constexpr char const* name = "flat map";

  explicit FlatMapStore(Place const&) { map_.reserve(BrineStore::slots); }

  void insert(std::span<QorEvpn::Host const> hosts) {
    for (QorEvpn::Host const& host : hosts) map_.put(host.key(), Value(host));
  }
  void overwrite(std::span<QorEvpn::Host const> hosts) { insert(hosts); }
  uint64_t find(std::span<QorEvpn::MacVniPair const> keys) {
    uint64_t sum = 0;
    for (QorEvpn::MacVniPair const& key : keys) {
      if (Value const* const value = map_.find(key)) sum += value->sum();
    }
    return sum;
  }
  uint64_t walk() {
    uint64_t sum = 0;
    for (auto const& entry : map_) sum += entry.value.sum();
    return sum;
  }
  uint64_t walk(uint32_t vni) {
    uint64_t sum = 0;
    for (auto const& entry : map_) {
      if (entry.key.vni().value() == vni) sum += entry.value.sum();
    }
    return sum;
  }
  void remove(std::span<QorEvpn::MacVniPair const> keys) {
    for (QorEvpn::MacVniPair const& key : keys) map_.erase(key);
  }

 private:
  Orb::FlatMap<QorEvpn::MacVniPair, Value> map_;
};

/// The standard library's hash map, in this process.
class UnorderedMapStore {
 public:
  static constexpr char const* name = "std::unordered_map";

  explicit UnorderedMapStore(Place const&) { map_.reserve(BrineStore::slots); }

  void insert(std::span<QorEvpn::Host const> hosts) {
    for (QorEvpn::Host const& host : hosts) map_.insert_or_assign(host.key(), Value(host));
  }
  void overwrite(std::span<QorEvpn::Host const> hosts) { insert(hosts); }
  uint64_t find(std::span<QorEvpn::MacVniPair const> keys) {
    uint64_t sum = 0;
    for (QorEvpn::MacVniPair const& key : keys) {
      if (auto const found = map_.find(key); found != map_.end()) sum += found->second.sum();
    }
    return sum;
  }
  uint64_t walk() {
    uint64_t sum = 0;
    for (auto const& entry : map_) sum += entry.second.sum();
    return sum;
  }
  uint64_t walk(uint32_t vni) {
    uint64_t sum = 0;
    for (auto const& entry : map_) {
      if (entry.first.vni().value() == vni) sum += entry.second.sum();
    }
    return sum;
  }
  void remove(std::span<QorEvpn::MacVniPair const> keys) {
    for (QorEvpn::MacVniPair const& key : keys) map_.erase(key);
  }

 private:
  std::unordered_map<QorEvpn::MacVniPair, Value, Orb::Hash> map_;
};

}  // namespace Bench
