#pragma once

#include <compare>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <type_traits>

#include "Orb/Hash.h"
#include "Orb/ValueTraits.h"

/// A sequence number of 32 bits: of two entries for one MAC address, the higher one is the newer. It does not
/// wrap; the order is that of plain numbers. Text: decimal. Above 4294967295 a text raises `Orb::RangeError`
/// "Seqno32::value > Seqno32::max not allowed".
class Seqno32 {
 public:
  static constexpr uint32_t max = 0xFFFFFFFF;

  constexpr Seqno32() = default;
  explicit constexpr Seqno32(uint32_t value) : value_(value) {}

  constexpr uint32_t value() const { return value_; }
  constexpr uint32_t hash() const { return Orb::hashMix(value_); }

  friend constexpr bool operator==(Seqno32 const&, Seqno32 const&) = default;
  friend constexpr std::strong_ordering operator<=>(Seqno32 const&, Seqno32 const&) = default;

  friend void appendText(std::string& out, Seqno32 const& seqNo);
  friend Seqno32 parseText(Orb::TextCursor& text, std::type_identity<Seqno32>);
  friend std::ostream& operator<<(std::ostream& out, Seqno32 const& seqNo);

 private:
  uint32_t value_ = 0;
};

template <>
struct Orb::ValueTraits<Seqno32> {
  static std::string name() { return "Seqno32"; }
};
