#include "Brine/write/Writer.h"

#include <algorithm>
#include <cstddef>
#include <functional>

#include "Brine/Errors.h"
#include "Brine/rows/Row.h"

namespace Brine {

Writer::Writer(RowShape const& shape, MountOptions const& options, Mounted& mounted, Folder const& folder)
    : mounted_(mounted), claim_(folder, mounted.segment) {
  try {
    if (!open(shape, folder, options.repair)) make(shape, folder, options);
  } catch (...) {
    folder.removeNew();
    mounted_.letGo();
    throw;
  }
}

Writer::~Writer() {
  if (isHeld()) {
    endTurn();
    // Readers are woken by the close of the file.
    storeRelease(&segment_->header()->writer, uint64_t{0});
  }
  mounted_.letGo();
}

/// Opens the table that is there; false if there is none, or with `repair` none that can be used.
bool Writer::open(RowShape const& shape, Folder const& folder, bool repair) {
  Fd file = folder.openTable(true);
  if (!file) return false;
  try {
    claim_.tableIs(std::move(file));
    take(shape, repair);
    recover(repair);
    return true;
  } catch (MountFailure const& failure) {
    bool const isUseless =
        failure.status() == MountStatus::corrupt || failure.status() == MountStatus::incompatible;
    if (!repair || !isUseless) throw;
    mounted_.segment.reset();
    return false;
  }
}

/// Makes an empty table, in the place of one that cannot be used.
void Writer::make(RowShape const& shape, Folder const& folder, MountOptions const& options) {
  Fd file = folder.openNew();
  Segment::format(shape, file.get(), options.initialRows, options.ringEntries);
  Fd const replaced = claim_.tableIs(std::move(file));  // Marked until the new one has its name.
  take(shape, false);
  recover(false);
  folder.publishNew();
}

void Writer::take(RowShape const& shape, bool repair) {
  mounted_.segmentIs(std::make_unique<Segment>(shape, claim_.table(), true, repair), claim_.table());
  segment_ = mounted_.segment.get();
  ring_ = segment_->ring();
}

/// A number to go on from, where that of the rows' last change is `last`. The last change may have been of a
/// row that is damaged now, so the head counts too where it can be believed, and a stretch of numbers is left
/// out: what readers saw under a number is never mistaken for something new. Nor is it where the file is an
/// earlier copy that was put back: by the clock, all lives of a table begin behind what the others wrote.
uint64_t Writer::sequenceBehind(uint64_t last) const {
  Header const* const header = segment_->header();
  uint64_t const head = loadRelaxed(&header->head);
  uint64_t sequence = std::max({last, loadRelaxed(&header->firstSequence), sequenceByClock()});
  if (head > sequence && head - sequence < uint64_t{1} << 40) sequence = head;
  return sequence + std::max<uint64_t>(ring_.entries(), publishStep);
}

std::vector<uint32_t> Writer::repairColumn() {
  std::vector<uint32_t> hidden;
  for (uint32_t id = 0; id < nextFresh_; ++id) {
    SurveyedRow row;
    segment_->shape().survey(segment_->slot(id), id, 1, segment_->seed(), &row);
    // Of a damaged row nobody knows.
    if (row.state == RowState::damaged) continue;
    bool const isLive = row.state == RowState::live;
    ColumnWord const word = isLive ? row.column : noColumn;
    if (segment_->column(id).word(id) == word) continue;
    segment_->column(id).wordIs(id, word);
    damage_ = "the column's word of row " + std::to_string(id) + " was damaged";
    if (isLive) hidden.push_back(id);
  }
  return hidden;
}

void Writer::recover(bool repair) {
  segment_->secureSpace();
  uint32_t const end = segment_->trustedHighWater(repair);
  Survey found = surveyTable(*segment_, segment_->spareIndex(segment_->geometry().level), end);
  if (std::string const damage = found.damage(); !damage.empty() && !repair) {
    throw MountFailure(MountStatus::corrupt, damage);
  }
  // Here, since nothing may fail once rows are changed.
  found.free.reserve(found.free.size() + found.dropped.size());
  // Before the first change: a table whose recovery is cut short has a writer that died, not none.
  storeRelease(&segment_->header()->writer, claim_.isMarked() ? markedWriter : unmarkedWriter);
  sequence_ = sequenceBehind(found.lastSequence);
  for (uint32_t const id : found.dropped) {
    // Dead, whatever its slot holds.
    RowWriter row(segment_->slot(id), id, segment_->seed());
    row.prepareRemoval(++sequence_);
    row.commit();
    found.free.push_back(id);
  }
  for (auto const& [id, word] : found.columns) segment_->column(id).wordIs(id, word);
  segment_->clearColumn(end, segment_->capacity());
  segment_->publishSpare(segment_->geometry().level);
  free_ = std::move(found.free);
  std::erase_if(free_, [&](uint32_t id) { return id >= found.end; });
  std::sort(free_.begin(), free_.end(), std::greater<>());
  nextFresh_ = found.end;
  highWater_ =
      std::min(segment_->capacity(), (nextFresh_ + highWaterStep - 1) / highWaterStep * highWaterStep);
  rows_ = found.rows;
  rowsByWord_ = std::move(found.rowsByWord);
  Header* const header = segment_->header();
  published_ = sequence_;
  quiet_ = true;
  segment_->publishHighWater(highWater_);
  storeRelaxed(&header->dropped, loadRelaxed(&header->dropped) + found.dropped.size());
  storeRelaxed(&header->rows, rows_);
  storeRelaxed(&header->mountHead, sequence_);
  // What stands in the ring is of an earlier life, or damaged, and readers compare everything anyway.
  for (uint64_t place = 0; place < ring_.entries(); ++place) storeRelaxed(ring_.entry(place), uint64_t{0});
  // The head's entry bears its number, always; nobody reads more of this one.
  storeRelease(ring_.entry(sequence_), sequence_);
  storeRelease(&header->head, sequence_);
  storeRelease(&header->quiet, sequence_);
  // Last: a reader that compares everything because of this sees all of the above.
  storeRelease(&header->incarnation, loadRelaxed(&header->incarnation) + 1);
  wakeReaders();
}

uint32_t Writer::takeId() {
  if (!free_.empty()) {
    uint32_t const id = free_.back();
    free_.pop_back();
    return id;
  }
  if (nextFresh_ == segment_->capacity()) grow();
  uint32_t const id = nextFresh_++;
  if (nextFresh_ > highWater_) {
    highWater_ = std::min(segment_->capacity(), highWater_ + highWaterStep);
    segment_->publishHighWater(highWater_);
  }
  return id;
}

/// No slot is free.
void Writer::grow() {
  unsigned const level = segment_->geometry().level + 1;
  try {
    segment_->addExtent();
  } catch (SpaceError const& error) {
    throw SpaceError(claim_.path() + ": " + error.what());
  }
  Survey const found = surveyTable(*segment_, segment_->spareIndex(level), nextFresh_);
  // In words before anything is published, since this may run out of memory.
  if (std::string damage = found.damage(); !damage.empty()) damage_ = std::move(damage);
  segment_->publishSpare(level);
}

void Writer::publish() {
  published_ = sequence_;
  storeRelaxed(&segment_->header()->rows, rows_);
  storeRelease(&segment_->header()->head, sequence_);
}

void Writer::endQuiet() {
  quiet_ = false;
  // Before the turn's first commit: a reader that has seen any of the turn does not take the writer for
  // quiet.
  storeRelease(&segment_->header()->quiet, uint64_t{0});
}

bool Writer::endTurn() {
  if (quiet_) return false;
  publish();
  quiet_ = true;
  storeRelease(&segment_->header()->quiet, sequence_);
  wakeReaders();
  return true;
}

void Writer::wakeReaders() {
  uint64_t const value = loadRelaxed(&segment_->header()->doorbell) + 1;
  // Cannot fail for want of space, since it is reserved; a reader that was not woken is woken by the next
  // turn.
  [[maybe_unused]] ssize_t const written =
      sys.writeAt(claim_.table(), &value, sizeof value, offsetof(Header, doorbell));
}

}  // namespace Brine
