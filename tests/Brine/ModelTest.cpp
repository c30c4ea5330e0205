
#include <random>
#include <set>

#include "Brine/Copy.h"

namespace {

/// A writer and readers in both modes under random operations, and what they must show. Every other seed's
/// writer has no turns: each of its changes is announced at once.
class ModelTest : public testing::TestWithParam<uint32_t> {
 protected:
  uint32_t below(uint32_t bound) { return static_cast<uint32_t>(random_() % bound); }
  TestKey anyKey() { return {below(100), below(4)}; }
  void mount() {
    Brine::MountOptions options = folder_.options(Mode::writer);
    options.turns = hasTurns_;
    ASSERT_EQ(writer_.mount(options), MountStatus::mounted) << writer_.mountDetail();
  }
  void remove(TestKey const& key) {
    auto const known = model_.find(key);
    auto const expected = known == model_.end() ? std::nullopt : std::optional(known->second);
    EXPECT_EQ(writer_.find(key), expected);
    EXPECT_EQ(writer_.remove(key), expected);
    model_.erase(key);
    removed_.insert(key);
  }
  void change() {
    TestKey const key = anyKey();
    if (below(3) == 0) return remove(key);
    TestRow const row{key, random_(), random_()};
    if (below(8) == 0) {
      writer_.find(anyKey());
      writer_.commit(&row);
    } else {
      EXPECT_EQ(writer_.write(row), !model_.contains(key));
    }
    model_[key] = row;
  }

  /// Walks over all rows or a group's, which change between any two steps. What is there throughout is shown
  /// exactly once.
  void walk(Table& table, std::optional<uint32_t> group) {
    Model const before = model_;
    std::set<TestKey> shown;
    removed_.clear();
    auto cursor = group ? table.walk(*group) : table.walk();
    while (auto const* const row = cursor.next()) {
      TestRow const current = *row;
      EXPECT_EQ(current, model_[current.key]);
      EXPECT_EQ(group.value_or(current.key.group), current.key.group);
      EXPECT_TRUE(shown.insert(current.key).second || removed_.contains(current.key)) << "shown twice";
      if (&table == &shadow_.table) {
        EXPECT_EQ(shadow_.rows().at(current.key), current) << "told of what it meets";
      }
      // The row that is shown may go too; for a reader it stays until the next step.
      if (below(4) == 0) remove(current.key);
      for (auto changes = below(8); changes != 0; --changes) change();
      if (&table != &writer_) {
        EXPECT_EQ(table.find(current.key), current);
      }
    }
    for (auto const& [key, row] : before) {
      bool const isDue = key.group == group.value_or(key.group) && !removed_.contains(key);
      EXPECT_TRUE(!isDue || shown.contains(key)) << key << " is not shown";
    }
  }

  /// Goes on behind a key; from the beginning where it has gone.
  void walkBehind(Table& table) {
    std::vector<TestRow> order;
    for (auto cursor = table.walk(); auto const* const row = cursor.next();) order.push_back(*row);
    if (order.empty()) return;
    size_t next = below(static_cast<uint32_t>(order.size()));
    TestKey const key = order[next].key;
    if (below(2) == 0) {
      remove(key);
      order.erase(order.begin() + static_cast<ptrdiff_t>(next));
      next = SIZE_MAX;
    }
    for (auto cursor = table.walkAfter(key); auto const* const row = cursor.next();) {
      EXPECT_EQ(*row, order.at(++next));
    }
    EXPECT_EQ(next + 1, order.size());
  }

  /// All that was written is published and has woken its readers, without an end of a turn where there are
  /// no turns.
  void publish() {
    if (hasTurns_) writer_.endTurn();
    EXPECT_TRUE(shadow_.isAwake() || shadow_.rows() == model_);
  }
  /// A delivery in which who is told of a change walks, or makes more of them.
  void deliverDisturbed() {
    shadow_.afterwards = [this, isWalking = false]() mutable {
      uint32_t const disturbance = isWalking ? 8 : below(8);
      if (disturbance < 3) change();
      if (disturbance == 0) writer_.endTurn();
      if (disturbance == 1) {
        isWalking = true;
        rowsOf(shadow_.table);
        isWalking = false;
      }
    };
    shadow_.table.deliver();
    shadow_.afterwards = [] {};
  }

  bool const hasTurns_ = GetParam() % 2 == 0;
  TestFolder const folder_;
  std::mt19937 random_{GetParam()};
  Table writer_;
  Copy shadow_{folder_, Mode::keyshadow};
  Copy reader_{folder_, Mode::reader};
  Model model_;
  std::set<TestKey> removed_;
};

TEST_P(ModelTest, RandomOperationsWithReopenInAllModes) {
  EXPECT_EQ(shadow_.table.mountStatus(), MountStatus::noTable);
  mount();
  shadow_.deliver();
  reader_.deliver();
  Table* const tables[] = {&writer_, &shadow_.table, &reader_.table};
  for (int step = 0; step < 3000 && !HasFailure(); ++step) {
    uint32_t const operation = below(200);
    if (operation == 0) {
      writer_.unmount();
      shadow_.table.deliver();
      EXPECT_EQ(shadow_.table.mountStatus(), MountStatus::writerGone);
      EXPECT_EQ(shadow_.rows(), model_);
      expectSound(shadow_.table);
      mount();
    } else if (operation == 1) {
      shadow_.remount();
    } else if (operation < 5) {
      walk(*tables[below(3)], below(2) == 0 ? std::nullopt : std::optional(below(4)));
    } else if (operation == 5) {
      walkBehind(below(2) == 0 ? writer_ : reader_.table);
    } else if (operation == 6) {
      std::vector<TestRow> expected;
      for (auto const& [key, row] : model_) expected.push_back(row);
      EXPECT_EQ(writer_.sorted(), expected);
      EXPECT_EQ(shadow_.table.sorted(), expected) << "and its owner is told all the same";
      EXPECT_EQ(writer_.statistics().rows, model_.size());
      writer_.endTurn();
      expectSound(writer_);
      reader_.deliver();
      EXPECT_EQ(reader_.rows(), model_);
      EXPECT_EQ(reader_.table.sorted(), expected);
    } else if (operation < 9) {
      shadow_.table.find(anyKey());
    } else if (operation == 9) {
      TestKey const keys[] = {anyKey(), anyKey(), anyKey()};
      for (Table* const table : tables) table->stage(keys);
    } else if (operation < 20) {
      publish();
      if (operation % 2 == 0) deliverDisturbed();
      publish();
      shadow_.deliver();
      EXPECT_EQ(shadow_.rows(), model_);
    } else if (operation < 30) {
      publish();
      if (shadow_.table.deliver(1).isMore) {
        EXPECT_TRUE(shadow_.isAwake());
      } else {
        EXPECT_EQ(shadow_.rows(), model_) << "told in parts";
      }
    } else {
      change();
    }
  }
  EXPECT_GT(writer_.statistics().capacity, 16U);
  EXPECT_GT(shadow_.table.statistics().laps, 0U);
  auto cursor = reader_.table.walkAfter({999, 9});
  EXPECT_EQ(*cursor.next(), *reader_.table.walk().next());
  reader_.table.unmount();
  EXPECT_EQ(cursor.next(), nullptr) << "a walk ends with its mount";
}

INSTANTIATE_TEST_SUITE_P(Seeds, ModelTest, testing::Range(0U, 20U));

}  // namespace
