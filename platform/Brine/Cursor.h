#pragma once

#include <algorithm>
#include <bit>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "Brine/read/TableReader.h"
#include "Brine/rows/Column.h"
#include "Brine/write/TableWriter.h"

namespace Brine {

template <TableRow Row>
class Table;

/// Walks over rows in the order of their ids: every row that is present from the walk's beginning to its end
/// once, one that comes or goes meanwhile once or not at all; a key whose row goes and comes back may be met
/// in both places. Rows may be written and removed during the walk, the current one too. Ends when the table
/// is unmounted or its file replaced.
template <TableRow Row>
class [[nodiscard]] Cursor {
 public:
  Cursor(Cursor const&) = delete;
  Cursor& operator=(Cursor const&) = delete;

  /// The next row, verified and copied, or null at the end. Valid until the next call or the cursor's end;
  /// so long, but for `inspect()`, look-ups of a reader give this row too. A reader's owner who was not told
  /// of the row is told before this returns. Raises `CorruptionError` for a damaged row, which the next call
  /// passes, and for a damaged header, which ends the walk; and what the owner's hook raises.
  Row const* next() { return step() ? show() : nullptr; }
  /// The same, but damage that the walk meets goes to `handle(message)` and ends it. What a hook raises is
  /// none of the walk's and leaves.
  template <class Handle>
  Row const* next(Handle&& handle) {
    try {
      if (!step()) return nullptr;
    } catch (CorruptionError const& error) {
      handle(error.what());
      return nullptr;
    }
    return show();
  }

 private:
  friend class Table<Row>;
  using C = Codec<Row>;

  /// `reader` and `writer` may be null, or both: for an onlooker.
  Cursor(Mounted const& mounted, uint32_t first, std::optional<uint32_t> column, TableReader<Row>* reader,
         TableWriter<Row>* writer)
      : mounted_(mounted),
        serial_(mounted.serial),
        reader_(reader),
        writer_(writer),
        audience_(reader != nullptr ? reader->audience() : 0),
        id_(first),
        column_(column) {
    if (writer != nullptr && column) expected_ = writer->writer().rowsOf(columnWordOf(*column));
  }

  /// Moves on to the next row; false at the end. What most rows do not need is called, and called last: they
  /// wait for no registers to be kept.
  bool step() {
    pin_.unlink();
    if (!mounted_.segment || mounted_.serial != serial_) return false;
    if (column_) return stepToMatch();
    return stepInPiece() || stepToPiece();
  }

  [[gnu::always_inline]] bool stepInPiece() {
    constexpr unsigned stride = Layout(16, 16, C::keyWords, C::rowWords).rowStride();
    // The processor's own prefetch stops at the end of a page.
    constexpr unsigned rowsAhead = 24;
    uint64_t const seed = mounted_.segment->seed();
    while (id_ < pieceEnd_) {
      uint64_t const* const slot = std::exchange(slot_, slot_ + stride);
      prefetch(slot + rowsAhead * stride);
      if (take(slot, id_++, seed, false)) return true;
    }
    return false;
  }

  [[gnu::noinline]] bool stepToPiece() {
    while (hasMore()) {
      if (stepInPiece()) return true;
    }
    return false;
  }

  [[gnu::noinline]] bool stepToMatch() {
    Segment const& segment = *mounted_.segment;
    uint64_t const seed = segment.seed();
    for (;;) {
      while (match_ == matchEnd_) {
        if (block_ == blockCount_ && id_ >= end_ && !hasMore()) {
          if (!findHidden()) return false;
        } else {
          gatherMatches();
        }
      }
      uint32_t const id = *match_++;
      if (take(segment.slot(id), id, seed, true)) return true;
    }
  }

  /// Reads the slot. False if no row lives there that the walk is to show.
  [[gnu::always_inline]] bool take(uint64_t const* slot, uint32_t id, uint64_t seed, bool isFiltered) {
    uint64_t words[C::rowWords];  // Its address goes nowhere, so it lies in registers.
    uint64_t version = 0;
    RowState const state = readSlot<Row>(slot, id, seed, words, version);
    if (state == RowState::dead) return false;
    if (state == RowState::damaged) throwRowDamage(id);
    // Another column value may have the same word, or the slot have gone to another row since it was read.
    if (isFiltered) {
      met_ += columnWordOf(C::column(words)) == columnWordOf(*column_);
      if (C::column(words) != *column_) return false;
    }
    decodeRow(words, id, row_);
    shownId_ = id;
    if (reader_ != nullptr) {
      shownVersion_ = version;
      for (unsigned i = 0; i < C::keyWords; ++i) shownKey_[i] = words[i];
    }
    return true;
  }

