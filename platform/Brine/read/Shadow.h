#pragma once

#include <algorithm>
#include <bit>
#include <cstdint>
#include <utility>
#include <vector>

#include "Brine/Codec.h"
#include "Brine/rows/Index.h"

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
  [[gnu::always_inline]] explicit KeyWords(uint64_t const* keyWords) {
    // Word by word: a copy in one piece would wait for the stores of its words.
    for (unsigned i = 0; i < C::keyWords; ++i) words[i] = keyWords[i];
    complete();
  }
  [[gnu::always_inline]] explicit KeyWords(typename C::Key const& key) {
    C::encodeKey(key, words);
    complete();
  }
  [[gnu::always_inline]] void complete() {
    hash = C::hash(words);
    tag = Index::tagOf(words, C::keyWords);
  }
  bool equals(uint64_t const* other) const { return equal(words, other); }
  static bool equal(uint64_t const* left, uint64_t const* right) {
    for (unsigned i = 0; i < C::keyWords; ++i) {
      if (left[i] != right[i]) return false;
    }
    return true;
  }
};

/// What a keyshadow reader was last shown: each key that it believes to be in the table, with the version
/// that it was shown. Private to the reader.
///
/// A key's entry stands under the id of the row that it was last shown in, so a change of a key that stayed
/// where it was costs one line and no search. A key whose place is taken, since the row had gone to it before
/// the reader was told that the former key left, is a stray until a change of it finds the place free. An
/// index finds both.
template <class Row>
class Shadow {
 public:
  using Key = KeyWords<Row>;

  struct alignas(std::bit_ceil(sizeof(uint64_t) * (1 + Key::C::keyWords))) Entry {
    uint64_t version = 0;  ///< 0: no key here. `elsewhere`: shown, but in another file.
    uint64_t key[Key::C::keyWords];
  };
  static constexpr uint64_t elsewhere = versionCopyB;  // No row that lives has it.

  Shadow() { resize(64); }

  size_t size() const { return size_; }

  /// The entry under a row's id, or null. Valid until the next change.
  Entry const* home(uint32_t id) const {
    return id < homes_.size() && homes_[id].version != 0 ? &homes_[id] : nullptr;
  }
  /// The version of the key that was last shown in that row, 0 if none: a row with it holds nothing new.
  uint64_t version(uint32_t id) const { return id < homes_.size() ? homes_[id].version : 0; }
  /// Ids that have entries are below.
  uint32_t homes() const { return static_cast<uint32_t>(homes_.size()); }
  /// Strays by number, for passes over all of them, during which others may come and go; null if unused.
  uint32_t strays() const { return static_cast<uint32_t>(strays_.size()); }
  Entry const* stray(uint32_t number) const {
    return strays_[number].version != 0 ? &strays_[number] : nullptr;
  }

  /// For a look-up or a change of row `id` that is to come.
  void prefetch(uint32_t id) const {
    if (id < homes_.size()) Brine::prefetchForWriting(&homes_[id]);
  }
  /// For a key that has no entry yet.
  void prefetchIndex(Key const& key) const { index_.prefetch(key.hash); }

  /// The reader is shown the key's row. False if that is what it was last shown.
  bool show(uint64_t const* keyWords, uint32_t id, uint64_t version) {
    return show(keyWords, id, version, [](uint32_t, uint64_t) { return false; });
  }
  /// The same, unless a later row of the key is what it was last shown and `stands(id, version)` says that
  /// this is still there: of two rows of one key, which a damaged index lets come about, the later one
  /// counts.
  template <class Stands>
  bool show(uint64_t const* keyWords, uint32_t id, uint64_t version, Stands&& stands) {
    if (isHome(keyWords, id)) return std::exchange(homes_[id].version, version) != version;
    Key const key(keyWords);
    uint32_t const number = search(key);
    if (number != noRow) {
      Entry& known = entry(number);
      if (known.version == version) return false;
      if (known.version > version && number < strayNumber && stands(number, known.version)) return false;
      if (number >= strayNumber && this->version(id) != 0) {  // The row's place is taken: it stays a stray.
        known.version = version;
        return true;
      }
    }
    // First: it may run out of memory.
    add(key, id, version);
    if (number != noRow) remove(key, number);
    return true;
  }
  /// The reader is shown that the key, which most likely was in row `id`, is absent. False if it did not
  /// believe otherwise.
  bool erase(uint64_t const* keyWords, uint32_t id) {
    Key const key(keyWords);
    uint32_t const number = isHome(keyWords, id) ? id : search(key);
    if (number != noRow) remove(key, number);
    return number != noRow;
  }

