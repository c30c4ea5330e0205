#pragma once

#include <cstdint>

namespace Brine {

/// Names a process beyond its end: the number may be given again, number and start time together are not.
struct ProcessIdentity {
  uint64_t number = 0;
  uint64_t start = 0;  ///< As /proc shows it; 0 where it shows nothing.
  uint64_t space = 0;  ///< The number space that `number` is of; 0 if unknown.

  static ProcessIdentity self();
};

enum class Liveness { alive, ended, unknown };

/// Whether that process still runs. A process that is ending, or ended and not waited for, counts as ended.
/// Unknown in another number space (another container).
Liveness livenessOf(ProcessIdentity const& process);

}  // namespace Brine
