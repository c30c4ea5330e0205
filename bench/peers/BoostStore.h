#pragma once

#if QOREVPN_PEER_BOOST

#pragma GCC system_header  // Boost's templates do not meet this project's warnings.

#include <unistd.h>

#include <boost/interprocess/allocators/allocator.hpp>
#include <boost/interprocess/managed_shared_memory.hpp>
#include <boost/interprocess/sync/interprocess_mutex.hpp>
#include <boost/interprocess/sync/scoped_lock.hpp>
#include <boost/unordered_map.hpp>

#include "Orb/Hash.h"
#include "Peer.h"

namespace Bench {

/// Boost.Interprocess: a hash map in shared memory and the mutex that its users must take for every
/// operation. Neither survives a process that dies while it holds the mutex.
class BoostStore {
 public:
  static constexpr char const* name = "Boost.Interprocess";

  explicit BoostStore(Place const&) : BoostStore("qorevpn-bench-" + std::to_string(::getpid()), true) {}
  BoostStore(std::string const& segment, bool create) : segment_(segment), owner_(create) {
    using namespace boost::interprocess;
    if (create) {
      shared_memory_object::remove(segment.c_str());
      memory_ = managed_shared_memory(create_only, segment.c_str(), size_t{512} << 20);
      map_ = memory_.construct<Map>("map")(BrineStore::slots, Orb::Hash(), std::equal_to<Key>(),
                                           Allocator(memory_.get_segment_manager()));
      mutex_ = memory_.construct<interprocess_mutex>("mutex")();
    } else {
      memory_ = managed_shared_memory(open_only, segment.c_str());
      map_ = memory_.find<Map>("map").first;
      mutex_ = memory_.find<interprocess_mutex>("mutex").first;
    }
  }
  ~BoostStore() {
    if (owner_) boost::interprocess::shared_memory_object::remove(segment_.c_str());
  }
  BoostStore(BoostStore const&) = delete;
  BoostStore& operator=(BoostStore const&) = delete;

  void insert(std::span<QorEvpn::Host const> hosts) {
    for (QorEvpn::Host const& host : hosts) {
      Lock const lock(*mutex_);
      map_->insert_or_assign(host.key(), Value(host));
    }
  }
  void overwrite(std::span<QorEvpn::Host const> hosts) { insert(hosts); }
  void remove(std::span<QorEvpn::MacVniPair const> keys) {
    for (Key const& key : keys) {
      Lock const lock(*mutex_);
      map_->erase(key);
    }
  }
  uint64_t find(std::span<QorEvpn::MacVniPair const> keys) {
    uint64_t sum = 0;
    for (Key const& key : keys) {
      Lock const lock(*mutex_);
      if (auto const found = map_->find(key); found != map_->end()) sum += found->second.sum();
    }
    return sum;
  }
  uint64_t walk() {
    uint64_t sum = 0;
    Lock const lock(*mutex_);
    for (auto const& entry : *map_) sum += entry.second.sum();
    return sum;
  }
  uint64_t walk(uint32_t vni) {
    uint64_t sum = 0;
    Lock const lock(*mutex_);
    for (auto const& entry : *map_) {
      if (entry.first.vni().value() == vni) sum += entry.second.sum();
    }
    return sum;
  }
  double bytes() const { return static_cast<double>(memory_.get_size() - memory_.get_free_memory()); }
  std::string const& segment() const { return segment_; }

 private:
  using Key = QorEvpn::MacVniPair;
  using Lock = boost::interprocess::scoped_lock<boost::interprocess::interprocess_mutex>;
  using Allocator =
      boost::interprocess::allocator<std::pair<Key const, Value>,
                                     boost::interprocess::managed_shared_memory::segment_manager>;
  using Map = boost::unordered_map<Key, Value, Orb::Hash, std::equal_to<Key>, Allocator>;

  std::string segment_;
  bool owner_;
  boost::interprocess::managed_shared_memory memory_;
  Map* map_ = nullptr;
  boost::interprocess::interprocess_mutex* mutex_ = nullptr;
};

}  // namespace Bench

#endif
