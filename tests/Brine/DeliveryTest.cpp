#include <atomic>
#include <fstream>
#include <random>

#include "Brine/Copy.h"
#include "support/Child.h"
#include "support/Scale.h"

namespace {

using Brine::Mode;
using Brine::MountStatus;
using Table = Brine::Table<TestRow>;

class DeliveryTest : public testing::Test {
 protected:
  ~DeliveryTest() override {
    Brine::sys = Brine::realSystem();
    interlude = nullptr;
  }

  /// What happens in the middle of the next system call of the kind that a test has chosen, once.
  static inline std::function<void()> interlude;
  static void play() {
    if (auto const once = std::exchange(interlude, nullptr)) once();
  }

  void start() {
    ASSERT_EQ(writer_.mount(folder_.options(Mode::writer)), MountStatus::mounted) << writer_.mountDetail();
    copy_.deliver();
  }
  /// A row that differs from all before.
  TestRow rowOf(uint64_t number) { return {{number, 1}, ++lastValue_, 0}; }
  void fill(uint64_t from, uint64_t to) {
    for (uint64_t number = from; number < to; ++number) writer_.write(rowOf(number));
    writer_.endTurn();
  }
  void expectCopied(Table const& table) {
    EXPECT_EQ(copy_.rows(), rowsOf(table));
    EXPECT_EQ(copy_.table.statistics().shadowKeys, copy_.rows().size());
  }

