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
using Table = Brine::Table<TestRow>;

/// A row whose contents prove that they belong together.
TestRow rowOf(TestKey const& key, uint64_t count) {
  return {key, Brine::mixWords(key.number << 32 ^ key.group, count | 1), count};
}

// Group 1 is always there and is overwritten; group 2 comes and goes, and makes the table grow.
constexpr uint64_t lasting = 24;
constexpr uint64_t passing = 400;

void write(TestFolder const& folder, size_t changes, std::atomic<size_t>& ready) {
  Table table;
  ASSERT_EQ(table.mount(folder.options(Mode::writer)), MountStatus::mounted) << table.mountDetail();
  for (uint64_t number = 0; number < lasting; ++number) table.write(rowOf({number, 1}, 1));
  table.endTurn();
  for (++ready; ready < 4;) std::this_thread::yield();
  std::mt19937 random(1);
  for (size_t change = 2; change < changes; ++change) {
    TestKey const key{random() % (1 + change * passing / changes), 2};
    switch (random() % 4) {
      case 0: table.remove(key); break;
      case 1: table.write(rowOf(key, change)); break;
      default: table.write(rowOf({random() % lasting, 1}, change)); break;
    }
    if (random() % 64 == 0) table.endTurn();
  }
  table.write(rowOf({0, 1}, changes));
  table.endTurn();
  for (++ready; ready < 8;) std::this_thread::yield();
}

void read(TestFolder const& folder, size_t changes, std::atomic<size_t>& ready, unsigned seed) {
  while (ready < 1) std::this_thread::yield();
  Copy copy(folder, seed % 2 == 0 ? Mode::reader : Mode::keyshadow);
  ASSERT_EQ(copy.table.mountStatus(), MountStatus::mounted);
  ++ready;
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
      TestKey const key{random() % lasting, 1};
      auto const row = copy.table.find(key);
      ASSERT_TRUE(row) << key << " is not found";
      check(*row);
      TestKey const passed{random() % passing, 2};
      auto const other = copy.table.find(passed);
      other ? check(*other) : copy.place(passed, {});
    }
    std::vector<int> seen(lasting, 0);
    auto const walk = [&](auto cursor) {
      while (auto const* row = cursor->next()) {
        check(*row);
        if (row->key.group == 1) ++seen[row->key.number];
      }
    };
    Brine::Cursor<TestRow> all = copy.table.walk(), some = copy.table.walk(1);
    walk(random() % 2 == 0 ? &all : &some);
    EXPECT_EQ(seen, std::vector<int>(lasting, 1));
    copy.table.deliver();
  }
  for (++ready; ready < 7;) std::this_thread::yield();
  copy.table.deliver();
  if (seed % 2 != 0) {
    EXPECT_EQ(copy.rows(), rowsOf(copy.table));
  }
  expectSound(copy.table);
  ++ready;
}

TEST(Concurrency, RowsReadByOtherProcessesAreWhole) {
  TestFolder const folder;
  size_t const changes = TestSupport::scaled(300000);
  TestSupport::Shared<std::atomic<size_t>> ready;
  using TestSupport::Child;
  Child writer([&](Child&) { write(folder, changes, *ready); });
  Child one([&](Child&) { read(folder, changes, *ready, 1); });
  Child two([&](Child&) { read(folder, changes, *ready, 2); });
  Child three([&](Child&) { read(folder, changes, *ready, 3); });
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
  TestFolder const folder;
  size_t const changes = TestSupport::scaled(300000);
  std::atomic<size_t> ready = 0;
  {
    std::jthread const writer([&] { write(folder, changes, ready); });
    std::jthread const one([&] { read(folder, changes, ready, 1); });
    std::jthread const two([&] { read(folder, changes, ready, 2); });
    std::jthread const three([&] { read(folder, changes, ready, 3); });
  }
  Brine::sys = Brine::realSystem();
}

}  // namespace
