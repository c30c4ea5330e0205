#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <functional>

#include "Brine/Copy.h"
#include "support/Child.h"
#include "support/Scale.h"

namespace {

/// A file of a traced process.
class Followed {
 public:
  explicit Followed(std::string path) : path_(std::move(path)) {}

  /// Whether the file came, went or changed since the last call.
  bool hasChanged() {
    static char buffer[1U << 18];
    int const fd = ::open(path_.c_str(), O_RDONLY | O_CLOEXEC);
    ssize_t const size = ::read(fd, buffer, sizeof buffer);
    ::close(fd);
    std::string_view const now(buffer, static_cast<size_t>(std::max<ssize_t>(size, 0)));
    if (exists_ == (size >= 0) && now == bytes_) return false;
    exists_ = size >= 0;
    bytes_ = now;
    return true;
  }
  /// The file as the last call found it, under another name; removed if there was none.
  void copyTo(std::string const& path) const {
    ::unlink(path.c_str());
    if (!exists_) return;
    std::ofstream(path, std::ios::binary) << bytes_;
    ::chmod(path.c_str(), 0640);
  }

 private:
  std::string path_;
  std::string bytes_;
  bool exists_ = false;
};

/// An operation of a writer, and the rows that it leaves.
struct Step {
  std::function<void(Table&)> run;
  Model after;
  bool isTraced = true;
};

/// A child that is run one machine instruction at a time.
class CrashTest : public testing::Test {
 protected:
  void SetUp() override {
    if (TestSupport::isSanitized) GTEST_SKIP() << "a sanitizer's instructions are too many to be traced";
    // On one processor, parent and child take turns without waking one.
    ::sched_getaffinity(0, sizeof cpus_, &cpus_);
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(static_cast<size_t>(::sched_getcpu()), &one);
    ::sched_setaffinity(0, sizeof one, &one);
  }
  void TearDown() override {
    if (!TestSupport::isSanitized) ::sched_setaffinity(0, sizeof cpus_, &cpus_);
  }

  /// A child that stops at each SIGSTOP that it raises.
  static void beTraced() {
    if (::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) ::_exit(77);
  }
  /// Waits until the child has stopped: the signal, or 0 if it ended.
  static int awaitStop(TestSupport::Child const& child) {
    int status = 0;
    EXPECT_EQ(::waitpid(child.pid(), &status, 0), child.pid());
    if (WIFSTOPPED(status)) return WSTOPSIG(status);
    EXPECT_TRUE(WIFEXITED(status) && (WEXITSTATUS(status) == 0 || WEXITSTATUS(status) == 77)) << status;
    return 0;
  }
  static int step(TestSupport::Child const& child, bool isSingle) {
    EXPECT_EQ(::ptrace(isSingle ? PTRACE_SINGLESTEP : PTRACE_CONT, child.pid(), nullptr, nullptr), 0);
    return awaitStop(child);
  }

  /// Lets a child run the steps on a table with these rows. Whenever the folder's files have changed,
  /// verifies a copy of them, which is what a child killed there would leave. Kills it after `maxStates` such
  /// states.
  void trace(TestFolder const& folder, Model before, std::vector<Step> const& steps,
             size_t maxStates = SIZE_MAX) {
    TestSupport::Child child([&](TestSupport::Child&) {
      beTraced();
      Table table;
      for (Step const& step : steps) {
        ::raise(SIGSTOP);
        step.run(table);
      }
      ::_exit(0);
    });
    Followed table(folder.path() + "/table.table");
    Followed made(folder.path() + "/table.new");
    if (awaitStop(child) == 0) GTEST_SKIP() << "this process may not trace another one";
    Step const* step = steps.data();
    for (size_t states = 0; states < maxStates && !HasFailure();) {
      int const signal = CrashTest::step(child, step->isTraced);
      if (signal == 0) return;
      bool const changed = static_cast<int>(table.hasChanged()) + static_cast<int>(made.hasChanged()) != 0;
      if (signal == SIGSTOP) {
        before = step++->after;
      } else if (changed) {
        SCOPED_TRACE("step " + std::to_string(step - steps.data()) + ", state " + std::to_string(++states));
        table.copyTo(copy_.path() + "/table.table");
        made.copyTo(copy_.path() + "/table.new");
        verify(before, step->after);
        ++states_;
      }
    }
  }

