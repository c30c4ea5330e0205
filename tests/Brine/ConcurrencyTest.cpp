#include <sys/mman.h>

#include <atomic>
#include <mutex>
#include <random>
#include <thread>

#include "Brine/Copy.h"
#include "support/Scale.h"

namespace {

/// A row whose contents prove that they belong together.
TestRow rowOf(TestKey const& key, uint64_t count) {
  return {key, Brine::mixWords(key.number << 32 ^ key.group, count | 1), count};
}

/// A writer and three readers. Group 1 is always there and is overwritten; group 2 comes and goes, and makes
/// the table grow.
class ConcurrencyTest : public testing::Test {
 protected:
  static constexpr uint64_t lasting = 24;
  static constexpr uint64_t passing = 400;

  ~ConcurrencyTest() override { Brine::sys = Brine::realSystem(); }

  /// Waits until so many have come here in all.
  void await(size_t count) {
    for (++arrived_; arrived_ < count && !HasFailure();) std::this_thread::yield();
  }

  void write() {
    Table table;
    ASSERT_EQ(table.mount(folder_.options(Mode::writer)), MountStatus::mounted) << table.mountDetail();
    for (uint64_t number = 0; number < lasting; ++number) table.write(rowOf({number, 1}, 1));
    table.endTurn();
    await(4);
    std::mt19937 random(1);
    for (size_t change = 2; change < changes_; ++change) {
      TestKey const key{random() % (1 + change * passing / changes_), 2};
      switch (random() % 4) {
        case 0: table.erase(key); break;
        case 1: table.write(rowOf(key, change)); break;
        default: table.write(rowOf({random() % lasting, 1}, change)); break;
      }
      if (random() % 64 == 0) table.endTurn();
    }
    table.write(rowOf({0, 1}, changes_));
    table.endTurn();
    await(8);
    await(12);
  }

  void read(unsigned seed) {
    while (arrived_ == 0 && !HasFailure()) std::this_thread::yield();
    Copy copy(folder_, seed % 2 == 0 ? Mode::reader : Mode::keyshadow);
    ASSERT_EQ(copy.table.mountStatus(), MountStatus::mounted);
    await(4);
    std::mt19937 random(seed);
    std::vector<uint64_t> counts(lasting, 0);
    auto const check = [&](TestRow const& row) {
      EXPECT_EQ(row, rowOf(row.key, row.other));
      copy.place(row.key, row);
      if (row.key.group != 1) return;
      EXPECT_GE(row.other, counts[row.key.number]) << "an older row than was shown before";
      counts[row.key.number] = row.other;
    };
    while (counts[0] < changes_ && !HasFailure()) {
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
      expectSound(copy.table);
      copy.table.deliver();
    }
    await(8);
    copy.table.deliver();
    if (seed % 2 != 0) {
      EXPECT_EQ(copy.rows(), rowsOf(copy.table));
    }
    expectSound(copy.table);
    await(12);
  }

  TestFolder const folder_;
  size_t const changes_ = TestSupport::scaled(2000000);
  std::atomic<size_t> arrived_ = 0;
};

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

TEST_F(ConcurrencyTest, RowsReadByOtherThreadsAreWhole) {
  Brine::sys.map = mapOnce;
  Brine::sys.unmap = [](void*, size_t) { return 0; };
  std::jthread const writer([this] { write(); });
  std::jthread const one([this] { read(1); });
  std::jthread const two([this] { read(2); });
  std::jthread const three([this] { read(3); });
}

}  // namespace
