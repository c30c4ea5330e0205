#pragma once

#include <algorithm>
#include <bit>
#include <cstdint>
#include <utility>
#include <vector>

#include "Brine/Codec.h"
#include "Brine/rows/KeyWords.h"

namespace Brine {

/// What the owner of a reading table was told: each key that it believes to be in the table, with the version
/// that it was told of. Private to the reader.
///
/// A key's entry stands under the id of the row that it was last told in, so a change of a key that stayed
/// where it was costs one line and no search. A key whose place is taken, since the row had gone to it before
/// the former key was told to have left, is a stray until it is met again and finds the place free. An index
/// finds both.
template <class Row>
class Shadow {
 public:
  using Key = KeyWords<Row>;

  struct alignas(std::bit_ceil(sizeof(uint64_t) * (2 + Key::C::keyWords))) Entry {
    uint64_t version = 0;  ///< 0: no key here. `elsewhere`: told, but of another file.
    uint64_t key[Key::C::keyWords];
    uint32_t audience = 0;  ///< The last observer that was told of it; all before were told too.
  };
  /// What was told of a key before: version 0 if nothing.
  struct Former {
    uint64_t version = 0;
    uint32_t audience = 0;
  };
  static constexpr uint64_t elsewhere = versionCopyB;  // No row that lives has it.

  Shadow() { resize(64); }

  size_t size() const { return size_; }

  /// The entry under a row's id, or null. Valid until the next change.
  Entry const* home(uint32_t id) const { return version(id) != 0 ? &homes_[id] : nullptr; }
  /// The version of the key that was last told in that row, 0 if none: a row with it holds nothing new.
  uint64_t version(uint32_t id) const { return id < homes_.size() ? homes_[id].version : 0; }
  /// Whether all observers up to `audience` were told of that version of a key in that row.
  bool isTold(uint32_t id, uint64_t version, uint32_t audience) const {
    return this->version(id) == version && homes_[id].audience >= audience;
  }
  /// Ids that have entries are below.
  uint32_t homes() const { return static_cast<uint32_t>(homes_.size()); }
  /// Strays by number, for passes over all of them, during which others may come and go; null if unused.
  uint32_t strays() const { return static_cast<uint32_t>(strays_.size()); }
  Entry const* stray(uint32_t number) const {
    return strays_[number].version != 0 ? &strays_[number] : nullptr;
  }

  /// For a change of row `id` that is to come.
  void prefetch(uint32_t id) const {
    if (id < homes_.size()) Brine::prefetchForWriting(&homes_[id]);
  }
  /// For a key that has no entry yet.
  void prefetchIndex(Key const& key) const { index_.prefetch(key.hash); }

  /// The key's row is told to all observers up to `audience`. Returns what was told before.
  Former tell(uint64_t const* keyWords, uint32_t id, uint64_t version, uint32_t audience) {
    if (isHome(keyWords, id)) return replace(homes_[id], version, audience);
    Key const key(keyWords);
    uint32_t const number = search(key);
    // The row's place is taken: it stays a stray.
    if (number != noRow && number >= strayNumber && this->version(id) != 0)
      return replace(entry(number), version, audience);
    Former former;
    if (number != noRow) former = {entry(number).version, entry(number).audience};
    // First: it may run out of memory.
    add(key, id, version, audience);
    if (number != noRow) remove(key, number);
    return former;
  }

  /// The key, which most likely was in row `id`, is told to be absent. Returns what was told before.
  Former erase(uint64_t const* keyWords, uint32_t id) {
    Key const key(keyWords);
    uint32_t const number = isHome(keyWords, id) ? id : search(key);
    if (number == noRow) return {};
    Former const former{entry(number).version, entry(number).audience};
    remove(key, number);
    return former;
  }

  /// Room for that many keys, and rows up to that id.
  void reserve(size_t keys, uint32_t ids) {
    if (homes_.size() < ids) homes_.resize(ids);
    if (keys > uint64_t{index_.lineCount()} * rowsPerLine)
      resize(static_cast<uint32_t>(keys / rowsPerLine + 1));
  }

  /// The table's file is another one: what was told stays told, but its versions mean nothing there, and its
  /// ids no more than any others.
  void forgetVersions() {
    visit([](Entry& entry, uint32_t) { entry.version = elsewhere; });
  }

 private:
  static constexpr uint32_t rowsPerLine = 6;
  /// In the number of an entry: it is a stray's. Row ids are smaller.
  static constexpr uint32_t strayNumber = maxRows;

  Entry& entry(uint32_t number) {
    return number < strayNumber ? homes_[number] : strays_[number - strayNumber];
  }
  static Former replace(Entry& entry, uint64_t version, uint32_t audience) {
    return {std::exchange(entry.version, version), std::exchange(entry.audience, audience)};
  }
  bool isHome(uint64_t const* keyWords, uint32_t id) const {
    return version(id) != 0 && Key::equal(keyWords, homes_[id].key);
  }
  uint32_t search(Key const& key) {
    return index_.find(key.hash, [&](uint32_t number) { return Key::equal(key.words, entry(number).key); })
        .id;
  }
  void add(Key const& key, uint32_t id, uint64_t version, uint32_t audience) {
    if (size_ >= uint64_t{index_.lineCount()} * rowsPerLine) resize(index_.lineCount() * 2);
    if (id >= homes_.size()) homes_.resize(id + size_t{1});
    uint32_t const number = homes_[id].version == 0 ? id : takeStray();
    Entry& made = entry(number);
    made.version = version;
    made.audience = audience;
    std::copy_n(key.words, Key::C::keyWords, made.key);
    index_.insert(key.hash, number);
    ++size_;
  }
  void remove(Key const& key, uint32_t number) {
    index_.erase(key.hash, number);
    entry(number).version = 0;
    --size_;
    if (number >= strayNumber) entry(number).key[0] = std::exchange(freeStray_, number);
  }
  uint32_t takeStray() {
    if (freeStray_ != noRow)
      return std::exchange(freeStray_, static_cast<uint32_t>(entry(freeStray_).key[0]));
    strays_.emplace_back();
    return strays() - 1 + strayNumber;
  }
  void resize(uint32_t lineCount) {
    lines_.assign(uint64_t{lineCount} * Index::lineWords, 0);
    index_ = Index(lines_.data(), lineCount);
    visit([this](Entry& entry, uint32_t number) { index_.insert(Key(entry.key).hash, number); });
  }
  /// Calls `act(entry, number)` for each key.
  template <class Act>
  void visit(Act&& act) {
    for (uint32_t i = 0; i < homes() + strays(); ++i) {
      uint32_t const number = i < homes() ? i : i - homes() + strayNumber;
      if (entry(number).version != 0) act(entry(number), number);
    }
  }

  std::vector<Entry> homes_;
  std::vector<Entry> strays_;
  /// The first unused stray. Each has the number of the next one in its key.
  uint32_t freeStray_ = noRow;
  size_t size_ = 0;
  std::vector<uint64_t> lines_;
  Index index_;
};

}  // namespace Brine
