#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <string_view>

/// Hashes of 32 bits. Every key type has a member `uint32_t hash() const` that is strong: each bit of the key
/// changes each bit of the hash with even chance, so that maps and tables may use any bits of it and keys
/// that are numbered in sequence, or share most of their bytes, spread as random ones would.
namespace Orb {

/// A bijection: distinct numbers have distinct hashes.
constexpr uint32_t hashMix(uint32_t x) {
  x = (x ^ (x >> 16)) * 0x7feb352dU;
  x = (x ^ (x >> 15)) * 0x846ca68bU;
  return x ^ (x >> 16);
}

/// Two multiplications with odd constants; the high half depends on every bit of `x`.
constexpr uint32_t hashMix(uint64_t x) {
  x *= 0x9e3779b97f4a7c15U;
  x = (x ^ (x >> 32)) * 0xd6e8feb86659fd93U;
  return static_cast<uint32_t>(x >> 32);
}

template <class T>
concept HasHash = requires(T const& value) {
  { value.hash() } -> std::same_as<uint32_t>;
};

template <HasHash T>
constexpr uint32_t hashOf(T const& value) {
  return value.hash();
}

template <std::integral T>
constexpr uint32_t hashOf(T value) {
  return hashMix(static_cast<uint64_t>(value));
}

/// For names: an octet at a time (FNV-1a), then mixed so that the high bits serve as well.
constexpr uint32_t hashOf(std::string_view text) {
  uint64_t hash = 0xcbf29ce484222325U;
  for (char c : text) hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3U;
  return hashMix(hash);
}

template <class T>
concept Hashable = requires(T const& value) {
  hashOf(value);
};

/// For the standard library's unordered containers.
struct Hash {
  template <Hashable T>
  size_t operator()(T const& value) const {
    return hashOf(value);
  }
};

}  // namespace Orb
