#pragma once

#include <string>
#include <vector>

#include "Brine/segment/Segment.h"

namespace Brine {

/// An invariant of a table that does not hold.
struct Violation {
  std::string invariant;  ///< Its name, such as "row check".
  std::string detail;

  friend bool operator==(Violation const&, Violation const&) = default;
};

/// Every invariant of the table, checked once; what fails, at most 100 of them.
///
/// Always: "geometry seal", "high-water seal", "row check", "row column" (a live row's column
/// word is that of its column value), "row found" (the index finds each live row), "key unique", "high water"
/// (nothing above it).
///
/// Only if `tidy`, which a table is while nobody writes it, unless its writer died in the middle of a change:
/// "index entry" (each is of a live row, by its tag), "index count", "column cleared",
/// "row count", "ring entry", "sequence" (no change is newer than the head).
std::vector<Violation> checkSegment(Segment const& segment, bool tidy);

}  // namespace Brine
