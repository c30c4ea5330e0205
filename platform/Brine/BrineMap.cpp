#include "Brine/BrineMap.h"

namespace Brine {

std::string placeOf(Orb::Entity const& entity, Orb::Entity const* parent) {
  std::string place = parent != nullptr ? placeOf(*parent, parent->parent()) : std::string();
  place += '/';
  for (char const c : entity.name().text()) {
    if (c == '/' || c == '\\') place += '\\';
    place += c;
  }
  return place;
}

}  // namespace Brine