  [[gnu::always_inline]] Row const* show() {
    if (writer_ != nullptr) writer_->lastIdIs(shownId_);
    if (reader_ != nullptr) reader_->meet(shownKey_, shownId_, shownVersion_, row_, pin_, audience_);
    return &row_;
  }

  /// The writer at the end of a filtered walk: where it has met fewer rows than there were, a byte of the
  /// column may be damaged. Rows that came and went meanwhile have the same look, so this only looks. False
  /// if it finds none.
  bool findHidden() {
    if (met_ >= expected_) return false;
    expected_ = 0;
    hidden_ = writer_->writer().repairColumn();
    match_ = hidden_.data();
    matchEnd_ = match_ + hidden_.size();
    return match_ != matchEnd_;
  }

  /// Looks how far the table has grown, and where the next rows lie in one piece; false at the table's end.
  bool hasMore() {
    Segment& segment = *mounted_.segment;
    if (id_ >= end_) {
      // A walk whose end is damaged is over: whoever passes over damage must come to an end too.
      uint64_t const serial = std::exchange(serial_, 0);
      segment.follow();
      end_ = segment.highWater();
      serial_ = serial;
      if (id_ >= end_) return false;
    }
    pieceEnd_ = std::min(end_, segment.pieceEnd(id_));
    slot_ = segment.slot(id_);
    return true;
  }

  void gatherMatches() {
    Segment const& segment = *mounted_.segment;
    uint32_t* match = matches_;
    while (match != std::end(matches_)) {
      if (block_ == blockCount_) {
        if (id_ == end_) break;
        uint32_t const stop = std::min({end_, segment.pieceEnd(id_), Column::searchEnd(id_)});
        block_ = 0;
        blockCount_ = segment.column(id_).find(id_, stop, columnWordOf(*column_), blocks_);
        id_ = stop;
        continue;
      }
      ColumnBlock& block = blocks_[block_];
      uint32_t const id = block.first + static_cast<uint32_t>(std::countr_zero(block.rows));
      block.rows &= block.rows - 1;
      block_ += block.rows == 0;
      prefetch(segment.slot(id));
      *match++ = id;
    }
    match_ = matches_;
    matchEnd_ = match;
  }

  Mounted const& mounted_;
  uint64_t serial_;
  TableReader<Row>* reader_;
  TableWriter<Row>* writer_;
  uint32_t audience_;  ///< Observers who are to know of the rows that it meets.
  uint32_t id_;
  uint32_t end_ = 0;  ///< Below it ids are known to be in use; looked at again where the walk reaches it.
  // Not filtered: the slot of row `id_`, and the id behind the last one that lies in one piece with it.
  uint64_t const* slot_ = nullptr;
  uint32_t pieceEnd_ = 0;
  std::optional<uint32_t> column_;
  // Filtered: what a search of the column found and is not gathered yet; the next matches, gathered so that
  // their rows arrive while others are looked at.
  ColumnBlock blocks_[Column::blocksPerSearch];
  unsigned block_ = 0;
  unsigned blockCount_ = 0;
  uint32_t matches_[16];
  uint32_t const* match_ = nullptr;
  uint32_t const* matchEnd_ = nullptr;
  std::vector<uint32_t> hidden_;  ///< Matches too, that the writer found where the column was damaged.
  // Filtered, of the writer: rows of that column word that it knows of, and that the walk has met.
  uint32_t expected_ = 0;
  uint32_t met_ = 0;
  // The row that is shown.
  uint32_t shownId_ = noRow;
  uint64_t shownVersion_ = 0;
  uint64_t shownKey_[C::keyWords];
  Row row_;
  Pin<Row> pin_;  // After the row, which it points to.
};

}  // namespace Brine
