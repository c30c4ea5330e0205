#pragma once

#include <cstdint>
#include <memory>
#include <utility>

#include "Brine/segment/Segment.h"
#include "Brine/system/Claim.h"

namespace Brine {

/// What both roles have in common: the table's file in this process's memory.
struct Mounted {
  std::unique_ptr<Segment> segment;
  /// The file's descriptor, which the role owns; -1 for an image.
  int file = -1;
  /// Counts files taken on and let go, so that loops with hooks in them notice.
  uint64_t serial = 0;

  /// Whether the writer that the header speaks of lives: as long as its mark is on the file. A copy of a file
  /// has none, whatever the original's is doing.
  Liveness writerLiveness() const {
    uint64_t const writer = loadAcquire(&segment->header()->writer);
    if (writer == 0) return Liveness::ended;
    return writer == unmarkedWriter || file < 0 ? Liveness::unknown : Claim::livenessOfMark(file);
  }
  void segmentIs(std::unique_ptr<Segment> taken, int itsFile) {
    segment = std::move(taken);
    file = itsFile;
    ++serial;
  }
  void letGo() { segmentIs(nullptr, -1); }
};

}  // namespace Brine
