#include "Brine/recovery/Check.h"

#include <algorithm>

#include "Brine/Errors.h"
#include "Brine/rows/Row.h"

namespace Brine {
namespace {

constexpr size_t maxViolations = 100;

class Checker {
 public:
  Checker(Segment const& segment, bool tidy)
      : segment_(segment), layout_(segment.layout()), index_(segment.index()), tidy_(tidy) {}

  std::vector<Violation> run() {
    Header const* const header = segment_.header();
    geometry_ = loadAcquire(&header->geometry);
    if (!isSealed(segment_.seed(), geometryPlace, geometry_)) report("geometry seal", "the header");
    highWater_ = highWaterNow();
    passed_.resize(index_.lineCount());
    // Each row that the index lost is searched for in all of it, so the check of a great damage ends early.
    for (uint32_t id = 0; id < segment_.capacity() && !isFull(); ++id) checkRow(id);
    for (uint32_t number = 0; tidy_ && number < index_.lineCount() && !isFull(); ++number) checkLine(number);
    if (tidy_ && !isFull()) checkProgress();
    return std::move(violations_);
  }

 private:
  bool isFull() const { return violations_.size() >= maxViolations; }
  void report(char const* invariant, std::string detail) {
    if (!isFull()) violations_.push_back({invariant, std::move(detail)});
  }

  uint32_t highWaterNow() {
    try {
      return segment_.highWater();
    } catch (CorruptionError const&) {
      report("high-water seal", "the header");
      return segment_.capacity();
    }
  }

  void checkProgress() {
    uint64_t const head = loadAcquire(&segment_.header()->head);
    for (uint32_t place = 0; place < layout_.ringEntries(); ++place) {
      uint64_t const sequence = loadAcquire(segment_.ring().entry(place));
      if (sequence != 0 && (sequence > head || (sequence & (layout_.ringEntries() - 1)) != place)) {
        report("ring entry", "entry " + std::to_string(place));
      }
    }
    if (loadAcquire(segment_.ring().entry(head)) != head) report("ring entry", "the head's");
    if (loadAcquire(&segment_.header()->quiet) != head) report("sequence", "the head");
    if (newest_ > head) report("sequence", "a row is newer than the head");
    if (loadAcquire(&segment_.header()->rows) != rows_) {
      report("row count", std::to_string(rows_) + " rows live");
    }
  }

  /// A row as it is now, and its key if it lives.
  struct Seen {
    SurveyedRow row;
    uint64_t key[maxKeyWords];
  };
  Seen look(uint32_t id) const {
    Seen seen;
    uint64_t const* const slot = segment_.slot(id);
    segment_.shape().survey(slot, id, 1, segment_.seed(), &seen.row);
    for (unsigned i = 0; i < layout_.keyWords(); ++i) seen.key[i] = loadAcquire(slot + 2 + i);
    // A row that has changed meanwhile is another one.
    if (loadAcquire(slot) != seen.row.version) seen.row.state = RowState::dead;
    return seen;
  }

  void checkRow(uint32_t id) {
    Seen const seen = look(id);
    std::string const name = "row " + std::to_string(id);
    if (seen.row.state == RowState::damaged) return report("row check", name);
    if (seen.row.version != 0 && id >= highWater_ && id >= highWaterNow()) report("high water", name);
    newest_ = std::max(newest_, sequenceOf(seen.row.version));
    ColumnWord const column = segment_.column(id).word(id);
    if (seen.row.state == RowState::dead) {
      if (tidy_ && column != noColumn) report("column cleared", name);
      return;
    }
    ++rows_;
    uint32_t const twin = checkFound(id, seen);
    // If the table has grown meanwhile, the row may be of after that, and the index is another one.
    if (loadAcquire(segment_.slot(id)) != seen.row.version ||
        loadAcquire(&segment_.header()->geometry) != geometry_)
      return;
    if (column != seen.row.column) report("row column", name);
    if (twin == noRow) report("row found", name);
    if (twin != id && twin != noRow) report("key unique", name + " and row " + std::to_string(twin));
  }

  /// What the index gives for the row's key: its id, another row of the key, or `noRow`. Counts the lines
  /// that the key passed.
  uint32_t checkFound(uint32_t id, Seen const& seen) {
    uint32_t twin = id;
    Index::Entry const found = index_.find(seen.row.hash, [&](uint32_t other) {
      if (other >= segment_.capacity() || other == id) return other == id;
      Seen const met = look(other);
      bool const isSame = std::equal(seen.key, seen.key + layout_.keyWords(), met.key);
      if (met.row.state == RowState::live && isSame) twin = other;
      return false;
    });
    if (found.id == noRow) return noRow;
    for (uint32_t number = index_.homeLine(seen.row.hash); number != found.line; number = index_.next(number))
      ++passed_[number];
    return twin;
  }

  void checkLine(uint32_t number) {
    uint64_t const* const words = index_.line(number);
    std::string const name = "index line " + std::to_string(number);
    if (Index::passedOf(words) != passed_[number]) report("index count", name);
    for (unsigned lane = 0; lane < lanesPerLine; ++lane) {
      uint16_t const tag = Index::tagOfLane(words, lane);
      if (tag == 0) continue;
      uint32_t const id = Index::idOfLane(words, lane);
      SurveyedRow const row = id < segment_.capacity() ? look(id).row : SurveyedRow{};
      bool const isRight =
          row.state == RowState::live ? Index::tagOf(row.hash) == tag : row.state == RowState::damaged;
      if (!isRight) report("index entry", name + ", lane " + std::to_string(lane));
    }
  }

  Segment const& segment_;
  Layout const& layout_;
  Index const index_;
  bool const tidy_;
  uint64_t geometry_ = 0;
  uint64_t newest_ = 0;
  uint32_t highWater_ = 0;
  uint64_t rows_ = 0;
  std::vector<uint32_t> passed_;
  std::vector<Violation> violations_;
};

}  // namespace

std::vector<Violation> checkSegment(Segment const& segment, bool tidy) {
  return Checker(segment, tidy).run();
}

}  // namespace Brine
