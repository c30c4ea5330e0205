#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "Brine/rows/Row.h"
#include "Brine/segment/Segment.h"
#include "Brine/system/Claim.h"
#include "Brine/system/Process.h"

namespace Brine {

/// What a writer keeps to itself about the table that it writes: which slots are free, the last change's
/// number, what it has published. All of it is made anew from the rows at each mount, clean or not, so that
/// there is one way to mount and nothing about it that only a crash would test.
class Writer {
 public:
  /// Changes that may wait for a turn's end before readers can poll them.
  static constexpr uint64_t publishStep = 32;

  /// Both must outlive the writer.
  Writer(Segment& segment, Claim const& claim) : segment_(segment), claim_(claim) {}

  /// Verifies every row and makes index, column, free list and numbers anew. Damaged rows are dropped with
  /// `repair`; else they raise `MountFailure` (`corrupt`), and readers notice nothing. May be killed anywhere
  /// and run again.
  void recover(bool repair);

  /// A slot for a new row; grows the table if there is none. Raises `SpaceError`.
  uint32_t takeId();
  void releaseId(uint32_t id) { free_.push_back(id); }

  /// The number of the next change; the first one of a turn ends the quiet.
  uint64_t nextSequence() {
    if (quiet_) endQuiet();
    return sequence_ + 1;
  }
  /// Enters a committed change in the ring.
  ///  1. Mark the entry as being written, relaxed: step 2 carries it along.
  ///  2. Store row id and key, release each: a reader that sees one of them sees the mark when it looks
  ///     again.
  ///  3. Store the sequence number, release: whoever sees it sees the entry whole, and the row's commit.
  ///  4. Some times a turn, and at its end, store the number as the ring's head, release. Readers that poll
  ///     the head share its line with the writer, so it is not stored for each change.
  [[gnu::always_inline]] void changed(uint32_t id, bool removal, uint64_t const* key, unsigned keyWords) {
    uint64_t const sequence = ++sequence_;
    uint64_t* const entry = segment_.ringEntry(sequence);
    storeRelaxed(entry, uint64_t{0});
    storeRelease(entry + 1, uint64_t{id} | (removal ? ringRemoval : 0));
    for (unsigned i = 0; i < keyWords; ++i) storeRelease(entry + 2 + i, key[i]);
    storeRelease(entry, sequence);
    if (sequence - published_ >= publishStep) publish();
  }
  void rowsAdd(int difference) { rows_ += static_cast<uint64_t>(static_cast<int64_t>(difference)); }

  /// Publishes what the turn changed, says that the writer is quiet and wakes readers once. Does nothing, and
  /// returns false, in a turn without changes.
  bool endTurn();
  /// Says that there is no writer any more. Readers are woken by the close of the file.
  void sayGoodbye();

  bool isQuiet() const { return quiet_; }
  uint64_t rows() const { return rows_; }
  uint64_t sequence() const { return sequence_; }
  uint64_t wakes() const { return wakes_; }
  /// The damage that growth came upon since the last call, in words; empty if none. Damaged rows stay where
  /// they are until a recovery drops them, but look-ups take them for absent; and so do the older ones of rows
  /// of one key.
  std::string takeDamage() { return std::exchange(damage_, {}); }

 private:
  struct ColumnFix {
    uint32_t id;
    ColumnWord word;
  };
  /// What a pass over all rows found.
  struct Scan {
    std::vector<uint32_t> damaged;
    std::vector<uint32_t> twins;     ///< Rows of a key that a later one is of too.
    std::vector<uint32_t> free;      ///< Slots without a row.
    std::vector<ColumnFix> columns;  ///< Where the column is wrong, and what is right.
    uint64_t rows = 0;
    uint32_t end = 0;  ///< One above the last id that ever held a row.
    uint64_t lastSequence = 0;

    /// What is wrong with the rows, in words; empty if nothing.
    std::string damage() const;
  };

  Scan scan(Index index, uint32_t end);
  [[gnu::always_inline]] inline bool enter(Index& index, uint32_t id, SurveyedRow const& row, Scan& found);
  uint64_t sequenceBehind(uint64_t last) const;
  void drop(uint32_t id, uint64_t sequence);
  void repairColumn(Scan const& found, uint32_t end);
  void sign();
  void publishRecovery(uint64_t dropped);
  void grow();
  void publish();
  void endQuiet();
  void ring();

  Segment& segment_;
  Claim const& claim_;
  std::vector<uint32_t> free_;
  uint32_t nextFresh_ = 0;
  uint32_t highWater_ = 0;
  uint64_t sequence_ = 0;
  uint64_t published_ = 0;
  uint64_t rows_ = 0;
  uint64_t wakes_ = 0;
  bool quiet_ = true;
  std::string damage_;
};

}  // namespace Brine
