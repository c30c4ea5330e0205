#pragma once

#include <cstdint>
#include <string>

#include "Brine/Status.h"

/// What a mount is asked for, and what a table says of itself.
namespace Brine {

struct MountOptions {
  /// Directory of the table's files. A writer makes it (0750) if it is missing; its parent must exist.
  /// Whoever owns it owns the tables in it; it must not be writable for group or others.
  std::string directory;
  /// The table's name, any bytes: it is encoded into one file name. Entities use their place in the
  /// directory.
  std::string name;
  Mode mode = Mode::reader;
  /// Writer: drop damaged rows, and begin an empty table where the header is damaged or of another layout or
  /// row type or the file is too short, instead of refusing the mount. `Statistics::dropped` counts.
  bool repair = false;
  /// Writer: changes wait for `endTurn()`, which publishes and announces them together. For owners with a
  /// loop, who call it before they wait. Without, each change is published and announced when its call
  /// returns, at the cost of a system call.
  bool turns = false;
  /// Used when a table is made: slots to begin with (a power of two, 16 to 2^30) and entries of the change
  /// ring (a power of two, 16 to 2^24). Neither is a limit: the table doubles when it is full, and readers
  /// that the ring laps compare.
  uint32_t initialRows = 4096;
  uint32_t ringEntries = 8192;
};

/// Figures for people and tests; those of a running writer are a moment old.
struct Statistics {
  uint64_t rows = 0;
  uint64_t capacity = 0;
  uint64_t fileBytes = 0;
  uint64_t generation = 0;      ///< Tells files of one name apart.
  uint64_t incarnation = 0;     ///< Times that a writer has mounted this file.
  uint64_t changeSequence = 0;  ///< Number of the last published change.
  uint64_t changes = 0;         ///< How many were published since a writer mounted it last.
  uint64_t dropped = 0;         ///< Damaged rows that recoveries dropped.
  uint64_t wakes = 0;           ///< Doorbells rung since the file was made.
  bool writerAlive = false;
  bool quiesced = false;
  // Of this table object:
  uint64_t delivered = 0;   ///< Changes told to the owner.
  uint64_t laps = 0;        ///< Deliveries that compared the whole table since the ring was of no use.
  uint64_t shadowKeys = 0;  ///< Reader: keys that the owner was told of.
};

struct DeliverResult {
  uint64_t changes = 0;
  bool isMore = false;  ///< Changes are left for the next delivery, for which `fd()` stays readable.
};

/// Which observers a change is for, by the order in which they joined: those behind `after`, up to `upTo`.
struct Audience {
  uint32_t after = 0;
  uint32_t upTo = UINT32_MAX;
};

}  // namespace Brine
