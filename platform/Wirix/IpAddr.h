#pragma once

#include <compare>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>
#include <type_traits>

#include "Orb/Hash.h"
#include "Orb/ValueTraits.h"

namespace Wirix {

/// An IPv4 address. Text: dotted quad without leading zeros, "10.99.0.11".
class IpAddr {
 public:
  /// 0.0.0.0.
  constexpr IpAddr() = default;
  /// A number in the machine's byte order whose highest octet is the one written first.
  explicit constexpr IpAddr(uint32_t value) : value_(value) {}
  /// The text form; raises `Orb::ParseError`, or `Orb::RangeError` for an octet above 255.
  explicit IpAddr(std::string_view text);

  constexpr uint32_t value() const { return value_; }
  constexpr uint32_t hash() const { return Orb::hashMix(value_); }

  friend constexpr bool operator==(IpAddr const&, IpAddr const&) = default;
  /// By the octets as they are written.
  friend constexpr std::strong_ordering operator<=>(IpAddr const&, IpAddr const&) = default;

  friend void appendText(std::string& out, IpAddr const& addr);
  friend IpAddr parseText(Orb::TextCursor& text, std::type_identity<IpAddr>);
  friend std::ostream& operator<<(std::ostream& out, IpAddr const& addr);

 private:
  uint32_t value_ = 0;
};

}  // namespace Wirix

template <>
struct Orb::ValueTraits<Wirix::IpAddr> {
  static std::string name() { return "Wirix::IpAddr"; }
};
