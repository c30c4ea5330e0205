#include "Wirix/EthAddr.h"

#include <ostream>

#include "Orb/Text.h"
#include "Orb/Value.h"

namespace Wirix {

namespace {

[[maybe_unused]] Orb::ValueType const& registeredEthAddr = Orb::valueType<EthAddr>();

constexpr std::string_view hexDigits = "0123456789abcdef";

uint64_t hexDigit(Orb::TextCursor& text) {
  size_t const digit = text.atEnd() ? std::string_view::npos : hexDigits.find(text.next());
  if (digit == std::string_view::npos) text.fail("a lower-case hexadecimal digit");
  text.skip(1);
  return digit;
}

}  // namespace

EthAddr::EthAddr(std::string_view text) : EthAddr(Orb::parseWhole<EthAddr>(text)) {}

void appendText(std::string& out, EthAddr const& addr) {
  uint64_t const value = addr.value();
  for (int shift = 40; shift >= 0; shift -= 8) {
    out.push_back(hexDigits[value >> (shift + 4) & 15]);
    out.push_back(hexDigits[value >> shift & 15]);
    if (shift != 0) out.push_back(':');
  }
}

EthAddr parseText(Orb::TextCursor& text, std::type_identity<EthAddr>) {
  uint64_t value = 0;
  for (int octet = 0; octet < 6; ++octet) {
    if (octet != 0) text.expect(":");
    uint64_t const high = hexDigit(text);
    value = value << 8 | high << 4 | hexDigit(text);
  }
  return EthAddr::ofValue(value);
}

std::ostream& operator<<(std::ostream& out, EthAddr const& addr) {
  return Orb::writeText(out, Orb::toText(addr));
}

}  // namespace Wirix