  /// Room for that many keys, and rows up to that id.
  void reserve(size_t keys, uint32_t ids) {
    if (homes_.size() < ids) homes_.resize(ids);
    if (keys > uint64_t{index_.lineCount()} * rowsPerLine)
      resize(static_cast<uint32_t>(keys / rowsPerLine + 1));
  }

  /// The table's file is another one: what was shown stays shown, but its ids and versions mean nothing
  /// there.
  void forgetVersions() {
    std::vector<Entry> shown;
    shown.reserve(size_);
    freeStrays_.reserve(size_);
    for (auto const* entries : {&strays_, &homes_}) {
      for (Entry const& entry : *entries) {
        if (entry.version == 0) continue;
        shown.push_back(entry);
        shown.back().version = elsewhere;
      }
    }
    strays_ = std::move(shown);
    freeStrays_.clear();
    homes_.clear();
    resize(index_.lineCount());
  }

 private:
  static constexpr uint32_t rowsPerLine = 6;
  /// In the number of an entry: it is a stray's. Row ids are smaller.
  static constexpr uint32_t strayNumber = maxRows;

  Entry& entry(uint32_t number) {
    return number < strayNumber ? homes_[number] : strays_[number - strayNumber];
  }
  bool isHome(uint64_t const* keyWords, uint32_t id) const {
    return version(id) != 0 && Key::equal(keyWords, homes_[id].key);
  }
  uint32_t search(Key const& key) {
    return index_.find(key.hash, key.tag, [&](uint32_t number) { return key.equals(entry(number).key); }).id;
  }
  void add(Key const& key, uint32_t id, uint64_t version) {
    if (size_ >= uint64_t{index_.lineCount()} * rowsPerLine) resize(index_.lineCount() * 2);
    if (id >= homes_.size()) homes_.resize(id + size_t{1});
    uint32_t const number = homes_[id].version == 0 ? id : takeStray();
    Entry& made = entry(number);
    made.version = version;
    std::copy_n(key.words, Key::C::keyWords, made.key);
    index_.insert(key.hash, key.tag, number);
    ++size_;
  }
  void remove(Key const& key, uint32_t number) {
    index_.erase(key.hash, key.tag, number);
    entry(number).version = 0;
    --size_;
    if (number < strayNumber) return;
    freeStrays_.push_back(number);
    if (freeStrays_.size() < strays_.size()) return;
    // After a change of file there had been one for each key.
    std::vector<Entry>().swap(strays_);
    std::vector<uint32_t>().swap(freeStrays_);
  }
  uint32_t takeStray() {
    if (freeStrays_.empty()) {
      if (strays_.size() == strays_.capacity()) {
        // Both, so that a removal needs no memory.
        size_t const room = std::max<size_t>(16, 2 * strays_.size());
        freeStrays_.reserve(room);
        strays_.reserve(room);
      }
      strays_.emplace_back();
      return static_cast<uint32_t>(strays_.size() - 1) + strayNumber;
    }
    uint32_t const number = freeStrays_.back();
    freeStrays_.pop_back();
    return number;
  }
  void resize(uint32_t lineCount) {
    lines_.assign(uint64_t{lineCount} * Index::lineWords, 0);
    index_ = Index(lines_.data(), lineCount);
    enter(homes_, 0);
    enter(strays_, strayNumber);
  }
  void enter(std::vector<Entry> const& entries, uint32_t number) {
    for (Entry const& entered : entries) {
      if (entered.version != 0) {
        Key const key(entered.key);
        index_.insert(key.hash, key.tag, number);
      }
      ++number;
    }
  }

  std::vector<Entry> homes_;
  std::vector<Entry> strays_;
  std::vector<uint32_t> freeStrays_;
  size_t size_ = 0;
  std::vector<uint64_t> lines_;
  Index index_;
};

}  // namespace Brine
