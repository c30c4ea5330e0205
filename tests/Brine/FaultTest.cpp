#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <vector>

#include "Brine/Copy.h"
#include "support/Child.h"

namespace {

using Brine::Mode;
using Brine::MountStatus;
using Brine::System;
using Table = Brine::Table<TestRow>;

/// Which calls fail, and how.
struct Plan {
  int call = -1;  ///< None.
  int error = 0;
  size_t first = 0;    ///< The call's number.
  bool lasts = false;  ///< All later ones too.
  size_t calls = 0;    ///< So far.
};
Plan plan;

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
    if constexpr (std::is_pointer_v<Result>) {
      return MAP_FAILED;
    } else {
      return number == 6 ? plan.error : -1;
    }
  }
};

template <auto... members>
int installStubs() {
  int number = 0;
  auto const install = [&]<auto member, int index>() {
    Brine::sys.*member = &Stub<index, member>::call, ++number;
  };
  [&]<int... indexes>(std::integer_sequence<int, indexes...>) {
    (install.template operator()<members, indexes>(), ...);
  }
  (std::make_integer_sequence<int, sizeof...(members)>());
  return number;
}

class FaultTest : public testing::Test {
 protected:
  ~FaultTest() override { Brine::sys = Brine::realSystem(); }

  /// A writer's and a reader's life, from mount over growth to unmount.
  MountStatus live(TestFolder const& folder) {
    Table writer, reader;
    MountStatus const status = writer.mount(folder.options(Mode::writer));
    EXPECT_EQ(writer.mountDetail().empty(), status == MountStatus::mounted);
    for (uint64_t number = 0; status == MountStatus::mounted && number < 20; ++number) {
      TestRow const row{{number, 1}, ++lastValue_, 0};
      try {
        writer.write(row);
        model_[row.key] = row;
      } catch (Brine::SpaceError const& error) {
        EXPECT_NE(std::string(error.what()), "");
      }
    }
    writer.endTurn();
    reader.mount(folder.options(Mode::keyshadow));
    EXPECT_EQ(reader.mountDetail().empty(), reader.mountStatus() == MountStatus::mounted);
    try {
      reader.deliver();
    } catch (Brine::SpaceError const&) {
    }
    return status;
  }

  Model model_;
  uint64_t lastValue_ = 0;
};

TEST_F(FaultTest, EverySystemCallMayFail) {
  int const stubs = installStubs<&System::openFile, &System::makeFolder, &System::status, &System::statusAt,
                                 &System::changeMode, &System::truncate, &System::allocate, &System::map,
                                 &System::unmap, &System::populate, &System::rename, &System::unlink,
                                 &System::lock, &System::writeAt, &System::watchOpen, &System::watchAdd,
                                 &System::pollOpen, &System::pollAdd, &System::eventOpen>();
  size_t failures = 0;
  for (int call = 0; call < stubs; ++call) {
    for (int const error : {EACCES, EINTR, ENOSPC}) {
      for (bool const lasts : {false, true}) {
        // A signal that interrupts a reservation again and again only delays it.
        if (call == 6 && error == EINTR && lasts) continue;
        for (size_t first = 0;; ++first) {
          SCOPED_TRACE("call " + std::to_string(call) + " number " + std::to_string(first) + ", error " +
                       std::to_string(error) + (lasts ? ", lasting" : ""));
          TestFolder const folder;
          model_.clear();
          plan = {};
          // There is a table to mount again and a reader that is there throughout.
          ASSERT_EQ(Table().mount(folder.options(Mode::writer)), MountStatus::mounted);
          Copy copy(folder, Mode::keyshadow);
          copy.table.deliver();
          plan = {call, error, first, lasts};
          MountStatus const status = live(folder);
          try {
            copy.table.deliver();
          } catch (Brine::SpaceError const&) {
          }
          bool const isDone = plan.calls <= first;
          plan = {};
          EXPECT_TRUE(status == MountStatus::mounted || status == MountStatus::notPermitted ||
                      status == MountStatus::busy || status == MountStatus::noSpace ||
                      status == MountStatus::noResources);
          Table writer;
          ASSERT_EQ(writer.mount(folder.options(Mode::writer)), MountStatus::mounted) << writer.mountDetail();
          EXPECT_EQ(rowsOf(writer), model_);
          expectSound(writer);
          copy.deliver();
          EXPECT_EQ(copy.rows(), model_);
          EXPECT_EQ(copy.table.mountStatus(), MountStatus::mounted);
          if (HasFailure()) return;
          if (isDone) break;
          ++failures;
        }
      }
    }
  }
  EXPECT_GT(failures, 250U);
}

/// Fills a table's file system, checks that growth is refused without harm, makes room and goes on.
void growWithoutRoom(TestFolder const& folder, std::function<void(bool)> const& fill) {
  Table writer;
  ASSERT_EQ(writer.mount(folder.options(Mode::writer)), MountStatus::mounted) << writer.mountDetail();
  Copy copy(folder, Mode::keyshadow);
  Model model;
  auto const write = [&](uint64_t number, uint64_t value) {
    TestRow const row{{number, 1}, value, 0};
    writer.write(row);
    model[row.key] = row;
  };
  for (uint64_t number = 0; number < 16; ++number) write(number, 1);
  fill(true);
  for (int attempt = 0; attempt < 3; ++attempt) EXPECT_THROW(write(99, 2), Brine::SpaceError);
  // All else goes on.
  write(3, 3);
  writer.remove({4, 1});
  model.erase({4, 1});
  write(17, 4);
  writer.endTurn();
  expectSound(writer);
  EXPECT_EQ(rowsOf(writer), model);
  copy.deliver();
  EXPECT_EQ(copy.rows(), model);
  // So does a mount without room.
  writer.unmount();
  ASSERT_EQ(writer.mount(folder.options(Mode::writer)), MountStatus::mounted) << writer.mountDetail();
  EXPECT_EQ(rowsOf(writer), model);
  EXPECT_EQ(Table().mount(folder.options(Mode::writer, "other")), MountStatus::noSpace);
  fill(false);
  for (uint64_t number = 20; number < 40; ++number) write(number, 5);
  writer.endTurn();
  copy.deliver();
  EXPECT_EQ(copy.rows(), model);
  expectSound(writer);
}

TEST_F(FaultTest, GrowthWithoutRoomIsRefusedAndLeavesTheRowsAsTheyAre) {
  growWithoutRoom(TestFolder(), [](bool isFull) {
    if (isFull) Brine::sys.allocate = [](int, off_t, off_t) { return ENOSPC; };
    if (!isFull) Brine::sys.allocate = Brine::realSystem().allocate;
  });
}

TEST_F(FaultTest, TheSameOnAFullFileSystem) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can mount a file system";
  TestFolder const folder;
  TestSupport::Child child([&](TestSupport::Child&) {
    // Seen by this process only, and gone with it.
    if (::unshare(CLONE_NEWNS) != 0 || ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        ::mount("none", folder.path().c_str(), "tmpfs", 0, "size=128k,mode=0700") != 0) {
      ::_exit(77);
    }
    growWithoutRoom(folder, [&](bool isFull) {
      std::string const filler = folder.path() + "/filler";
      if (isFull) std::ofstream(filler) << std::string(1 << 20, 'x');
      if (!isFull) std::filesystem::remove(filler);
    });
  });
  int const status = child.wait();
  if (status == 77) GTEST_SKIP() << "this process may not mount a file system";
  EXPECT_EQ(status, 0);
}

}  // namespace
