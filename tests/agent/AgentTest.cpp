#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <numeric>
#include <random>

#include "AgentSite.h"

namespace {

using Agent::Expectation, Agent::SiteRows;
using testing::HasSubstr;
using TestSupport::Program;

std::uint64_t counter(AgentSite const& site, std::string const& owner, std::string const& name) {
  for (auto const& each : site.ask("counters")) {
    if (each["owner"] == owner && each["name"] == name) return each["value"].get<std::uint64_t>();
  }
  ADD_FAILURE() << "no counter " << owner << ' ' << name;
  return 0;
}

class RecordedRun : public testing::TestWithParam<std::string> {};

INSTANTIATE_TEST_SUITE_P(Traces, RecordedRun, testing::Values("fabric-3vni", "corner-cases"),
                         [](auto const& each) {
                           return each.param == "fabric-3vni" ? "Recorded" : "Written";
                         });

TEST_P(RecordedRun, LeavesWhatTheFileBesideItSaysWhichOutlivesTheAgent) {
  AgentSite site;
  std::string const end = recordingPath(GetParam() + ".end.json");
  Program agent({"agent", "--dir", site.dir, "--feed", recordingPath(GetParam() + ".jsonl"), "--with-evpn",
                 "--strict"});
  ASSERT_TRUE(site.settles(Expectation::ofFile(end))) << agent.errors();
  // More of them would be entries of EVPN's that were exported for a moment on their way out.
  if (GetParam() == "fabric-3vni") {
    EXPECT_EQ(counter(site, "exported/host", "hostIs"), 278U);
  }
  auto const show = [&](std::vector<std::string> what) {
    what.insert(what.begin(), {"show", "--json", "--dir", site.dir});
    return nlohmann::json::parse(TestSupport::run(what).out);
  };
  auto expected = nlohmann::json::parse(std::ifstream(end));
  EXPECT_EQ(show({"hosts", "floods", "bridge-ids", "evpn-status"}), expected);
  agent.signal(SIGKILL);
  agent.wait();
  expected.erase("evpnStatus");
  EXPECT_EQ(show({"hosts", "floods", "bridge-ids"}), expected);
}

TEST_P(RecordedRun, TwoProcessesEndAsExpectedAndARestartWithdrawsNothing) {
  AgentSite site;
  std::string const feed = recordingPath(GetParam() + ".jsonl");
  Expectation const expected = Expectation::ofFile(recordingPath(GetParam() + ".end.json"));
  std::vector<std::string> const arguments = {"agent", "--dir", site.dir, "--feed", feed};
  Program evpn({"evpn", "--dir", site.dir, "--feed", feed});
  std::optional<Program> agent(std::in_place, arguments);
  ASSERT_TRUE(site.settles(expected)) << agent->errors() << evpn.errors();

  auto const second = TestSupport::run(arguments);
  EXPECT_EQ(second.status, 1);
  EXPECT_THAT(second.err, HasSubstr(site.dir + "/exported/state: busy: "));
  EXPECT_TRUE(site.ask("state")["integration"]);

  agent->signal(SIGTERM);
  EXPECT_EQ(agent->wait(), 0);
  EXPECT_EQ(site.view.exported(), expected.exported) << "an orderly stop leaves the rows";

  agent.emplace(std::vector<std::string>{"agent", "--dir", site.dir, "--feed", feed, "--cleanup"});
  ASSERT_TRUE(site.settles(expected)) << agent->errors();
  // Every row is written once more; a removal would be one more notification.
  EXPECT_EQ(counter(site, "exported/host", "hostIs"), expected.exported.of<QorEvpn::Host>().size());
  EXPECT_EQ(counter(site, "exported/host", "hostNotify"), expected.exported.of<QorEvpn::Host>().size());

  agent->signal(SIGINT);
  EXPECT_EQ(agent->wait(), 0);
  EXPECT_EQ(site.view.exported(), SiteRows()) << "--cleanup removes them";
}

TEST(AgentTest, EndsInTheSameTablesWhereverEitherSideIsKilled) {
  char const* const given = std::getenv("QOREVPN_TEST_SEED");
  auto const seed = given ? static_cast<unsigned>(std::stoul(given)) : std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  AgentSite site;
  std::string const feed = recordingPath("fabric-3vni.jsonl");
  std::vector<std::string> const lines = linesOf(feed);
  Expectation const expected = Expectation::ofFile(recordingPath("fabric-3vni.end.json"));
  std::map<std::string, std::optional<Program>> sides;
  auto const start = [&](std::string const& side, std::string const& from) {
    sides[side].reset();
    sides[side].emplace(std::vector<std::string>{side, "--dir", site.dir, "--feed", from});
  };
  for (int kill = 0; kill < 12; ++kill) {
    auto const point = lines.begin() + static_cast<std::ptrdiff_t>(random() % lines.size());
    for (std::string const side : {"evpn", "agent"}) {
      start(side, "-");
      sides[side]->write(std::accumulate(lines.begin(), point, std::string()));
    }
    if (random() % 4 != 0) {
      ASSERT_TRUE(site.isHosted());
      std::this_thread::sleep_for(std::chrono::microseconds(random() % 5000));
    }
    // Who survives goes on with the rest of the feed; who is killed starts it anew.
    std::vector<std::vector<std::string>> const victims = {{"evpn"}, {"agent"}, {"agent", "evpn"}};
    std::vector<std::string> const& killed = victims[random() % victims.size()];
    for (std::string const& side : killed) sides[side]->signal(SIGKILL);
    for (auto& [side, program] : sides) {
      if (std::ranges::count(killed, side) != 0) {
        start(side, feed);
      } else {
        program->write(std::accumulate(point, lines.end(), std::string()));
        program->endInput();
      }
    }
    ASSERT_TRUE(site.settles(expected))
        << testing::PrintToString(killed) << " killed after event " << point - lines.begin() << '\n'
        << sides["agent"]->errors() << sides["evpn"]->errors();
    sides.clear();
  }
  EXPECT_EQ(TestSupport::run({"check", "--dir", site.dir}).status, 0);
}

TEST(AgentTest, RowsOfTheLastRunStayUntilTheFeedSpeaksAndGoWhereItSaysOff) {
  AgentSite site;
  std::string const feed = recordingPath("fabric-3vni.jsonl");
  ASSERT_EQ(
      TestSupport::run({"agent", "--dir", site.dir, "--feed", feed, "--with-evpn", "--exit-at-end"}).status,
      0);
  SiteRows const exported = site.view.exported();
  SiteRows const learned = site.view.learned();
  ASSERT_FALSE(exported == SiteRows());

  auto const playing = [&](std::string const& text) {
    auto const agent = TestSupport::run(
        {"agent", "--dir", site.dir, "--feed", "-", "--with-evpn", "--exit-at-end"}, false, text);
    EXPECT_EQ(agent.status, 0) << agent.err;
  };
  playing("");
  EXPECT_EQ(site.view.exported(), exported);
  EXPECT_EQ(site.view.learned(), learned);
  playing(R"({"from":"controller","op":"enabled","value":false}
{"from":"evpn","op":"flood","vni":5000,"vtep":"10.99.0.77"})");
  EXPECT_EQ(site.view.exported(), SiteRows());
  SiteRows named;
  named.add(QorEvpn::FloodEntry(QorEvpn::VniVtepPair(Vxlan::Vni(5000), Wirix::IpAddr(0x0A63004D))));
  EXPECT_EQ(site.view.learned(), named);
}

TEST(AgentTest, LeavesNothingWhereItCannotBegin) {
  AgentSite site;
  std::string const& root = site.folder.path();
  for (std::string const side : {"agent", "evpn"}) {
    auto const noFeed = TestSupport::run({side, "--dir", site.dir, "--feed", root + "/feed"});
    EXPECT_EQ(noFeed.status, 1);
    EXPECT_THAT(noFeed.err, HasSubstr("feed " + root + "/feed: No such file"));
  }
  using Words = std::vector<std::string>;
  for (Words command : {Words{"agent", "--feed", "-"}, {"evpn", "--feed", "-"}, {"demo"}}) {
    command.insert(command.end(), {"--dir", root + '/' + std::string(99 - root.size(), 'x')});
    auto const tooLong = TestSupport::run(command);
    EXPECT_EQ(tooLong.status, 2);
    EXPECT_THAT(tooLong.err, HasSubstr("longer than the 99 bytes"));
  }
  EXPECT_EQ(TestSupport::run({"evpn", "--dir", site.dir, "--peer", root + "/./site/"}).status, 2);
  EXPECT_TRUE(std::filesystem::is_empty(root));
}

TEST(AgentTest, SkipsBadLinesOrStopsAtThem) {
  std::string const feed =
      R"({"from":"controller","op":"enabled","value":true}
{"from":"evpn","op":"capability","value":true}

{"t":1,"from":"controller","op":"mac","vni":1,"mac":"02:00:00:00:00:01","vtep":"10.0.0.1"}
nonsense
{"t":0.5,"from":"controller","op":"mac","vni":1,"mac":"02:00:00:00:00:02","vtep":"10.0.0.1"}
{"t":1,"from":"controller","op":"mac","vni":1,"mac":"02:00:00:00:00:03","vtep":"10.0.0.1"})";
  for (bool const strict : {false, true}) {
    AgentSite site;
    std::vector<std::string> arguments = {"agent", "--dir", site.dir, "--feed", "-", "--exit-at-end"};
    if (strict) arguments.push_back("--strict");
    auto const agent = TestSupport::run(arguments, false, feed);
    EXPECT_EQ(agent.status, 1);
    EXPECT_THAT(agent.err, HasSubstr("standard input:5: not JSON"));
    EXPECT_EQ(agent.err.find("standard input:6: t goes back in time") != std::string::npos, !strict);
    EXPECT_EQ(site.view.exported().of<QorEvpn::Host>().size(), strict ? 1U : 2U)
        << "earlier events stay in force";
  }
}

