#pragma once

#include <cstdint>

#include "Brine/Codec.h"
#include "Brine/rows/Index.h"

namespace Brine {

/// A key as the engine handles it: its words, and what finds it in an index.
template <class Row>
struct KeyWords {
  using C = Codec<Row>;

  uint64_t words[C::keyWords];
  uint32_t hash;

  KeyWords() = default;
  /// From the words of a key or a row.
  [[gnu::always_inline]] explicit KeyWords(uint64_t const* keyWords) {
    // Word by word: a copy in one piece would wait for the stores of its words.
    for (unsigned i = 0; i < C::keyWords; ++i) words[i] = keyWords[i];
    hash = C::hash(words);
  }
  [[gnu::always_inline]] explicit KeyWords(typename C::Key const& key) {
    C::encodeKey(key, words);
    hash = C::hash(words);
  }
  static bool equal(uint64_t const* left, uint64_t const* right) {
    for (unsigned i = 0; i < C::keyWords; ++i) {
      if (left[i] != right[i]) return false;
    }
    return true;
  }
};

}  // namespace Brine
