#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace Orb {

/// The keyed collection on the event path: flat, without a node per entry.
///
/// Entries stand in one dense array at ids that never change while the entry lives; a separate index of
/// eight-byte slots (hash, id) is probed linearly and touches an entry only where the whole hash matches.
/// Freed ids are used again before the array grows.
///
/// Walking is robust: entries may be added and removed, the current one included, and the whole map cleared.
/// An entry that is present throughout a walk is visited exactly once; one that is added meanwhile may or may
/// not be. What an iterator yields is a reference into the array: copy the key before a call that may change
/// the map. Only the map itself must outlive the walk.
///
/// Key needs hash() (32 bits, well mixed) and operator==; Value needs a default and operator==. A value that
/// leaves the map is destroyed when the map has already changed, so its destructor may use the map.
template <class Key, class Value>
class FlatMap {
 public:
  class Entry {
   public:
    Key key{};
    Value value{};

   private:
    friend class FlatMap;
    uint32_t link_ = live;  ///< `live`, or the id of the next free entry.
  };

  class Iterator {
   public:
    Iterator(FlatMap const& map, uint32_t id) : map_(&map), id_(map.liveFrom(id)) {}
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
    uint32_t id_;
  };

  size_t size() const noexcept { return size_; }
  bool empty() const noexcept { return size_ == 0; }
  Iterator begin() const { return Iterator(*this, 0); }
  typename Iterator::End end() const { return {}; }

  /// The value under a key, or null. Good until the map changes.
  Value const* find(Key const& key) const {
    // Who hears of a change asks for what was changed, so that is looked at first.
    if (last_ != none && entries_[last_].key == key) return &entries_[last_].value;
    uint32_t const id = idOf(key, key.hash());
    return id == none ? nullptr : &entries_[id].value;
  }
  Value* find(Key const& key) { return const_cast<Value*>(std::as_const(*this).find(key)); }
  bool contains(Key const& key) const { return find(key) != nullptr; }

  /// Inserts or replaces; returns whether that changed anything, so that the caller announces effective
  /// changes only.
  bool put(Key const& key, Value value) {
    uint32_t const hash = key.hash();
    uint32_t const id = idOf(key, hash);
    if (id == none) {
      insert(key, hash, std::move(value));
      return true;
    }
    last_ = id;
    if (entries_[id].value == value) return false;
    [[maybe_unused]] Value const former = std::exchange(entries_[id].value, std::move(value));
    return true;
  }

  /// Removes and returns the value through `removed`; false where the key is absent.
  bool take(Key const& key, Value& removed) {
    if (size_ == 0) return false;
    size_t const slot = slotOf(key, key.hash());
    uint32_t const id = index_[slot].id;
    if (id == none) return false;
    closeGap(slot);
    if (last_ == id) last_ = none;
    Entry& entry = entries_[id];
    Value value = std::exchange(entry.value, Value{});
    entry.link_ = std::exchange(free_, id);
    --size_;
    std::swap(removed, value);
    return true;
  }
  bool erase(Key const& key) {
    Value removed{};
    return take(key, removed);
  }

  void clear() {
    std::vector<Entry> const dropped = std::exchange(entries_, {});
    index_.clear();
    free_ = last_ = none;
    size_ = 0;
  }

  void reserve(size_t entries) {
    entries_.reserve(entries);
    if (entries * 4 > index_.size() * 3) rebuild(entries * 4 / 3 + 1);
  }

 private:
  struct Slot {
    uint32_t hash = 0;
    uint32_t id = none;
  };
  static constexpr uint32_t none = 0xFFFFFFFFU;  ///< No entry: an empty slot, the end of the free entries.
  static constexpr uint32_t live = 0xFFFFFFFEU;

  uint32_t liveFrom(uint32_t id) const {
    while (id < entries_.size() && entries_[id].link_ != live) ++id;
    return id;
  }

  uint32_t idOf(Key const& key, uint32_t hash) const {
    return size_ == 0 ? none : index_[slotOf(key, hash)].id;
  }

  /// The slot that holds the key, or the empty one where it belongs. The index is never full, nor empty here.
  size_t slotOf(Key const& key, uint32_t hash) const {
    size_t const mask = index_.size() - 1;
    for (size_t slot = hash & mask;; slot = (slot + 1) & mask) {
      Slot const& probed = index_[slot];
      if (probed.id == none || (probed.hash == hash && entries_[probed.id].key == key)) return slot;
    }
  }

  /// Puts a new entry at a free id or at the end of the array. Kept out of put(), which thus stays small
  /// enough to be inlined where values are overwritten.
  [[gnu::noinline]] void insert(Key key, uint32_t hash, Value&& value) {
    if ((size_ + 1) * 4 > index_.size() * 3) rebuild(index_.size() * 2);
    if (free_ == none) {
      entries_.emplace_back();
      free_ = static_cast<uint32_t>(entries_.size() - 1);
      entries_[free_].link_ = none;
    }
    uint32_t const id = free_;
    Entry& entry = entries_[id];
    index_[slotOf(key, hash)] = Slot{hash, id};
    entry.key = std::move(key);
    entry.value = std::move(value);
    free_ = std::exchange(entry.link_, live);
    last_ = id;
    ++size_;
  }

  /// Empties a slot and moves back those behind it that would be cut off from their home, so no tombstones
  /// arise.
  void closeGap(size_t gap) {
    size_t const mask = index_.size() - 1;
    for (size_t slot = (gap + 1) & mask; index_[slot].id != none; slot = (slot + 1) & mask) {
      size_t const home = index_[slot].hash & mask;
      if (((slot - home) & mask) >= ((slot - gap) & mask)) {
        index_[gap] = index_[slot];
        gap = slot;
      }
    }
    index_[gap] = Slot{};
  }

  void rebuild(size_t atLeast) {
    size_t slots = 8;
    while (slots < atLeast) slots *= 2;
    std::vector<Slot> const old = std::exchange(index_, std::vector<Slot>(slots));
    for (Slot const& moved : old) {
      if (moved.id == none) continue;
      size_t slot = moved.hash & (slots - 1);
      while (index_[slot].id != none) slot = (slot + 1) & (slots - 1);
      index_[slot] = moved;
    }
  }

  std::vector<Entry> entries_;
  std::vector<Slot> index_;
  uint32_t free_ = none;  ///< The first free entry.
  uint32_t last_ = none;  ///< The live entry that was put last, if it is known.
  size_t size_ = 0;
};

}  // namespace Orb
