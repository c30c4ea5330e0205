#include "Brine/system/Folder.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "Brine/Errors.h"

namespace Brine {
namespace {

constexpr int safeFlags = O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;

bool isPlain(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '-';
}

MountFailure notPermitted(std::string const& what) { return {MountStatus::notPermitted, what}; }

}  // namespace

std::string encodeFileName(std::string_view name) {
  constexpr char digits[] = "0123456789ABCDEF";
  std::string text;
  for (char const c : name) {
    if (isPlain(c)) {
      text += c;
    } else {
      auto const byte = static_cast<unsigned char>(c);
      text += '%';
      text += digits[byte >> 4];
      text += digits[byte & 15];
    }
  }
  return text;
}

Folder::Folder(std::string const& path, std::string_view tableName, bool create) : path_(path) {
  std::string const base = encodeFileName(tableName);
  if (base.empty()) throw notPermitted("a table needs a name");
  tableFile_ = tableFileOf(tableName);
  lockFile_ = base + ".lock";
  newFile_ = base + ".new";
  if (path.empty() || path.find('\0') != std::string::npos) throw notPermitted("a table needs a directory");
  bool made = false;
  if (create) {
    made = sys.makeFolder(path.c_str(), 0750) == 0;
    if (!made && errno != EEXIST) throw MountFailure::ofErrno(errno, "making the directory " + path);
  }
  folder_.reset(sys.openFile(AT_FDCWD, path.c_str(), O_RDONLY | O_DIRECTORY | safeFlags, 0));
  if (!folder_) throw MountFailure::ofErrno(errno, "opening the directory " + path);
  // The umask must neither lock the group out nor be needed to keep others out.
  if (made && sys.changeMode(folder_.get(), 0750) != 0) {
    throw MountFailure::ofErrno(errno, "setting the mode of the directory " + path);
  }
  struct stat status {};
  if (sys.status(folder_.get(), &status) != 0)
    throw MountFailure::ofErrno(errno, "looking at the directory " + path);
  if ((status.st_mode & 022) != 0)
    throw notPermitted("the directory " + path + " is writable for group or others");
  owner_ = status.st_uid;
  if (create && owner_ != ::geteuid())
    throw notPermitted("the directory " + path + " belongs to another user");
}

Fd Folder::openTable(bool writable) const { return openFile(tableFile_, writable ? O_RDWR : O_RDONLY); }

Fd Folder::openLock() const {
  Fd fd = makeFile(lockFile_, 0600);
  if (!fd) fd = openFile(lockFile_, O_RDWR);
  if (!fd) throw MountFailure(MountStatus::busy, "the lock file " + lockFile_ + " comes and goes");
  return fd;
}

Fd Folder::openNew() const {
  removeNew();
  Fd fd = makeFile(newFile_, 0640);
  if (!fd) throw notPermitted("the file " + newFile_ + " cannot be made");
  return fd;
}

void Folder::publishNew() const {
  if (sys.rename(folder_.get(), newFile_.c_str(), tableFile_.c_str()) != 0) {
    throw MountFailure::ofErrno(errno, "renaming " + newFile_ + " to " + tableFile_);
  }
}

void Folder::removeNew() const { sys.unlink(folder_.get(), newFile_.c_str()); }

bool Folder::isTable(int fd) const { return isNamed(fd, tableFile_); }
bool Folder::isLock(int fd) const { return isNamed(fd, lockFile_); }

bool Folder::lockStatus(struct stat& out) const {
  return sys.statusAt(folder_.get(), lockFile_.c_str(), &out) == 0;
}

/// Made exclusively, so that the mode is right from the start and a link planted under the name is not
/// followed; none where there is a file of the name.
Fd Folder::makeFile(std::string const& name, mode_t mode) const {
  Fd fd = openFile(name, O_RDWR | O_CREAT | O_EXCL, mode);
  if (fd && sys.changeMode(fd.get(), mode) != 0)
    throw MountFailure::ofErrno(errno, "setting the mode of " + name);
  return fd;
}

Fd Folder::openFile(std::string const& name, int flags, mode_t mode) const {
  Fd fd(sys.openFile(folder_.get(), name.c_str(), flags | safeFlags, mode));
  if (!fd) {
    if (errno == ENOENT || (errno == EEXIST && (flags & O_EXCL) != 0)) return fd;
    throw MountFailure::ofErrno(errno, "opening " + path_ + "/" + name);
  }
  checkFile(fd.get(), name);
  return fd;
}

void Folder::checkFile(int fd, std::string const& name) const {
  struct stat status {};
  if (sys.status(fd, &status) != 0) throw MountFailure::ofErrno(errno, "looking at " + path_ + "/" + name);
  if (!S_ISREG(status.st_mode)) throw notPermitted(path_ + "/" + name + " is not a regular file");
  if (status.st_uid != owner_)
    throw notPermitted(path_ + "/" + name + " belongs to another user than its directory");
  if (status.st_nlink > 1) throw notPermitted(path_ + "/" + name + " has more than one link");
  if ((status.st_mode & 022) != 0)
    throw notPermitted(path_ + "/" + name + " is writable for group or others");
}

bool Folder::isNamed(int fd, std::string const& name) const {
  struct stat mine {};
  struct stat named {};
  return sys.status(fd, &mine) == 0 && sys.statusAt(folder_.get(), name.c_str(), &named) == 0 &&
         mine.st_dev == named.st_dev && mine.st_ino == named.st_ino;
}

}  // namespace Brine
