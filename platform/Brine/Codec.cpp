#include "Brine/Codec.h"

#include "Brine/layout/Word.h"

namespace Brine {

uint64_t RowShape::fingerprint() const {
  uint64_t sum = mixWords(layoutVersion ^ 0xA0761D6478BD642FU, uint64_t{keyWords} << 32 | rowWords);
  auto const add = [&sum](uint64_t word) { sum = mixWords(sum ^ word, 0x9E3779B97F4A7C15U) + 1; };
  for (char const c : rowType) add(static_cast<unsigned char>(c));
  // The hash and the column are known by what they give for some keys.
  for (uint64_t probe = 1; probe <= 8; ++probe) {
    uint64_t key[maxKeyWords];
    for (uint64_t i = 0; i < maxKeyWords; ++i) key[i] = mixWords(probe, 0xD6E8FEB86659FD93U + i);
    add(hash(key));
    add(column(key));
  }
  return sum;
}

}  // namespace Brine
