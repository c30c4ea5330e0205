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

/// A MAC address of 48 bits. Text: six octets of two lower-case hexadecimal digits, "02:00:00:00:00:01".
///
/// Kept as three 16-bit words, so that it takes 6 bytes and aligns to 2 in shared memory. Word 0 holds the
/// first two octets as they are written and sent, the first in its high byte; each word has the byte order of
/// the machine.
class EthAddr {
 public:
  /// 00:00:00:00:00:00.
  constexpr EthAddr() = default;
  constexpr EthAddr(uint16_t word0, uint16_t word1, uint16_t word2) : word_{word0, word1, word2} {}
  /// The text form; raises `Orb::ParseError`.
  explicit EthAddr(std::string_view text);

  /// `index` 0 to 2.
  constexpr uint16_t word(unsigned index) const { return word_[index]; }
  /// The address as a number of 48 bits whose highest octet is the first one.
  constexpr uint64_t value() const { return uint64_t{word_[0]} << 32 | uint64_t{word_[1]} << 16 | word_[2]; }
  /// The address whose number is the low 48 bits of `value`.
  static constexpr EthAddr ofValue(uint64_t value) {
    return {static_cast<uint16_t>(value >> 32), static_cast<uint16_t>(value >> 16),
            static_cast<uint16_t>(value)};
  }

  constexpr uint32_t hash() const { return Orb::hashMix(value()); }

  friend constexpr bool operator==(EthAddr const& left, EthAddr const& right) {
    return ((left.word_[0] ^ right.word_[0]) | (left.word_[1] ^ right.word_[1]) |
            (left.word_[2] ^ right.word_[2])) == 0;
  }
  /// By the octets as they are written.
  friend constexpr std::strong_ordering operator<=>(EthAddr const& left, EthAddr const& right) {
    return left.value() <=> right.value();
  }

  friend void appendText(std::string& out, EthAddr const& addr);
  friend EthAddr parseText(Orb::TextCursor& text, std::type_identity<EthAddr>);
  friend std::ostream& operator<<(std::ostream& out, EthAddr const& addr);

 private:
  uint16_t word_[3] = {};
};

}  // namespace Wirix

template <>
struct Orb::ValueTraits<Wirix::EthAddr> {
  static std::string name() { return "Wirix::EthAddr"; }
};
