#include "Brine/recovery/Survey.h"

#include <algorithm>

#include "Brine/rows/Row.h"

namespace Brine {
namespace {

/// Enters a row that lives; false where a later row of its key is entered already.
[[gnu::always_inline]] inline bool enter(Segment const& segment, Index& index, uint32_t id,
                                         SurveyedRow const& row, Survey& found) {
  uint32_t twin = noRow;
  bool const isAlone = index.insertNew(row.hash, id, [&](uint32_t other) {
    uint64_t const* const key = segment.slot(id) + 2;
    bool const same = std::equal(key, key + segment.shape().keyWords, segment.slot(other) + 2);
    if (same) twin = other;
    return same;
  });
  if (isAlone || twin == noRow) return isAlone;
  if (loadRelaxed(segment.slot(twin)) > row.version) {
    found.drop(id, "an older one of its key");
    return false;
  }
  index.erase(row.hash, twin);
  found.drop(twin, "an older one of its key");
  found.columns.push_back({twin, noColumn});
  --found.rows;
  --found.rowsByWord[row.column];
  return index.insert(row.hash, id);
}

}  // namespace

void Survey::drop(uint32_t id, char const* what) {
  if (dropped.empty()) firstDamage = "row " + std::to_string(id) + " is " + what;
  dropped.push_back(id);
}

std::string Survey::damage() const {
  return dropped.empty() ? "" : firstDamage + ", " + std::to_string(dropped.size()) + " in all";
}

Survey surveyTable(Segment const& segment, Index index, uint32_t end) {
  constexpr uint32_t batchRows = 16;
  struct Batch {
    uint32_t first = 0;
    uint32_t end = 0;
    SurveyedRow rows[batchRows];
  };
  Batch batches[2];
  Survey found;
  // One batch ahead, so that its index lines arrive while the other's are written.
  auto const read = [&](Batch& batch, uint32_t first) {
    batch.first = batch.end = first;
    if (first == end) return;
    batch.end = std::min({end, first + batchRows, segment.pieceEnd(first)});
    segment.shape().survey(segment.slot(first), first, batch.end - first, segment.seed(), batch.rows);
    for (uint32_t id = first; id < batch.end; ++id) {
      SurveyedRow const& row = batch.rows[id - first];
      if (row.state == RowState::live) index.prefetchForWriting(row.hash);
    }
  };
  uint64_t lastVersion = 0;
  read(batches[0], 0);
  for (unsigned turn = 0; batches[turn].first < end; turn = 1 - turn) {
    Batch const& batch = batches[turn];
    read(batches[1 - turn], batch.end);
    Column const column = segment.column(batch.first);
    for (uint32_t id = batch.first; id < batch.end; ++id) {
      SurveyedRow const& row = batch.rows[id - batch.first];
      bool const isLive = row.state == RowState::live && enter(segment, index, id, row, found);
      ColumnWord const word = isLive ? row.column : noColumn;
      if (column.word(id) != word) found.columns.push_back({id, word});
      if (row.version != 0) found.end = id + 1;
      if (isLive) {
        ++found.rows;
        ++found.rowsByWord[row.column];
      } else if (row.state == RowState::dead) {
        found.free.push_back(id);
      } else {
        if (row.state == RowState::damaged) found.drop(id, "damaged");
        continue;
      }
      lastVersion = std::max(lastVersion, row.version);
    }
  }
  found.lastSequence = sequenceOf(lastVersion);
  return found;
}

}  // namespace Brine
