#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "Brine/Mount.h"
#include "Brine/recovery/Survey.h"
#include "Brine/rows/Ring.h"
#include "Brine/segment/Mounted.h"
#include "Brine/system/Claim.h"

namespace Brine {

/// The role of a table's writer, whatever its rows are: the claim, and what it keeps to itself (which slots
/// are free, the last change's number, what it has published). All of it is made anew from the rows at each
/// mount, clean or not, so that there is one way to mount and nothing about it that only a crash would test.
/// Who has a writer may write, but for a forked child (`isHeld()`).
class Writer {
 public:
  /// Changes that may wait for a turn's end before readers can poll them.
  static constexpr uint64_t publishStep = 32;

  /// Claims the table, opens it or makes it, and recovers it. `mounted`, empty, outlives the writer. Raises
  /// `MountFailure`.
  Writer(RowShape const& shape, MountOptions const& options, Mounted& mounted, Folder const& folder);
  /// Ends the turn, says that there is no writer any more, and lets the file go.
  ~Writer();
  Writer(Writer const&) = delete;
  Writer& operator=(Writer const&) = delete;

  Segment& segment() const { return *segment_; }
  /// False in a child process that inherited it.
  bool isHeld() const { return claim_.isHeld(); }

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
  /// Enters the committed change of that number in the ring. Several times a turn, and at its end, the number
  /// is stored as the ring's head, release: readers that poll the head share its line with the writer, so it
  /// is not stored for each change.
  [[gnu::always_inline]] void changed(uint64_t sequence, uint32_t id, uint64_t const* key,
                                      unsigned keyWords) {
    sequence_ = sequence;
    ring_.enter(sequence, id, key, keyWords);
    if (sequence - published_ >= publishStep) publish();
  }
  /// A row of that column word has come, or gone.
  void rowCame(ColumnWord word) {
    ++rows_;
    ++rowsByWord_[word];
  }
  void rowWent(ColumnWord word) {
    --rows_;
    --rowsByWord_[word];
  }
  uint32_t rowsOf(ColumnWord word) const { return rowsByWord_[word]; }
  /// Puts right what is wrong in the column, and names it as damage; returns the rows that live and whose
  /// word was another one.
  std::vector<uint32_t> repairColumn();

  /// Publishes what the turn changed, says that the writer is quiet and wakes readers once. Does nothing, and
  /// returns false, in a turn without changes.
  bool endTurn();

  bool isQuiet() const { return quiet_; }
  uint64_t rows() const { return rows_; }
  /// The damage that growth came upon since the last call, in words; empty if none. Damaged rows stay where
  /// they are until a recovery drops them, but look-ups take them for absent.
  std::string takeDamage() { return std::exchange(damage_, {}); }

 private:
  bool open(RowShape const& shape, Folder const& folder, bool repair);
  void make(RowShape const& shape, Folder const& folder, MountOptions const& options);
  void take(RowShape const& shape, bool repair);
  uint64_t sequenceBehind(uint64_t last) const;
  void grow();
  void publish();
  void endQuiet();
  void wakeReaders();

  Mounted& mounted_;
  Claim claim_;
  Segment* segment_ = nullptr;
  Ring ring_;
  std::vector<uint32_t> free_;
  uint32_t nextFresh_ = 0;
  uint32_t highWater_ = 0;
  uint64_t sequence_ = 0;
  uint64_t published_ = 0;
  uint64_t rows_ = 0;
  std::vector<uint32_t> rowsByWord_;
  bool quiet_ = true;
  std::string damage_;
};

}  // namespace Brine
