#pragma once

#include <compare>
#include <concepts>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <type_traits>

#include "Orb/Errors.h"
#include "Orb/Text.h"
#include "Orb/ValueTraits.h"
#include "Vxlan/Vni.h"
#include "Wirix/EthAddr.h"
#include "Wirix/IpAddr.h"
#include "Wirix/Seqno32.h"

/// The values that the module and the EVPN side exchange through shared tables: two keys and two rows.
///
/// Each has fixed-width fields, no pointers and no byte whose content is left to chance (padding is spelt out
/// and zero): equal values are equal bytes. How they lie in shared memory their codecs say
/// (VxlanController/QorEvpnBrine.h), which refuse words that do not come from a value.
///
/// Text form, one line each, written by `valueToStrep` and `operator<<`, read by the constructors that take
/// iterators and by `strepToValue`:
///
///   Value('QorEvpn::MacVniPair', ** {'macAddr': 02:00:00:00:00:01, 'vni': 5000})
///
///   Value('QorEvpn::VniVtepPair', ** {'vni': 5000, 'vtepAddr': 10.99.0.11})
///
///   Value('QorEvpn::Host', ** {'key': K, 'vtepAddr': 10.99.0.11, 'seqNo': 1, 'preference': 16})
///
/// where K is the text of a `MacVniPair`. A `FloodEntry` has the text of its key.
///
/// A constructor from text reads at `current`, moves it behind the value, and raises `Orb::ParseError`, or
/// `Orb::AttributeRangeError` naming the field whose value is out of range; an error leaves `current` as it
/// was.
namespace QorEvpn {

namespace Impl {

/// Wang's 32-bit integer hash: spreads a seed in which only some bits differ over all 32.
constexpr uint32_t wangHash(uint32_t h) {
  h = ~h + (h << 15);
  h ^= h >> 12;
  h += h << 2;
  h ^= h >> 4;
  h *= 2057;
  return h ^ (h >> 16);
}

}  // namespace Impl

/// Key of a host row: a MAC address in a VNI. Sorted by MAC address, then VNI.
class MacVniPair {
 public:
  constexpr MacVniPair() = default;
  constexpr MacVniPair(Wirix::EthAddr macAddr, Vxlan::Vni vni) : macAddr_(macAddr), vni_(vni) {}
  template <Orb::StringIterator Iterator>
  MacVniPair(Iterator& current, std::string::const_iterator end)
      : MacVniPair(Orb::parseAt<MacVniPair>(current, end)) {}

  constexpr Wirix::EthAddr macAddr() const { return macAddr_; }
  constexpr Vxlan::Vni vni() const { return vni_; }

  constexpr uint32_t hash() const { return Impl::wangHash(macAddr_.hash() ^ vni_.value()); }

  friend constexpr bool operator==(MacVniPair const& left, MacVniPair const& right) {
    return left.macAddr_ == right.macAddr_ && left.vni_ == right.vni_;
  }
  friend constexpr std::strong_ordering operator<=>(MacVniPair const& left, MacVniPair const& right) {
    auto const byMacAddr = left.macAddr_ <=> right.macAddr_;
    return byMacAddr != 0 ? byMacAddr : left.vni_ <=> right.vni_;
  }

  friend void appendText(std::string& out, MacVniPair const& key);
  friend MacVniPair parseText(Orb::TextCursor& text, std::type_identity<MacVniPair>);

 private:
  Wirix::EthAddr macAddr_;
  [[maybe_unused]] uint16_t padding_ = 0;
  Vxlan::Vni vni_;
};

/// Host row: the VTEP that a MAC address in a VNI lives behind. Two rows are equal when every field is.
class Host {
 public:
  /// Of entries that do not say how much they are preferred.
  static constexpr uint8_t defaultPreference = 16;

  constexpr Host() = default;
  explicit constexpr Host(MacVniPair const& key) : key_(key) {}
  template <Orb::StringIterator Iterator>
  Host(Iterator& current, std::string::const_iterator end) : Host(Orb::parseAt<Host>(current, end)) {}

  constexpr MacVniPair const& key() const { return key_; }
  constexpr Wirix::IpAddr vtepAddr() const { return vtepAddr_; }
  constexpr void vtepAddrIs(Wirix::IpAddr vtepAddr) { vtepAddr_ = vtepAddr; }
  constexpr Seqno32 seqNo() const { return seqNo_; }
  constexpr void seqNoIs(Seqno32 seqNo) { seqNo_ = seqNo; }
  constexpr uint8_t preference() const { return preference_; }
  constexpr void preferenceIs(uint8_t preference) { preference_ = preference; }

