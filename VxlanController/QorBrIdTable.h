/// How bridge identifiers lie in the shared table in which an agent keeps `QorBrIdList` for the EVPN side:
/// a row is its own key. Walks can be filtered on the low 24 bits, the VNI. The program's agent keeps it
/// as table "brId" beside the exported ones:
///
///   Brine::Table<Bridging::BridgeId> list;
///   list.mount({.directory = dir + "/exported", .name = "brId", .mode = Brine::Mode::keyshadow});
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "Bridging/BridgeId.h"
#include "Brine/Table.h"

template <>
struct Brine::Codec<Bridging::BridgeId> {
  using Key = Bridging::BridgeId;
  static constexpr std::string_view rowType = "Bridging::BridgeId";
  static constexpr unsigned keyWords = 1, rowWords = 1;

  static Key key(Bridging::BridgeId row) { return row; }
  static void encodeKey(Key key, std::uint64_t* words) { words[0] = key.value(); }
  static void encode(Bridging::BridgeId row, std::uint64_t* words) { encodeKey(row, words); }
  static std::optional<Key> decodeKey(std::uint64_t const* words) {
    if (words[0] > Bridging::BridgeId::max) return std::nullopt;
    return Key(static_cast<std::uint32_t>(words[0]));
  }
  static bool decode(std::uint64_t const* words, Bridging::BridgeId& row) {
    std::optional<Key> const key = decodeKey(words);
    if (key) row = *key;
    return key.has_value();
  }
  /// As `BridgeId::hash()`, for any words.
  static std::uint32_t hash(std::uint64_t const* words) {
    return Orb::hashMix(static_cast<std::uint32_t>(words[0]));
  }
  static std::uint32_t column(std::uint64_t const* words) {
    return Key(static_cast<std::uint32_t>(words[0])).number();
  }
};
