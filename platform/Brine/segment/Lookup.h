#pragma once

#include <algorithm>
#include <cstdint>
#include <span>

#include "Brine/Errors.h"
#include "Brine/rows/KeyWords.h"
#include "Brine/rows/Row.h"
#include "Brine/segment/Segment.h"

/// Finding a key's row among others that change, for readers and for the writer alike.
namespace Brine {

/// A live row, verified.
template <TableRow Row>
struct FoundRow {
  uint32_t id = noRow;
  uint64_t version = 0;
  uint64_t words[Codec<Row>::rowWords];
};

[[noreturn]] void throwRowDamage(uint32_t id, char const* what = "is damaged");

template <TableRow Row>
[[gnu::always_inline]] inline void decodeRow(uint64_t const* words, uint32_t id, Row& row) {
  if (!Codec<Row>::decode(words, row)) [[unlikely]]
    throwRowDamage(id, "holds values that no writer wrote");
}

/// `readRow()` of a row type.
template <TableRow Row>
[[gnu::always_inline]] inline RowState readSlot(uint64_t const* slot, uint32_t id, uint64_t seed,
                                                uint64_t* words, uint64_t& version) {
  using C = Codec<Row>;
  return readRow(slot, id, seed, C::keyWords, C::rowWords - C::keyWords, words, version);
}

/// Whether the key's row lives in slot `id`, which may be any number. `damaged` is set if the slot is.
template <TableRow Row>
[[gnu::always_inline]] inline bool holdsKey(Segment const& segment, uint32_t id, uint64_t const* key,
                                            FoundRow<Row>& found, uint32_t& damaged) {
  if (id >= segment.capacity()) return false;
  RowState const state = readSlot<Row>(segment.slot(id), id, segment.seed(), found.words, found.version);
  if (state == RowState::damaged) damaged = id;
  // The slot may have gone to another key since the entry was read, so the key that counts is the one that
  // was read with the version.
  return state == RowState::live && KeyWords<Row>::equal(key, found.words);
}

/// The part of `findRow()` for the few keys that are not in their home line. A row that is present throughout
/// is found: its index entry stays where it is, and a search that missed it because the table grew, so that
/// the entry is in another index, finds the geometry changed and starts anew.
template <TableRow Row>
[[gnu::noinline]] bool findRowOn(Segment& segment, KeyWords<Row> key, FoundRow<Row>& found) {
  constexpr unsigned maxGrowths = 64;
  for (unsigned attempt = 0; attempt < maxGrowths; ++attempt) {
    segment.follow();
    uint32_t damaged = noRow;
    found.id =
        segment.index()
            .find(key.hash, [&](uint32_t id) { return holdsKey(segment, id, key.words, found, damaged); })
            .id;
    if (found.id != noRow) return true;
    if (damaged != noRow) throwRowDamage(damaged);
    if (!segment.follow()) return false;
  }
  throw CorruptionError("the table's geometry never settles");
}

/// Finds the key's row. Raises `RowDamage` where it may be one that is damaged, `CorruptionError` and
/// `SpaceError` as `Segment::follow()`.
template <TableRow Row>
[[gnu::always_inline]] inline bool findRow(Segment& segment, KeyWords<Row> const& key, FoundRow<Row>& found) {
  segment.follow();
  uint32_t damaged = noRow;
  auto const isWanted = [&](uint32_t id) __attribute__((always_inline)) {
    return holdsKey(segment, id, key.words, found, damaged);
  };
  found.id = segment.index().findHome(key.hash, isWanted).id;
  if (found.id != noRow) [[likely]]
    return true;
  // By way of copies, so that what is found above can stay in registers.
  FoundRow<Row> later;
  bool const isFound = findRowOn(segment, key, later);
  found = later;
  return isFound;
}

/// A key that is used soon, and the row that most likely holds it: a hint.
template <TableRow Row>
struct StagedKey {
  KeyWords<Row> key = KeyWords<Row>(typename Codec<Row>::Key());
  uint32_t id = noRow;
};

inline constexpr unsigned stageBatch = 32;

/// Hints that these keys are used next, best some tens of them. `staged` holds the last ones; `fetch(id)` is
/// called for each row that most likely holds one.
template <TableRow Row, class Fetch>
void stageKeys(Segment const& segment, std::span<typename Codec<Row>::Key const> keys,
               StagedKey<Row> (&staged)[stageBatch], Fetch&& fetch) {
  Index const& index = segment.index();
  while (!keys.empty()) {
    auto const batch = keys.first(std::min<size_t>(stageBatch, keys.size()));
    keys = keys.subspan(batch.size());
    for (size_t i = 0; i < batch.size(); ++i) {
      staged[i] = {KeyWords<Row>(batch[i]), noRow};
      index.prefetch(staged[i].key.hash);
    }
    for (StagedKey<Row>& each : std::span(staged, batch.size())) {
      index.findHome(each.key.hash, [&](uint32_t id) {
        if (id >= segment.capacity()) return false;
        each.id = id;
        fetch(id);
        return false;
      });
    }
  }
}

}  // namespace Brine
