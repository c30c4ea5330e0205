// bench-Soak DIRECTORY SECONDS [SEED]: wears a table down for as long as asked. A writer and three readers,
// each a process of its own, work on one table while the conductor kills the writer and readers, stops and
// continues them, and now and then removes the table's file so that another takes its name. Prints a line a
// minute and a closing one; exit status 1 at the first thing that is not as it must be, which it names.
//
// What must hold:
//   - A row holds what one write wrote: its VTEP follows from key and sequence number.
//   - A row that the last writer finds is the last one written, or the one whose write was cut short by a
//     kill.
//   - A keyshadow reader is never told of the removal of a key that it was not shown, and at the end of each
//     round its copy equals the table; it gets there by wakes alone.
//   - The checker finds nothing at the end of a round.
//   - Memory, descriptors and the table's size are at the end of an epoch what they were at the end of the
//     second.

#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <thread>
#include <unordered_map>

#include "VxlanController/QorEvpnBrine.h"

namespace {

using QorEvpn::Host;
using QorEvpn::MacVniPair;
using Table = Brine::Table<Host>;
using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr uint32_t keys = 120'000;
constexpr int roundsPerEpoch = 6;
/// How many keys a round writes: the table grows from round to round of an epoch.
constexpr std::array<uint32_t, roundsPerEpoch> roundKeys{500, 5'000, 20'000, 60'000, keys, keys};
constexpr int readers = 3;  ///< 2 walks too; 0 is never killed.

/// What the processes share, apart from the table. Written by the process that each line names.
struct Shared {
  std::atomic<uint32_t> round;             // Conductor.
  std::atomic<bool> settle;                // Conductor: the round ends.
  std::atomic<uint32_t> writerSettled;     // Writer: the round whose last turn has ended.
  std::atomic<uint32_t> readerSettled[4];  // Reader: the round whose end its copy has reached.
  std::atomic<uint64_t> writes, mounts, delivered, laps;
  // Writer, by key: sequence number of the row before and after the write that is under way; 0 is no row.
  std::atomic<uint32_t> done[keys], intended[keys];
};
Shared* shared;
char const* directory;

[[noreturn]] void fail(char const* who, std::string const& what) {
  std::fprintf(stderr, "soak: %s: %s\n", who, what.c_str());
  std::fflush(stderr);
  ::_exit(1);
}

MacVniPair keyOf(uint32_t index) {
  return {Wirix::EthAddr::ofValue(0x020000000000U + index), Vxlan::Vni(5000 + index % 16)};
}
uint32_t indexOf(MacVniPair const& key) {
  return static_cast<uint32_t>(key.macAddr().value() - 0x020000000000U);
}
Wirix::IpAddr vtepOf(uint32_t index, uint32_t seqNo) {
  return Wirix::IpAddr((index * 0x9E3779B1U ^ seqNo) * 0x85EBCA6BU);
}
Host rowOf(uint32_t index, uint32_t seqNo) {
  Host row(keyOf(index));
  row.vtepAddrIs(vtepOf(index, seqNo));
  row.seqNoIs(Seqno32(seqNo));
  return row;
}
void verify(char const* who, Host const& row) {
  uint32_t const index = indexOf(row.key());
  if (index >= keys || row != rowOf(index, row.seqNo().value())) {
    fail(who, "a row that nobody wrote: " + QorEvpn::valueToStrep(row));
  }
}

Brine::MountOptions optionsOf(Brine::Mode mode) {
  Brine::MountOptions options;
  options.directory = directory;
  options.name = "soak";
  options.mode = mode;
  options.turns = true;
  options.initialRows = 1024;
  options.ringEntries = 1024;
  return options;
}

// ---- Writer ----

/// Every row is as the last write left it; what a kill cut short is settled either way.
void verifyRows(Table const& table) {
  for (uint32_t index = 0; index < keys; ++index) {
    std::optional<Host> const row = table.find(keyOf(index));
    if (row) verify("writer", *row);
    uint32_t const found = row ? row->seqNo().value() : 0;
    uint32_t const done = shared->done[index], intended = shared->intended[index];
    if (found != done && found != intended) {
      fail("writer", "key " + std::to_string(index) + " has row " + std::to_string(found) + ", was " +
                         std::to_string(done) + ", became " + std::to_string(intended));
    }
    shared->done[index] = shared->intended[index] = found;
  }
}

void writerMain(uint32_t seed) {
  std::mt19937 random(seed);
  Table table;
  auto const deadline = Clock::now() + 30s;
  while (table.mount(optionsOf(Brine::Mode::writer)) != Brine::MountStatus::mounted) {
    if (table.mountStatus() != Brine::MountStatus::busy || Clock::now() > deadline) {
      fail("writer", "no mount: " + table.mountDetail());
    }
    std::this_thread::sleep_for(1ms);  // The one that was killed may not have ended yet.
  }
  ++shared->mounts;
  verifyRows(table);
  for (;;) {
    uint32_t const round = shared->round;
    if (shared->settle) {
      shared->writerSettled = round;
      std::this_thread::sleep_for(2ms);
      continue;
    }
    uint32_t const bound = roundKeys[round % roundsPerEpoch];
    uint32_t const batch = 1 + static_cast<uint32_t>(random() % (random() % 8 == 0 ? 5000 : 50));
    for (uint32_t i = 0; i < batch; ++i) {
      auto const index = static_cast<uint32_t>(random() % bound);
      bool const removes = random() % 3 == 0;
      uint32_t const now = removes ? 0 : static_cast<uint32_t>(random()) | 1U;
      shared->intended[index] = now;
      if (removes) {
        table.remove(keyOf(index));
      } else {
        table.write(rowOf(index, now));
      }
      shared->done[index] = now;
    }
    shared->writes += batch;
    table.endTurn();
    if (random() % 4 == 0) std::this_thread::sleep_for(std::chrono::microseconds(random() % 2000));
  }
}

// ---- Readers ----

void readerMain(int number, uint32_t seed) {
  std::mt19937 random(seed);
  bool const walks = number >= 2;
  std::string const who = "reader " + std::to_string(number);
  Table table;
  std::unordered_map<uint32_t, uint32_t> copy;
  table.onCorruption = [&](std::string const& what) { fail(who.c_str(), what); };
  table.onChanged = [&](MacVniPair const& key) {
    std::optional<Host> const row = table.find(key);
    if (row) {
      verify(who.c_str(), *row);
      copy[indexOf(key)] = row->seqNo().value();
    } else if (copy.erase(indexOf(key)) == 0) {
      fail(who.c_str(), "told of a removal of what was never shown");
    }
  };
  table.mount(optionsOf(Brine::Mode::keyshadow));
  uint64_t delivered = 0, laps = 0;
  auto const deliver = [&] {
    table.deliver();
    auto const statistics = table.statistics();
    shared->delivered += statistics.delivered - std::exchange(delivered, statistics.delivered);
    shared->laps += statistics.laps - std::exchange(laps, statistics.laps);
  };
  auto const agrees = [&] {
    // Another table object, since a walk of `table` itself would count as telling.
    Table now;
    now.mount(optionsOf(Brine::Mode::reader));
    size_t rows = 0;
    for (auto cursor = now.walk(); Host const* const row = cursor.next(); ++rows) {
      auto const found = copy.find(indexOf(row->key()));
      if (found == copy.end() || found->second != row->seqNo().value()) return false;
    }
    return rows == copy.size();
  };
  deliver();
  for (;;) {
    pollfd wait{table.fd(), POLLIN, 0};
    if (::poll(&wait, 1, 20) > 0) deliver();
    uint32_t const round = shared->round;
    if (shared->settle && shared->writerSettled == round && shared->readerSettled[number] != round) {
      // Nothing but wakes brings the copy up to date meanwhile.
      if (agrees()) shared->readerSettled[number] = round;
    } else if (walks && random() % 8 == 0) {
      for (auto cursor = table.walk(5000U + static_cast<uint32_t>(random() % 16));
           Host const* const row = cursor.next();) {
        verify(who.c_str(), *row);
      }
    }
  }
}

// ---- Conductor ----

class Child {
 public:
  template <class Main>
  void start(Main const& main) {
    std::fflush(nullptr);
    pid_ = ::fork();
    if (pid_ == 0) {
      ::prctl(PR_SET_PDEATHSIG, SIGKILL);
      try {
        main();
      } catch (std::exception const& error) {
        fail("child", error.what());
      }
      ::_exit(1);
    }
  }
  void kill() {
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
  }
  void stop() const { ::kill(pid_, SIGSTOP); }
  void go() const { ::kill(pid_, SIGCONT); }
  bool hasEnded() const { return ::waitpid(pid_, nullptr, WNOHANG) == pid_; }
  std::string proc(char const* what) const { return "/proc/" + std::to_string(pid_) + "/" + what; }

 private:
  pid_t pid_ = -1;
};

/// Of a process: private memory in KiB (mapped table pages are the table's), open descriptors.
uint64_t memoryOf(Child const& child) {
  std::ifstream file(child.proc("status"));
  for (std::string word; file >> word;) {
    uint64_t kib = 0;
    if (word == "RssAnon:" && file >> kib) return kib;
  }
  return 0;
}
uint64_t descriptorsOf(Child const& child) {
  auto const entries = std::filesystem::directory_iterator(child.proc("fd"));
  return static_cast<uint64_t>(std::distance(begin(entries), end(entries)));
}

struct Usage {
  uint64_t memory = 0, descriptors = 0, tableBytes = 0;
};

class Conductor {
 public:
  explicit Conductor(uint32_t seed) : random_(seed) {}

  void run(std::chrono::seconds duration) {
    auto const start = Clock::now();
    auto nextLine = start + 1min;
    startWriter();
    for (int number = 0; number < readers; ++number) startReader(number);
    while (Clock::now() - start < duration || epochs_ < 3) {
      for (int round = 0; round < roundsPerEpoch; ++round) {
        disturb(3s);
        settle();
        if (Clock::now() >= nextLine) {
          nextLine += 1min;
          printLine(Clock::now() - start);
        }
        if (round + 1 < roundsPerEpoch) ++shared->round;
        shared->settle = false;
      }
      endEpoch();
    }
    std::printf("closing: ");
    printLine(Clock::now() - start);
    std::printf("second epoch: %s\nlast epoch:   %s\nsoak passed\n", text(first_).c_str(),
                text(last_).c_str());
    for (Child& reader : readers_) reader.kill();
    writer_.kill();
  }

 private:
  uint32_t below(uint32_t bound) { return static_cast<uint32_t>(random_() % bound); }
  void startWriter() {
    auto const seed = static_cast<uint32_t>(random_());
    writer_.start([seed] { writerMain(seed); });
  }
  void startReader(int number) {
    auto const seed = static_cast<uint32_t>(random_());
    readers_[static_cast<size_t>(number)].start([number, seed] { readerMain(number, seed); });
  }
  void nap(uint32_t maxMilliseconds) {
    std::this_thread::sleep_for(std::chrono::milliseconds(below(maxMilliseconds)));
  }

  void disturb(std::chrono::seconds length) {
    for (auto const end = Clock::now() + length; Clock::now() < end; nap(300)) {
      expectAlive();
      Child& reader = readers_[below(readers)];
      switch (below(5)) {
        case 0:
          writer_.kill();
          ++writerKills_;
          startWriter();
          break;
        case 1: {
          int const number = 1 + static_cast<int>(below(readers - 1));
          readers_[static_cast<size_t>(number)].kill();
          ++readerKills_;
          startReader(number);
          break;
        }
        case 2:
          reader.stop();
          ++stops_;
          nap(400);
          reader.go();
          break;
        case 3:
          writer_.stop();
          ++stops_;
          nap(100);
          // Readers must make do with whatever it was at.
          if (below(2) == 0) {
            writer_.kill();
            ++writerKills_;
            startWriter();
          } else {
            writer_.go();
          }
          break;
        default: break;
      }
    }
  }

  void settle() {
    shared->settle = true;
    uint32_t const round = shared->round;
    await("the writer does not end its turn", [&] { return shared->writerSettled == round; });
    for (int number = 0; number < readers; ++number) {
      await("reader " + std::to_string(number) + "'s copy does not become the table",
            [&] { return shared->readerSettled[number] == round; });
    }
    Table table;
    if (table.mount(optionsOf(Brine::Mode::reader)) != Brine::MountStatus::mounted) {
      fail("conductor", "no mount: " + table.mountDetail());
    }
    for (Brine::Violation const& violation : table.check()) {
      fail("checker", violation.invariant + ": " + violation.detail);
    }
    rows_ = table.statistics().rows;
    ++rounds_;
  }

  template <class Done>
  void await(std::string const& what, Done const& done) {
    for (auto const deadline = Clock::now() + 60s; !done(); std::this_thread::sleep_for(1ms)) {
      expectAlive();
      if (Clock::now() > deadline) fail("conductor", what);
    }
  }
  void expectAlive() {
    if (writer_.hasEnded()) fail("conductor", "the writer has ended");
    for (Child const& reader : readers_) {
      if (reader.hasEnded()) fail("conductor", "a reader has ended");
    }
  }

  /// Measures, then lets a new file take the table's name.
  void endEpoch() {
    last_ = {};
    last_.memory = memoryOf(readers_[0]);
    last_.descriptors = descriptorsOf(readers_[0]) + descriptorsOf(writer_);
    for (auto const& file : std::filesystem::directory_iterator(directory))
      last_.tableBytes += file.file_size();
    if (++epochs_ == 2) first_ = last_;
    // A reader that was there before the file may hold each key as a stray, and what holds entries doubles;
    // so the mark is not a tight one, but leaks of an epoch add up.
    constexpr uint64_t entryBytes = sizeof(Brine::Shadow<Host>::Entry), freeStrayBytes = sizeof(uint32_t);
    constexpr uint64_t shadowGrowth = keys * (entryBytes + 2 * (entryBytes + freeStrayBytes)) / 1024;
    if (epochs_ > 2 && (last_.memory > first_.memory + shadowGrowth ||
                        last_.descriptors > first_.descriptors || last_.tableBytes > first_.tableBytes)) {
      fail("conductor", "grown from " + text(first_) + " to " + text(last_));
    }
    writer_.kill();
    for (auto const& file : std::filesystem::directory_iterator(directory)) {
      if (file.path().extension() != ".lock") std::filesystem::remove(file.path());
    }
    for (uint32_t index = 0; index < keys; ++index) shared->done[index] = shared->intended[index] = 0;
    ++shared->round;
    startWriter();
  }

  static std::string text(Usage const& usage) {
    return std::to_string(usage.memory) + " KiB private in reader 0, " + std::to_string(usage.descriptors) +
           " descriptors, " + std::to_string(usage.tableBytes / 1024) + " KiB of table files";
  }
  void printLine(Clock::duration elapsed) const {
    std::printf(
        "%lld s: %u rounds, %u epochs, %llu writes, %llu mounts, %u writer kills, %u reader kills, "
        "%u stops, %llu changes delivered, %llu laps, %llu rows; %s\n",
        static_cast<long long>(std::chrono::duration_cast<std::chrono::seconds>(elapsed).count()), rounds_,
        epochs_, static_cast<unsigned long long>(shared->writes),
        static_cast<unsigned long long>(shared->mounts), writerKills_, readerKills_, stops_,
        static_cast<unsigned long long>(shared->delivered), static_cast<unsigned long long>(shared->laps),
        static_cast<unsigned long long>(rows_), text(last_).c_str());
    std::fflush(stdout);
  }

  std::mt19937 random_;
  Child writer_;
  std::array<Child, readers> readers_;
  Usage first_, last_;
  uint64_t rows_ = 0;
  unsigned rounds_ = 0, epochs_ = 0, writerKills_ = 0, readerKills_ = 0, stops_ = 0;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3 || argc > 4) {
    std::fprintf(stderr, "Usage: %s DIRECTORY SECONDS [SEED]\n", argv[0]);
    return 2;
  }
  directory = argv[1];
  void* const memory =
      ::mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) fail("conductor", "out of memory");
  shared = new (memory) Shared;
  shared->round = 0;
  uint32_t const seed = argc == 4 ? static_cast<uint32_t>(std::atoi(argv[3])) : std::random_device()();
  std::printf("seed %u\n", seed);
  std::fflush(stdout);
  // Round 0 counts as settled by nobody.
  shared->writerSettled = UINT32_MAX;
  for (auto& settled : shared->readerSettled) settled = UINT32_MAX;
  Conductor(seed).run(std::chrono::seconds(std::atoi(argv[2])));
}
