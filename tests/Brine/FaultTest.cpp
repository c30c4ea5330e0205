#include <sched.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <set>

#include "Brine/Copy.h"
#include "support/Child.h"

namespace {

using Brine::System, Brine::pageBytes;

/// Which calls fail, and how.
struct Plan {
  int call = -1;  ///< None.
  int error = 0;
  size_t first = 0;    ///< The call's number.
  bool lasts = false;  ///< All later ones too.
  size_t calls = 0;    ///< So far.
};
Plan plan;
constexpr int allocation = 6;

/// Stands in for one of the engine's system calls, and fails where the plan says so.
template <int number, auto member>
struct Stub;
template <int number, class Result, class... Arguments, Result (*System::*member)(Arguments...)>
struct Stub<number, member> {
  static Result call(Arguments... arguments) {
    size_t const index = number == plan.call ? plan.calls++ : 0;
    if (number != plan.call || index < plan.first || (index > plan.first && !plan.lasts)) {
      return (Brine::realSystem().*member)(arguments...);
    }
    errno = plan.error;
    if constexpr (std::is_pointer_v<Result>) return MAP_FAILED;
    if constexpr (!std::is_pointer_v<Result>) return number == allocation ? plan.error : -1;
  }
};

/// Installs them; returns their number.
template <int number>
int installStubs() {
  return number;
}
template <int number, auto member, auto... others>
int installStubs() {
  Brine::sys.*member = &Stub<number, member>::call;
  return installStubs<number + 1, others...>();
}

class FaultTest : public testing::Test {
 protected:
  ~FaultTest() override { Brine::sys = Brine::realSystem(); }

  bool write(Table& writer, uint64_t number) {
    TestRow const row{{number, 1}, ++lastValue_, 0};
    try {
      writer.write(row);
    } catch (Brine::SpaceError const&) {
      return false;
    }
    model_[row.key] = row;
    return true;
  }
  /// A writer's and a reader's life, from mount over growth to unmount.
  MountStatus live(TestFolder const& folder) {
    Table writer, reader;
    MountStatus const status = writer.mount(folder.options(Mode::writer));
    EXPECT_EQ(writer.mountDetail().empty(), status == MountStatus::mounted);
    for (uint64_t number = 0; status == MountStatus::mounted && number < 20; ++number) write(writer, number);
    writer.endTurn();
    reader.mount(folder.options(Mode::keyshadow));
    EXPECT_EQ(reader.mountDetail().empty(), reader.mountStatus() == MountStatus::mounted);
    reader.deliver();
    return status;
  }

  /// What a life begins with: no table, one to mount again, or one whose file has gone since.
  enum class Begin { without, again, anew };

  /// The same where calls fail, and what is left of it. Returns whether one failed.
  bool hasFailed(Plan const& failure, Begin begin) {
    TestFolder const folder;
    model_.clear();
    Table former;
    if (begin != Begin::without) former.mount(folder.options(Mode::writer));
    former.unmount();
    // A reader that is there throughout.
    Copy copy(folder, Mode::keyshadow);
    copy.table.deliver();
    EXPECT_EQ(copy.table.mountStatus(),
              begin == Begin::without ? MountStatus::noTable : MountStatus::writerGone);
    if (begin == Begin::anew) std::filesystem::remove(folder.path() + "/table.table");
    plan = failure;
    std::set<MountStatus> const expected = {MountStatus::mounted, MountStatus::notPermitted,
                                            MountStatus::busy, MountStatus::noSpace,
                                            MountStatus::noResources};
    EXPECT_TRUE(expected.contains(live(folder)));
    copy.table.deliver();
    bool const failed = plan.calls > plan.first;
    plan = {};
    Table writer;
    EXPECT_EQ(writer.mount(folder.options(Mode::writer)), MountStatus::mounted) << writer.mountDetail();
    EXPECT_EQ(rowsOf(writer), model_);
    expectSound(writer);
    copy.deliver();
    EXPECT_EQ(copy.rows(), model_);
    EXPECT_EQ(copy.table.mountStatus(), MountStatus::mounted);
    return failed;
  }

