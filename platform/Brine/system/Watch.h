#pragma once

#include <string>

#include "Brine/system/Folder.h"

namespace Brine {

/// What happened to a table's file since the last look.
struct WatchEvents {
  bool rung = false;  ///< The writer rang the doorbell.
  bool writerClosed =
      false;  ///< The last thing to happen was that a writer closed the file, by its end or otherwise.
  bool renamed = false;  ///< A file came under the table's name, the name went, or who may read it changed.
  bool lost = false;     ///< There was more than the system keeps: anything may have happened.
};

/// A reader's wait for its writer, without registering anywhere that the writer knows of: the kernel watches
/// the file for the write that rings the doorbell and for its close, which comes also when the writer is
/// killed, and the directory for a new file of the table's name. The only user of calls that are Linux's own
/// (inotify, epoll, eventfd).
class Watch {
 public:
  /// Watches the directory `path`, or where it is missing the nearest one above that exists. Raises
  /// `MountFailure`.
  Watch(std::string const& path, std::string const& tableFile);

  /// Readable while there are events to take.
  int fd() const { return poll_.get(); }

  /// Watches the file that now bears the table's name, and no other one any more. Raises `MountFailure`.
  void watchTable();
  /// Watches no file.
  void unwatchTable();

  /// Makes `fd()` readable, until the next `take()`.
  void kick();
  /// Takes what has happened. `fd()` is not readable any more. Raises `MountFailure`; the next call gives
  /// what this one would have given.
  WatchEvents take();

 private:
  /// Watches the directory, if there is one, and the nearest one above it: the directory may be made, also
  /// anew.
  void watchFolder();
  int addFolder(std::string const& path);
  void replace(int& watch, int other);

  std::string path_;
  std::string tableFile_;
  Fd watch_;
  Fd event_;
  Fd poll_;
  int folderWatch_ = -1;
  int aboveWatch_ = -1;  ///< Only while the table is not there.
  int tableWatch_ = -1;
  bool kicked_ = false;
  WatchEvents pending_;
};

}  // namespace Brine
