#include "Brine/Column.h"

#include <bit>
#include <cstring>

#include "Brine/Word.h"

namespace Brine {
namespace {

using Lanes = uint32_t __attribute__((vector_size(32)));
constexpr uint32_t lanes = sizeof(Lanes) / sizeof(uint32_t);
constexpr uint32_t blockWords = 8 * lanes;

/// Whether one of a block's words is `value`.
[[gnu::always_inline]] inline bool blockHas(uint32_t const* words, uint32_t value) {
  Lanes const wanted = Lanes{} + value;
  Lanes hits{};
  for (uint32_t i = 0; i < blockWords; i += lanes) {
    Lanes found;
    std::memcpy(&found, words + i, sizeof found);
    hits |= static_cast<Lanes>(found == wanted);
  }
  uint64_t any[sizeof hits / sizeof(uint64_t)];
  std::memcpy(any, &hits, sizeof any);
  return (any[0] | any[1] | any[2] | any[3]) != 0;
}

/// The words of the blocks before the first one that holds `value`.
[[gnu::always_inline]] inline uint32_t skipOwn(uint32_t const* column, uint32_t count, uint32_t value) {
  uint32_t i = 0;
  while (i + blockWords <= count && !blockHas(column + i, value)) i += blockWords;
  return i;
}

/// The same by way of a copy that is made with atomic loads. `column` lies on 8 bytes.
[[gnu::always_inline]] inline uint32_t skipShared(uint32_t const* column, uint32_t count, uint32_t value) {
  auto const* pairs = static_cast<uint64_t const*>(static_cast<void const*>(column));
  uint32_t i = 0;
  for (; i + blockWords <= count; i += blockWords, pairs += blockWords / 2) {
    uint64_t copy[blockWords / 2];
    for (uint32_t j = 0; j < blockWords / 2; ++j) copy[j] = loadRelaxed(pairs + j);
    uint32_t words[blockWords];
    std::memcpy(words, copy, sizeof words);
    if (blockHas(words, value)) break;
  }
  return i;
}

#if defined(__x86_64__)
// The same compiled for wider registers, for machines that have them.
[[gnu::target("avx2")]] uint32_t skipOwnWide(uint32_t const* column, uint32_t count, uint32_t value) {
  return skipOwn(column, count, value);
}
[[gnu::target("avx2")]] uint32_t skipSharedWide(uint32_t const* column, uint32_t count, uint32_t value) {
  return skipShared(column, count, value);
}
bool const hasWideRegisters = __builtin_cpu_supports("avx2") != 0;
#else
constexpr bool hasWideRegisters = false;
constexpr auto skipOwnWide = skipOwn;
constexpr auto skipSharedWide = skipShared;
#endif

}  // namespace

uint32_t findInOwnColumn(uint32_t const* column, uint32_t from, uint32_t to, uint32_t value) {
  uint32_t const count = to - from;
  uint32_t i = hasWideRegisters ? skipOwnWide(column, count, value) : skipOwn(column, count, value);
  while (i < count && column[i] != value) ++i;
  return from + i;
}

uint32_t findInSharedColumn(uint32_t const* column, uint32_t from, uint32_t to, uint32_t value) {
  uint32_t const count = to - from;
  uint32_t i = 0;
  if ((std::bit_cast<uintptr_t>(column) & 4) != 0 && count != 0) {
    if (loadRelaxed(column) == value) return from;
    i = 1;
  }
  i += hasWideRegisters ? skipSharedWide(column + i, count - i, value)
                        : skipShared(column + i, count - i, value);
  while (i < count && loadRelaxed(column + i) != value) ++i;
  return from + i;
}

}  // namespace Brine
