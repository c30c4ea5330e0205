/// Orb::FlatMap: the keyed collection on the event path: flat, without a node per entry.
///
/// Entries stand in one dense array at ids that never change while the entry lives; a separate index of
/// eight-byte slots (hash, id) is probed linearly and touches an entry only where the whole hash matches.
/// Freed ids are used again before the array grows.
///
/// Walking is robust: entries may be added and removed, the current one included, and the whole map cleared.
/// An entry that is present throughout a walk is visited exactly once; one that is added meanwhile may or may
/// not be. What an iterator yields is a reference into the array: copy the key before a call that may change
/// the map.
///
/// Key needs hash() (32 bits, well mixed) and operator==; Value needs a default.
#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace Orb {

template <class Key, class Value>
class FlatMap {
 public:
  struct Entry {
    Key key{};
    Value value{};
    bool live = false;
  };

  class Iterator {
   public:
    Iterator(FlatMap const& map, std::uint32_t id) : map_(&map), id_(map.liveFrom(id)) {}
    Entry const& operator*() const { return map_->entries_[id_]; }
    Entry const* operator->() const { return &map_->entries_[id_]; }
    Iterator& operator++() {
      id_ = map_->liveFrom(id_ + 1);
      return *this;
    }
    /// Compares with the map's end as it is now, since the map may have changed.
    struct End {};
    bool operator==(End) const { return id_ >= map_->entries_.size(); }

   private:
    FlatMap const* map_;
    std::uint32_t id_;
  };

  std::size_t size() const noexcept { return size_; }
  bool empty() const noexcept { return size_ == 0; }
  Iterator begin() const { return Iterator(*this, 0); }
  typename Iterator::End end() const { return {}; }

  /// The value under a key, or null. Good until the map changes.
  Value const* find(Key const& key) const {
    std::size_t const slot = slotOf(key, key.hash());
    return slot == absent ? nullptr : &entries_[index_[slot].id].value;
  }
  Value* find(Key const& key) { return const_cast<Value*>(std::as_const(*this).find(key)); }
  bool contains(Key const& key) const { return slotOf(key, key.hash()) != absent; }

  /// Inserts or replaces; returns whether that changed anything, so that the caller announces effective
  /// changes only.
  bool put(Key const& key, Value value) {
    std::uint32_t const hash = key.hash();
    std::size_t const slot = slotOf(key, hash);
    if (slot == absent) {
      insert(key, hash, std::move(value));
      return true;
    }
    Value& current = entries_[index_[slot].id].value;
    if (current == value) return false;
    current = std::move(value);
    return true;
  }

  /// Removes and returns the value through `removed`; false where the key is absent.
  bool take(Key const& key, Value& removed) {
    std::size_t const slot = slotOf(key, key.hash());
    if (slot == absent) return false;
    std::uint32_t const id = index_[slot].id;
    closeGap(slot);
    Entry& entry = entries_[id];
    removed = std::exchange(entry.value, Value{});
    entry.live = false;
    free_.push_back(id);
    --size_;
    return true;
  }
  bool erase(Key const& key) {
    Value removed;
    return take(key, removed);
  }

  void clear() {
    std::vector<Entry> const dropped =
        std::exchange(entries_, {});  // destroyed when the map is already empty
    index_.clear();
    free_.clear();
    size_ = 0;
  }

  void reserve(std::size_t entries) {
    entries_.reserve(entries);
    if (entries * 4 > index_.size() * 3) rebuild(entries * 4 / 3 + 1);
  }

 private:
  struct Slot {
    std::uint32_t hash = 0;
    std::uint32_t id = none;
  };
  static constexpr std::uint32_t none = 0xFFFFFFFFU;
  static constexpr std::size_t absent = ~std::size_t{0};

  std::uint32_t liveFrom(std::uint32_t id) const {
    while (id < entries_.size() && !entries_[id].live) ++id;
    return id;
  }

  std::size_t slotOf(Key const& key, std::uint32_t hash) const {
    if (index_.empty()) return absent;
    std::size_t const mask = index_.size() - 1;
    for (std::size_t slot = hash & mask;; slot = (slot + 1) & mask) {
      Slot const& probed = index_[slot];
      if (probed.id == none) return absent;
      if (probed.hash == hash && entries_[probed.id].key == key) return slot;
    }
  }

  void insert(Key const& key, std::uint32_t hash, Value value) {
    if ((size_ + 1) * 4 > index_.size() * 3) rebuild(index_.size() * 2);
    std::uint32_t id;
    if (free_.empty()) {
      id = static_cast<std::uint32_t>(entries_.size());
      entries_.push_back(Entry{key, std::move(value), true});
    } else {
      id = free_.back();
      free_.pop_back();
      entries_[id] = Entry{key, std::move(value), true};
    }
    place(Slot{hash, id});
    ++size_;
  }

  void place(Slot filled) {
    std::size_t const mask = index_.size() - 1;
    std::size_t slot = filled.hash & mask;
    while (index_[slot].id != none) slot = (slot + 1) & mask;
    index_[slot] = filled;
  }

  /// Empties a slot and moves back those behind it that would be cut off from their home, so no tombstones
  /// arise.
  void closeGap(std::size_t gap) {
    std::size_t const mask = index_.size() - 1;
    for (std::size_t slot = (gap + 1) & mask; index_[slot].id != none; slot = (slot + 1) & mask) {
      std::size_t const home = index_[slot].hash & mask;
      if (((slot - home) & mask) >= ((slot - gap) & mask)) {
        index_[gap] = index_[slot];
        gap = slot;
      }
    }
    index_[gap] = Slot{};
  }

  void rebuild(std::size_t atLeast) {
    std::size_t slots = 8;
    while (slots < atLeast) slots *= 2;
    std::vector<Slot> const old = std::exchange(index_, std::vector<Slot>(slots));
    for (Slot const& slot : old) {
      if (slot.id != none) place(slot);
    }
  }

  std::vector<Entry> entries_;
  std::vector<std::uint32_t> free_;
  std::vector<Slot> index_;
  std::size_t size_ = 0;
};

}  // namespace Orb
