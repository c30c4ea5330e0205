#include "Brine/system/Claim.h"

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "Brine/Errors.h"
#include "Brine/segment/Segment.h"

namespace Brine {
namespace {

/// The process's claims. Not destroyed at exit: a table that outlives them must still find its own.
struct Claims {
  std::mutex mutex;
  std::vector<Claim*> list;
};
Claims& claims() {
  static auto* const claims = new Claims;
  return *claims;
}

struct flock wholeFile(short type) {
  struct flock region {};
  region.l_type = type;
  region.l_whence = SEEK_SET;
  return region;
}

}  // namespace

Claim::Claim(Folder const& folder, std::unique_ptr<Segment>& segment)
    : path_(folder.tablePath()), segment_(segment) {
  static bool const registered =
      ::pthread_atfork([] { claims().mutex.lock(); }, [] { claims().mutex.unlock(); }, &onForkChild) == 0;
  if (!registered) throw MountFailure(MountStatus::noResources, "fork handlers cannot be registered");
  std::lock_guard const guard(claims().mutex);
  struct stat status {};
  if (folder.lockStatus(status)) {
    bool const own = std::any_of(claims().list.begin(), claims().list.end(), [&](Claim const* claim) {
      return claim->device_ == status.st_dev && claim->inode_ == status.st_ino;
    });
    if (own) throw MountFailure(MountStatus::busy, "another table object of this process writes the table");
  }
  Fd lock = folder.openLock();
  struct flock region = wholeFile(F_WRLCK);
  if (sys.lock(lock.get(), F_SETLK, &region) != 0) {
    if (errno == EAGAIN || errno == EACCES)
      throw MountFailure(MountStatus::busy, "another process writes the table");
    throw MountFailure::ofErrno(errno, "locking the table");
  }
  // A lock on a file that lost its name keeps nobody out.
  if (!folder.isLock(lock.get())) throw MountFailure(MountStatus::busy, "the lock file was replaced");
  if (sys.status(lock.get(), &status) != 0) throw MountFailure::ofErrno(errno, "looking at the lock file");
  claims().list.push_back(this);
  device_ = status.st_dev;
  inode_ = status.st_ino;
  lock_ = std::move(lock);
  held_ = true;
}

Claim::~Claim() {
  std::lock_guard const guard(claims().mutex);
  std::erase(claims().list, this);
  // The table's mark and descriptor first: who waits for the lock must find nobody writing. A mapping that
  // the system refused to undo would keep the mark.
  struct flock none = wholeFile(F_UNLCK);
  if (held_) sys.lock(table_.get(), F_OFD_SETLK, &none);
  table_.reset();
  lock_.reset();
}

Fd Claim::tableIs(Fd table) {
  struct flock mark = wholeFile(F_WRLCK);
  marked_ = sys.lock(table.get(), F_OFD_SETLK, &mark) == 0;
  if (!marked_ && livenessOfMark(table.get()) == Liveness::alive)
    throw MountFailure(MountStatus::busy, "another process writes the table without its lock");
  std::lock_guard const guard(claims().mutex);
  return std::exchange(table_, std::move(table));
}

Liveness Claim::livenessOfMark(int table) {
  // Readers' locks would not be in the way of this one.
  struct flock mark = wholeFile(F_RDLCK);
  if (sys.lock(table, F_OFD_GETLK, &mark) != 0) return Liveness::unknown;
  return mark.l_type == F_WRLCK ? Liveness::alive : Liveness::ended;
}

void Claim::onForkChild() {
  for (Claim* const claim : claims().list) {
    claim->held_ = false;
    claim->lock_.reset();
    claim->table_.reset();
    // What it maps is not mapped here. Nothing is destroyed, since the table's thread may have been at work.
    static_cast<void>(claim->segment_.release());
  }
  claims().list.clear();
  claims().mutex.unlock();
}

}  // namespace Brine
