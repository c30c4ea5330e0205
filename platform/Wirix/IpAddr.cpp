#include "Wirix/IpAddr.h"

#include <ostream>

#include "Orb/Text.h"
#include "Orb/Value.h"

namespace Wirix {

namespace {

[[maybe_unused]] Orb::ValueType const& registeredIpAddr = Orb::valueType<IpAddr>();

}  // namespace

IpAddr::IpAddr(std::string_view text) : IpAddr(Orb::parseWhole<IpAddr>(text)) {}

void appendText(std::string& out, IpAddr const& addr) {
  for (int shift = 24; shift >= 0; shift -= 8) {
    Orb::appendText(out, addr.value() >> shift & 255);
    if (shift != 0) out.push_back('.');
  }
}

IpAddr parseText(Orb::TextCursor& text, std::type_identity<IpAddr>) {
  uint64_t value = 0;
  for (int octet = 0; octet < 4; ++octet) {
    if (octet != 0) text.expect(".");
    value = value << 8 | Orb::parseUnsigned(text, 255, "IpAddr octet > 255 not allowed");
  }
  return IpAddr(static_cast<uint32_t>(value));
}

std::ostream& operator<<(std::ostream& out, IpAddr const& addr) {
  return Orb::writeText(out, Orb::toText(addr));
}

}  // namespace Wirix
