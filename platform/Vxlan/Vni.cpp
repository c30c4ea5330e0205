#include "Vxlan/Vni.h"

#include <ostream>

#include "Orb/Text.h"
#include "Orb/Value.h"

namespace Vxlan {

namespace {

[[maybe_unused]] Orb::ValueType const& registeredVni = Orb::valueType<Vni>();

constexpr char rangeText[] = "Vni::value < Vni::min or > Vni::max not allowed";

}  // namespace

void Vni::throwRange() { throw Orb::RangeError(rangeText); }

void appendText(std::string& out, Vni const& vni) { Orb::appendText(out, vni.value()); }

Vni parseText(Orb::TextCursor& text, std::type_identity<Vni>) {
  return Vni(Orb::parseUnsigned(text, Vni::max, rangeText));
}

std::ostream& operator<<(std::ostream& out, Vni const& vni) { return Orb::writeText(out, Orb::toText(vni)); }

}  // namespace Vxlan
