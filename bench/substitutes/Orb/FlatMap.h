#pragma once

#include <cstddef>
#include <map>

namespace Orb {

/// In the place of platform/Orb/FlatMap.h, for comparison: the same interface and the same robust walks over
/// `std::map`.
template <class Key, class Value>
class FlatMap {
 public:
  static constexpr bool isSubstitute = true;

  struct Entry {
    Key key{};
    Value value{};
  };

  class Iterator {
   public:
    struct End {};
    Iterator(FlatMap const& map, Entry const* entry) : map_(&map), entry_(entry) {
      if (entry_) key_ = entry_->key;
    }
    Entry const& operator*() const { return *entry_; }
    Entry const* operator->() const { return entry_; }
    Iterator& operator++() {
      *this = Iterator(*map_, map_->entryOf(map_->entries_.upper_bound(key_)));
      return *this;
    }
    bool operator==(End) const { return entry_ == nullptr; }

   private:
    FlatMap const* map_;
    Entry const* entry_;
    Key key_{};
  };

  size_t size() const noexcept { return entries_.size(); }
  bool empty() const noexcept { return entries_.empty(); }
  Iterator begin() const { return Iterator(*this, entryOf(entries_.begin())); }
  typename Iterator::End end() const { return {}; }

  Value const* find(Key const& key) const {
    auto const found = entries_.find(key);
    return found == entries_.end() ? nullptr : &found->second.value;
  }
  Value* find(Key const& key) {
    auto const found = entries_.find(key);
    return found == entries_.end() ? nullptr : &found->second.value;
  }
  bool contains(Key const& key) const { return entries_.contains(key); }

  bool put(Key const& key, Value value) {
    auto const [found, isNew] = entries_.try_emplace(key);
    if (!isNew && found->second.value == value) return false;
    found->second = Entry{key, std::move(value)};
    return true;
  }
  bool take(Key const& key, Value& removed) {
    auto const node = entries_.extract(key);
    if (node.empty()) return false;
    removed = std::move(node.mapped().value);
    return true;
  }
  bool erase(Key const& key) { return entries_.erase(key) != 0; }
  void clear() { entries_.clear(); }
  void reserve(size_t) {}

 private:
  using Entries = std::map<Key, Entry>;
  Entry const* entryOf(typename Entries::const_iterator place) const {
    return place == entries_.end() ? nullptr : &place->second;
  }
  Entries entries_;
};

}  // namespace Orb
