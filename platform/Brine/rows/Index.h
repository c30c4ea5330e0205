#pragma once

#include <cstdint>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "Brine/layout/Layout.h"
#include "Brine/layout/Word.h"

namespace Brine {

/// The lanes of an index line that have the tag, bit i for lane i. The words are the line's first three.
/// Without a branch, since which lane it is cannot be foreseen, and a wrong guess would wait for the line.
[[gnu::always_inline]] inline uint32_t lanesWithTag(uint16_t tag, uint64_t first, uint64_t second,
                                                    uint64_t third) {
#if defined(__SSE2__)
  auto const number = [](uint64_t word) { return static_cast<long long>(word); };
  __m128i const wanted = _mm_set1_epi16(static_cast<short>(tag));
  __m128i const front = _mm_cmpeq_epi16(_mm_set_epi64x(number(second), number(first)), wanted);
  __m128i const back = _mm_cmpeq_epi16(_mm_cvtsi64_si128(number(third)), wanted);
  return static_cast<uint32_t>(_mm_movemask_epi8(_mm_packs_epi16(front, back))) & ((1U << lanesPerLine) - 1);
#else
  uint64_t const words[] = {first, second, third};
  uint32_t lanes = 0;
  for (unsigned lane = 0; lane < lanesPerLine; ++lane) {
    bool const isHit = static_cast<uint16_t>(words[lane / 4] >> (lane % 4 * 16)) == tag;
    lanes |= uint32_t{isHit} << lane;
  }
  return lanes;
#endif
}

/// Finds row ids by key: lines of ten lanes, each a 16-bit tag and an id, and a count of the keys that found
/// the line full and live behind it. A key lives in the first line, from its home line on, that had a free
/// lane; it stays in its lane until it is removed, and a removal leaves no mark. An absent key thus mostly
/// costs one line and no row.
///
/// The lines lie in shared memory, or in private memory for a reader's shadow. One process writes them; it
/// makes an entry before the row lives and clears it after the row died, and counts a line as passed before
/// the entry behind it is made. So at every instant, also where the writer died, a row that lives can be
/// found. Entries of rows that do not live are harmless: whoever follows one compares the key, inside the
/// row's version check.
class Index {
 public:
  Index() = default;
  Index(uint64_t* lines, uint32_t lineCount) : lines_(lines), lineCount_(lineCount) {}

  /// Words of a line.
  static constexpr unsigned lineWords = 8;

  /// What a search found, and where; `noRow` if nothing.
  struct Entry {
    uint32_t id = noRow;
    uint32_t line = 0;
    unsigned lane = 0;
  };

  /// What tells the keys of a line apart: the hash's low bits, since its high ones chose the line.
  static uint16_t tagOf(uint32_t hash) {
    auto const tag = static_cast<uint16_t>(hash);
    return tag == 0 ? uint16_t{1} : tag;
  }

  uint32_t lineCount() const { return lineCount_; }
  uint32_t homeLine(uint32_t hash) const { return static_cast<uint32_t>(uint64_t{hash} * lineCount_ >> 32); }
  uint64_t const* line(uint32_t number) const { return lines_ + uint64_t{number} * lineWords; }

  void prefetch(uint32_t hash) const { Brine::prefetch(line(homeLine(hash))); }
  void prefetchForWriting(uint32_t hash) const { Brine::prefetchForWriting(line(homeLine(hash))); }

  /// Calls `match(id)` for each entry with the hash's tag until it returns true; returns that entry. Entries
  /// may be of other keys, ids may be anything: `match` decides. Ends after each line was seen once, whatever
  /// they hold.
  template <class Match>
  Entry find(uint32_t hash, Match&& match) const {
    uint32_t number = homeLine(hash);
    for (uint32_t seen = 0; seen < lineCount_; ++seen, number = next(number)) {
      Entry const entry = findIn(number, hash, match);
      if (entry.id != noRow || passedOf(line(number)) == 0) return entry;
    }
    return {};
  }

  /// `find()` in the home line alone, where most keys are. There must be lines. With a `match` that is never
  /// true: visits the entries that a look-up most likely follows.
  template <class Match>
  [[gnu::always_inline]] Entry findHome(uint32_t hash, Match&& match) const {
    return findIn(homeLine(hash), hash, match);
  }

  /// Writer: takes out all entries.
  void clear() {
    for (uint64_t i = 0; i < uint64_t{lineCount_} * lineWords; ++i) storeRelease(lines_ + i, uint64_t{0});
  }

  /// Whether keys of that home line live behind it.
  bool reachesOn(uint32_t hash) const { return passedOf(line(homeLine(hash))) != 0; }

