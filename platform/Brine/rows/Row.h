#pragma once

#include <cstdint>

#include "Brine/layout/Layout.h"
#include "Brine/layout/Word.h"
#include "Brine/rows/Crc32c.h"

/// One row slot: reading it whole or not at all, and the writer's steps that make this possible.
///
/// The functions take the widths as arguments; where these are constants they unroll, so the hot paths of a
/// typed table and the cold ones, which know the widths from the header, share one text.
namespace Brine {

/// The 32-bit check of a copy, over everything that says what the row is: where it lies, its version (so that
/// a damaged version that selects the other copy is found), its key and its value. Of a dead slot only place
/// and version count, since the key is rewritten while the slot is still dead.
///
/// A CRC-32C: every change of up to five bits is found, wherever they are, and every one within 32 bits that
/// lie side by side; of others one in four thousand million is not. It begins with half of the seed, and the
/// place. Every read makes it, so it takes an instruction a word where the processor has one; the version
/// comes last, which alone a writer must first read from the slot.
[[gnu::always_inline]] inline uint32_t rowCheck(uint64_t seed, uint32_t id, uint64_t version,
                                                uint64_t const* words, unsigned count) {
  auto const sumBy = [&](auto const& add) __attribute__((always_inline)) {
    uint64_t sum = static_cast<uint32_t>(seed) ^ id;
    for (unsigned i = 0; i < count; ++i) sum = add(sum, words[i]);
    return static_cast<uint32_t>(add(sum, version));
  };
  if (hasCrc32c()) [[likely]]
    return sumBy(addByProcessor);
  return sumBy(addByTable);
}

/// Words from copy A's value to the valid copy's, and bits from its check to theirs: computed, since no
/// branch on which copy it is could be foreseen.
constexpr uint64_t wordsToCopy(uint64_t version, unsigned valueWords) {
  return (version & versionCopyB) * valueWords / versionCopyB;
}
constexpr uint64_t bitsToCheck(uint64_t version) { return (version & versionCopyB) * 32 / versionCopyB; }

constexpr uint32_t checkOfCopy(uint64_t checks, uint64_t version) {
  return static_cast<uint32_t>(checks >> bitsToCheck(version));
}

constexpr uint64_t sequenceOf(uint64_t version) { return version >> versionSequenceShift; }

enum class RowState { live, dead, damaged };

/// A read gives up after this many commits of the same row in its way. No honest writer comes near.
inline constexpr unsigned maxRowRetries = 1U << 16;

/// Reads the slot at `slot`, row `id`, into `words` (key, then value). Live means: key, value and version
/// belong together and pass the check. `version` is set in every case.
///
/// Steps, against the writer's in `RowWriter`:
///  1. Load the version, acquire: what the writer stored before it committed that version is now visible.
///  2. Load check, key and the copy that the version names, acquire each: if one of them is of a later
///     change, then that change's predecessors, among them the commit that let the writer reuse this copy,
///     are visible to step 3.
///  3. Load the version again: unchanged means that none of step 2 was of a later change. Else start again;
///     the writer has committed meanwhile, so somebody made progress, and one that died has not.
///  4. Verify the check.
[[gnu::always_inline]] inline RowState readRow(uint64_t const* slot, uint32_t id, uint64_t seed,
                                               unsigned keyWords, unsigned valueWords, uint64_t* words,
                                               uint64_t& version) {
  for (unsigned attempt = 0; attempt < maxRowRetries; ++attempt) {
    uint64_t const seen = version = loadAcquire(slot);
    uint64_t const checks = loadAcquire(slot + 1);
    if ((seen & versionLive) == 0) {
      if (seen == 0) return RowState::dead;
      if (loadRelaxed(slot) != seen) continue;
      return rowCheck(seed, id, seen, nullptr, 0) == checkOfCopy(checks, seen) ? RowState::dead
                                                                               : RowState::damaged;
    }
    uint64_t const* const key = slot + 2;
    uint64_t const* const value = key + keyWords + wordsToCopy(seen, valueWords);
    for (unsigned i = 0; i < keyWords; ++i) words[i] = loadAcquire(key + i);
    for (unsigned i = 0; i < valueWords; ++i) words[keyWords + i] = loadAcquire(value + i);
    if (loadRelaxed(slot) != seen) continue;
    return rowCheck(seed, id, seen, words, keyWords + valueWords) == checkOfCopy(checks, seen)
               ? RowState::live
               : RowState::damaged;
  }
  return RowState::damaged;
}

/// Whether that key lives in the slot: for the writer, who alone changes it, or a hint.
[[gnu::always_inline]] inline bool livesIn(uint64_t const* slot, uint64_t const* key, unsigned keyWords) {
  bool same = (loadRelaxed(slot) & versionLive) != 0;
  for (unsigned i = 0; i < keyWords; ++i) same &= loadRelaxed(slot + 2 + i) == key[i];
  return same;
}

/// The writer's side of a slot. Only the claim's holder may use it.
///
/// Every change has one commit point, the store of the version word; a process killed before it has changed
/// nothing, one killed after it has changed everything. What is stored before it lies where no reader of the
/// present version looks: in the other copy, or, for a row that does not live yet, anywhere in the slot.
class RowWriter {
 public:
  RowWriter(uint64_t* slot, uint32_t id, uint64_t seed) : slot_(slot), id_(id), seed_(seed) {}

  /// Steps 1 and 2 of an insertion or overwrite; `commit()` is the last one. Between them an insertion stores
  /// the column and the index entry, which may point to a dead row but must never miss a live one.
  ///  1. Store the key (insertions only) and the value, into the copy that is not valid, release each: a
  ///     reader that sees one of them also sees the commit that made this copy invalid, and so starts again.
  ///  2. Store the check, release, for the same reason. The other copy's half stays as it is.
  [[gnu::always_inline]] void prepare(uint64_t sequence, uint64_t const* words, unsigned keyWords,
                                      unsigned valueWords, bool insertion) {
    version_ = nextVersion(sequence) | versionLive;
    uint64_t* const key = slot_ + 2;
    if (insertion) {
      for (unsigned i = 0; i < keyWords; ++i) storeRelease(key + i, words[i]);
    }
    uint64_t* const value = key + keyWords + wordsToCopy(version_, valueWords);
    for (unsigned i = 0; i < valueWords; ++i) storeRelease(value + i, words[keyWords + i]);
    storeCheck(rowCheck(seed_, id_, version_, words, keyWords + valueWords));
  }

  /// The same for a removal.
  [[gnu::always_inline]] void prepareRemoval(uint64_t sequence) {
    version_ = nextVersion(sequence);
    storeCheck(rowCheck(seed_, id_, version_, nullptr, 0));
  }

  ///  3. Store the version, release: whoever sees it sees steps 1 and 2 and what was stored between.
  [[gnu::always_inline]] void commit() { storeRelease(slot_, version_); }

 private:
  [[gnu::always_inline]] uint64_t nextVersion(uint64_t sequence) const {
    return sequence << versionSequenceShift | (~loadRelaxed(slot_) & versionCopyB);
  }
  [[gnu::always_inline]] void storeCheck(uint32_t check) {
    uint64_t const shift = bitsToCheck(version_);
    uint64_t const old = loadRelaxed(slot_ + 1) & ~(uint64_t{0xFFFFFFFFU} << shift);
    storeRelease(slot_ + 1, old | uint64_t{check} << shift);
  }

  uint64_t* slot_;
  uint32_t id_;
  uint64_t seed_;
  uint64_t version_ = 0;
};

}  // namespace Brine
