#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "Brine/segment/Segment.h"

namespace Brine {

/// What a pass over all rows found.
struct Survey {
  std::vector<uint32_t> dropped;  ///< Damaged rows, and rows of a key that a later one is of too.
  std::vector<uint32_t> free;     ///< Slots without a row.
  /// The rows whose column word is wrong, and what is right.
  std::vector<std::pair<uint32_t, ColumnWord>> columns;
  /// How many rows that live have each column word.
  std::vector<uint32_t> rowsByWord = std::vector<uint32_t>(columnWords);
  uint64_t rows = 0;
  uint32_t end = 0;  ///< One above the last id that ever held a row.
  uint64_t lastSequence = 0;
  std::string firstDamage;

  void drop(uint32_t id, char const* what);

  /// What is wrong with the rows, in words; empty if nothing.
  std::string damage() const;
};

/// Verifies the rows below `end` and enters those that live into `index`, which is empty. Of two rows of one
/// key, which an index that is damaged while it is in use lets come about, only the later one is entered.
Survey surveyTable(Segment const& segment, Index index, uint32_t end);

}  // namespace Brine
