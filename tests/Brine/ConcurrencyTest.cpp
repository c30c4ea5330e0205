#include <gtest/gtest.h>
#include <sys/mman.h>

#include <atomic>
#include <mutex>
#include <random>
#include <thread>

#include "Brine/Copy.h"
#include "support/Child.h"
#include "support/Scale.h"

namespace {

using Brine::Mode;
using Brine::MountStatus;
using TestSupport::Child;
using Table = Brine::Table<TestRow>;

/// A row whose contents prove that they belong together.
TestRow rowOf(TestKey const& key, uint64_t count) {
  return {key, Brine::mixWords(key.number << 32 ^ key.group, count | 1), count};
}

/// One writer and three readers, each a process or a thread. Group 1 is always there and is overwritten;
/// group 2 comes and goes, and makes the table grow.
struct Party {
  static constexpr uint64_t lasting = 24;
  static constexpr uint64_t passing = 400;

  TestFolder const folder{};
  size_t const changes = TestSupport::scaled(2000000);
  TestSupport::Shared<std::atomic<size_t>> arrived{};

  void await(size_t count) const {
    while (*arrived < count) std::this_thread::yield();
  }

  void write() const {
    Table table;
    ASSERT_EQ(table.mount(folder.options(Mode::writer)), MountStatus::mounted) << table.mountDetail();
    for (uint64_t number = 0; number < lasting; ++number) table.write(rowOf({number, 1}, 1));
    table.endTurn();
    ++*arrived;
    await(4);
    std::mt19937 random(1);
    for (size_t change = 2; change < changes; ++change) {
      TestKey const key{random() % (1 + change * passing / changes), 2};
      switch (random() % 4) {
        case 0: table.erase(key); break;
        case 1: table.write(rowOf(key, change)); break;
        default: table.write(rowOf({random() % lasting, 1}, change)); break;
      }
      if (random() % 64 == 0) table.endTurn();
    }
    table.write(rowOf({0, 1}, changes));
    table.endTurn();
    ++*arrived;
    await(8);
  }

  void read(unsigned seed) const {
    await(1);
    Copy copy(folder, seed % 2 == 0 ? Mode::reader : Mode::keyshadow);
    ASSERT_EQ(copy.table.mountStatus(), MountStatus::mounted);
    ++*arrived;
    std::mt19937 random(seed);
    std::vector<uint64_t> counts(lasting, 0);
    auto const check = [&](TestRow const& row) {
      EXPECT_EQ(row, rowOf(row.key, row.other));
      copy.place(row.key, row);
      if (row.key.group != 1) return;
      EXPECT_GE(row.other, counts[row.key.number]) << "an older row than was shown before";
      counts[row.key.number] = row.other;
    };
    while (counts[0] < changes && !testing::Test::HasFailure()) {
      for (int i = 0; i < 50; ++i) {
        TestKey const key{random() % lasting, 1}, passed{random() % passing, 2};
        auto const row = copy.table.find(key), other = copy.table.find(passed);
        ASSERT_TRUE(row) << key << " is not found";
        ASSERT_TRUE(row->key == key && other.value_or(TestRow{passed}).key == passed);
        check(*row);
        other ? check(*other) : copy.place(passed, {});
      }
      std::vector<int> seen(lasting, 0);
      auto cursor = random() % 2 == 0 ? copy.table.walk() : copy.table.walk(1);
      while (auto const* row = cursor.next()) {
        check(*row);
        if (row->key.group == 1) ++seen[row->key.number];
      }
      EXPECT_EQ(seen, std::vector<int>(lasting, 1));
      copy.table.deliver();
    }
    ++*arrived;
    await(8);
    copy.table.deliver();
    if (seed % 2 != 0) {
      EXPECT_EQ(copy.rows(), rowsOf(copy.table));
    }
    expectSound(copy.table);
  }

  auto member(unsigned number) const {
    return [this, number](auto&&...) {
      try {
        number == 0 ? write() : read(number);
      } catch (std::exception const& error) {
        ADD_FAILURE() << error.what();
      }
      // Nobody waits for one that failed.
      if (testing::Test::HasFailure()) *arrived += 100;
    };
  }
};

TEST(Concurrency, RowsReadByOtherProcessesAreWhole) {
  Party const party;
  Child writer(party.member(0)), one(party.member(1)), two(party.member(2)), three(party.member(3));
  for (Child* const child : {&one, &two, &three, &writer}) EXPECT_EQ(child->wait(), 0);
}

/// All tables of the process share each mapping: the thread sanitizer knows memory by its address.
void* mapOnce(size_t size, int, int fd, off_t offset) {
  static std::mutex mutex;
  static std::map<std::tuple<ino_t, off_t, size_t>, void*> mappings;
  std::lock_guard const guard(mutex);
  struct stat status {};
  ::fstat(fd, &status);
  void*& address = mappings[{status.st_ino, offset, size}];
  // The writer is the first one to map anything.
  if (address == nullptr) address = Brine::realSystem().map(size, PROT_READ | PROT_WRITE, fd, offset);
  return address;
}

TEST(Concurrency, RowsReadByOtherThreadsAreWhole) {
  Brine::sys.map = mapOnce;
  Brine::sys.unmap = [](void*, size_t) { return 0; };
  Party const party;
  {
    std::jthread const writer(party.member(0)), one(party.member(1)), two(party.member(2)),
        three(party.member(3));
  }
  Brine::sys = Brine::realSystem();
}

}  // namespace
