#pragma once

#include <compare>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <type_traits>

#include "Orb/Assert.h"
#include "Orb/Hash.h"
#include "Orb/ValueTraits.h"
#include "Vxlan/VniExt.h"

namespace Bridging {

/// What kind of network a bridge serves. Codes that are not named here are kinds that this system does not
/// handle.
enum class BrType : uint8_t { vni = 2 };

/// Turns the code in a bridge identifier into the type.
class BrTypeInstance {
 public:
  explicit constexpr BrTypeInstance(uint8_t code) : type_(static_cast<BrType>(code)) {}
  constexpr operator BrType() const { return type_; }  // NOLINT(google-explicit-constructor)

 private:
  BrType type_;
};

/// The type of bridges that serve a VNI.
constexpr BrType brTypeVni() { return BrTypeInstance(2); }

/// A bridge identifier: the bridge type in the top 8 bits and what the type makes of them in the low 24; for
/// a bridge that serves a VNI, that VNI. Any 32 bits are a valid identifier. Text: decimal, as one number.
class BridgeId {
 public:
  static constexpr uint32_t max = 0xFFFFFFFF;

  constexpr BridgeId() = default;
  explicit constexpr BridgeId(uint32_t value) : value_(value) {}
  static constexpr BridgeId ofVni(Vxlan::Vni vni) { return BridgeId(vni.value() | 0x02000000); }

  constexpr uint32_t value() const { return value_; }
  constexpr BrType brType() const { return BrTypeInstance(static_cast<uint8_t>(value_ >> 24)); }
  /// The low 24 bits, whatever the type is.
  constexpr uint32_t number() const { return value_ & 0xFFFFFF; }
  /// For bridges of type VNI only: asserts that.
  constexpr Vxlan::VniExt vni() const {
    ORB_ASSERT(brType() == brTypeVni());
    return Vxlan::VniExt(number());
  }
  constexpr uint32_t hash() const { return Orb::hashMix(value_); }

  friend constexpr bool operator==(BridgeId const&, BridgeId const&) = default;
  friend constexpr std::strong_ordering operator<=>(BridgeId const&, BridgeId const&) = default;

  friend void appendText(std::string& out, BridgeId const& brId);
  friend BridgeId parseText(Orb::TextCursor& text, std::type_identity<BridgeId>);
  friend std::ostream& operator<<(std::ostream& out, BridgeId const& brId);

 private:
  uint32_t value_ = 0;
};

}  // namespace Bridging

template <>
struct Orb::ValueTraits<Bridging::BridgeId> {
  static std::string name() { return "Bridging::BridgeId"; }
};
