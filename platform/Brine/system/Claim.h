#pragma once

#include <sys/types.h>

#include <memory>

#include "Brine/system/Folder.h"

namespace Brine {

class Segment;

enum class Liveness { alive, ended, unknown };

/// The right to write a table, held by one table object of one process.
///
/// Between processes it is a record lock on the lock file: it ends with the process however that ends, a
/// forked child does not have it, and only who may write the lock file (0600) can take it. Record locks do
/// not tell the owners within one process apart and are lost when the process closes any descriptor of the
/// file; so a list of the process's own claims is asked first, before the file is opened.
///
/// The table itself bears a mark: a lock of the open file, which readers see. It ends with the last
/// descriptor and mapping, so with the process, and where the process executes another program.
///
/// A child made by fork() inherits neither the right nor the table's mappings: there `isHeld()` is false, and
/// the inherited descriptors are closed and the segment let go at once, so that the kernel reports the
/// writer's end when the writer ends.
class Claim {
 public:
  /// `segment`, which maps the table or is null, outlives it. Raises `MountFailure`, `busy` if another one
  /// holds it.
  Claim(Folder const& folder, std::unique_ptr<Segment>& segment);
  ~Claim();
  Claim(Claim const&) = delete;
  Claim& operator=(Claim const&) = delete;

  /// False in a child process that inherited the claim's object.
  bool isHeld() const { return held_; }
  /// The path of the table's file, for messages.
  std::string const& path() const { return path_; }
  /// The table's descriptor, kept here so that a forked child can close it, and marked as long as it is open.
  /// Returns the former one. Raises `MountFailure`, `busy` if the file bears another's mark, which happens
  /// where the lock file was removed.
  Fd tableIs(Fd table);
  int table() const { return table_.get(); }
  /// False where somebody else's lock is in the way of the mark. Readers can put one there.
  bool isMarked() const { return marked_; }
  /// Whether `table`, any descriptor of a table's file, shows the mark of somebody else.
  static Liveness livenessOfMark(int table);

 private:
  static void onForkChild();

  std::string path_;
  Fd lock_;
  Fd table_;
  std::unique_ptr<Segment>& segment_;
  // Of the lock file.
  dev_t device_ = 0;
  ino_t inode_ = 0;
  bool held_ = false;
  bool marked_ = false;
};

}  // namespace Brine
