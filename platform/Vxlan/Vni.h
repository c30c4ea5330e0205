#pragma once

#include <compare>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <type_traits>

#include "Orb/Hash.h"
#include "Orb/ValueTraits.h"

namespace Vxlan {

/// A VXLAN network identifier: 24 bits held in 32. Text: decimal.
class Vni {
 public:
  static constexpr uint32_t min = 0;
  static constexpr uint32_t max = 0xFFFFFF;

  constexpr Vni() = default;
  /// Above `max` raises `Orb::RangeError` "Vni::value < Vni::min or > Vni::max not allowed", as its parser
  /// does.
  explicit constexpr Vni(uint64_t value) : value_(static_cast<uint32_t>(value)) {
    if (value > max) throwRange();
  }

  constexpr uint32_t value() const { return value_; }
  constexpr uint32_t hash() const { return Orb::hashMix(value_); }

  friend constexpr bool operator==(Vni const&, Vni const&) = default;
  friend constexpr std::strong_ordering operator<=>(Vni const&, Vni const&) = default;

  friend void appendText(std::string& out, Vni const& vni);
  friend Vni parseText(Orb::TextCursor& text, std::type_identity<Vni>);
  friend std::ostream& operator<<(std::ostream& out, Vni const& vni);

 private:
  [[noreturn, gnu::cold]] static void throwRange();

  uint32_t value_ = 0;
};

}  // namespace Vxlan

template <>
struct Orb::ValueTraits<Vxlan::Vni> {
  static std::string name() { return "Vxlan::Vni"; }
};
