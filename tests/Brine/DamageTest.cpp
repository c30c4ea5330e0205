#include <atomic>

#include "Brine/WriterAndCopy.h"
#include "support/Child.h"
#include "support/Scale.h"

namespace {

using TestSupport::Child;

class DamageTest : public WriterAndCopy {};

TEST_F(DamageTest, GrowthNamesTheDamageThatItComesUpon) {
  mount();
  fill(0, 16);
  fill(0, 16);
  // A row in another one's place, and one whose version names the former copy.
  editRow(folder_, 6,
          [this](std::string const& six) { editRow(folder_, 5, [&](std::string& five) { five = six; }); });
  editRow(folder_, 7, [](std::string& row) { row[0] = static_cast<char>(row[0] ^ 2); });
  std::string named;
  writer_.onCorruption = [&](std::string const& message) {
    named += message;
    write(20);
  };
  EXPECT_THROW(writer_.find({5, 1}), Brine::RowDamage);
  fill(16, 20);
  EXPECT_EQ(named, "row 5 is damaged, 2 in all");
  EXPECT_FALSE(writer_.find({5, 1}));
  EXPECT_EQ(rowsOf(writer_).size(), 19U);
  copy_.expectsDamage = true;
  expectFollowed();
}

TEST_F(DamageTest, AHeadThatIsAheadOfItsChangesHidesNoneOfThem) {
  auto const raiseHead = [this](uint64_t changes) {
    editFile(folder_, offsetof(Brine::Header, head), 8, [&](std::string& bytes) {
      uint64_t head = 0;
      bytes.copy(static_cast<char*>(static_cast<void*>(&head)), sizeof head);
      head += changes;
      bytes.assign(static_cast<char const*>(static_cast<void const*>(&head)), sizeof head);
    });
  };
  start(8);
  raiseHead(4);
  copy_.table.deliver();
  fill(0, 4);
  expectFollowed();
  // The same while the reader compares, behind its back.
  write(7);
  raiseHead(20);
  copy_.afterwards = play;
  interlude = [this] {
    for (uint64_t i = 0; i < 19; ++i) write(i % 7);
    writer_.endTurn();
  };
  copy_.table.deliver();
  EXPECT_FALSE(interlude);
  expectFollowed();
}

TEST_F(DamageTest, OfTwoRowsOfOneKeyTheLaterOneStays) {
  auto const writeTwin = [this] {
    auto const indexes = testLayout.extentOffset(0) + testLayout.indexOffset(0, 0);
    editFile(folder_, indexes, 2 * testLayout.indexBytes(0),
             [](std::string& all) { all.assign(all.size(), 0); });
    fill(1, 2);
    return writer_.find({1, 1});
  };
  start(3);
  auto const last = writeTwin();
  writer_.unmount();
  EXPECT_EQ(writer_.mount(folder_.options(Mode::writer)), MountStatus::corrupt);
  EXPECT_EQ(writer_.mountDetail(), "row 1 is an older one of its key, 1 in all");
  mount(true);
  EXPECT_EQ(writer_.find({1, 1}), last);
  EXPECT_EQ(rowsOf(writer_).size(), 3U);
  expectSound(writer_);
  expectFollowed();
}

TEST_F(DamageTest, AHeaderWordOfAnEarlierMomentHidesNoRow) {
  using Brine::Header;
  std::string const file = folder_.path() + "/table.table";
  copy_.expectsDamage = true;
  for (auto const& words : {std::vector{offsetof(Header, geometry)}, std::vector{offsetof(Header, highWater)},
                            std::vector{offsetof(Header, geometry), offsetof(Header, highWater)}}) {
    for (unsigned const rows : {17U, 200U}) {
      std::filesystem::remove(file);
      mount();
      fill(0, 16);
      std::map<size_t, std::string> former;
      for (size_t const word : words) {
        editFile(folder_, word, 8, [&](std::string& bytes) { former[word] = bytes; });
      }
      fill(16, rows);
      copy_.deliver();
      auto const written = rowsOf(writer_);
      writer_.unmount();
      auto const size = std::filesystem::file_size(file);
      for (auto const& each : former) {
        editFile(folder_, each.first, 8, [&](std::string& bytes) { bytes = each.second; });
      }
      // Where the file is longer by more than a growth, its length alone tells.
      std::string first(8, '\0');
      bool const isLonger = rows == 200 && former.contains(offsetof(Header, geometry));
      auto const swapFirst = [&](std::string& version) { isLonger ? version.swap(first) : void(); };
      editFile(folder_, testLayout.extentOffset(1), 8, swapFirst);
      EXPECT_EQ(writer_.mount(folder_.options(Mode::writer)), MountStatus::corrupt);
      EXPECT_EQ(std::filesystem::file_size(file), size) << "readers may have mapped it";
      editFile(folder_, testLayout.extentOffset(1), 8, swapFirst);
      mount(true);
      EXPECT_EQ(rowsOf(writer_), written);
      expectSound(writer_);
      expectFollowed();
      writer_.unmount();
    }
  }
}

TEST_F(DamageTest, ARepairMakesTheRingAnew) {
  start(40);
  editFile(folder_, testLayout.ringOffset(), 8 * testLayout.ringStride() * 16,
           [](std::string& ring) { ring.assign(ring.size(), 'x'); });
  writer_.unmount();
  mount(true);
  expectSound(writer_);
  fill(0, 3);
  expectFollowed();
}

TEST_F(DamageTest, AWritersFilteredWalkFindsARowWhoseColumnWordIsDamaged) {
  start(5);
  auto const column = testLayout.extentOffset(0) + testLayout.columnOffset(0);
  for (uint64_t const plane : {uint64_t{0}, testLayout.columnBytes(0)}) {
    editFile(folder_, column + plane + 3, 1, [](std::string& byte) { byte[0] ^= 1; });
    std::string named;
    writer_.onCorruption = [&](std::string const& message) { named = message; };
    size_t met = 0;
    for (auto cursor = writer_.walk(1); cursor.next() != nullptr;) ++met;
    EXPECT_EQ(met, 5U);
    write(1);
    writer_.endTurn();
    EXPECT_EQ(named, "the column's word of row 3 was damaged");
    expectSound(writer_);
  }
}

TEST_F(DamageTest, ALostChangeThatWasSeenIsNotTakenForALaterOne) {
  for (size_t between = 0; between < 32; ++between) {
    Child child([&](Child& parent) {
      mount();
      fill(1, 3);
      for (int i = 0; i < 27; ++i) write(1);
      parent.tell();
      parent.hear();
    });
    ASSERT_TRUE(child.hear());
    rowsOf(copy_.table);  // Which tells what it meets.
    child.kill();
    // Nothing is left that tells under which numbers it wrote, and others get them, perhaps.
    damageRow(folder_, 0);
    lastValue_ += 100;
    mount(true);
    for (size_t i = 0; i < between; ++i) write(2);
    fill(1, 2);
    expectFollowed();
    writer_.unmount();
  }
}

TEST_F(DamageTest, OfAnEarlierCopyThatIsPutBackEveryRowIsTold) {
  std::string const file = folder_.path() + "/table.table";
  start(8);
  writer_.unmount();
  std::filesystem::copy_file(file, file + ".kept");
  mount();
  fill(0, 8);
  copy_.deliver();
  writer_.unmount();
  std::filesystem::rename(file + ".kept", file);
  mount();
  fill(0, 8);
  expectFollowed();
}

TEST_F(DamageTest, AReaderNeverTakesATableForEmptyWhoseIndexIsRepaired) {
  start(3);
  writer_.unmount();
  editFile(folder_, offsetof(Brine::Header, geometry), 8, [](std::string& word) { word[7] ^= 1; });
  Brine::sys.advise = [](void* address, size_t size, int advice) {
    play();
    return Brine::realSystem().advise(address, size, advice);
  };
  interlude = [this] {
    EXPECT_THROW(copy_.table.find({1, 1}), Brine::CorruptionError);
    EXPECT_EQ(copy_.table.check().at(0).invariant, "geometry seal");
  };
  mount(true);
  EXPECT_FALSE(interlude);
  expectFollowed();
}

TEST_F(DamageTest, WritersThatAreKilledAndDamageThatIsRepairedLeaveTheCopyExact) {
  copy_.expectsDamage = true;
  TestSupport::Shared<std::atomic<uint64_t>> last;
  size_t const lives = 10 + TestSupport::scaled(60);
  for (size_t life = 0; life < lives && !HasFailure(); ++life) {
    Child child([&](Child&) {
      mount(true);
      for (lastValue_ = *last + 1000;; *last = lastValue_) {
        change(20 + life * 10);
        if (random_() % 8 == 0) writer_.endTurn();
      }
    });
    uint64_t const end = *last + 1000 + random_() % 2000;
    bool const isStopped = random_() % 3 == 0;
    while (*last < end) {
      if (!isStopped) copy_.table.deliver();
    }
    child.kill();
    if (random_() % 2 == 0) copy_.table.deliver();
    damageRow(folder_, random_() % 16);
    random_.discard(17);
  }
  mount(true);
  expectFollowed();
  expectSound(writer_);
  EXPECT_GT(writer_.statistics().dropped, 0U);
}

}  // namespace
