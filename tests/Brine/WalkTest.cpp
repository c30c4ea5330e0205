#include <gtest/gtest.h>

#include <random>
#include <set>

#include "Brine/Copy.h"

namespace {

using Brine::Mode;
using Table = Brine::Table<TestRow>;

/// Walks of a writer and of a reader, whole and of a group, while the writer changes rows between any two
/// steps.
class WalkTest : public testing::TestWithParam<std::tuple<Mode, bool>> {
 protected:
  void SetUp() override {
    writer_.mount(folder_.options(Mode::writer));
    for (uint64_t number = 0; number < 30; ++number) write(number);
    reader_.mount(folder_.options(Mode::keyshadow));
  }
  void write(uint64_t number) {
    TestRow const row{{number, static_cast<uint32_t>(number % 3)}, ++lastValue_, 0};
    writer_.write(row);
    model_[row.key] = row;
  }
  void remove(TestKey const& key) {
    writer_.remove(key);
    model_.erase(key);
  }
  Table& table() { return std::get<0>(GetParam()) == Mode::writer ? writer_ : reader_; }
  auto walk() { return std::get<1>(GetParam()) ? table().walk(1) : table().walk(); }
  bool isWalked(TestKey const& key) const { return !std::get<1>(GetParam()) || key.group == 1; }

  TestFolder const folder_;
  Table writer_, reader_;
  Model model_;
  uint64_t lastValue_ = 0;
};

TEST_P(WalkTest, ShowsWhatIsThereThroughoutOnce) {
  std::mt19937 random(1);
  for (int round = 0; round < 200; ++round) {
    std::set<TestKey> due;
    for (auto const& [key, row] : model_) {
      if (isWalked(key)) due.insert(key);
    }
    std::set<TestKey> shown;
    for (auto cursor = walk(); auto const* const row = cursor.next();) {
      TestKey const key = row->key;
      ASSERT_TRUE(isWalked(key));
      EXPECT_EQ(*row, model_[key]);
      EXPECT_TRUE(shown.insert(key).second || !due.contains(key)) << key << " is shown twice";
      due.erase(key);
      // The current row too may go; it stays readable where it is pinned.
      TestRow const before = *row;
      for (auto change = random() % 12; change != 0; --change) {
        TestKey const other{random() % (30U + static_cast<unsigned>(round)), 0};
        TestKey const gone =
            random() % 4 == 0 ? key : TestKey{other.number, static_cast<uint32_t>(other.number % 3)};
        if (random() % 2 == 0) {
          remove(gone);
          due.erase(gone);
          shown.erase(gone);
        } else if (!due.contains(gone) || random() % 2 == 0) {
          write(gone.number);
        }
      }
      if (&table() == &reader_) {
        EXPECT_EQ(reader_.find(key), before);
      }
    }
    EXPECT_TRUE(due.empty()) << *due.begin() << " is not shown";
  }
  EXPECT_GT(writer_.statistics().capacity, 32U);
}

TEST_P(WalkTest, GoesOnBehindAKeyAndEndsWithItsMount) {
  std::vector<TestRow> order;
  for (auto cursor = table().walk(); auto const* row = cursor.next();) order.push_back(*row);
  ASSERT_EQ(order.size(), 30U);
  for (size_t place = 0; place < order.size(); ++place) {
    // Also behind the place of a key that went.
    if (place % 2 == 0) writer_.remove(order[place].key);
    size_t next = place;
    for (auto cursor = table().walkAfter(order[place].key); auto const* row = cursor.next();) {
      EXPECT_EQ(*row, order.at(++next));
    }
    EXPECT_EQ(next + 1, order.size());
    if (place % 2 == 0) writer_.write(order[place]);
  }
  EXPECT_EQ(table().sorted().size(), 30U);
  EXPECT_TRUE(std::is_sorted(order.begin(), order.end(), [](auto& a, auto& b) { return a.key < b.key; }) ||
              table().sorted() != order);
  auto cursor = table().walkAfter({99, 9});
  EXPECT_EQ(*cursor.next(), order[0]);
  table().unmount();
  EXPECT_EQ(cursor.next(), nullptr);
}

INSTANTIATE_TEST_SUITE_P(Modes, WalkTest,
                         testing::Combine(testing::Values(Mode::writer, Mode::keyshadow), testing::Bool()));

}  // namespace
