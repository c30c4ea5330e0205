#pragma once

#include <cstdint>
#include <string>

#include "Brine/Mount.h"
#include "Brine/segment/Mounted.h"
#include "Brine/system/Watch.h"

namespace Brine {

/// The role of a table's reader, whatever its rows are: it waits for the table, follows it to a new file and
/// sees its writer come and go. Writes nothing, and registers nowhere that the writer knows of.
class Reader {
 public:
  /// What became of the mount.
  struct Outlook {
    MountStatus status;
    std::string detail;
    /// Changes may have been made that were not published, or the file is another one.
    bool mustCompareAll = false;
    /// What is mounted cannot be brought up to date.
    bool isStuck = false;
  };

  /// Begins to wait for the table. `mounted`, empty, outlives the reader. Raises `MountFailure` where the
  /// system refuses that.
  Reader(RowShape const& shape, MountOptions const& options, Mounted& mounted);
  ~Reader() { mounted_.letGo(); }
  Reader(Reader const&) = delete;
  Reader& operator=(Reader const&) = delete;

  /// Readable where `look()` has something to say.
  int fd() const { return watch_.fd(); }
  /// Makes `fd()` readable, until the next `look()`.
  void kick() { watch_.kick(); }

  /// Takes what happened since the last look: mounts a table that is there, or came in another's place,
  /// follows growth, judges the writer. `status` is what the last look gave, `unmounted` at the first one.
  Outlook look(MountStatus status);

 private:
  void takeEvents(Outlook& outlook);
  void attach();
  bool isReplaced() const;
  void followWriter(WatchEvents const& events, Outlook& outlook);
  void judgeWriter(bool hasEnded, Outlook& outlook) const;

  RowShape const& shape_;
  MountOptions const& options_;
  Mounted& mounted_;
  Watch watch_;
  Fd file_;
  uint64_t incarnation_ = 0;
};

}  // namespace Brine
