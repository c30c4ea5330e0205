#pragma once

#include <cstdint>
#include <string>

#include "Brine/system/Folder.h"

namespace Brine {

/// What happened to a table's file since the last look.
struct WatchEvents {
  bool rung = false;  ///< The writer rang the doorbell.
  bool writerClosed =
      false;  ///< The last thing to happen was that a writer closed the file, by its end or otherwise.
  bool renamed = false;   ///< A file came under the table's name, the name went, or who may read it changed.
  bool mustLook = false;  ///< Anything may have happened: a second has passed, a kick, or events were lost.
};

/// A reader's wait for its writer, without registering anywhere that the writer knows of: the kernel watches
/// the file for the write that rings the doorbell and for its close, which comes also when the writer is
/// killed, and the directory for a new file of the table's name. What no such event tells (a directory that
/// is made, moved or reached through another link, a writer whose end nobody announced, memory that is free
/// again) a look once a second finds. The only user of calls that are Linux's own (inotify, epoll, timerfd).
class Watch {
 public:
  /// Watches the directory `path` as soon as there is one. Raises `MountFailure`, `noResources`.
  Watch(std::string const& path, std::string const& tableFile);

  /// Readable while there are events to take, and each second.
  int fd() const { return poll_.get(); }

  /// Watches the file that now bears the table's name, and no other one any more. Raises `MountFailure`.
  void watchTable();

  /// Makes `fd()` readable; the next `take()` says that anything may have happened.
  void kick() { lookAt(1); }
  /// Takes what has happened. `fd()` is not readable any more.
  WatchEvents take();

 private:
  bool watchFolder();
  void lookAt(uint64_t time);

  std::string path_;
  std::string tableFile_;
  Fd watch_;
  Fd timer_;
  Fd poll_;
  int folderWatch_ = -1;
  int tableWatch_ = -1;
  uint64_t nextLook_ = 0;
};

}  // namespace Brine
