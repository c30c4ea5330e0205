#pragma once

#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "Brine/Codec.h"
#include "Brine/Errors.h"
#include "Brine/Status.h"
#include "Brine/recovery/Check.h"
#include "Brine/segment/Segment.h"
#include "Brine/system/Watch.h"
#include "Brine/write/Writer.h"

namespace Brine {

struct MountOptions {
  /// Directory of the table's files. A writer makes it (0750) if it is missing; its parent must exist.
  /// Whoever owns it owns the tables in it; it must not be writable for group or others.
  std::string directory;
  /// The table's name, any bytes: it is encoded into one file name. Entities use their place in the
  /// directory.
  std::string name;
  Mode mode = Mode::reader;
  /// Writer: drop damaged rows, and begin an empty table where the header is damaged or of another layout or
  /// row type or the file is too short, instead of refusing the mount. `Statistics::dropped` counts.
  bool repair = false;
  /// Used when a table is made: slots to begin with (a power of two, 16 to 2^30) and entries of the change
  /// ring (a power of two, 16 to 2^24). Neither is a limit: the table doubles when it is full, and readers
  /// that the ring laps compare.
  uint32_t initialRows = 4096;
  uint32_t ringEntries = 8192;
};

/// Figures for people and tests; those of a running writer are a moment old.
struct Statistics {
  uint64_t rows = 0;
  uint64_t capacity = 0;
  uint64_t fileBytes = 0;
  uint64_t generation = 0;      ///< Tells files of one name apart.
  uint64_t incarnation = 0;     ///< Times that a writer has mounted this file.
  uint64_t changeSequence = 0;  ///< Number of the last published change.
  uint64_t dropped = 0;         ///< Damaged rows that recoveries dropped.
  bool writerAlive = false;
  bool quiesced = false;
  // Of this table object:
  uint64_t delivered = 0;    ///< Changes told to the owner.
  uint64_t laps = 0;         ///< Deliveries that compared the whole table since the ring was of no use.
  uint64_t corruptions = 0;  ///< Reports to the corruption hook.
  uint64_t wakes = 0;        ///< Writer: doorbells rung.
  uint64_t shadowKeys = 0;   ///< Keyshadow: keys shown.
};

struct DeliverResult {
  uint64_t changes = 0;
  /// Plain reader: the ring had moved on, or the file is another one, and removals may have been missed.
  /// Never set for a keyshadow reader.
  bool mayHaveMissedRemovals = false;
};

/// The part of a table that does not know its row type: files, mount, status, statistics, check. Use
/// `Table<Row>`.
///
/// A table object belongs to one thread at a time. Any number of objects, in one process or many, may have
/// the same table mounted, one of them as writer.
class TableBase {
 public:
  virtual ~TableBase();
  TableBase(TableBase const&) = delete;
  TableBase& operator=(TableBase const&) = delete;

  /// Mounts the table and returns how that ended; `mountDetail()` says it in words. A writer that does not
  /// get `mounted` may ask again later. A reader goes on by itself: it waits for the table to appear or to
  /// become usable, through `fd()` and `deliver()`. Nothing but a hook and a wrong call raise: `StateError`
  /// "NAME is already mounted, mountStatus:STATUS" while mounted or waiting.
  MountStatus mount(MountOptions const& options);
  /// A reader of the table whose file's bytes are `image`, on a multiple of 8, which must outlive the mount.
  /// For tools and tests.
  MountStatus mountImage(std::span<std::byte const> image, Mode mode = Mode::reader);
  /// Ends the mount, or a reader's wait for one. A writer's turn is ended first. No effect if not mounted.
  void unmount();

  MountStatus mountStatus() const { return status_; }
  /// What is wrong, for people; empty if nothing is.
  std::string const& mountDetail() const { return detail_; }
  /// Of the last mount.
  MountOptions const& options() const { return options_; }
  Mode mode() const { return options_.mode; }
  bool isReadable() const { return segment_ != nullptr; }
  /// True where this object may write: in the process that mounted it as writer, not in a forked child.
  bool isWritable() const { return writer_ != nullptr && claim_->isHeld(); }

  /// Reader: a descriptor that is readable when `deliver()` has something to do; the same from mount to
  /// unmount. Else -1.
  int fd() const { return watch_ ? watch_->fd() : -1; }

  /// Reader: brings the owner up to date through its hooks, on this thread: mount status, then changes, then
  /// quiesced. Does nothing for a writer, and when called from within a delivery. A hook may raise: what it
  /// was called for counts as told, the rest follows at the next call; a plain reader that was comparing the
  /// whole table begins that again. A hook must not destroy the table.
  ///
  /// `fd()` is readable once a second at least, and each time this looks for what no event tells: a directory
  /// that was made, moved or linked to, memory or descriptors that became free (`noResources`). Where `fd()`
  /// is -1, `mount()` again instead.
  virtual DeliverResult deliver() = 0;

