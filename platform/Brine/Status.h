#pragma once

#include <iosfwd>
#include <string_view>

namespace Brine {

/// How a process takes part in a table. One process writes, any number read.
enum class Mode {
  /// Writes rows. One at a time: the claim is the process's and ends with it.
  writer,
  /// Looks up, walks and is told of changes. What it was told of it keeps in a local shadow of the keys,
  /// which makes what it is told exact.
  reader,
  /// The same, by the name of what it keeps. There is no reader without a shadow.
  keyshadow,
};

/// How the last mount ended, or what became of it since.
enum class MountStatus {
  unmounted,     ///< Not mounted, or unmounted by its owner.
  mounted,       ///< In use. A reader's writer is alive as far as is known.
  noTable,       ///< No writer has made the table yet. A reader mounts it as soon as there is one.
  busy,          ///< Another table object, here or in another process, is the writer.
  notPermitted,  ///< The directory or a file is not as it must be, or may not be opened.
  incompatible,  ///< The file holds another row type, or was written by another version of the layout.
  corrupt,       ///< The file is damaged beyond what the mount was allowed to repair.
  noSpace,       ///< The file system has no room for the table.
  noResources,   ///< The system refused memory, descriptors or watches, or failed in another way.
  writerGone,    ///< Reader: readable, but its writer has ended. Mounted again when there is a new one.
};

/// A word or two for people: "mounted", "no table", "writer gone". Details are in `TableBase::mountDetail()`.
std::string_view toText(MountStatus status);

/// True where rows can be read: `mounted` and `writerGone`.
constexpr bool isReadable(MountStatus status) {
  return status == MountStatus::mounted || status == MountStatus::writerGone;
}

std::ostream& operator<<(std::ostream& out, MountStatus status);

}  // namespace Brine
