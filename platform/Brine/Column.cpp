#include "Brine/Column.h"

#include <bit>
#include <cstring>

#include "Brine/Word.h"

namespace Brine {
namespace {

using Lanes = ColumnWord __attribute__((vector_size(32)));
constexpr uint32_t lanes = sizeof(Lanes) / sizeof(ColumnWord);
/// Words that are loaded at a time where loads are atomic.
constexpr uint32_t wordsPerLoad = sizeof(uint64_t) / sizeof(ColumnWord);

/// Whether one of a block's words is `word`.
template <uint32_t blockWords>
[[gnu::always_inline]] inline bool blockHas(ColumnWord const* words, ColumnWord word) {
  Lanes const wanted = Lanes{} + word;
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

/// The place behind those whole blocks from `i` on that hold no `word`.
template <uint32_t blockWords>
[[gnu::always_inline]] inline uint32_t skipOwn(ColumnWord const* column, uint32_t i, uint32_t count,
                                               ColumnWord word) {
  while (i + blockWords <= count && !blockHas<blockWords>(column + i, word)) i += blockWords;
  return i;
}

/// The same by way of a copy that is made with atomic loads. `column + i` lies on 8 bytes.
template <uint32_t blockWords>
[[gnu::always_inline]] inline uint32_t skipShared(ColumnWord const* column, uint32_t i, uint32_t count,
                                                  ColumnWord word) {
  for (; i + blockWords <= count; i += blockWords) {
    auto const* const loads = static_cast<uint64_t const*>(static_cast<void const*>(column + i));
    uint64_t copy[blockWords / wordsPerLoad];
    for (uint32_t j = 0; j < blockWords / wordsPerLoad; ++j) copy[j] = loadRelaxed(loads + j);
    ColumnWord words[blockWords];
    std::memcpy(words, copy, sizeof words);
    if (blockHas<blockWords>(words, word)) break;
  }
  return i;
}

// Large blocks first, then the small one within the last.
[[gnu::always_inline]] inline uint32_t skipAllOwn(ColumnWord const* column, uint32_t count, ColumnWord word) {
  return skipOwn<lanes>(column, skipOwn<8 * lanes>(column, 0, count, word), count, word);
}
[[gnu::always_inline]] inline uint32_t skipAllShared(ColumnWord const* column, uint32_t from, uint32_t count,
                                                     ColumnWord word) {
  return skipShared<lanes>(column, skipShared<8 * lanes>(column, from, count, word), count, word);
}

#if defined(__x86_64__)
// The same compiled for wider registers, for machines that have them.
[[gnu::target("avx2")]] uint32_t skipOwnWide(ColumnWord const* column, uint32_t count, ColumnWord word) {
  return skipAllOwn(column, count, word);
}
[[gnu::target("avx2")]] uint32_t skipSharedWide(ColumnWord const* column, uint32_t from, uint32_t count,
                                                ColumnWord word) {
  return skipAllShared(column, from, count, word);
}
bool const hasWideRegisters = __builtin_cpu_supports("avx2") != 0;
#else
constexpr bool hasWideRegisters = false;
constexpr auto skipOwnWide = skipAllOwn;
constexpr auto skipSharedWide = skipAllShared;
#endif

}  // namespace

uint32_t findInOwnColumn(ColumnWord const* column, uint32_t from, uint32_t to, ColumnWord word) {
  uint32_t const count = to - from;
  uint32_t i = hasWideRegisters ? skipOwnWide(column, count, word) : skipAllOwn(column, count, word);
  while (i < count && column[i] != word) ++i;
  return from + i;
}

uint32_t findInSharedColumn(ColumnWord const* column, uint32_t from, uint32_t to, ColumnWord word) {
  uint32_t const count = to - from;
  uint32_t i = 0;
  for (; i < count && std::bit_cast<uintptr_t>(column + i) % sizeof(uint64_t) != 0; ++i) {
    if (loadRelaxed(column + i) == word) return from + i;
  }
  i = hasWideRegisters ? skipSharedWide(column, i, count, word) : skipAllShared(column, i, count, word);
  while (i < count && loadRelaxed(column + i) != word) ++i;
  return from + i;
}

}  // namespace Brine