  /// Writer: to be called when a turn of the owner's loop ends, before it waits. Publishes the turn's
  /// changes, wakes readers, at most once, and reports quiesced; what that hook writes is of the next turn.
  /// Costs nothing in a turn without changes.
  void endTurn();

  /// Writer: verifies all rows, drops the damaged ones and makes everything else anew, as a mount with
  /// `repair` does. Raises `ReadOnlyError`, or `MountFailure` if the system refuses.
  void recover();

  Statistics statistics() const;
  /// Every invariant of the table, checked (see Brine/recovery/Check.h); what fails, at most 100 of them. Empty if not
  /// mounted. Beside a writer elsewhere only what always holds is checked, and a fault reported if it is
  /// still there in repeated passes.
  std::vector<Violation> check() const;

  // Hooks, called on this thread; any may be empty.

  /// The writer became quiet (true): all its changes were told. Or began to change rows again, or the table
  /// was unmounted or cannot be followed (false). What it raises when a write begins a turn leaves that
  /// write, which is done.
  std::function<void(bool)> onQuiesced;
  /// `mountStatus()` changed.
  std::function<void()> onMountStatus;
  /// Damage was found where there is no caller to raise it to. Must not raise.
  std::function<void(std::string const&)> onCorruption;

 protected:
  explicit TableBase(RowShape const& shape);

  /// Raises `ReadOnlyError` "<what> to read-only Brine table" unless `isWritable()`.
  void requireWritable(char const* what) const {
    if (!isWritable()) throwReadOnly(what);
  }

  /// Reader: the file-level part of a delivery. Takes events, mounts or remounts if there is a new file,
  /// follows growth, reports the status. Returns false if there is nothing to read.
  bool beginDelivery();
  /// True if what `beginDelivery()` found demands that every row is compared.
  bool mustCompareAll() const { return compareAll_; }
  void comparedAll() { compareAll_ = false; }
  /// Calls a hook of the owner's, if there is one.
  template <class... Arguments>
  void call(std::function<void(Arguments...)> const& hook,
            std::type_identity_t<Arguments> const&... arguments) {
    if (!hook) return;
    try {
      hook(arguments...);
    } catch (...) {
      raisedByHook_ = std::current_exception();
      throw;
    }
  }
  /// In a handler: what is being handled comes from a hook, not from the table.
  bool isOfHook() const { return std::current_exception() == raisedByHook_; }
  void endDelivery() {
    delivering_ = false;
    raisedByHook_ = nullptr;
  }
  void reportQuiesced(bool quiesced);
  void reportCorruption(std::string const& message);
  void setStatus(MountStatus status, std::string detail);
  /// To be called where a delivery raises: reports what is the table's own, else raises it again.
  void onDeliveryRaised();

  /// A file is taken on, the one that was mounted last or another one. May raise `std::bad_alloc`, without
  /// effect then.
  virtual void onAttached(bool sameFile) = 0;
  virtual uint64_t shadowKeys() const = 0;

  RowShape const shape_;
  // In order of destruction, last first: the writer uses the segment, which uses the claim's or the reader's
  // file.
  std::unique_ptr<Claim> claim_;
  Fd file_;
  std::unique_ptr<Segment> segment_;
  std::unique_ptr<Writer> writer_;
  std::unique_ptr<Watch> watch_;
  /// Counts mounts and unmounts, so that loops with hooks in them notice.
  uint64_t mountSerial_ = 0;
  bool delivering_ = false;
  uint64_t delivered_ = 0;
  uint64_t laps_ = 0;

 private:
  [[noreturn]] static void throwReadOnly(char const* what);
  void requireUnmounted() const;
  void mountWriter();
  void openOrMake(Folder const& folder);
  void attachReader();
  void attach(Segment const& segment);
  void detach();
  bool isReplaced();
  Liveness writerLiveness() const;
  void followWriter(WatchEvents const& events);
  void judgeWriter(bool hasEnded);

  MountOptions options_;
  MountStatus status_ = MountStatus::unmounted;
  std::string detail_;
  uint64_t generation_ = 0;
  uint64_t incarnation_ = 0;
  uint64_t corruptions_ = 0;
  bool compareAll_ = false;
  bool successorFailed_ = false;
  bool quiesced_ = false;
  std::exception_ptr raisedByHook_;  ///< Until a delivery has ended, or the next mount.
};

}  // namespace Brine
