#include <fcntl.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <thread>

#include "Brine/Copy.h"
#include "support/Child.h"
#include "support/Scale.h"

namespace {

using TestSupport::Child;

MountStatus tryToWrite(TestFolder const& folder) { return Table().mount(folder.options(Mode::writer)); }

TEST(Claim, OfTwoWritersThatRaceOneWins) {
  struct Race {
    std::atomic<size_t> arrived = 0, mounted = 0, busy = 0;
    void wait(size_t count) {
      for (++arrived; arrived < count;) ::sched_yield();
    }
  };
  TestFolder const folder;
  TestSupport::Shared<Race> race;
  size_t const rounds = TestSupport::scaled(500);
  auto const run = [&](Child&) {
    for (size_t round = 0; round < rounds; ++round) {
      race->wait(4 * round + 2);
      Table table;
      MountStatus const status = table.mount(folder.options(Mode::writer));
      ++(status == MountStatus::mounted ? race->mounted : race->busy);
      EXPECT_TRUE(status == MountStatus::mounted || status == MountStatus::busy) << table.mountDetail();
      race->wait(4 * round + 4);
    }
  };
  Child one(run), other(run);
  EXPECT_EQ(one.wait() + other.wait(), 0);
  EXPECT_EQ(race->mounted, rounds);
  EXPECT_EQ(race->busy, rounds);
}

TEST(Claim, EndsWithItsProcessAlsoWhereAForkedChildLivesOn) {
  TestFolder const folder;
  TestSupport::Shared<std::atomic<pid_t>> orphan;
  Child writer([&](Child& parent) {
    Table table;
    table.mount(folder.options(Mode::writer));
    table.write({{1, 1}, 1, 1});
    pid_t const forked = ::fork();
    if (forked == 0) {
      EXPECT_THROW(table.write({{2, 1}, 1, 1}), Brine::ReadOnlyError);
      EXPECT_THROW(table.remove({1, 1}), Brine::ReadOnlyError);
      EXPECT_EQ(tryToWrite(folder), MountStatus::busy);
      EXPECT_FALSE(table.find({1, 1}));
    } else {
      *orphan = forked;
    }
    if (!testing::Test::HasFailure()) parent.tell();
    // The forked one with everything that it inherited, until it is killed.
    for (;;) ::pause();
  });
  Copy copy(folder, Mode::keyshadow);
  ASSERT_TRUE(writer.hear() && writer.hear());
  while (copy.isAwake()) copy.table.deliver();
  EXPECT_EQ(copy.table.mountStatus(), MountStatus::mounted);
  EXPECT_EQ(tryToWrite(folder), MountStatus::busy);
  writer.kill();
  copy.await();
  copy.table.deliver();
  EXPECT_EQ(copy.table.mountStatus(), MountStatus::writerGone);
  EXPECT_EQ(copy.rows().size(), 1U);
  EXPECT_EQ(tryToWrite(folder), MountStatus::mounted);
  ASSERT_GT(*orphan, 0);
  EXPECT_EQ(::kill(*orphan, SIGKILL), 0);
}

TEST(Claim, IsNotLostToOrTakenByOthersOfItsProcessOrOfItsFiles) {
  TestFolder const folder;
  Table table;
  ASSERT_EQ(table.mount(folder.options(Mode::writer)), MountStatus::mounted);
  EXPECT_EQ(tryToWrite(folder), MountStatus::busy);
  // A reader that closes its descriptors must not drop the process's lock.
  Table().mount(folder.options(Mode::reader));
  auto const tryElsewhere = [&](MountStatus expected) {
    EXPECT_EQ(Child([&](Child&) { EXPECT_EQ(tryToWrite(folder), expected); }).wait(), 0);
  };
  tryElsewhere(MountStatus::busy);
  // The right to write does not lie in a name either.
  std::filesystem::remove(folder.path() + "/table.lock");
  tryElsewhere(MountStatus::busy);
  EXPECT_EQ(tryToWrite(folder), MountStatus::busy);
  EXPECT_TRUE(table.write({{1, 1}, 1, 1}));
  table.unmount();
  tryElsewhere(MountStatus::mounted);
}

TEST(Claim, CannotBeBlockedByAProcessThatMayOnlyRead) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can become another user";
  TestFolder const folder;
  ASSERT_EQ(tryToWrite(folder), MountStatus::mounted);
  ::chmod(folder.path().c_str(), 0750);
  Child child([&](Child& parent) {
    // In the group of the files, but not their owner.
    TestSupport::becomeNobody(::getegid());
    EXPECT_EQ(Table().mount(folder.options(Mode::reader)), MountStatus::writerGone);
    EXPECT_EQ(tryToWrite(folder), MountStatus::notPermitted);
    EXPECT_LT(::open((folder.path() + "/table.lock").c_str(), O_RDONLY), 0);
    int const fd = ::open((folder.path() + "/table.table").c_str(), O_RDONLY);
    struct flock lock {};
    lock.l_type = F_RDLCK;
    EXPECT_EQ(::fcntl(fd, F_SETLK, &lock), 0);
    EXPECT_EQ(::flock(fd, LOCK_EX), 0);
    EXPECT_EQ(::flock(::open(folder.path().c_str(), O_RDONLY), LOCK_EX), 0);
    parent.tell();
    parent.hear();
  });
  ASSERT_TRUE(child.hear());
  EXPECT_EQ(tryToWrite(folder), MountStatus::mounted);
  child.tell();
  EXPECT_EQ(child.wait(), 0);
}

TEST(Claim, EndsWhereItsProcessExecutesAnotherProgram) {
  TestFolder const folder;
  Child writer([&](Child& parent) {
    Table table;
    table.mount(folder.options(Mode::writer));
    table.write({{1, 1}, 1, 1});
    table.endTurn();
    parent.tell();
    parent.hear();
    ::execlp("sleep", "sleep", "100", nullptr);
  });
  ASSERT_TRUE(writer.hear());
  Copy copy(folder, Mode::keyshadow);
  EXPECT_EQ(copy.table.mountStatus(), MountStatus::mounted);
  writer.tell();
  copy.await(MountStatus::writerGone);
  EXPECT_EQ(copy.rows().size(), 1U);
  EXPECT_EQ(Table().mount(folder.options(Mode::reader)), MountStatus::writerGone);
  EXPECT_EQ(tryToWrite(folder), MountStatus::mounted);
}

TEST(Claim, IsKeptByAProcessWhoseMainThreadHasEnded) {
  TestFolder const folder;
  Child writer([&](Child& parent) {
    std::thread([&] {
      std::string stat;
      while (stat.find(") Z") == std::string::npos) std::getline(std::ifstream("/proc/self/stat"), stat);
      Table table;
      table.mount(folder.options(Mode::writer));
      parent.tell();
      for (;;) ::pause();
    }).detach();
    ::syscall(SYS_exit, 0);
  });
  ASSERT_TRUE(writer.hear());
  EXPECT_EQ(Table().mount(folder.options(Mode::reader)), MountStatus::mounted);
  EXPECT_EQ(tryToWrite(folder), MountStatus::busy);
  writer.kill();
  EXPECT_EQ(Table().mount(folder.options(Mode::reader)), MountStatus::writerGone);
}

}  // namespace
