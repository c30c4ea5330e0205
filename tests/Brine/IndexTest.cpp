#include "Brine/rows/Index.h"

#include <gtest/gtest.h>

#include <random>

TEST(IndexTest, TheFastSearchOfALineFindsTheLanesOfATag) {
  std::mt19937_64 random(1);
  uint16_t const tags[] = {0, 1, 0x7FFF, 0x8000, 0xFFFF};
  for (unsigned i = 0; i < 2000; ++i) {
    uint64_t words[3] = {random(), random(), random()};  // The last one holds more than tags.
    for (unsigned lane = 0; lane < Brine::lanesPerLine; ++lane) {
      uint64_t& word = words[lane / 4];
      unsigned const shift = lane % 4 * 16;
      word = (word & ~(uint64_t{0xFFFF} << shift)) | uint64_t{tags[random() % 5]} << shift;
    }
    for (uint16_t const tag : tags) {
      ASSERT_EQ(Brine::lanesWithTag(tag, words[0], words[1], words[2]),
                Brine::lanesWithTagAnywhere(tag, words[0], words[1], words[2]));
    }
  }
}
