#include "agent/feed/Sources.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/stat.h>

#include <atomic>
#include <csignal>
#include <random>

#include "AgentSite.h"
#include "SiteWriter.h"
#include "agent/evpn/EvpnSide.h"

namespace {

using testing::HasSubstr;
using TestSupport::Program;

/// Follows a table all the time and counts rows that went.
class Observer {
 public:
  explicit Observer(std::string const& folder) {
    table_.onChanged = [this](QorEvpn::MacVniPair const& key) { removals_ += table_.find(key) ? 0 : 1; };
    table_.mount({.directory = folder, .name = "host", .mode = Brine::Mode::keyshadow});
    thread_ = std::jthread([this](std::stop_token const& stop) {
      while (!stop.stop_requested()) {
        pollfd ready{table_.fd(), POLLIN, 0};
        poll(&ready, 1, 5);
        table_.deliver();
      }
    });
  }
  unsigned removals() const { return removals_; }

 private:
  Brine::Table<QorEvpn::Host> table_;
  std::atomic<unsigned> removals_ = 0;
  std::jthread thread_;
};

/// One of the two sides that take feeds, and the table that it writes.
struct SideTest : testing::TestWithParam<std::string> {
  bool const isAgent = GetParam() == "agent";
  std::string const from = isAgent ? "controller" : "evpn";

  std::string folder() const { return isAgent ? site.dir + "/exported" : site.dir + "/learned"; }
  auto rows() {
    return isAgent ? site.view.exported().of<QorEvpn::Host>() : site.view.learned().of<QorEvpn::Host>();
  }
  bool becomesRows(std::size_t count) {
    return becomes([&] { return rows().size() == count; });
  }
  void start(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {GetParam(), "--dir", site.dir});
    program.emplace(arguments);
  }
  void kill() {
    program->signal(SIGKILL);
    program->wait();
  }
  std::string flags() const {
    return isAgent ? R"({"from":"controller","op":"enabled","value":true}
{"from":"evpn","op":"capability","value":true}
)"
                   : "";
  }
  std::string mac(unsigned number, std::string const& vtep = "10.99.0.1", unsigned seq = 0) const {
    char tail[32];
    std::snprintf(tail, sizeof tail, "%02x:%02x", number / 256, number % 256);
    return R"({"from":")" + from + R"(","op":"mac","vni":)" + std::to_string(5000 + number % 3) +
           R"(,"mac":"02:00:00:00:)" + tail + R"(","vtep":")" + vtep + R"(","seq":)" + std::to_string(seq) +
           "}\n";
  }
  std::string macs(unsigned begin, unsigned end) const {
    std::string text;
    for (unsigned number = begin; number < end; ++number) text += mac(number);
    return text;
  }
  std::string synced() const { return R"({"from":")" + from + "\",\"op\":\"synced\"}\n"; }
  bool logs(std::string const& text) {
    return becomes([&] { return program->errors().find(text) != std::string::npos; });
  }

  AgentSite site;
  std::optional<Program> program;
};
INSTANTIATE_TEST_SUITE_P(Sides, SideTest, testing::Values("agent", "evpn"),
                         [](auto const& each) { return each.param; });

TEST_P(SideTest, NoKillWithdrawsARowThatTheWriterOfAFifoTellsAgainBeforeItIsSynced) {
  char const* const given = std::getenv("QOREVPN_TEST_SEED");
  auto const seed = given ? static_cast<unsigned>(std::stoul(given)) : std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  constexpr unsigned count = 300;
  std::string const fifo = site.folder.path() + "/fifo";
  std::string const state = flags() + macs(0, count) + synced();
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  std::signal(SIGPIPE, SIG_IGN);
  auto const opened = [&] {
    Agent::Fd fd;
    EXPECT_TRUE(becomes(
        [&] { return fd = Agent::Fd(open(fifo.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC)), bool(fd); }));
    fcntl(fd.get(), F_SETFL, 0);
    return fd;
  };
  auto const tells = [](Agent::Fd const& fd, std::string_view text) {
    return write(fd.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size());
  };
  auto const losses = [&] {
    std::string const log = program->errors();
    std::size_t found = 0;
    for (auto at = log.find("its writer ended"); at != std::string::npos; ++found)
      at = log.find("its writer ended", at + 1);
    return found;
  };
  std::size_t former = 0;
  start({"--feed", fifo});
  tells(opened(), state);
  ASSERT_TRUE(becomesRows(count)) << program->errors();
  ASSERT_TRUE(logs("lost: its writer ended"));
  Observer const observer(folder());
  for (int round = 0; round < 12; ++round) {
    auto const point = random() % state.size();
    Agent::Fd const fd = opened();
    tells(fd, std::string_view(state).substr(0, point));
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 3000));
    if (random() % 3 != 0) {  // who dies: this program, or its writer
      kill();
      start({"--feed", fifo});
    }
  }
  {
    Agent::Fd const fd = opened();
    tells(fd, state + mac(count));
    ASSERT_TRUE(becomesRows(count + 1)) << program->errors();
    former = losses();
  }
  ASSERT_TRUE(becomes([&] { return losses() > former; }));
  EXPECT_EQ(observer.removals(), 0U);
  tells(opened(), flags() + macs(0, count) + synced());
  ASSERT_TRUE(becomesRows(count)) << program->errors();
  EXPECT_TRUE(becomes([&] { return observer.removals() == 1; })) << observer.removals();
}

