#include "Brine/rows/Crc32c.h"

#include <gtest/gtest.h>

#include <random>

namespace {

uint32_t ofFourWords(uint64_t word) {
  uint64_t sum = 0xFFFFFFFFU;
  for (unsigned i = 0; i < 4; ++i) sum = Brine::addByTable(sum, word);
  return ~static_cast<uint32_t>(sum);
}

}  // namespace

// The sums that are published for 32 octets of zeros, and of ones.
TEST(Crc32cTest, BothWaysGiveTheKnownSums) {
  EXPECT_EQ(ofFourWords(0), 0x8A9136AAU);
  EXPECT_EQ(ofFourWords(~uint64_t{0}), 0x62A8AB43U);
  if (!Brine::hasCrc32c()) GTEST_SKIP() << "the processor has no instruction for it";
  std::mt19937_64 random(1);
  for (unsigned i = 0; i < 1000; ++i) {
    uint64_t const sum = random() >> 32, word = random();
    ASSERT_EQ(Brine::addByProcessor(sum, word), Brine::addByTable(sum, word)) << sum << " " << word;
  }
}
