#include "Brine/Writer.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>

#include "Brine/Errors.h"

namespace Brine {

namespace {

std::string damageOf(std::vector<uint32_t> const& rows) {
  return "row " + std::to_string(rows.front()) + " is damaged, " + std::to_string(rows.size()) + " in all";
}

}  // namespace

Writer::Scan Writer::scan(Index index, uint32_t end) {
  struct Staged {
    uint32_t id;
    uint32_t hash;
    uint16_t tag;
    uint64_t version;
  };
  constexpr unsigned batch = 16;
  Layout const& layout = segment_.layout();
  RowShape const& shape = segment_.shape();
  unsigned const keyWords = layout.keyWords();
  uint64_t const seed = segment_.seed();
  Scan result;
  Staged staged[batch];
  for (uint32_t id = 0; id < end;) {
    unsigned count = 0;
    for (uint32_t const stop = std::min(end, id + batch); id < stop; ++id) {
      uint64_t words[maxRowWords];
      uint64_t version = 0;
      RowState const state =
          readRow(segment_.slot(id), id, seed, keyWords, layout.valueWords(), words, version);
      if (version != 0) result.end = id + 1;
      if (state == RowState::live && shape.isValid(words)) {
        uint32_t const hash = shape.hash(words);
        index.prefetch(hash);
        staged[count++] = {id, hash, Index::tagOf(words, keyWords), version};
      } else if (state == RowState::dead) {
        result.free.push_back(id);
        result.lastSequence = std::max(result.lastSequence, sequenceOf(version));
      } else {
        result.damaged.push_back(id);
      }
    }
    for (unsigned i = 0; i < count; ++i) {
      Staged const& row = staged[i];
      uint64_t const* const key = segment_.slot(row.id) + 2;
      uint32_t const twin = index.find(row.hash, row.tag, [&](uint32_t other) {
        return std::equal(key, key + keyWords, segment_.slot(other) + 2);
      });
      if (twin != noRow || !index.insert(row.hash, row.tag, row.id)) {
        result.damaged.push_back(row.id);
        continue;
      }
      ++result.rows;
      result.lastSequence = std::max(result.lastSequence, sequenceOf(row.version));
    }
  }
  return result;
}

void Writer::repairColumn(uint32_t end) {
  RowShape const& shape = segment_.shape();
  for (uint32_t id = 0; id < segment_.capacity(); ++id) {
    uint64_t const* const slot = segment_.slot(id);
    bool const live = id < end && (loadRelaxed(slot) & versionLive) != 0;
    uint32_t const value = live ? shape.column(slot + 2) : noColumn;
    // Right values are left alone: readers may be walking.
    if (loadRelaxed(segment_.column(id)) != value) storeRelease(segment_.column(id), value);
  }
}

void Writer::recover(bool repair) {
  Header* const header = segment_.header();
  uint32_t end = segment_.capacity();
  try {
    end = segment_.highWater();
  } catch (CorruptionError const& error) {
    if (!repair) throw MountFailure(MountStatus::corrupt, error.what());
  }
  segment_.trim();
  Scan found = scan(segment_.spareIndex(segment_.geometry().level), end);
  if (!found.damaged.empty() && !repair) {
    throw MountFailure(MountStatus::corrupt, damageOf(found.damaged));
  }
  sign();
  // The last change may have been of a row that is damaged now, so the head counts too where it can be
  // believed, and a stretch of numbers is left out: what readers saw under a number is never mistaken for
  // something new.
  uint64_t const head = loadRelaxed(&header->head);
  uint64_t sequence = std::max(found.lastSequence, loadRelaxed(&header->firstSequence));
  if (head > sequence && head - sequence < uint64_t{1} << 40) sequence = head;
  sequence += segment_.layout().ringEntries();
  for (uint32_t const id : found.damaged) {
    RowWriter row(segment_.slot(id), id, segment_.seed());
    row.prepareRemoval(++sequence);
    row.commit();
    found.free.push_back(id);
  }
  repairColumn(end);
  segment_.publishSpare(segment_.geometry().level);
  free_ = std::move(found.free);
  std::erase_if(free_, [&](uint32_t id) { return id >= found.end; });
  std::sort(free_.begin(), free_.end(), std::greater<>());
  nextFresh_ = found.end;
  highWater_ =
      std::min(segment_.capacity(), (nextFresh_ + highWaterStep - 1) / highWaterStep * highWaterStep);
  segment_.publishHighWater(highWater_);
  sequence_ = published_ = sequence;
  rows_ = found.rows;
  quiet_ = true;
  storeRelaxed(&header->dropped, loadRelaxed(&header->dropped) + found.damaged.size());
  storeRelaxed(&header->rows, rows_);
  storeRelease(&header->head, sequence);
  storeRelease(&header->quiet, sequence);
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

void Writer::grow() {
  unsigned const level = segment_.geometry().level + 1;
  segment_.addExtent();
  Scan const found = scan(segment_.spareIndex(level), nextFresh_);
  if (!found.damaged.empty()) damage_ = damageOf(found.damaged);
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
