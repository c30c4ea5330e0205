#include "Brine/segment/Mounted.h"

#include "Brine/system/Claim.h"

namespace Brine {

Liveness Mounted::writerLiveness() const {
  Header const* const header = segment->header();
  ProcessIdentity writer;
  writer.number = loadAcquire(&header->writerProcess);
  writer.start = loadAcquire(&header->writerStart);
  writer.space = loadAcquire(&header->writerSpace);
  if (writer.number == 0) return Liveness::ended;
  struct stat status {};
  if (file < 0 || sys.status(file, &status) != 0) return Liveness::unknown;
  if (status.st_ino != loadAcquire(&header->writerFile)) return Liveness::ended;
  Liveness const liveness = livenessOf(writer);
  // Its process may have executed another program, or cannot be seen from here.
  if (liveness == Liveness::ended || loadAcquire(&header->writerMarked) == 0) return liveness;
  return Claim::isMarked(file) ? Liveness::alive : Liveness::ended;
}

}  // namespace Brine
