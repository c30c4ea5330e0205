#include "Brine/write/Writer.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>

#include "Brine/Errors.h"

namespace Brine {
namespace {

std::string wordsOf(std::vector<uint32_t> const& rows, char const* what) {
  if (rows.empty()) return {};
  return "row " + std::to_string(rows.front()) + " is " + what + ", " + std::to_string(rows.size()) +
         " in all";
}

}  // namespace

std::string Writer::Scan::damage() const {
  return wordsOf(damaged, "damaged") + (damaged.empty() || twins.empty() ? "" : "; ") +
         wordsOf(twins, "an older one of its key");
}

/// Enters a row that lives into an index that is being made. False where it must not live: of two rows of one
/// key, which an index that was damaged meanwhile lets come about, the later one stays.
bool Writer::enter(Index& index, uint32_t id, SurveyedRow const& row, Scan& found) {
  uint32_t twin = noRow;
  bool const isAlone = index.insertNew(row.hash, row.tag, id, [&](uint32_t other) {
    uint64_t const* const key = segment_.slot(id) + 2;
    bool const same = std::equal(key, key + segment_.shape().keyWords, segment_.slot(other) + 2);
    if (same) twin = other;
    return same;
  });
  if (isAlone || twin == noRow) return isAlone;
  if (loadRelaxed(segment_.slot(twin)) > row.version) {
    found.twins.push_back(id);
    return false;
  }
  index.erase(row.hash, row.tag, twin);
  found.twins.push_back(twin);
  found.columns.push_back({twin, noColumn});
  --found.rows;
  return index.insert(row.hash, row.tag, id);
}

/// Verifies the rows below `end` and enters those that live into `index`, which is empty.
Writer::Scan Writer::scan(Index index, uint32_t end) {
  constexpr uint32_t batchRows = 16;
  struct Batch {
    uint32_t first = 0;
    uint32_t end = 0;
    SurveyedRow rows[batchRows];
  };
  Batch batches[2];
  Scan found;
  // One batch ahead, so that its index lines arrive while the other's are written.
  auto const survey = [&](Batch& batch, uint32_t first) {
    batch.first = batch.end = first;
    if (first == end) return;
    batch.end = std::min({end, first + batchRows, segment_.pieceEnd(first)});
    segment_.shape().survey(segment_.slot(first), first, batch.end - first, segment_.seed(), batch.rows);
    for (uint32_t id = first; id < batch.end; ++id) {
      SurveyedRow const& row = batch.rows[id - first];
      if (row.state == RowState::live) index.prefetchForWriting(row.hash);
    }
  };
  uint64_t lastVersion = 0;
  survey(batches[0], 0);
  for (unsigned turn = 0; batches[turn].first < end; turn = 1 - turn) {
    Batch const& batch = batches[turn];
    survey(batches[1 - turn], batch.end);
    Column const column = segment_.column(batch.first);
    for (uint32_t id = batch.first; id < batch.end; ++id) {
      SurveyedRow const& row = batch.rows[id - batch.first];
      bool const isLive = row.state == RowState::live && enter(index, id, row, found);
      ColumnWord const word = isLive ? row.column : noColumn;
      if (column.word(id) != word) found.columns.push_back({id, word});
      if (row.version != 0) found.end = id + 1;
      if (isLive) {
        ++found.rows;
      } else if (row.state == RowState::dead) {
        found.free.push_back(id);
      } else {
        if (row.state == RowState::damaged) found.damaged.push_back(id);
        continue;
      }
      lastVersion = std::max(lastVersion, row.version);
    }
  }
  found.lastSequence = sequenceOf(lastVersion);
  return found;
}

/// Right words are left alone: readers may be walking.
void Writer::repairColumn(Scan const& found, uint32_t end) {
  for (auto const& [id, value] : found.columns) segment_.column(id).wordIs(id, value);
  for (uint32_t id = end; id < segment_.capacity(); ++id) {
    Column const column = segment_.column(id);
    if (column.word(id) != noColumn) column.wordIs(id, noColumn);
  }
}

/// A number to go on from, where that of the rows' last change is `last`. The last change may have been of a
/// row that is damaged now, so the head counts too where it can be believed, and a stretch of numbers is left
/// out: what readers saw under a number is never mistaken for something new. Nor is it where the file is an
/// earlier copy that was put back: by the clock, all lives of a table begin behind what the others wrote.
uint64_t Writer::sequenceBehind(uint64_t last) const {
  Header const* const header = segment_.header();
  uint64_t const head = loadRelaxed(&header->head);
  uint64_t sequence = std::max({last, loadRelaxed(&header->firstSequence), sequenceByClock()});
  if (head > sequence && head - sequence < uint64_t{1} << 40) sequence = head;
  sequence += std::max<uint64_t>(segment_.layout().ringEntries(), publishStep);
  return sequence;
}

/// Commits the row as dead, whatever its slot holds.
void Writer::drop(uint32_t id, uint64_t sequence) {
  RowWriter row(segment_.slot(id), id, segment_.seed());
  row.prepareRemoval(sequence);
  row.commit();
}

void Writer::recover(bool repair) {
  segment_.secureSpace();
  uint32_t end = segment_.capacity();
  try {
    end = segment_.verifiedHighWater();
  } catch (CorruptionError const& error) {
    if (!repair) throw MountFailure(MountStatus::corrupt, error.what());
  }
  Scan found = scan(segment_.spareIndex(segment_.geometry().level), end);
  if (std::string const damage = found.damage(); !damage.empty() && !repair) {
    throw MountFailure(MountStatus::corrupt, damage);
  }
  found.damaged.insert(found.damaged.end(), found.twins.begin(), found.twins.end());
  // Here, since nothing may fail once rows are changed.
  found.free.reserve(found.free.size() + found.damaged.size());
  sign();
  sequence_ = sequenceBehind(found.lastSequence);
  for (uint32_t const id : found.damaged) {
    drop(id, ++sequence_);
    found.free.push_back(id);
  }
  repairColumn(found, end);
  segment_.publishSpare(segment_.geometry().level);
  free_ = std::move(found.free);
  std::erase_if(free_, [&](uint32_t id) { return id >= found.end; });
  std::sort(free_.begin(), free_.end(), std::greater<>());
  nextFresh_ = found.end;
  highWater_ =
      std::min(segment_.capacity(), (nextFresh_ + highWaterStep - 1) / highWaterStep * highWaterStep);
  rows_ = found.rows;
  publishRecovery(found.damaged.size());
}

void Writer::publishRecovery(uint64_t dropped) {
  Header* const header = segment_.header();
  published_ = sequence_;
  quiet_ = true;
  segment_.publishHighWater(highWater_);
  storeRelaxed(&header->dropped, loadRelaxed(&header->dropped) + dropped);
  storeRelaxed(&header->rows, rows_);
  // What stands in the ring is of an earlier life, or damaged, and readers compare everything anyway.
  for (uint64_t place = 0; place < segment_.layout().ringEntries(); ++place)
    storeRelaxed(segment_.ringEntry(place), uint64_t{0});
  // The head's entry bears its number, always; nobody reads more of this one.
  storeRelease(segment_.ringEntry(sequence_), sequence_);
  storeRelease(&header->head, sequence_);
  storeRelease(&header->quiet, sequence_);
  // Last: a reader that compares everything because of this sees all of the above.
  storeRelease(&header->incarnation, loadRelaxed(&header->incarnation) + 1);
  ring();
}

/// Before the first change of a recovery: a table whose recovery is cut short has a writer that died, not
/// none.
void Writer::sign() {
  Header* const header = segment_.header();
  struct stat status {};
  if (sys.status(claim_.table(), &status) != 0) throw MountFailure::ofErrno(errno, "looking at the table");
  ProcessIdentity const self = ProcessIdentity::self();
  storeRelaxed(&header->writerStart, self.start);
  storeRelaxed(&header->writerSpace, self.space);
  storeRelaxed(&header->writerFile, uint64_t{status.st_ino});
  storeRelaxed(&header->writerMarked, uint64_t{claim_.isMarked()});
  storeRelease(&header->writerProcess, self.number);
}

uint32_t Writer::takeId() {
  if (!free_.empty()) {
    uint32_t const id = free_.back();
    free_.pop_back();
    return id;
  }
  if (nextFresh_ == segment_.capacity()) grow();
  uint32_t const id = nextFresh_++;
  if (nextFresh_ > highWater_) {
    highWater_ = std::min(segment_.capacity(), highWater_ + highWaterStep);
    segment_.publishHighWater(highWater_);
  }
  return id;
}

/// No slot is free.
void Writer::grow() {
  unsigned const level = segment_.geometry().level + 1;
  try {
    segment_.addExtent();
  } catch (SpaceError const& error) {
    throw SpaceError(claim_.path() + ": " + error.what());
  }
  Scan const found = scan(segment_.spareIndex(level), nextFresh_);
  if (std::string damage = found.damage(); !damage.empty()) damage_ = std::move(damage);
  segment_.publishSpare(level);
}

void Writer::publish() {
  published_ = sequence_;
  storeRelaxed(&segment_.header()->rows, rows_);
  storeRelease(&segment_.header()->head, sequence_);
}

void Writer::endQuiet() {
  quiet_ = false;
  // Before the turn's first commit: a reader that has seen any of the turn does not take the writer for
  // quiet.
  storeRelease(&segment_.header()->quiet, uint64_t{0});
}

bool Writer::endTurn() {
  if (quiet_) return false;
  publish();
  quiet_ = true;
  storeRelease(&segment_.header()->quiet, sequence_);
  ring();
  return true;
}

void Writer::sayGoodbye() {
  endTurn();
  storeRelease(&segment_.header()->writerProcess, uint64_t{0});
}

void Writer::ring() {
  ++wakes_;
  uint64_t const value = loadRelaxed(&segment_.header()->doorbell) + 1;
  // Cannot fail for want of space, since it is reserved; a reader that was not woken is woken by the next
  // turn.
  [[maybe_unused]] ssize_t const written =
      sys.writeAt(claim_.table(), &value, sizeof value, offsetof(Header, doorbell));
}

}  // namespace Brine
