#include "Brine/rows/Column.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

using Brine::Column;

namespace {

struct Planes {
  alignas(64) uint8_t low[Column::rowsPerSearch];
  alignas(64) uint8_t high[Column::rowsPerSearch];
};

}  // namespace

// Low bytes alone, high bytes alone, neighbours and rows outside of the range are no matches.
TEST(ColumnTest, EachSearchFindsTheRowsOfAWordAndNoOthers) {
  constexpr uint32_t first = 16;  // Of an extent.
  static Planes planes;
  Column const column(planes.low, planes.high, first);
  auto below = [random = std::mt19937(1)](uint32_t bound) mutable {
    return static_cast<uint32_t>(random() % bound);
  };
  for (unsigned const values : {1U, 3U, 400U, 65'280U}) {
    std::vector<Brine::ColumnWord> words;
    for (uint32_t row = 0; row < Column::rowsPerSearch; ++row) {
      words.push_back(below(8) == 0 ? Brine::noColumn : Brine::columnWordOf(below(values) * 129));
      column.wordIs(first + row, words.back());
      ASSERT_EQ(column.word(first + row), words.back());
    }
    for (unsigned i = 0; i < 200; ++i) {
      uint32_t const from = first + below(Column::rowsPerSearch - 200);
      uint32_t const to = from + 1 + below(199);
      auto const word = words[i % 2 == 0 ? from - first : below(Column::rowsPerSearch)];
      if (word == Brine::noColumn) continue;
      std::vector<uint32_t> expected, found;
      for (uint32_t id = from; id < to; ++id) {
        if (words[id - first] == word) expected.push_back(id);
      }
      Brine::ColumnBlock blocks[Column::blocksPerSearch];
      unsigned const count = column.find(from, to, word, blocks);
      for (Brine::ColumnBlock const& block : std::span(blocks, count)) {
        for (unsigned bit = 0; bit < 64; ++bit) {
          if ((block.rows >> bit & 1) != 0) found.push_back(block.first + bit);
        }
      }
      ASSERT_EQ(found, expected) << "of " << word << " from " << from << " to " << to;
    }
    std::vector<std::pair<uint32_t, uint64_t>> expected;
    for (Brine::ColumnSearch const search : Brine::columnSearches()) {
      Brine::ColumnBlock blocks[Column::blocksPerSearch];
      unsigned const count = search(planes.low, planes.high, Column::blocksPerSearch, words[5], blocks);
      std::vector<std::pair<uint32_t, uint64_t>> found;
      for (unsigned i = 0; i < count; ++i) found.emplace_back(blocks[i].first, blocks[i].rows);
      if (expected.empty()) expected = found;
      EXPECT_EQ(found, expected);
    }
  }
}
