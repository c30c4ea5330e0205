#include "Brine/EntityTable.h"

#include <cstdio>

#include "Trace/Trace.h"

namespace Brine {

static Trace::Handle traceHandle("Brine");

void reportTableCorruption(std::string const& table, std::string const& message, uint64_t reports) {
  TRACE(traceHandle, 0, "table ", table, ": ", message);
  if ((reports & (reports - 1)) != 0) return;
  std::string const line = "table " + table + ": " + message + "\n";
  std::fwrite(line.data(), 1, line.size(), stderr);
}

}  // namespace Brine
