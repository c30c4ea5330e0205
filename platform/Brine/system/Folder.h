#pragma once

#include <string>
#include <string_view>

#include "Brine/system/System.h"

namespace Brine {

/// `name` as one file name: letters, digits, '_' and '-' as they are, every other byte as '%' and two
/// hexadecimal digits. So no name leaves the directory, begins with a dot, or meets another table's file.
std::string encodeFileName(std::string_view name);

/// A table's three files in its directory, opened so that nobody without the right to write there can put
/// another file in their place: NAME.table (0640), NAME.lock (0600), and NAME.new while a table is made.
///
/// Every file must be a regular one, with one link, owned by the owner of the directory. The directory must
/// not be writable for group or others. All functions that can fail raise `MountFailure`.
class Folder {
 public:
  /// Opens the directory `path`. With `create` it is made (0750) where it is missing, and must belong to the
  /// process's user.
  Folder(std::string const& path, std::string_view tableName, bool create);

  /// The name of a table's file, without its directory.
  static std::string tableFileOf(std::string_view tableName) { return encodeFileName(tableName) + ".table"; }

  /// The path of the table's file.
  std::string tablePath() const { return path_ + "/" + tableFile_; }

  /// The table for reading, or reading and writing; an empty `Fd` if there is none.
  Fd openTable(bool writable) const;
  /// True if `fd` is the file that now bears the table's name.
  bool isTable(int fd) const;
  /// The lock file, made if it is missing.
  Fd openLock() const;
  /// True if `fd` is the file that now bears the lock's name.
  bool isLock(int fd) const;
  /// Status of the lock file without opening it; false if there is none.
  bool lockStatus(struct stat& out) const;

  /// An empty file under the temporary name; what a killed maker left there is removed. Claim holders only.
  Fd openNew() const;
  /// Gives the new file the table's name, replacing an older table in one step.
  void publishNew() const;
  /// Removes the new file, if there is one. Does not fail.
  void removeNew() const;

 private:
  Fd openFile(std::string const& name, int flags, mode_t mode = 0) const;
  Fd makeFile(std::string const& name, mode_t mode) const;
  void checkFile(int fd, std::string const& name) const;
  bool isNamed(int fd, std::string const& name) const;

  std::string path_;
  std::string tableFile_;
  std::string lockFile_;
  std::string newFile_;
  Fd folder_;
  uid_t owner_ = 0;
};

}  // namespace Brine
