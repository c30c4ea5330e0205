#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

#include "Brine/Codec.h"
#include "Brine/Index.h"

namespace Brine {

/// A key as the engine handles it: its words, and what finds it in an index.
template <class Row>
struct KeyWords {
  using C = Codec<Row>;

  uint64_t words[C::keyWords];
  uint32_t hash;
  uint16_t tag;

  KeyWords() = default;
  /// From the words of a key or a row.
  explicit KeyWords(uint64_t const* keyWords) {
    std::copy_n(keyWords, C::keyWords, words);
    complete();
  }
  explicit KeyWords(typename C::Key const& key) {
    C::encodeKey(key, words);
    complete();
  }
  void complete() {
    hash = C::hash(words);
    tag = Index::tagOf(words, C::keyWords);
  }
  bool equals(uint64_t const* other) const {
    for (unsigned i = 0; i < C::keyWords; ++i) {
      if (words[i] != other[i]) return false;
    }
    return true;
  }
};

/// What a keyshadow reader was last shown: each key that it believes to be in the table, with the row id and
/// version that it was shown. Private to the reader.
template <class Row>
class Shadow {
 public:
  using Key = KeyWords<Row>;

  struct Entry {
    uint64_t version;  ///< 0: shown, but in another file.
    uint32_t id;
    uint32_t used;
    uint64_t key[Key::C::keyWords];
  };

  Shadow() { resize(64); }

  size_t size() const { return entries_.size() - free_.size(); }
  /// Entries by number, used or not: for passes over all of them, during which others may come and go.
  size_t slots() const { return entries_.size(); }
  Entry const& at(size_t slot) const { return entries_[slot]; }

  /// Valid until the next change.
  Entry* find(Key const& key) {
    uint32_t const slot = findSlot(key);
    return slot == noRow ? nullptr : &entries_[slot];
  }
  /// Two steps of a look-up that is to come: the first for all of some tens of keys, then the second.
  void prefetch(Key const& key) const { index_.prefetch(key.hash); }
  void prefetchEntry(Key const& key) const {
    index_.visitTagged(key.hash, key.tag, [&](uint32_t slot) {
      if (slot < entries_.size()) Brine::prefetch(&entries_[slot]);
    });
  }

  /// The reader was shown the key's row with that version.
  void show(Key const& key, uint32_t id, uint64_t version) {
    Entry* const entry = find(key);
    entry != nullptr ? update(*entry, id, version) : add(key, id, version);
  }
  void update(Entry& entry, uint32_t id, uint64_t version) {
    entry.version = version;
    entry.id = id;
    if (id >= seen_.size()) seen_.resize(std::max<size_t>(id + size_t{1}, seen_.size() * 2));
    seen_[id] = version;
  }
  /// The same for a key that has no entry.
  void add(Key const& key, uint32_t id, uint64_t version) {
    if (size() >= uint64_t{index_.lineCount()} * rowsPerLine) resize(index_.lineCount() * 2);
    uint32_t slot = 0;
    if (free_.empty()) {
      slot = static_cast<uint32_t>(entries_.size());
      entries_.emplace_back();
    } else {
      slot = free_.back();
      free_.pop_back();
    }
    entries_[slot].used = 1;
    std::copy_n(key.words, Key::C::keyWords, entries_[slot].key);
    index_.insert(key.hash, key.tag, slot);
    update(entries_[slot], id, version);
  }
  /// Room for that many keys, and rows up to that id.
  void reserve(size_t keys, uint32_t ids) {
    if (entries_.capacity() < keys) entries_.reserve(keys);
    if (seen_.size() < ids) seen_.resize(ids);
    if (keys > uint64_t{index_.lineCount()} * rowsPerLine)
      resize(static_cast<uint32_t>(keys / rowsPerLine + 1));
  }

  /// The reader was shown that the key is absent. False if it did not believe otherwise.
  bool erase(Key const& key) {
    uint32_t const slot = findSlot(key);
    if (slot == noRow) return false;
    index_.erase(key.hash, key.tag, slot);
    entries_[slot].used = 0;
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
  static constexpr uint32_t rowsPerLine = 6;

  uint32_t findSlot(Key const& key) const {
    return index_.find(key.hash, key.tag, [&](uint32_t slot) { return key.equals(entries_[slot].key); });
  }
  void resize(uint32_t lineCount) {
    lines_.assign(uint64_t{lineCount} * Index::lineWords, 0);
    index_ = Index(lines_.data(), lineCount);
    for (uint32_t slot = 0; slot < entries_.size(); ++slot) {
      if (entries_[slot].used == 0) continue;
      Key const key(entries_[slot].key);
      index_.insert(key.hash, key.tag, slot);
    }
  }

  std::vector<Entry> entries_;
  std::vector<uint32_t> free_;
  std::vector<uint64_t> seen_;
  std::vector<uint64_t> lines_;
  Index index_;
};

}  // namespace Brine
