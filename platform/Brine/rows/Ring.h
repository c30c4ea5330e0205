#pragma once

#include <cstdint>

#include "Brine/layout/Layout.h"
#include "Brine/layout/Word.h"

namespace Brine {

/// A change as the ring tells it.
struct RingEntry {
  uint64_t sequence = 0;
  uint32_t id = noRow;  ///< Anything, where the entry is damaged.
  uint64_t key[maxKeyWords];
};

/// The log of a table's last changes, in shared memory. One process enters changes, any number read them.
class Ring {
 public:
  Ring() = default;
  Ring(uint64_t* words, Layout const& layout)
      : words_(words), mask_(layout.ringEntries() - 1), stride_(layout.ringStride()) {}

  uint32_t entries() const { return static_cast<uint32_t>(mask_ + 1); }
  /// The entry's words; the first one is the sequence number of the change that it holds.
  uint64_t* entry(uint64_t sequence) const { return words_ + (sequence & mask_) * stride_; }

  /// Writer: enters a committed change.
  ///  1. Mark the entry as being written, relaxed: step 2 carries it along.
  ///  2. Store row id and key, release each: a reader that sees one of them sees the mark when it looks
  ///     again.
  ///  3. Store the sequence number, release: whoever sees it sees the entry whole, and the row's commit.
  [[gnu::always_inline]] void enter(uint64_t sequence, uint32_t id, uint64_t const* key,
                                    unsigned keyWords) const {
    uint64_t* const words = entry(sequence);
    storeRelaxed(words, uint64_t{0});
    storeRelease(words + 1, uint64_t{id});
    for (unsigned i = 0; i < keyWords; ++i) storeRelease(words + 2 + i, key[i]);
    storeRelease(words, sequence);
  }

  /// Reads the change of that number, or returns false where the ring has moved on.
  ///  1. Load the sequence number, acquire: the expected one means that the entry is whole, and its row
  ///     committed.
  ///  2. Load row id and key, acquire each.
  ///  3. Load the number again: unchanged means that step 2 saw nothing of a later change.
  [[gnu::always_inline]] bool read(uint64_t sequence, unsigned keyWords, RingEntry& change) const {
    uint64_t const* const words = entry(sequence);
    if (loadAcquire(words) != sequence) return false;
    change.id = static_cast<uint32_t>(loadAcquire(words + 1));
    for (unsigned i = 0; i < keyWords; ++i) change.key[i] = loadAcquire(words + 2 + i);
    if (loadRelaxed(words) != sequence) return false;
    change.sequence = sequence;
    return true;
  }

 private:
  uint64_t* words_ = nullptr;
  uint64_t mask_ = 0;
  uint64_t stride_ = 0;
};

}  // namespace Brine