  /// The copy holds the rows of before or of after the step, for a reader and for the next writer. Sets
  /// `before` to `after` once these have been seen: no later state may show the former again.
  void verify(Model& before, Model const& after) {
    Table reader;
    Model seen;
    if (reader.mount(copy_.options(Mode::reader)) != MountStatus::noTable) {
      ASSERT_EQ(reader.mountStatus(), MountStatus::writerGone) << reader.mountDetail();
      seen = rowsOf(reader);
      if (!repair_) expectSound(reader);
    }
    EXPECT_TRUE(seen == after || seen == before);
    if (seen == after) before = after;
    Table writer;
    ASSERT_EQ(writer.mount(options(copy_)), MountStatus::mounted) << writer.mountDetail();
    EXPECT_EQ(rowsOf(writer), seen);
    writer.write({{99, 9}, 9, 9});
    writer.endTurn();
    expectSound(writer);
  }
  Brine::MountOptions options(TestFolder const& folder) const {
    return folder.options(Mode::writer, "table", repair_);
  }
  Step mount(TestFolder const& folder) {
    return {[options = options(folder)](Table& table) {
              if (table.mount(options) != MountStatus::mounted) std::abort();
            },
            model_};
  }
  Step write(uint64_t number, uint64_t value, bool traced = true) {
    TestRow const row{{number, 1}, value, ~value};
    model_[row.key] = row;
    return {[row](Table& table) { table.write(row); }, model_, traced};
  }
  Step remove(uint64_t number) {
    TestKey const key{number, 1};
    model_.erase(key);
    return {[key](Table& table) { table.remove(key); }, model_};
  }

  TestFolder const copy_;
  Model model_;
  bool repair_ = false;
  size_t states_ = 0;
  cpu_set_t cpus_;
};

TEST_F(CrashTest, AtEveryInstructionEachChangeIsMadeWhollyOrNotAtAll) {
  TestFolder const folder;
  std::vector<Step> steps = {mount(folder), write(1, 1), write(1, 2), write(2, 3)};
  steps.push_back({[](Table& table) { table.endTurn(); }, model_});
  steps.push_back(remove(1));
  steps.push_back(write(3, 4));
  for (uint64_t number = 4; number <= 17; ++number) steps.push_back(write(number, number, false));
  steps.push_back(write(18, 18));  // The 17th row: the table grows.
  steps.push_back({[](Table& table) { table.recover(); }, model_});
  steps.push_back({[](Table& table) { table.unmount(); }, model_});
  steps.push_back(mount(folder));
  trace(folder, {}, steps);
  EXPECT_GT(states_, 200U);
}

TEST_F(CrashTest, ARecoveryThatIsKilledAtAnyInstructionIsMadeUpForByTheNextOne) {
  TestFolder const folder;
  Step start = mount(folder);
  start.isTraced = false;
  std::vector<Step> steps = {start};
  for (uint64_t number = 0; number < 16; ++number) steps.push_back(write(number, number, false));
  Model const full = model_;
  steps.push_back(write(16, 16));
  // Killed while it fills the index for twice as many rows.
  trace(folder, {}, steps, 40);
  ASSERT_EQ(states_, 40U);

  // A row is damaged too.
  damageRow(folder, 5);
  model_ = full;
  model_.erase({5, 1});
  repair_ = true;
  trace(folder, model_, {mount(folder)});
  EXPECT_GT(states_, 70U);
}

}  // namespace
