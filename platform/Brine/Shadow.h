#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

#include "Brine/Codec.h"
#include "Brine/Index.h"

namespace Brine {

/// A key as the engine handles it: its words, and what finds it in an index.
struct KeyWords {
  uint64_t words[maxKeyWords];
  uint32_t hash;
  uint16_t tag;
};

/// What a keyshadow reader was last shown: each key that it believes to be in the table, with the row id and
/// version that it was shown. Private to the reader.
class Shadow {
 public:
  struct Entry {
    uint64_t version;  ///< 0: shown, but in another file.
    uint32_t id;
    bool used;
    uint64_t key[maxKeyWords];
  };

  explicit Shadow(RowShape const& shape) : shape_(shape) { clear(); }

  void clear() {
    entries_.clear();
    free_.clear();
    seen_.clear();
    resize(64);
  }
  size_t size() const { return entries_.size() - free_.size(); }
  /// Entries by number, used or not: for passes over all of them, during which others may come and go.
  size_t slots() const { return entries_.size(); }
  Entry const& at(size_t slot) const { return entries_[slot]; }

  Entry const* find(KeyWords const& key) const {
    uint32_t const slot = findSlot(key);
    return slot == noRow ? nullptr : &entries_[slot];
  }
  void prefetch(uint32_t hash) const { index_.prefetch(hash); }

  /// The reader was shown the key's row with that version.
  void show(KeyWords const& key, uint32_t id, uint64_t version) {
    uint32_t slot = findSlot(key);
    if (slot == noRow) {
      if (size() >= uint64_t{index_.lineCount()} * 6) resize(index_.lineCount() * 2);
      if (free_.empty()) {
        slot = static_cast<uint32_t>(entries_.size());
        entries_.emplace_back();
      } else {
        slot = free_.back();
        free_.pop_back();
      }
      entries_[slot].used = true;
      std::copy_n(key.words, shape_.keyWords, entries_[slot].key);
      index_.insert(key.hash, key.tag, slot);
    }
    entries_[slot].version = version;
    entries_[slot].id = id;
    if (id >= seen_.size()) seen_.resize(std::max<size_t>(id + size_t{1}, seen_.size() * 2));
    seen_[id] = version;
  }

  /// The reader was shown that the key is absent. False if it did not believe otherwise.
  bool erase(KeyWords const& key) {
    uint32_t const slot = findSlot(key);
    if (slot == noRow) return false;
    index_.erase(key.hash, key.tag, slot);
    entries_[slot].used = false;
    free_.push_back(slot);
    return true;
  }

  /// The version that was shown in that row, 0 if none: a row with this version holds nothing new.
  uint64_t seen(uint32_t id) const { return id < seen_.size() ? seen_[id] : 0; }

  /// The table's file is another one: what was shown stays shown, but its versions mean nothing there.
  void forgetVersions() {
    seen_.clear();
    for (Entry& entry : entries_) {
      entry.version = 0;
      entry.id = noRow;
    }
  }

 private:
  uint32_t findSlot(KeyWords const& key) const {
    return index_.find(key.hash, key.tag, [&](uint32_t slot) {
      return std::equal(key.words, key.words + shape_.keyWords, entries_[slot].key);
    });
  }
  void resize(uint32_t lineCount) {
    lines_.assign(uint64_t{lineCount} * Index::lineWords, 0);
    index_ = Index(lines_.data(), lineCount);
    for (uint32_t slot = 0; slot < entries_.size(); ++slot) {
      Entry const& entry = entries_[slot];
      if (entry.used) index_.insert(shape_.hash(entry.key), Index::tagOf(entry.key, shape_.keyWords), slot);
    }
  }

  RowShape shape_;
  std::vector<Entry> entries_;
  std::vector<uint32_t> free_;
  std::vector<uint64_t> seen_;
  std::vector<uint64_t> lines_;
  Index index_;
};

}  // namespace Brine
