#pragma once

#include <cstdint>

#include "Brine/layout/Layout.h"
#include "Brine/layout/Word.h"

namespace Brine {

/// 64 rows of a column that lie side by side: bit i of `rows` stands for the row that is i behind `first`.
struct ColumnBlock {
  uint32_t first;
  uint64_t rows;
};

/// The column of one extent: the low and the high bytes of its rows' words. Each kind begins on a page, and
/// whole pages of it may be read.
///
/// A word is not read or written in one piece. A row that lives throughout a walk has both bytes in place
/// throughout, so the walk finds it; of others it may find anything, and looks at the row.
class Column {
 public:
  /// Rows that are searched at a time, at most.
  static constexpr uint32_t rowsPerSearch = 16384;
  /// Blocks that one search may find, at most.
  static constexpr unsigned blocksPerSearch = rowsPerSearch / 64;

  Column() = default;
  /// `first` is the extent's first id.
  Column(uint8_t* low, uint8_t* high, uint32_t first) : low_(low), high_(high), first_(first) {}

  ColumnWord word(uint32_t id) const {
    uint8_t const high = loadAcquire(high_ + (id - first_));
    return high == noColumn >> 8 ? noColumn
                                 : static_cast<ColumnWord>(high << 8 | loadAcquire(low_ + (id - first_)));
  }
  /// Writer. Where no row lives the low byte stays as it is.
  void wordIs(uint32_t id, ColumnWord word) const {
    if (word != noColumn) storeRelease(low_ + (id - first_), static_cast<uint8_t>(word));
    storeRelease(high_ + (id - first_), static_cast<uint8_t>(word >> 8));
  }

  /// Where a search that begins at an id of this extent ends, if nothing else ends it.
  static constexpr uint32_t searchEnd(uint32_t from) { return (from | (rowsPerSearch - 1)) + 1; }
  /// Finds the ids in [from, to) whose word is `word`, which is not `noColumn`; `to` is `searchEnd(from)` at
  /// most. Returns the number of blocks that it put into `found`, which has room for `blocksPerSearch`. Each
  /// has such rows.
  unsigned find(uint32_t from, uint32_t to, ColumnWord word, ColumnBlock* found) const;

 private:
  uint8_t* low_ = nullptr;
  uint8_t* high_ = nullptr;
  uint32_t first_ = 0;
};

}  // namespace Brine
