#pragma once

#include <atomic>
#include <cstdint>

/// Access to words that several processes share. Everything in a table is read and written as aligned 64-bit
/// words (the column: bytes), each access an atomic one that carries its own ordering; there are no
/// stand-alone fences, which the thread sanitizer would not understand. On x86 and for every order used here
/// these are plain moves.
namespace Brine {

static_assert(std::atomic_ref<uint64_t>::is_always_lock_free && std::atomic_ref<uint8_t>::is_always_lock_free,
              "words in shared memory must need no lock");

/// Reads a word that a later read must not overtake.
template <class Word>
inline Word loadAcquire(Word const* word) {
  // A read-only mapping may be read atomically; the reference type merely has no const form in C++20.
  return std::atomic_ref<Word>(*const_cast<Word*>(word)).load(std::memory_order_acquire);
}

template <class Word>
inline Word loadRelaxed(Word const* word) {
  return std::atomic_ref<Word>(*const_cast<Word*>(word)).load(std::memory_order_relaxed);
}

/// Writes a word that earlier writes must not follow.
template <class Word>
inline void storeRelease(Word* word, Word value) {
  std::atomic_ref<Word>(*word).store(value, std::memory_order_release);
}

template <class Word>
inline void storeRelaxed(Word* word, Word value) {
  std::atomic_ref<Word>(*word).store(value, std::memory_order_relaxed);
}

/// Asks for a cache line that is read, or written, a little later. The empty assembler statement keeps the
/// compiler from dropping calls of functions that do nothing else.
inline void prefetch(void const* address) {
  __builtin_prefetch(address, 0);
  asm volatile("");
}
inline void prefetchForWriting(void const* address) {
  __builtin_prefetch(address, 1);
  asm volatile("");
}

__extension__ using Wide = unsigned __int128;

/// Both halves of a full product, folded: every bit of either factor moves about half of the result's bits.
constexpr uint64_t mixWords(uint64_t a, uint64_t b) {
  Wide const product = Wide{a} * b;
  return static_cast<uint64_t>(product) ^ static_cast<uint64_t>(product >> 64);
}

/// A word that carries 32 bits and their check, so that a damaged one is told from a written one. `seed` is
/// the table's, `place` tells sealed words of one table apart.
constexpr uint64_t sealWord(uint64_t seed, uint64_t place, uint32_t payload) {
  uint64_t const check = mixWords(seed ^ 0xD6E8FEB86659FD93U, (place << 32 | payload) ^ 0xA0761D6478BD642FU);
  return check << 32 | payload;
}

constexpr bool isSealed(uint64_t seed, uint64_t place, uint64_t word) {
  return sealWord(seed, place, static_cast<uint32_t>(word)) == word;
}

}  // namespace Brine