TEST_P(SideTest, WhoHasSkippedALineSweepsNothing) {
  std::string const all = flags() + macs(0, 3);
  ASSERT_EQ(
      TestSupport::run({GetParam(), "--dir", site.dir, "--feed", "-", "--exit-at-end"}, false, all).status,
      0);
  ASSERT_EQ(rows().size(), 3U);
  start({"--feed", "-", "--exit-at-end"});
  program->write(flags() + macs(0, 1) + "nonsense\n" + macs(3, 4) + synced());
  EXPECT_TRUE(logs("standard input: syncing: not whole: 1 bad line")) << program->errors();
  program->endInput();
  EXPECT_EQ(program->wait(), 1);
  EXPECT_EQ(rows().size(), 4U);
}

TEST_P(SideTest, FeedsHaveEntriesOfTheirOwnAndALostOnesGoWhenTheHoldEnds) {
  std::string const fifo = site.folder.path() + "/fifo", file = site.folder.path() + "/file";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  std::ofstream(file) << flags() << mac(0) << mac(1, "10.99.0.3", 5);
  start({"--feed", file, "--feed", fifo, "--hold", "1"});
  std::ofstream(fifo) << mac(0, "10.99.0.2", 1) << mac(1, "10.99.0.2", 1) << mac(2) << synced()
                      << R"({"from":")" + from +
                             R"(","op":"mac","vni":1,"mac":"01:00:00:00:00:01","vtep":"10.0.0.1"})";
  ASSERT_TRUE(logs("fifo: refused: vni 1 mac 01:00:00:00:00:01 vtep 10.0.0.1: group MAC"));
  ASSERT_TRUE(logs("fifo: given up after 1 s: 3 entries withdrawn")) << program->errors();
  ASSERT_TRUE(becomesRows(2));
  for (auto const& row : rows()) {
    EXPECT_EQ(row.seqNo().value(), row.key().macAddr().word(2) == 0 ? 0U : 5U) << row;
  }
  std::ofstream(fifo) << mac(0, "10.99.0.2", 1) << synced();
  EXPECT_TRUE(becomes([&] { return rows().front().seqNo() == Seqno32(1); })) << "it is back";
}

// The capability comes from whoever writes what EVPN learned, also when that one is killed.
TEST(CapabilityTest, IsWhatTheEvpnSideSaysAndItsLastWordStays) {
  AgentSite site;
  Program const agent({"agent", "--dir", site.dir, "--feed", "-"});
  agent.write(R"({"from":"controller","op":"enabled","value":true}
{"from":"controller","op":"mac","vni":1,"mac":"02:00:00:00:00:01","vtep":"10.0.0.1"}
)");
  auto const isOn = [&](bool on) {
    return becomes([&] { return site.view.exported().of<QorEvpn::Host>().size() == (on ? 1U : 0U); });
  };
  auto const say = [](char const* value) {
    return std::string(R"({"from":"evpn","op":"capability","value":)") + value + "}\n";
  };
  {
    Program evpn({"evpn", "--dir", site.dir, "--feed", "-"});
    evpn.write(say("true"));
    ASSERT_TRUE(isOn(true)) << agent.errors();
    agent.write(say("false"));  // a feed's word against it
    evpn.signal(SIGKILL);
    evpn.wait();
  }
  Program evpn({"evpn", "--dir", site.dir, "--feed", "-"});
  evpn.write(R"({"from":"evpn","op":"flood","vni":1,"vtep":"10.0.0.9"})"
             "\n");
  ASSERT_TRUE(becomes([&] { return site.imported().of<QorEvpn::FloodEntry>().size() == 1; }))
      << agent.errors();
  EXPECT_TRUE(isOn(true));
  evpn.write(say("false") + R"({"from":"evpn","op":"synced"})" + '\n');
  EXPECT_TRUE(isOn(false)) << agent.errors();
}

/// Many entries go a part a turn. What is told between two parts holds, and a source that begins again in
/// between keeps the rest.
TEST(SweepTest, TakesNothingThatIsToldBetweenItsParts) {
  using Agent::Op;
  using Agent::SourceState;
  AgentSite site;
  Agent::Loop loop;
  auto const ignore = [](std::string const&) {};
  Agent::EvpnSide side(loop, Agent::Site::made(site.dir), false, std::chrono::seconds(0), {ignore, ignore});
  auto const source = side.sources().add({.name = "feed", .kind = "feed", .endpoint = ""});
  auto const tell = [&](unsigned begin, unsigned end, Op op = Op::mac) {
    for (unsigned i = begin; i < end; ++i) {
      Agent::Event event;
      event.op = op;
      event.mac = Wirix::EthAddr::ofValue(0x020000000000 + i);
      event.vtep = Wirix::IpAddr("10.0.0.1");
      source.event(event);
    }
  };
  auto const state = [&](SourceState next) { source.state(next, {}); };
  constexpr unsigned part = Agent::sweepLimit;
  state(SourceState::syncing);
  tell(0, 3 * part);
  state(SourceState::synced);
  state(SourceState::syncing);
  tell(0, 1);
  state(SourceState::synced);
  EXPECT_EQ(side.learned().rows(), 2 * part + 1);
  state(SourceState::syncing);
  unsigned turns = 0;
  loop.turnEndIs([&] { turns == 5 ? loop.stop() : void(++turns); });
  Agent::Timer tick(loop, [&] { tick.start({}); });
  tick.start({});
  loop.run();
  EXPECT_EQ(side.learned().rows(), 2 * part + 1);

  tell(1, 3);
  state(SourceState::synced);
  EXPECT_EQ(side.learned().rows(), part + 3);
  tell(3 * part - 2, 3 * part);
  tell(1, 2, Op::macDel);
  loop.turnEndIs([&] {
    if (side.learned().rows() == 3 || ++turns == 1000) loop.stop();
  });
  loop.run();
  side.sources().finish();
  EXPECT_EQ(side.learned().rows(), 3U);  // one that was told before, and two meanwhile
}

}  // namespace
