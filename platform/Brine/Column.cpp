#include "Brine/Column.h"

#include <bit>

#include "Brine/Word.h"

namespace Brine {
namespace {

constexpr uint32_t blockWords = 128;

/// Whether one of the block's words is `value`; without an exit, so that it becomes a few wide compares.
inline bool blockHas(uint32_t const* words, uint32_t value) {
  uint32_t hits = 0;
  for (uint32_t i = 0; i < blockWords; ++i) hits |= words[i] == value ? 1U : 0U;
  return hits != 0;
}

inline uint32_t skipBlocks(uint32_t const* column, uint32_t count, uint32_t value) {
  uint32_t i = 0;
  while (i + blockWords <= count && !blockHas(column + i, value)) i += blockWords;
  return i;
}

#if defined(__x86_64__)
// The same loop compiled for wider registers, for machines that have them.
[[gnu::target("avx2")]] uint32_t skipBlocksWide(uint32_t const* column, uint32_t count, uint32_t value) {
  uint32_t i = 0;
  for (; i + blockWords <= count; i += blockWords) {
    uint32_t hits = 0;
    for (uint32_t j = 0; j < blockWords; ++j) hits |= column[i + j] == value ? 1U : 0U;
    if (hits != 0) break;
  }
  return i;
}
bool hasWideRegisters() {
  static bool const has = __builtin_cpu_supports("avx2") != 0;
  return has;
}
#endif

}  // namespace

uint32_t findInOwnColumn(uint32_t const* column, uint32_t from, uint32_t to, uint32_t value) {
  uint32_t const count = to - from;
  uint32_t i = 0;
  // Most often the next match of a dense column is near.
  for (uint32_t const near = count < 16 ? count : 16; i < near; ++i) {
    if (column[i] == value) return from + i;
  }
#if defined(__x86_64__)
  i += hasWideRegisters() ? skipBlocksWide(column + i, count - i, value)
                          : skipBlocks(column + i, count - i, value);
#else
  i += skipBlocks(column + i, count - i, value);
#endif
  while (i < count && column[i] != value) ++i;
  return from + i;
}

uint32_t findInSharedColumn(uint32_t const* column, uint32_t from, uint32_t to, uint32_t value) {
  uint32_t const count = to - from;
  uint32_t i = 0;
  if ((std::bit_cast<uintptr_t>(column) & 4) != 0 && count != 0) {
    if (loadAcquire(column) == value) return from;
    i = 1;
  }
  uint64_t const both = uint64_t{value} << 32 | value;
  for (; i + 8 <= count; i += 8) {
    uint64_t hits = 0;
    for (uint32_t j = 0; j < 8; j += 2) {
      // Little endian or not, a zero half means that one of the two words matched.
      uint64_t const difference =
          loadAcquire(static_cast<uint64_t const*>(static_cast<void const*>(column + i + j))) ^ both;
      hits |= (difference - 0x0000000100000001U) & ~difference & 0x8000000080000000U;
    }
    if (hits != 0) break;
  }
  while (i < count && loadAcquire(column + i) != value) ++i;
  return from + i;
}

}  // namespace Brine