  friend constexpr bool operator==(Host const& left, Host const& right) {
    return left.key_ == right.key_ && left.vtepAddr_ == right.vtepAddr_ && left.seqNo_ == right.seqNo_ &&
           left.preference_ == right.preference_;
  }

  friend void appendText(std::string& out, Host const& host);
  friend Host parseText(Orb::TextCursor& text, std::type_identity<Host>);

 private:
  MacVniPair key_;
  Wirix::IpAddr vtepAddr_;
  Seqno32 seqNo_;
  uint8_t preference_ = defaultPreference;
  [[maybe_unused]] uint8_t padding_[3] = {};
};

/// Key of a flood row: a VTEP in a VNI. Sorted by VNI, then VTEP address: the other way about than
/// `MacVniPair`.
class VniVtepPair {
 public:
  constexpr VniVtepPair() = default;
  constexpr VniVtepPair(Vxlan::Vni vni, Wirix::IpAddr vtepAddr) : vni_(vni), vtepAddr_(vtepAddr) {}
  template <Orb::StringIterator Iterator>
  VniVtepPair(Iterator& current, std::string::const_iterator end)
      : VniVtepPair(Orb::parseAt<VniVtepPair>(current, end)) {}

  constexpr Vxlan::Vni vni() const { return vni_; }
  constexpr Wirix::IpAddr vtepAddr() const { return vtepAddr_; }

  constexpr uint32_t hash() const { return Impl::wangHash(vtepAddr_.hash() ^ vni_.value()); }

  friend constexpr bool operator==(VniVtepPair const&, VniVtepPair const&) = default;
  friend constexpr std::strong_ordering operator<=>(VniVtepPair const&, VniVtepPair const&) = default;

  friend void appendText(std::string& out, VniVtepPair const& key);
  friend VniVtepPair parseText(Orb::TextCursor& text, std::type_identity<VniVtepPair>);

 private:
  Vxlan::Vni vni_;
  Wirix::IpAddr vtepAddr_;
};

/// Flood row: says by being there that its VTEP is in the flood list of its VNI.
class FloodEntry {
 public:
  constexpr FloodEntry() = default;
  explicit constexpr FloodEntry(VniVtepPair const& key) : key_(key) {}
  template <Orb::StringIterator Iterator>
  FloodEntry(Iterator& current, std::string::const_iterator end)
      : FloodEntry(Orb::parseAt<FloodEntry>(current, end)) {}

  constexpr VniVtepPair const& key() const { return key_; }

  friend constexpr bool operator==(FloodEntry const&, FloodEntry const&) = default;

  friend void appendText(std::string& out, FloodEntry const& entry);
  friend FloodEntry parseText(Orb::TextCursor& text, std::type_identity<FloodEntry>);

 private:
  VniVtepPair key_;
};

/// One of the four exchanged values.
template <class T>
concept ExchangeValue = std::same_as<T, MacVniPair> || std::same_as<T, Host> ||
    std::same_as<T, VniVtepPair> || std::same_as<T, FloodEntry>;

/// The text form.
template <ExchangeValue T>
std::string valueToStrep(T const& value) {
  std::string text;
  appendText(text, value);
  return text;
}

template <ExchangeValue T>
std::ostream& operator<<(std::ostream& out, T const& value) {
  return Orb::writeText(out, valueToStrep(value));
}

/// Reads a value that takes the whole text: `strepToValue<Host>(text)`. Errors: as the constructors.
template <ExchangeValue T>
T strepToValue(std::string const& text) {
  auto current = text.begin();
  T const value(current, text.end());
  if (current != text.end()) {
    throw Orb::ParseError(static_cast<size_t>(current - text.begin()), "the end", {current, text.end()});
  }
  return value;
}

/// The same into `value`, which an error leaves as it was.
template <ExchangeValue T>
void strepToValue(std::string const& text, T& value) {
  value = strepToValue<T>(text);
}

}  // namespace QorEvpn

template <>
struct Orb::ValueTraits<QorEvpn::MacVniPair> {
  static std::string name() { return "QorEvpn::MacVniPair"; }
  static std::vector<ValueAttribute> attributes();
};
template <>
struct Orb::ValueTraits<QorEvpn::Host> {
  static std::string name() { return "QorEvpn::Host"; }
  static std::vector<ValueAttribute> attributes();
};
template <>
struct Orb::ValueTraits<QorEvpn::VniVtepPair> {
  static std::string name() { return "QorEvpn::VniVtepPair"; }
  static std::vector<ValueAttribute> attributes();
};
template <>
struct Orb::ValueTraits<QorEvpn::FloodEntry> {
  static std::string name() { return "QorEvpn::FloodEntry"; }
  static std::vector<ValueAttribute> attributes();
};
