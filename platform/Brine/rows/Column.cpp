#include "Brine/rows/Column.h"

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace Brine {
namespace {

constexpr unsigned blockRows = 64;

/// By atomic loads of eight low bytes at a time.
unsigned searchByWords(uint8_t const* low, uint8_t const* high, unsigned blocks, ColumnWord word,
                       ColumnBlock* found) {
  constexpr uint64_t ones = 0x0101010101010101U;
  auto const lowByte = static_cast<uint8_t>(word);
  auto const highByte = static_cast<uint8_t>(word >> 8);
  unsigned count = 0;
  for (unsigned block = 0; block < blocks; ++block) {
    uint64_t rows = 0;
    for (unsigned i = 0; i < blockRows; i += sizeof(uint64_t)) {
      uint8_t const* const bytes = low + block * blockRows + i;
      uint64_t const differences =
          loadRelaxed(static_cast<uint64_t const*>(static_cast<void const*>(bytes))) ^ lowByte * ones;
      // Whether one of its bytes is zero.
      if (((differences - ones) & ~differences & ones << 7) == 0) continue;
      for (unsigned row = i; row < i + sizeof(uint64_t); ++row) {
        bool const isMatch = loadRelaxed(low + block * blockRows + row) == lowByte &&
                             loadRelaxed(high + block * blockRows + row) == highByte;
        rows |= uint64_t{isMatch} << row;
      }
    }
    if (rows != 0) found[count++] = {block * blockRows, rows};
  }
  return count;
}

#if defined(__x86_64__)

// Two passes: the first one lists the blocks that have the low byte, a quarter of them where the words are
// spread evenly, the second one those of them that have the word. Both without a branch on what they read,
// since none could be foreseen.
//
// The loads are within assembler statements: other processes may be storing these bytes, and the language has
// no atomic access that is as wide. No load tears a byte, which is all that is asked of it.

/// Which of the 32 bytes there are like those wanted, all bits of each.
[[gnu::target("avx2"), gnu::always_inline]] inline __m256i hits32(uint8_t const* bytes, __m256i wanted) {
  __m256i hits;
  asm("vpcmpeqb %1, %2, %0"
      : "=x"(hits)
      : "m"(*static_cast<__m256i const*>(static_cast<void const*>(bytes))), "x"(wanted));
  return hits;
}

[[gnu::target("avx2")]] unsigned searchBy32(uint8_t const* low, uint8_t const* high, unsigned blocks,
                                            ColumnWord word, ColumnBlock* found) {
  __m256i const lows = _mm256_set1_epi8(static_cast<char>(word));
  __m256i const highs = _mm256_set1_epi8(static_cast<char>(word >> 8));
  uint32_t likely[Column::blocksPerSearch];
  size_t likelyCount = 0;
  for (size_t first = 0; first < size_t{blocks} * blockRows; first += blockRows) {
    __m256i const hits = _mm256_or_si256(hits32(low + first, lows), hits32(low + first + 32, lows));
    likely[likelyCount] = static_cast<uint32_t>(first);
    likelyCount += _mm256_movemask_epi8(hits) != 0;
  }
  size_t count = 0;
  for (size_t i = 0; i < likelyCount; ++i) {
    size_t const first = likely[i];
    auto const hitsFrom = [&](size_t row) __attribute__((target("avx2"), always_inline)) {
      __m256i const hits = _mm256_and_si256(hits32(low + row, lows), hits32(high + row, highs));
      return uint64_t{static_cast<uint32_t>(_mm256_movemask_epi8(hits))};
    };
    uint64_t const rows = hitsFrom(first) | hitsFrom(first + 32) << 32;
    found[count] = {likely[i], rows};
    count += rows != 0;
  }
  return static_cast<unsigned>(count);
}

#endif

}  // namespace

unsigned Column::find(uint32_t from, uint32_t to, ColumnWord word, ColumnBlock* found) const {
  uint32_t const begin = (from - first_) / blockRows * blockRows;
  uint32_t const blocks = (to - first_ - begin + blockRows - 1) / blockRows;
#if defined(__x86_64__)
  static auto const search = __builtin_cpu_supports("avx2") ? searchBy32 : searchByWords;
#else
  constexpr auto search = searchByWords;
#endif
  unsigned const count = search(low_ + begin, high_ + begin, blocks, word, found);
  unsigned kept = 0;
  for (unsigned i = 0; i < count; ++i) {
    ColumnBlock block = found[i];
    block.first += first_ + begin;
    // Neither rows in front of `from` nor those behind `to`.
    if (block.first < from) block.rows &= ~uint64_t{0} << (from - block.first);
    if (to - block.first < blockRows) block.rows &= (uint64_t{1} << (to - block.first)) - 1;
    found[kept] = block;
    kept += block.rows != 0;
  }
  return kept;
}

}  // namespace Brine
