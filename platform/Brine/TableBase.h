#pragma once

#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <type_traits>
#include <vector>

#include "Brine/Codec.h"
#include "Brine/Errors.h"
#include "Brine/Mount.h"
#include "Brine/read/Reader.h"
#include "Brine/recovery/Check.h"
#include "Brine/segment/Mounted.h"
#include "Brine/write/Writer.h"

namespace Brine {

template <TableRow Row>
class TableReader;

/// The part of a table that does not know its row type: mount, status, statistics, check. Use `Table<Row>`.
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
  MountStatus mount(MountOptions const& options) { return begin(options, nullptr); }
  /// A reader of the table whose file's bytes are `image`, on a multiple of 8, which must outlive the mount.
  /// For tools and tests.
  MountStatus mountImage(std::span<std::byte const> image) { return begin({}, &image); }
  /// Ends the mount, or a reader's wait for one. A writer's turn is ended first. No effect if not mounted.
  void unmount();

  MountStatus mountStatus() const { return status_; }
  /// What is wrong, for people; empty if nothing is.
  std::string const& mountDetail() const { return detail_; }
  /// Of the last mount.
  MountOptions const& options() const { return options_; }
  Mode mode() const { return options_.mode; }
  bool isReadable() const { return mounted_.segment != nullptr; }
  /// True where this object may write: in the process that mounted it as writer, not in a forked child.
  bool isWritable() const { return writer_ && writer_->isHeld(); }

  /// Reader: a descriptor that is readable when `deliver()` has something to do; the same from mount to
  /// unmount. Else -1.
  int fd() const { return reader_ ? reader_->fd() : -1; }

  /// Writer mounted with `MountOptions::turns`: to be called when a turn of the owner's loop ends, before it
  /// waits. Publishes the turn's changes, wakes readers, at most once, and reports quiesced; what that hook
  /// writes is of the next turn. Costs nothing in a turn without changes.
  void endTurn();

  /// Writer: makes the changes of a scope one turn, however the table is mounted.
  class Turn {
   public:
    explicit Turn(TableBase& table) : table_(table) { ++table_.openTurns_; }
    ~Turn() {
      if (--table_.openTurns_ == 0 && !table_.options_.turns) table_.endTurn();
    }
    Turn(Turn const&) = delete;
    Turn& operator=(Turn const&) = delete;

   private:
    TableBase& table_;
  };

  /// Writer: verifies all rows, drops the damaged ones and makes everything else anew, as a mount with
  /// `repair` does. Raises `ReadOnlyError`, or `MountFailure` if the system refuses.
  void recover();

  Statistics statistics() const;
  /// Every invariant of the table, checked (see Brine/recovery/Check.h); what fails, at most 100 of them.
  /// Empty if not mounted. Beside a writer at work in another process only what holds at every instant is
  /// looked at.
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
  template <TableRow Row>
  friend class TableReader;

  explicit TableBase(RowShape const& shape) : shape_(shape) {}

  /// A file was taken on, or let go with the role.
  virtual void handleSegment() = 0;

  /// Raises `ReadOnlyError` "<what> to read-only Brine table" unless `isWritable()`.
  void requireWritable(char const* what) const {
    if (!isWritable()) [[unlikely]]
      throwReadOnly(what);
  }

  /// Reader: takes what happened to the file, and reports the status. False if nothing can be told now. May
  /// raise `std::bad_alloc`, and what hooks raise.
  bool look();
  /// Writer: a change was made, the first one of its turn.
  void changed();
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
  /// In a handler: what is being handled comes out of a hook, not from the table.
  bool isOfHook() const { return std::current_exception() == raisedByHook_; }
  void reportQuiesced(bool quiesced);
  void reportCorruption(std::string const& message);
  void setStatus(MountStatus status, std::string detail);

  RowShape const shape_;
  Mounted mounted_;
  // One of them where the table is mounted, none of an image.
  std::unique_ptr<Writer> writer_;
  std::unique_ptr<Reader> reader_;
  bool mustCompareAll_ = false;  ///< Reader: every row, at the next delivery.
  Statistics figures_;           ///< Those of this object.

 private:
  [[noreturn]] static void throwReadOnly(char const* what);
  MountStatus begin(MountOptions const& options, std::span<std::byte const> const* image);
  void end();

  MountOptions options_;
  MountStatus status_ = MountStatus::unmounted;
  std::string detail_;
  unsigned openTurns_ = 0;
  std::exception_ptr raisedByHook_;  ///< The last one.
};

}  // namespace Brine
