#pragma once

#include <string>

#include "Brine/Status.h"
#include "Orb/Errors.h"

/// The engine's errors. None leaves a table half changed: a refused operation has changed nothing.
namespace Brine {

/// The shared table holds what no writer could have written. The message names what is damaged.
class CorruptionError : public virtual Orb::Error {
 public:
  explicit CorruptionError(std::string const& message) : Error(message) {}
};

/// What is damaged is one row; the rest of the table can be used.
class RowDamage : public CorruptionError {
 public:
  explicit RowDamage(std::string const& message) : Error(message), CorruptionError(message) {}
};

/// A write through a table that is not mounted as writer, or by a child process that inherited the writer's
/// table.
class ReadOnlyError : public virtual Orb::Error {
 public:
  explicit ReadOnlyError(std::string const& message) : Error(message) {}
};

/// A call that the state of the table's mount does not allow.
class StateError : public virtual Orb::Error {
 public:
  explicit StateError(std::string const& message) : Error(message) {}
};

/// The table cannot grow: the file system or the memory is full, or the row limit is reached. Its rows are
/// intact, and rows can still be overwritten and removed.
class SpaceError : public virtual Orb::Error {
 public:
  explicit SpaceError(std::string const& message) : Error(message) {}
};

/// Why a mount or a recovery ends. `mount()` does not raise it, but turns it into its status and detail.
class MountFailure : public virtual Orb::Error {
 public:
  MountFailure(MountStatus status, std::string const& detail) : Error(detail), status_(status) {}
  /// The status that fits the error number of a failed system call; the detail reads "<what>: <error text>".
  static MountFailure ofErrno(int error, std::string const& what);

  MountStatus status() const { return status_; }

 private:
  MountStatus status_;
};

}  // namespace Brine
