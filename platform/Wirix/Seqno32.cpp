#include "Wirix/Seqno32.h"

#include <ostream>

#include "Orb/Text.h"
#include "Orb/Value.h"

namespace {

[[maybe_unused]] Orb::ValueType const& registeredSeqno32 = Orb::valueType<Seqno32>();

}  // namespace

void appendText(std::string& out, Seqno32 const& seqNo) { Orb::appendText(out, seqNo.value()); }

Seqno32 parseText(Orb::TextCursor& text, std::type_identity<Seqno32>) {
  return Seqno32(static_cast<uint32_t>(
      Orb::parseUnsigned(text, Seqno32::max, "Seqno32::value > Seqno32::max not allowed")));
}

std::ostream& operator<<(std::ostream& out, Seqno32 const& seqNo) {
  return Orb::writeText(out, Orb::toText(seqNo));
}