  Model model_;
  uint64_t lastValue_ = 0;
};

TEST_F(FaultTest, EverySystemCallMayFail) {
  int const stubs =
      installStubs<0, &System::openFile, &System::makeFolder, &System::status, &System::statusAt,
                   &System::changeMode, &System::truncate, &System::allocate, &System::map, &System::unmap,
                   &System::advise, &System::rename, &System::unlink, &System::lock, &System::writeAt,
                   &System::watchOpen, &System::watchAdd, &System::pollOpen, &System::pollAdd,
                   &System::timerOpen, &System::readAt>();
  size_t failures = 0;
  for (int call = 0; call < stubs; ++call) {
    for (int const error : {EACCES, EINTR, ENOSPC, ENOMEM, EMFILE}) {
      Begin const begin = error == EMFILE ? Begin::without : error == ENOMEM ? Begin::anew : Begin::again;
      for (bool const lasts : {false, true}) {
        // A signal that interrupts a reservation again and again only delays it.
        if (call == allocation && error == EINTR && lasts) continue;
        for (size_t first = 0;; ++first, ++failures) {
          SCOPED_TRACE("call " + std::to_string(call) + " number " + std::to_string(first) + ", error " +
                       std::to_string(error) + (lasts ? ", lasting" : ""));
          bool const failed = hasFailed({call, error, first, lasts}, begin);
          if (HasFailure()) return;
          if (!failed) break;
        }
      }
    }
  }
  EXPECT_GT(failures, 450U);
}

TEST_F(FaultTest, BeyondTheProcesssLimitAWriteIsRefused) {
  TestFolder const folder;
  TestSupport::Child child([&](TestSupport::Child&) {
    auto const limit = [](uint64_t bytes) {
      rlimit const both{bytes, RLIM_INFINITY};
      ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &both), 0);
    };
    Table writer;
    limit(testLayout.fileBytes(0) - 1);
    EXPECT_EQ(writer.mount(folder.options(Mode::writer)), MountStatus::noSpace);
    limit(testLayout.fileBytes(1));
    ASSERT_EQ(writer.mount(folder.options(Mode::writer)), MountStatus::mounted);
    for (uint64_t number = 0; number < 33; ++number) EXPECT_EQ(write(writer, number), number < 32);
    EXPECT_TRUE(write(writer, 3));
    writer.endTurn();
    writer.unmount();
    limit(pageBytes - 1);
    EXPECT_EQ(writer.mount(folder.options(Mode::writer)), MountStatus::noSpace);
  });
  EXPECT_EQ(child.wait(), 0);
}

TEST_F(FaultTest, ACopyWithHolesIsReadOnlyAfterAWriterHasFilledThem) {
  TestFolder const folder;
  Table writer;
  writer.mount(folder.options(Mode::writer));
  write(writer, 1);
  writer.unmount();
  ASSERT_EQ(
      std::system(
          ("cd " + folder.path() + " && cp -p --sparse=always table.table x && mv x table.table").c_str()),
      0);
  Table reader;
  EXPECT_EQ(reader.mount(folder.options(Mode::reader)), MountStatus::corrupt);
  EXPECT_EQ(reader.mountDetail(), "the file has holes, which its next writer fills");
  EXPECT_EQ(writer.mount(folder.options(Mode::writer)), MountStatus::mounted);
  reader.deliver();
  EXPECT_EQ(reader.mountStatus(), MountStatus::mounted);
  EXPECT_EQ(rowsOf(reader), model_);
}

class FullFileSystemTest : public FaultTest,
                           public testing::WithParamInterface<std::pair<char const*, uint64_t>> {};

INSTANTIATE_TEST_SUITE_P(Sizes, FullFileSystemTest,
                         testing::Values(std::pair("size=128k,mode=0700", 16),
                                         std::pair("size=32m,mode=0700", 65536)));

TEST_P(FullFileSystemTest, GrowthOnAFullFileSystemIsRefusedAndLeavesTheRowsAsTheyAre) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can mount a file system";
  TestFolder const folder;
  // The second one grows by huge pages.
  auto const size = GetParam().first;
  uint64_t const rows = GetParam().second;
  TestSupport::Child child([&](TestSupport::Child&) {
    // Seen by this process only, and gone with it.
    if (::unshare(CLONE_NEWNS) != 0 || ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        ::mount("none", folder.path().c_str(), "tmpfs", 0, size) != 0) {
      ::_exit(77);
    }
    Table writer;
    ASSERT_EQ(writer.mount(folder.options(Mode::writer)), MountStatus::mounted) << writer.mountDetail();
    Copy copy(folder, Mode::keyshadow);
    auto const expectRows = [&] {
      writer.endTurn();
      expectSound(writer);
      EXPECT_EQ(rowsOf(writer), model_);
      copy.deliver();
      EXPECT_EQ(copy.rows(), model_);
    };
    for (uint64_t number = 0; number < rows; ++number) write(writer, number);
    std::ofstream(folder.path() + "/filler") << std::string(1 << 26, 'x');
    for (int attempt = 0; attempt < 3; ++attempt) EXPECT_FALSE(write(writer, rows + 99));
    // All else goes on, a mount too.
    EXPECT_TRUE(write(writer, 3) && writer.erase({4, 1}) && write(writer, rows + 17));
    model_.erase({4, 1});
    expectRows();
    writer.unmount();
    ASSERT_EQ(writer.mount(folder.options(Mode::writer)), MountStatus::mounted) << writer.mountDetail();
    EXPECT_EQ(Table().mount(folder.options(Mode::writer, "other")), MountStatus::noSpace);
    expectRows();
    std::filesystem::remove(folder.path() + "/filler");
    for (uint64_t number = 20; number < 40; ++number) EXPECT_TRUE(write(writer, rows + number));
    expectRows();
  });
  int const status = child.wait();
  if (status == 77) GTEST_SKIP() << "this process may not mount a file system";
  EXPECT_EQ(status, 0);
}

}  // namespace
