#include "Bridging/BridgeId.h"

#include <ostream>

#include "Orb/Text.h"
#include "Orb/Value.h"

namespace Bridging {

namespace {

[[maybe_unused]] Orb::ValueType const& registeredBridgeId = Orb::valueType<BridgeId>();

}  // namespace

void appendText(std::string& out, BridgeId const& brId) { Orb::appendText(out, brId.value()); }

BridgeId parseText(Orb::TextCursor& text, std::type_identity<BridgeId>) {
  return BridgeId(static_cast<uint32_t>(
      Orb::parseUnsigned(text, BridgeId::max, "BridgeId::value > BridgeId::max not allowed")));
}

std::ostream& operator<<(std::ostream& out, BridgeId const& brId) {
  return Orb::writeText(out, Orb::toText(brId));
}

}  // namespace Bridging
