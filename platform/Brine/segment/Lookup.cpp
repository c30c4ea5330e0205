#include "Brine/segment/Lookup.h"

#include <string>

namespace Brine {

void throwRowDamage(uint32_t id, char const* what) {
  throw RowDamage("row " + std::to_string(id) + " " + what);
}

}  // namespace Brine
