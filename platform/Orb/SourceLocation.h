#pragma once

#include <cstdint>

namespace Orb {

/// A place in the source. Stands in for `std::source_location`, which Clang 14 cannot evaluate with
/// libstdc++.
struct SourceLocation {
  char const* file;      ///< As the compiler was given it.
  uint32_t line;         ///< From 1.
  char const* function;  ///< Bare name (`handleHost`) or whole signature, as the maker chose.
};

}  // namespace Orb
