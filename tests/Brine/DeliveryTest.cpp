#include <sys/mman.h>

#include "Brine/WriterAndCopy.h"
#include "support/Child.h"
#include "support/Scale.h"

namespace {

using TestSupport::Child;

class DeliveryTest : public WriterAndCopy {};

TEST_F(DeliveryTest, ATableThatGrowsWhileALappedReaderComparesIsComparedWhole) {
  mount();
  copy_.deliver();
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

TEST_F(DeliveryTest, AReaderWithoutAFreeDescriptorFollowsToANewFileWhenThereIsOne) {
  start(1);
  writer_.unmount();
  editFile(folder_, 0, 1, [](std::string& magic) { magic[0] ^= 1; });
  mount(true);
  fill(0, 2);
  Brine::sys.openFile = [](int, char const*, int, mode_t) { return errno = EMFILE, -1; };
  copy_.await();
  expectStatus(MountStatus::noResources);
  EXPECT_FALSE(copy_.isQuiesced());
  Brine::sys = Brine::realSystem();
  copy_.await(MountStatus::mounted);
  expectCopied(writer_);
}

TEST_F(DeliveryTest, AReaderThatRunsOutOfMemoryWhileItIsToldLosesNoChange) {
  start(16);
  write(0);
  writer_.remove({1, 1});
  writer_.endTurn();
  interlude = [this] {
    fill(16, 20);
    Brine::sys.map = [](size_t, int, int, off_t) { return errno = ENOMEM, MAP_FAILED; };
  };
  copy_.afterwards = play;
  expectStatus(MountStatus::noResources);
  EXPECT_TRUE(copy_.rows().contains({1, 1}));
  Brine::sys = Brine::realSystem();
  expectFollowed();
}

TEST_F(DeliveryTest, AWriterThatRestartsWhileItsReaderLooksIsSeenToBeThere) {
  mount();
  fill(0, 3);
  writer_.unmount();
  Brine::sys.writeAt = [](int fd, void const* data, size_t size, off_t offset) {
    play();
    return Brine::realSystem().writeAt(fd, data, size, offset);
  };
  interlude = [this] { copy_.table.deliver(); };
  mount();
  copy_.deliver();
  EXPECT_EQ(copy_.table.mountStatus(), MountStatus::mounted);
  // A file that is closed by somebody else has not lost its writer.
  std::fstream(folder_.path() + "/table.table", std::ios::in | std::ios::out).close();
  copy_.deliver();
  EXPECT_EQ(copy_.table.mountStatus(), MountStatus::mounted);
  expectCopied(writer_);
}

TEST_F(DeliveryTest, AWritersEndIsNoticedWhereItsEventIsLost) {
  Child child([this](Child& parent) {
    mount();
    parent.tell();
    parent.hear();
    // Without the end of its turn, so that only the end of the process tells of it.
    write(1);
    parent.tell();
    parent.hear();
  });
  ASSERT_TRUE(child.hear());
  copy_.deliver();
  child.tell();
  ASSERT_TRUE(child.hear());
  size_t queue = 0;
  std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> queue;
  std::string const other = folder_.path() + "/other";
  for (size_t file = 0; file <= queue; ++file) std::ofstream(other + std::to_string(file));
  child.kill();
  expectStatus(MountStatus::writerGone);
  EXPECT_EQ(copy_.rows().size(), 1U);
}

TEST_F(DeliveryTest, AHookThatRaisesIsWokenForTheRest) {
  mount();
  fill(0, 3);
  // Of another table, say.
  copy_.afterwards = [] { throw Brine::CorruptionError("enough for now"); };
  for (size_t told = 1; told <= 3; ++told) {
    ASSERT_TRUE(copy_.isAwake());
    EXPECT_THROW(copy_.table.deliver(), Brine::CorruptionError);
    EXPECT_EQ(copy_.rows().size(), told);
  }
  copy_.deliver();
  // Each second it is woken all the same.
  for (int look = 0; look < 3 && copy_.isAwake(); ++look) copy_.deliver();
  EXPECT_FALSE(copy_.isAwake());
  copy_.table.onMountStatus = [] { throw Brine::SpaceError("elsewhere"); };
  writer_.unmount();
  EXPECT_THROW(copy_.table.deliver(), Brine::SpaceError);
  EXPECT_EQ(copy_.table.mountStatus(), MountStatus::writerGone);
  EXPECT_THROW(copy_.table.unmount(), Brine::SpaceError);
  // Where nothing but the mount wakes it at once.
  EXPECT_THROW(copy_.remount(), Brine::SpaceError);
  EXPECT_TRUE(copy_.isAwake());
}

TEST_F(DeliveryTest, AReaderThatTakesOverInAHookIsNotToldOfItsOwnRows) {
  mount();
  fill(0, 5);
  Table heir;
  heir.mount(folder_.options(Mode::reader));
  heir.deliver();
  heir.onMountStatus = [&] {
    if (heir.mountStatus() != MountStatus::writerGone) return;
    heir.unmount();
    heir.mount(folder_.options(Mode::writer));
  };
  heir.onChanged = [](TestKey const& key) { ADD_FAILURE() << key; };
  writer_.unmount();
  heir.deliver();
  EXPECT_TRUE(heir.isWritable());
}

TEST_F(DeliveryTest, AGrowthThatRanOutOfMemoryCanBeMadeUpForAndGivesBackWhatItTook) {
  mount();
  fill(0, 16);
  Brine::sys.advise = [](void*, size_t, int) -> int { throw std::bad_alloc(); };
  EXPECT_THROW(write(16), std::bad_alloc);
  Brine::sys = Brine::realSystem();
  writer_.recover();
  auto const size = [this] { return std::filesystem::file_size(folder_.path() + "/table.table"); };
  EXPECT_EQ(size(), testLayout.fileBytes(1));
  // What the file has when a writer comes stays: somebody may have mapped it.
  writer_.unmount();
  mount();
  Brine::sys.map = [](size_t, int, int, off_t) { return errno = ENOMEM, MAP_FAILED; };
  EXPECT_THROW(write(16), Brine::SpaceError);
  EXPECT_EQ(size(), testLayout.fileBytes(1));
  Brine::sys = Brine::realSystem();
  fill(16, 32);
  Brine::sys.map = [](size_t, int, int, off_t) { return errno = ENOMEM, MAP_FAILED; };
  EXPECT_THROW(write(32), Brine::SpaceError);
  EXPECT_EQ(size(), testLayout.fileBytes(1));
  Brine::sys = Brine::realSystem();
  expectSound(writer_);
  expectFollowed();
}

TEST_F(DeliveryTest, TheLastChangeOfABurstArrivesWithoutAnotherEvent) {
  uint64_t const bursts = TestSupport::scaled(3000);
  Child child([&](Child& parent) {
    mount();
    uint64_t const wakes = writer_.statistics().wakes;
    for (uint64_t burst = 1; burst <= bursts; ++burst) {
      for (auto i = random_() % 50; i != 0; --i) change(50);
      writer_.write({{99, 1}, burst, 0});
      writer_.endTurn();
      writer_.endTurn();
      EXPECT_EQ(writer_.statistics().wakes, wakes + burst);
      parent.hear();
    }
  });
  for (uint64_t burst = 1; burst <= bursts; ++burst) {
    auto const hasArrived = [&] {
      auto const last = copy_.rows().find({99, 1});
      return last != copy_.rows().end() && last->second.value == burst && copy_.isQuiesced();
    };
    while (!hasArrived() && !HasFailure()) {
      copy_.await();
      copy_.table.deliver();
    }
    child.tell();
  }
  EXPECT_EQ(child.wait(), 0);
  expectCopied(copy_.table);
}

TEST_F(DeliveryTest, ADeliveryEndsThoughARowChangesWheneverItIsTold) {
  mount();
  Table reader;
  unsigned told = 0;
  auto const toggle = [this] {
    if (!writer_.erase({1, 1})) write(1);
  };
  reader.onChanged = [&](TestKey const&) {
    ++told;
    toggle();
    writer_.endTurn();
  };
  reader.mount(folder_.options(Mode::keyshadow));
  reader.deliver();
  for (int i = 0; i < 201; ++i) toggle();
  writer_.endTurn();
  for (unsigned deliveries = 1; deliveries <= 9; ++deliveries) {
    reader.deliver();
    EXPECT_LE(told, 3 * deliveries);
  }
  reader.onChanged = [&](TestKey const& key) { EXPECT_EQ(reader.find(key), writer_.find(key)); };
  reader.deliver();
  EXPECT_EQ(reader.find({1, 1}), writer_.find({1, 1}));
}

}  // namespace