  /// Writer: makes an entry. The key must not have one. False if every lane of every line is taken, which the
  /// number of lines rules out unless they are damaged.
  [[gnu::always_inline]] bool insert(uint32_t hash, uint32_t id) {
    uint32_t const home = homeLine(hash);
    uint32_t number = home;
    unsigned lane = lanesPerLine;
    for (uint32_t seen = 0; seen < lineCount_; ++seen, number = next(number)) {
      if ((lane = freeLane(line(number))) < lanesPerLine) break;
    }
    if (lane == lanesPerLine) return false;
    for (uint32_t passed = home; passed != number; passed = next(passed)) addPassed(passed, +1);
    uint64_t* const words = lines_ + uint64_t{number} * lineWords;
    setId(words, lane, id);
    setTag(words, lane, tagOf(hash));
    return true;
  }

  /// Writer: makes an entry unless there is one of an id that `isTwin(id)` is true for; false then, and where
  /// `insert()` fails.
  template <class IsTwin>
  [[gnu::always_inline]] bool insertNew(uint32_t hash, uint32_t id, IsTwin&& isTwin) {
    uint64_t const* const words = line(homeLine(hash));
    uint64_t const last = loadRelaxed(words + 2);
    // Mostly nothing else can be of the key.
    bool const isAlone = last >> 32 == 0 && lanesOf(tagOf(hash), words, last) == 0;
    return (isAlone || find(hash, isTwin).id == noRow) && insert(hash, id);
  }

  /// Writer: clears the entry of that hash and id, if there is one.
  void erase(uint32_t hash, uint32_t id) {
    Entry const entry = find(hash, [id](uint32_t other) { return other == id; });
    if (entry.id != noRow) erase(hash, entry);
  }
  /// Writer: clears an entry that a search for a key of that hash has found.
  [[gnu::always_inline]] void erase(uint32_t hash, Entry const& entry) {
    setTag(lines_ + uint64_t{entry.line} * lineWords, entry.lane, 0);
    for (uint32_t passed = homeLine(hash); passed != entry.line; passed = next(passed)) addPassed(passed, -1);
  }

  // For the checker.
  static uint16_t tagOfLane(uint64_t const* words, unsigned lane) {
    return static_cast<uint16_t>(loadAcquire(words + lane / 4) >> (lane % 4 * 16));
  }
  static uint32_t idOfLane(uint64_t const* words, unsigned lane) {
    return static_cast<uint32_t>(loadAcquire(words + 3 + lane / 2) >> (lane % 2 * 32));
  }
  static uint32_t passedOf(uint64_t const* words) {
    return static_cast<uint32_t>(loadAcquire(words + 2) >> 32);
  }
  uint32_t next(uint32_t number) const { return number + 1 == lineCount_ ? 0 : number + 1; }

 private:
  template <class Match>
  [[gnu::always_inline]] Entry findIn(uint32_t number, uint32_t hash, Match&& match) const {
    uint64_t const* const words = line(number);
    for (uint32_t hits = lanesOf(tagOf(hash), words, loadAcquire(words + 2)); hits != 0; hits &= hits - 1) {
      unsigned const lane = laneOfHit(hits);
      uint32_t const id = idOfLane(words, lane);
      if (match(id)) return {id, number, lane};
    }
    return {};
  }
  [[gnu::always_inline]] static uint32_t lanesOf(uint16_t tag, uint64_t const* words, uint64_t last) {
    return lanesWithTag(tag, loadAcquire(words), loadAcquire(words + 1), last);
  }
  /// The lane of the lowest bit.
  static unsigned laneOfHit(uint32_t hits) { return static_cast<unsigned>(__builtin_ctz(hits)); }
  [[gnu::always_inline]] static unsigned freeLane(uint64_t const* words) {
    uint32_t const free = lanesOf(0, words, loadRelaxed(words + 2));
    return free == 0 ? lanesPerLine : laneOfHit(free);
  }
  [[gnu::always_inline]] static void setTag(uint64_t* words, unsigned lane, uint16_t tag) {
    unsigned const shift = lane % 4 * 16;
    uint64_t const old = loadRelaxed(words + lane / 4);
    storeRelease(words + lane / 4, (old & ~(uint64_t{0xFFFF} << shift)) | uint64_t{tag} << shift);
  }
  [[gnu::always_inline]] static void setId(uint64_t* words, unsigned lane, uint32_t id) {
    unsigned const shift = lane % 2 * 32;
    uint64_t const old = loadRelaxed(words + 3 + lane / 2);
    storeRelease(words + 3 + lane / 2, (old & ~(uint64_t{0xFFFFFFFF} << shift)) | uint64_t{id} << shift);
  }
  void addPassed(uint32_t number, int difference) {
    uint64_t* const word = lines_ + uint64_t{number} * lineWords + 2;
    storeRelease(word, loadRelaxed(word) + (static_cast<uint64_t>(static_cast<int64_t>(difference)) << 32));
  }

  uint64_t* lines_ = nullptr;
  uint32_t lineCount_ = 0;
};

}  // namespace Brine
