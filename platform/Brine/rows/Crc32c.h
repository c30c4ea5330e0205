#pragma once

#include <array>
#include <cstdint>

namespace Brine {

namespace Impl {

/// What an octet adds to a sum that it is shifted out of.
inline constexpr auto crc32cOfOctet = [] {
  std::array<uint32_t, 256> sums{};
  for (uint32_t octet = 0; octet < sums.size(); ++octet) {
    uint32_t sum = octet;
    for (unsigned bit = 0; bit < 8; ++bit) sum = sum >> 1 ^ (sum & 1) * 0x82F63B78U;
    sums[octet] = sum;
  }
  return sums;
}();

}  // namespace Impl

/// Whether the processor has an instruction for `addByProcessor()`.
[[gnu::always_inline]] inline bool hasCrc32c() {
#if defined(__x86_64__)
  return __builtin_cpu_supports("sse4.2");
#else
  return false;
#endif
}

/// CRC-32C (Castagnoli), a word a step: the sum of what it was of, and of `word` behind that. A sum has 32
/// bits. Both ways give the same; which one to take should be asked once for all words.
inline constexpr auto addByProcessor = [](uint64_t sum, uint64_t word) __attribute__((always_inline)) {
#if defined(__x86_64__)
  asm("crc32q %1, %0" : "+r"(sum) : "rm"(word));
#endif
  return sum;
};

/// In line, since a call would have its caller keep what it knows in memory.
inline constexpr auto addByTable = [](uint64_t sum, uint64_t word) __attribute__((always_inline)) {
  sum ^= word;
  for (unsigned octet = 0; octet < sizeof word; ++octet) sum = sum >> 8 ^ Impl::crc32cOfOctet[sum & 0xFF];
  return sum;
};

}  // namespace Brine
