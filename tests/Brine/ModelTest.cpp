#include <gtest/gtest.h>

#include <map>
#include <random>
#include <set>

#include "Brine/Copy.h"

namespace {

using Brine::Mode;
using Brine::MountStatus;
using Table = Brine::Table<TestRow>;

TEST(Model, RandomOperationsWithReopenInAllModes) {
  for (uint32_t seed = 1; seed <= 20; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    auto const below = [&random](uint32_t bound) { return static_cast<uint32_t>(random() % bound); };
    auto const anyKey = [&] { return TestKey{below(100), below(4)}; };
    TestFolder const folder;
    Table writer;
    Copy shadow(folder, Mode::keyshadow);
    Copy reader(folder, Mode::reader);
    EXPECT_EQ(shadow.table.mountStatus(), MountStatus::noTable);
    ASSERT_EQ(writer.mount(folder.options(Mode::writer)), MountStatus::mounted) << writer.mountDetail();
    Model model;
    for (int step = 0; step < 3000; ++step) {
      TestKey const key = anyKey();
      switch (below(20)) {
        default: {
          TestRow const row{key, random(), random()};
          EXPECT_EQ(writer.write(row), !model.contains(key));
          model[key] = row;
          break;
        }
        case 7:
        case 8:
        case 9:
        case 10:
        case 11: {
          auto const known = model.find(key);
          auto const expected = known == model.end() ? std::nullopt : std::optional(known->second);
          EXPECT_EQ(writer.find(key), expected);
          EXPECT_EQ(writer.remove(key), expected);
          model.erase(key);
          break;
        }
        case 12: {
          TestRow const row{key, random(), random()};
          writer.find(anyKey());
          writer.commit(&row);
          model[key] = row;
          break;
        }
        case 13: {
          TestKey const keys[] = {key, anyKey(), anyKey()};
          writer.stage(keys);
          shadow.table.stage(keys);
          break;
        }
        case 14:
          writer.endTurn();
          shadow.deliver();
          EXPECT_EQ(shadow.rows(), model);
          break;
        case 15:
          shadow.find(key);
          shadow.walk();
          break;
        case 16: {
          // A walk over one group, in which its rows go.
          std::set<TestKey> left;
          for (auto const& [known, row] : model) {
            if (known.group == key.group) left.insert(known);
          }
          for (auto cursor = writer.walk(key.group); auto const* row = cursor.next();) {
            EXPECT_EQ(left.erase(row->key), 1U);
            EXPECT_EQ(model[row->key], *row);
            if (below(2) == 0) model.erase(writer.remove(row->key)->key);
          }
          EXPECT_TRUE(left.empty());
          break;
        }
        case 17:
          if (below(20) == 0) {
            writer.unmount();
            EXPECT_EQ(shadow.table.deliver().mayHaveMissedRemovals, false);
            EXPECT_EQ(shadow.table.mountStatus(), MountStatus::writerGone);
            EXPECT_EQ(shadow.rows(), model);
            EXPECT_TRUE(shadow.table.check().empty());
            ASSERT_EQ(writer.mount(folder.options(Mode::writer)), MountStatus::mounted)
                << writer.mountDetail();
          }
          break;
        case 18:
          if (below(20) == 0) shadow.remount();
          break;
        case 19: {
          std::vector<TestRow> expected;
          for (auto const& [known, row] : model) expected.push_back(row);
          EXPECT_EQ(writer.sorted(), expected);
          EXPECT_EQ(writer.statistics().rows, model.size());
          writer.endTurn();
          auto const violations = writer.check();
          EXPECT_TRUE(violations.empty()) << violations[0].invariant << ": " << violations[0].detail;
          if (!reader.table.deliver().mayHaveMissedRemovals) {
            EXPECT_EQ(reader.table.sorted(), expected);
          }
          break;
        }
      }
      if (HasFailure()) return;
    }
    writer.endTurn();
    shadow.deliver();
    EXPECT_EQ(shadow.rows(), model);
    EXPECT_GT(writer.statistics().capacity, 16U);
    EXPECT_GT(shadow.table.statistics().laps, 0U);
  }
}

}  // namespace
