#include "Brine/segment/Lookup.h"

#include <string>

namespace Brine {

void throwRowDamage(uint32_t id) { throw RowDamage("row " + std::to_string(id) + " is damaged"); }

void throwImpossibleRow(uint32_t id) {
  throw RowDamage("row " + std::to_string(id) + " holds values that no writer wrote");
}

}  // namespace Brine