TEST(AgentTest, AnswersOnceThereIsRoomForClientsAgain) {
  AgentSite site;
  Program const agent({"agent", "--dir", site.dir, "--feed", "-"});
  ASSERT_TRUE(site.isHosted());
  auto const connected = [&site] {
    sockaddr_un place{AF_UNIX, {}};
    Agent::Site(site.dir).controlSocket().copy(place.sun_path, sizeof place.sun_path - 1);
    void const* const address = &place;
    Agent::Fd fd(::socket(AF_UNIX, SOCK_STREAM, 0));
    EXPECT_EQ(connect(fd.get(), static_cast<sockaddr const*>(address), sizeof place), 0);
    return fd;
  };
  pid_t const pid = site.ask("state")["pid"];
  auto const descriptors = [pid] {
    return std::distance(std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/fd"), {});
  };
  auto const before = descriptors();
  {
    std::vector<Agent::Fd> idle;  // More than it serves at a time.
    for (unsigned i = 0; i < 70; ++i) idle.push_back(connected());
    EXPECT_TRUE(becomes([&] { return descriptors() >= before + 64; }));
  }
  EXPECT_EQ(site.ask("state")["pid"], pid);
}

TEST(AgentTest, SwitchesTracesWhileItRuns) {
  AgentSite site;
  std::string const file = site.folder.path() + "/traces";
  Program agent(
      {"agent", "--dir", site.dir, "--feed", "-", "--trace", "QorEvpnModeSm/8", "--trace-file", file});
  ASSERT_TRUE(site.isHosted());
  EXPECT_THAT(
      TestSupport::run({"trace", "--dir", site.dir, "QorEvpnModeSm/", "VxlanControllerEvpnTxSm/3,4"}).out,
      HasSubstr("QorEvpnModeSm/\nVxlanControllerEvpnTxSm/3,4\n"));
  auto const refused = TestSupport::run({"trace", "--dir", site.dir, "QorEvpnModeSm/10"});
  EXPECT_EQ(refused.status, 1);
  EXPECT_THAT(refused.err, HasSubstr("trace level > 9"));
  agent.write(
      "{\"from\":\"controller\",\"op\":\"enabled\",\"value\":true}\n"
      "{\"from\":\"evpn\",\"op\":\"capability\",\"value\":true}\n");
  ASSERT_TRUE(becomes([&] { return site.ask("state")["integration"].get<bool>(); }));
  std::string traced;
  for (std::string const& line : linesOf(file)) traced += line;
  EXPECT_THAT(traced, HasSubstr("Turning qorEvpnIntegrationMode OFF"));
  EXPECT_THAT(traced, testing::Not(HasSubstr("Turning qorEvpnIntegrationMode ON")));
  EXPECT_THAT(traced, HasSubstr("QorEvpnTxSm()::handleInitialized() return"));
}

}  // namespace