  TestFolder folder_;
  Table writer_;
  Copy copy_{folder_, Mode::keyshadow};
  uint64_t lastValue_ = 0;
};

TEST_F(DeliveryTest, ChangesBetweenTwoDeliveriesMerge) {
  start();
  fill(0, 3);
  writer_.remove({1, 1});
  writer_.write(rowOf(2));
  writer_.endTurn();
  EXPECT_EQ(copy_.table.deliver().changes, 2U);
  writer_.remove({0, 1});
  writer_.write(rowOf(0));
  writer_.write(rowOf(1));
  writer_.remove({1, 1});
  writer_.endTurn();
  EXPECT_EQ(copy_.table.deliver().changes, 1U);
  // What a look-up or a walk showed is not told again.
  writer_.remove({0, 1});
  fill(2, 4);
  copy_.find({0, 1});
  copy_.walk();
  EXPECT_EQ(copy_.table.deliver().changes, 0U);
  expectCopied(writer_);
}

TEST_F(DeliveryTest, AReaderLappedAThousandTimesIsToldTheSame) {
  start();
  std::mt19937 random(1);
  for (int round = 0; round < 3; ++round) {
    for (int change = 0; change < 16000; ++change) {
      uint64_t const number = random() % (20U + 10U * static_cast<unsigned>(round));
      if (random() % 2 == 0) {
        writer_.write(rowOf(number));
      } else {
        writer_.remove({number, 1});
      }
    }
    writer_.endTurn();
    EXPECT_LE(copy_.table.deliver().changes, 50U);
    expectCopied(writer_);
  }
  EXPECT_EQ(copy_.table.statistics().laps, 3U);
}

TEST_F(DeliveryTest, ATableThatGrowsWhileALappedReaderComparesIsComparedWhole) {
  start();
  fill(0, 17);
  Brine::sys.map = [](size_t size, int protection, int fd, off_t offset) {
    play();
    return Brine::realSystem().map(size, protection, fd, offset);
  };
  interlude = [this] { fill(17, 40); };
  copy_.table.deliver();
  EXPECT_FALSE(interlude);
  copy_.table.deliver();
  expectCopied(writer_);
}

TEST_F(DeliveryTest, AWriterThatRestartsWhileItsReaderLooksIsSeenToBeThere) {
  start();
  fill(0, 3);
  writer_.unmount();
  Brine::sys.writeAt = [](int fd, void const* data, size_t size, off_t offset) {
    play();
    return Brine::realSystem().writeAt(fd, data, size, offset);
  };
  interlude = [this] { copy_.table.deliver(); };
  start();
  EXPECT_EQ(copy_.table.mountStatus(), MountStatus::mounted);
  // A file that is closed by somebody else has not lost its writer.
  std::fstream(folder_.path() + "/table.table", std::ios::in | std::ios::out).close();
  copy_.deliver();
  EXPECT_EQ(copy_.table.mountStatus(), MountStatus::mounted);
  expectCopied(writer_);
}

TEST_F(DeliveryTest, AWritersEndIsNoticedWhereItsEventIsLost) {
  TestSupport::Child child([this](TestSupport::Child& parent) {
    start();
    parent.tell();
    while (parent.hear()) {
      // Without the end of its turn, so that only the end of the process tells of it.
      writer_.write(rowOf(1));
      parent.tell();
    }
  });
  ASSERT_TRUE(child.hear());
  copy_.deliver();
  child.tell();
  ASSERT_TRUE(child.hear());
  size_t queue = 0;
  std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> queue;
  for (size_t file = 0; file <= queue; ++file)
    std::ofstream(folder_.path() + "/other" + std::to_string(file));
  child.kill();
  copy_.table.deliver();
  EXPECT_EQ(copy_.table.mountStatus(), MountStatus::writerGone);
  EXPECT_EQ(copy_.rows().size(), 1U);
}

TEST_F(DeliveryTest, ATableMadeAnewInADirectoryMadeAnewIsFound) {
  start();
  fill(0, 3);
  copy_.deliver();
  writer_.unmount();
  std::filesystem::remove_all(folder_.path());
  copy_.table.deliver();
  EXPECT_EQ(copy_.rows().size(), 3U);
  // Made at the worst moment: when the reader has not found it and does not yet watch for it.
  Brine::sys.watchAdd = [](int fd, char const* path, uint32_t events) {
    int const watch = Brine::realSystem().watchAdd(fd, path, events);
    int const error = errno;
    if (watch < 0) play();
    errno = error;
    return watch;
  };
  Copy late(folder_, Mode::keyshadow);
  late.table.unmount();
  interlude = [this] {
    writer_.mount(folder_.options(Mode::writer));
    fill(2, 9);
  };
  late.remount();
  ASSERT_FALSE(interlude);
  for (Copy* const copy : {&copy_, &late}) {
    copy->await();
    copy->deliver();
    EXPECT_EQ(copy->table.mountStatus(), MountStatus::mounted);
    EXPECT_EQ(copy->rows(), rowsOf(writer_));
  }
}

TEST_F(DeliveryTest, AHookThatRaisesIsWokenForTheRest) {
  start();
  fill(0, 3);
  auto const hook = copy_.table.onChanged;
  copy_.table.onChanged = [&](TestKey const& key) {
    hook(key);
    throw std::runtime_error("enough for now");
  };
  for (size_t told = 1; told <= 3; ++told) {
    ASSERT_TRUE(copy_.isAwake());
    EXPECT_THROW(copy_.table.deliver(), std::runtime_error);
    EXPECT_EQ(copy_.rows().size(), told);
  }
  copy_.deliver();
  EXPECT_FALSE(copy_.isAwake());
}

TEST_F(DeliveryTest, TheLastChangeOfABurstArrivesWithoutAnotherEvent) {
  uint64_t const bursts = TestSupport::scaled(3000);
  TestSupport::Child child([&](TestSupport::Child& parent) {
    start();
    std::mt19937 random(1);
    uint64_t const wakes = writer_.statistics().wakes;
    for (uint64_t burst = 1; burst <= bursts; ++burst) {
      for (uint64_t change = random() % 50; change != 0; --change) writer_.write(rowOf(1 + random() % 50));
      writer_.write({{0, 1}, burst, 0});
      writer_.endTurn();
      writer_.endTurn();
      EXPECT_EQ(writer_.statistics().wakes, wakes + burst);
      parent.hear();
    }
  });
  for (uint64_t burst = 1; burst <= bursts; ++burst) {
    auto const arrived = [&] {
      auto const last = copy_.rows().find({0, 1});
      return last != copy_.rows().end() && last->second.value == burst && copy_.isQuiesced();
    };
    while (!arrived() && !HasFailure()) {
      copy_.await();
      copy_.table.deliver();
    }
    child.tell();
  }
  EXPECT_EQ(child.wait(), 0);
  expectCopied(copy_.table);
}

TEST_F(DeliveryTest, WritersThatAreKilledAndDamageThatIsRepairedLeaveTheCopyExact) {
  copy_.expectsDamage = true;
  TestSupport::Shared<std::atomic<uint64_t>> last;
  std::mt19937 random(1);
  size_t const lives = TestSupport::scaled(60);
  for (size_t life = 0; life < lives; ++life) {
    TestSupport::Child child([&](TestSupport::Child&) {
      Brine::MountOptions options = folder_.options(Mode::writer);
      options.repair = true;
      writer_.mount(options);
      for (lastValue_ = *last + 1000;; *last = lastValue_) {
        uint64_t const number = random() % (20 + life * 10);
        if (random() % 3 != 0) {
          writer_.write(rowOf(number));
        } else {
          writer_.remove({number, 1});
        }
        if (random() % 8 == 0) writer_.endTurn();
      }
    });
    uint64_t const end = *last + 1000 + random() % 2000;
    bool const isStopped = random() % 3 == 0;
    while (*last < end) {
      if (!isStopped) copy_.table.deliver();
    }
    child.kill();
    if (random() % 2 == 0) copy_.table.deliver();
    if (random() % 2 == 0) {
      std::fstream file(folder_.path() + "/table.table", std::ios::in | std::ios::out | std::ios::binary);
      file.seekp(static_cast<std::streamoff>(Brine::Layout(16, 16, 2, 4).extentOffset(0) + random() % 1024));
      file.put(static_cast<char>(random()));
    }
    random.discard(17);
    if (HasFailure()) return;
  }
  Brine::MountOptions options = folder_.options(Mode::writer);
  options.repair = true;
  ASSERT_EQ(writer_.mount(options), MountStatus::mounted);
  copy_.deliver();
  expectCopied(writer_);
  expectSound(writer_);
  EXPECT_GT(writer_.statistics().dropped, 0U);
}

}  // namespace
