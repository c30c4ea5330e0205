#include "fuzz/Images.h"

#include <gtest/gtest.h>

#include <random>

#include "support/Scale.h"

namespace {

TEST(Image, DamagedImagesShowNoRowThatWasNeverWrittenAndCanBeRepaired) {
  Images images;
  std::mt19937 random(1);
  size_t const count = TestSupport::scaled(200000);
  for (size_t i = 0; i < count; ++i) {
    uint8_t script[4 * Images::stepBytes];
    for (uint8_t& byte : script) byte = static_cast<uint8_t>(random());
    // Every other image has stale checks only.
    for (size_t step = 0; i % 2 == 0 && step < sizeof script; step += Images::stepBytes) script[step] &= 3;
    Images::Script const used(script, (1 + random() % 4) * Images::stepBytes);
    SCOPED_TRACE("image " + std::to_string(i));
    Images::Image const image = images.damaged(used);
    ASSERT_NO_THROW(images.read(image));
    if (i % 51 == 0) {
      ASSERT_NO_THROW(images.repair(image));
    }
  }
}

}  // namespace
