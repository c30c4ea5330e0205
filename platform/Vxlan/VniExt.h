#pragma once

#include "Vxlan/Vni.h"

namespace Vxlan {

/// The VNI that a bridge identifier stands for: a `Vni`, to which it converts, that also gives its text as a
/// string, the way VNI directories name their entries.
class VniExt {
 public:
  constexpr VniExt() = default;
  explicit constexpr VniExt(Vni vni) : vni_(vni) {}
  /// Implicit, so that it compares with a `Vni` and is taken for one.
  constexpr operator Vni() const { return vni_; }  // NOLINT(google-explicit-constructor)
  /// Above `Vni::max` raises the range error of `Vni`.
  explicit constexpr VniExt(uint64_t value) : vni_(value) {}

  constexpr uint32_t value() const { return vni_.value(); }
  constexpr uint32_t hash() const { return vni_.hash(); }

  /// The decimal number; behind "vni " if `isLabelled`, for lists that mix kinds of bridges.
  std::string stringValue(bool isLabelled) const;

  friend constexpr bool operator==(VniExt const&, VniExt const&) = default;
  friend constexpr std::strong_ordering operator<=>(VniExt const&, VniExt const&) = default;

  /// Text: that of the VNI.
  friend void appendText(std::string& out, VniExt const& vni) { appendText(out, vni.vni_); }
  friend VniExt parseText(Orb::TextCursor& text, std::type_identity<VniExt>);
  friend std::ostream& operator<<(std::ostream& out, VniExt const& vni) { return out << vni.vni_; }

 private:
  Vni vni_;
};

}  // namespace Vxlan

template <>
struct Orb::ValueTraits<Vxlan::VniExt> {
  static std::string name() { return "Vxlan::VniExt"; }
};
