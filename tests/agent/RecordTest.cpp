#include <gmock/gmock.h>

#include <csignal>
#include <filesystem>
#include <numeric>
#include <random>
#include <regex>

#include "AgentSite.h"
#include "Orb/Text.h"
#include "agent/controller/Controller.h"

namespace {

using Agent::Event, Agent::Op, Agent::SourceId;
using TestSupport::Program;
using VxlanController::MacVtepV2;
using Words = std::vector<std::string>;

std::mt19937 seeded() {
  char const* const given = std::getenv("QOREVPN_TEST_SEED");
  auto const seed = given ? static_cast<unsigned>(std::stoul(given)) : std::random_device()();
  std::cout << "QOREVPN_TEST_SEED=" << seed << '\n';
  return std::mt19937(seed);
}

std::string outputOf(Words words, Words const& more) {
  words.insert(words.end(), more.begin(), more.end());
  auto const [status, out, err] = TestSupport::run(words);
  EXPECT_EQ(status, 0) << err;
  return out;
}
std::string shown(AgentSite const& site,
                  Words const& what = {"hosts", "floods", "bridge-ids", "evpn-status"}) {
  return outputOf({"show", "-j", "--dir", site.dir}, what);
}
std::string replayed(Words const& files, Words const& more = {}) {
  Words words = files;
  words.insert(words.end(), more.begin(), more.end());
  return outputOf({"replay", "-j"}, words);
}
Words filesOf(std::string const& recording) {
  Words files{recording};
  for (int i = 1; std::filesystem::exists(recording + '.' + std::to_string(i)); ++i)
    files.insert(files.begin() + i / 2, recording + '.' + std::to_string(i));
  return files;
}

TEST(RecordTest, AnEventIsWhatItsLineSays) {
  for (std::string const name : {"fabric-3vni", "corner-cases"}) {
    for (std::string const& line : linesOf(recordingPath(name + ".jsonl"))) {
      std::string const read = line.substr(0, line.size() - 1);
      Event event = Agent::parseEvent(read);
      for (bool const asWritten : {true, false}) {
        if (!asWritten) event.written = {};
        std::string text;
        appendLine(text, "1795345258.692946", 7, event);
        event.time = 1795345258.692946;
        event.source = 7;
        EXPECT_EQ(Agent::parseEvent(text.substr(0, text.size() - 1)), event) << text;
      }
    }
  }
}

// Whatever sources told, and in whatever order switches heard it: who is told the state goes on as its owner.
TEST(RecordTest, AControllerGoesOnFromAStateThatAnotherOneTold) {
  struct Side {
    Orb::Ptr<VxlanController::VniStatusDirV2> evpn =
        Orb::makePtr<VxlanController::VniStatusDirV2>(Orb::Name("evpn"));
    Orb::Ptr<Agent::Controller> controller = Agent::Controller::ControllerIs(evpn);

    Side() {
      for (SourceId const source : {0U, 1U, 2U}) controller->sourceIs(source, source == 0);
    }
    void evpnIs(Vxlan::Vni vni, MacVtepV2 const& mac) { evpn->vniStatusV2Is(vni)->macVtepTableIs(mac); }
    std::string fdb() const {
      auto all = controller->fdb([](SourceId source) { return std::to_string(source); });
      std::sort(all.begin(), all.end());
      std::vector<std::size_t> entries;
      for (SourceId const source : {0U, 1U, 2U}) entries.push_back(controller->entries(source));
      return all.dump() + testing::PrintToString(entries);
    }
  };
  std::mt19937 random = seeded();
  auto const oneOf = [&](unsigned count) { return static_cast<unsigned>(random() % count); };
  Side side;
  auto const step = [&](std::vector<Side*> const& sides) {  // the same on all of them
    SourceId const source = oneOf(3);
    unsigned const what = oneOf(24);
    Event event;
    event.vni = Vxlan::Vni(oneOf(2));
    event.mac = Wirix::EthAddr::ofValue(0x020000000000 + oneOf(3));
    event.vtep = Wirix::IpAddr(0x0A000001 + static_cast<unsigned>(source == 0 ? oneOf(3) : source));
    event.vteps = {event.vtep};
    event.seq = Seqno32(source == 0 ? oneOf(4) : 0);
    event.on = oneOf(2) != 0;
    Op const ops[] = {Op::macDel,    Op::macDel,       Op::flood, Op::floodDel,
                      Op::multipath, Op::multipathDel, Op::vniDel};
    event.op = what < std::size(ops) ? ops[what] : Op::mac;
    for (Side* const each : sides) {
      Agent::Controller& controller = *each->controller;
      switch (what) {
        case 23: controller.begin(source); break;
        case 22: controller.whole(source); break;
        case 21: controller.withdraw(source); break;
        case 18: controller.frozenIs(event.vni, event.mac, event.on); break;
        case 20:
        case 19:
          each->evpnIs(event.vni, MacVtepV2(event.mac, Wirix::IpAddr("10.9.0.1"), Seqno32(what)));
          break;
        default: controller.apply(source, event);
      }
    }
  };
  for (int round = 0; round < 200; ++round) {
    for (int i = 0; i < 20; ++i) step({&side});
    Side copy;
    for (auto const& vni : side.evpn->vniStatusV2()) {
      for (auto const& mac : vni.value->macVtepTable()) copy.evpnIs(vni.key, mac.value);
    }
    side.controller->tellState([&](SourceId source, Event const& event) {
      if (event.op == Op::begin) return copy.controller->begin(source);
      if (event.op == Op::whole) return static_cast<void>(copy.controller->whole(source));
      copy.controller->apply(source, event);
    });
    for (int i = 0; i < 20; ++i) {
      ASSERT_EQ(copy.fdb(), side.fdb()) << "round " << round << ", step " << i;
      step({&side, &copy});
    }
  }
}

TEST(RecordTest, ReplayEndsAsTheLiveRunDidThatWasKilledAgainAndAgain) {
  std::mt19937 random = seeded();
  AgentSite site;
  std::string const feed = recordingPath("fabric-3vni.jsonl"), recording = site.folder.path() + "/agent.rec";
  Words const lines = linesOf(feed);
  Words command = {"agent", "--dir", site.dir, "--with-evpn", "--record", recording, "--feed", "-"};
  std::vector<std::pair<std::string, std::string>> looks;  // when, and what was seen
  for (int kill = 0; kill < 5; ++kill) {
    Program agent(command);
    std::size_t const count = 1 + random() % lines.size();
    agent.write(
        std::accumulate(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(count), std::string()));
    if (random() % 3 == 0) {
      ASSERT_TRUE(site.isHosted());  // it is in the midst of it
    } else {
      ASSERT_TRUE(becomes([&] { return site.feed()["events"] == count; })) << agent.errors();
      std::string const seen = shown(site);
      auto const now = std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch());
      looks.emplace_back(std::to_string(now.count()), seen);
    }
    agent.signal(SIGKILL);
    agent.wait();
  }
  command.back() = feed;
  Program const agent(command);
  ASSERT_TRUE(site.settles(Agent::Expectation::ofFile(recordingPath("fabric-3vni.end.json"))))
      << agent.errors();
  std::string const end = shown(site);
  EXPECT_EQ(replayed({recording}), end);
  for (auto const& [when, seen] : looks) EXPECT_EQ(replayed({recording}, {"--until", when}), seen) << when;

  std::string const mac = "02:b1:00:13:8a:01";
  EXPECT_EQ(replayed({recording}, {"--mac", mac}), shown(site, {"hosts", "evpn-status", "--mac", mac}));

  // What came and went, line by line, leaves what is there.
  std::map<std::string, nlohmann::json> rows;
  std::istringstream changes(replayed({recording}, {"--trace"}));
  for (std::string line; std::getline(changes, line);) {
    auto const change = nlohmann::json::parse(line);
    if (!change.contains("after")) continue;
    if (!change["before"].is_null()) rows.erase(change["before"].dump());
    if (!change["after"].is_null()) rows[change["after"].dump()] = change["after"];
  }
  auto const live = nlohmann::json::parse(end);
  EXPECT_EQ(rows.size(), live["hosts"].size() + live["floods"].size() + live["bridgeIds"].size());
  for (auto const& row : live["hosts"]) EXPECT_TRUE(rows.contains(row.dump())) << row;

  AgentSite again("again");
  Program const player({"agent", "--dir", again.dir, "--with-evpn", "--strict", "--feed", recording});
  ASSERT_TRUE(becomes([&] { return again.feedHasEnded(); })) << player.errors();
  EXPECT_EQ(shown(again), end) << "a recording is a feed";
}

TEST(RecordTest, EachSideHasItsOwnRecordingAndEachFileOfItBeginsWithWhatHolds) {
  std::mt19937 random = seeded();
  AgentSite site;
  std::string const recordings = site.folder.path() + '/', feed = recordingPath("fabric-3vni.jsonl");
  std::map<std::string, std::optional<Program>> sides;
  auto const start = [&](std::string const& side) {
    Words words{side, "--dir", site.dir, "--record", recordings + side, "--record-size", "100KB"};
    for (int i = 0; i < 8; ++i) words.insert(words.end(), {"--feed", feed});
    sides[side].emplace(words);
  };
  for (std::string const side : {"evpn", "agent"}) start(side);
  for (int kill = 0; kill < 3; ++kill) {
    std::this_thread::sleep_for(std::chrono::milliseconds(random() % 50));  // anywhere in its course
    std::string const side = random() % 2 == 0 ? "evpn" : "agent";
    sides[side]->signal(SIGKILL);
    sides[side].reset();
    start(side);
  }
  ASSERT_TRUE(becomes([&] {
    auto const said = TestSupport::run({"show", "sources", "-j", "--dir", site.dir}).out;
    auto const sources = nlohmann::json::parse(said, nullptr, false);
    return sources.contains("sources") && sources["sources"].size() == 16 &&
           std::ranges::all_of(sources["sources"],
                               [](auto const& each) { return each["state"] == "synced"; });
  }));
  ASSERT_TRUE(site.settles(Agent::Expectation::ofFile(recordingPath("fabric-3vni.end.json"))))
      << sides["agent"]->errors() << sides["evpn"]->errors();
  std::string const agents = shown(site), evpns = shown(site, {"hosts", "floods", "--learned"});
  EXPECT_GT(filesOf(recordings + "agent").size(), 1U);
  EXPECT_EQ(replayed(filesOf(recordings + "agent")), agents);
  EXPECT_EQ(replayed({recordings + "agent"}), agents) << "the last file alone";
  EXPECT_EQ(replayed(filesOf(recordings + "evpn")), evpns);
  EXPECT_EQ(TestSupport::run({"why", "02:b1:00:13:8a:01", "--replay", recordings + "evpn"}).status, 1);
  EXPECT_EQ(TestSupport::run({"replay", recordings + "evpn", recordings + "agent"}).status, 1);
}

// Whether a VNI is listed depends on what came before where it has only entries that are not exported.
TEST(RecordTest, AFileReadAloneKnowsWhichVnisAreListed) {
  AgentSite site;
  std::string const recording = site.folder.path() + "/agent.rec";
  Program const agent(
      {"agent", "--dir", site.dir, "--feed", "-", "--record", recording, "--record-size", "100KB"});
  agent.write(R"({"from":"controller","op":"enabled","value":true}
{"from":"evpn","op":"capability","value":true}
{"from":"controller","op":"synced"}
{"from":"evpn","op":"synced"}
)");
  ASSERT_TRUE(becomes([&] { return site.isHosted() && site.ask("state")["integration"] == true; }));
  std::string text =
      R"({"from":"controller","op":"multipath","vni":7,"mac":"02:00:00:00:00:01","vteps":["10.0.0.1"]}
{"from":"controller","op":"flood","vni":8,"mac":"02:00:00:00:00:01","vtep":"10.0.0.1"}
{"from":"controller","op":"mac","vni":7,"mac":"02:00:00:00:00:02","vtep":"10.0.0.1"}
{"from":"controller","op":"mac-del","vni":7,"mac":"02:00:00:00:00:02"}
{"from":"controller","op":"multipath-del","vni":7,"mac":"02:00:00:00:00:01"}
)";
  for (int i = 0; i < 2000; ++i)
    text += R"({"from":"controller","op":"mac","vni":9,"mac":"02:00:00:00:00:01","vtep":"10.0.0.1"})"
            "\n";
  agent.write(text);
  ASSERT_TRUE(becomes([&] { return site.feed()["events"] == 2009; })) << agent.errors();
  ASSERT_GT(filesOf(recording).size(), 1U);
  auto const listed = nlohmann::json::parse(shown(site, {"bridge-ids"}))["bridgeIds"];
  EXPECT_EQ(listed.size(), 2U) << "7, which is empty, and 9: " << listed;
  EXPECT_EQ(replayed({recording}), shown(site));
}

TEST(RecordTest, WhyAnswersFromARecordingAsTheAgentDid) {
  AgentSite site;
  std::string const recording = site.folder.path() + "/agent.rec";
  Program agent({"agent", "--dir", site.dir, "--with-evpn", "--record", recording, "--feed",
                 recordingPath("fabric-3vni.jsonl")});
  ASSERT_TRUE(site.settles(Agent::Expectation::ofFile(recordingPath("fabric-3vni.end.json"))));
  for (Words const& question : {Words{"02:b1:00:13:8a:01"}, Words{"10.99.0.11", "5000"},
                                Words{"02:c0:00:00:00:01"}, Words{"02:00:00:00:00:99", "7"}}) {
    // In a recording a turn has one time, and what EVPN's side told is one source's.
    auto const answer = [](Words const& to) {
      auto answers = nlohmann::ordered_json::parse(outputOf({"why", "-j"}, to));
      for (auto& each : answers) each.erase("evpnSide");
      return std::regex_replace(answers.dump(1), std::regex("\"since\": [0-9]+"), "since");
    };
    Words live = question;
    live.insert(live.end(), {"--dir", site.dir});
    Words offline = question;
    offline.insert(offline.end(), {"--replay", recording});
    EXPECT_EQ(answer(offline), answer(live));
    EXPECT_FALSE(outputOf({"why"}, offline).empty());
  }
  auto const before = TestSupport::run({"why", "02:b1:00:13:8a:01", "--until", "1", "--replay", recording});
  EXPECT_EQ(before.status, 1) << before.out;
}

TEST(RecordTest, ADiskThatIsFullIsSaidAndADeviceKeepsItsName) {
  AgentSite site;
  std::string const feed = recordingPath("fabric-3vni.jsonl");
  Program const agent({"agent", "--dir", site.dir, "--with-evpn", "--feed", feed, "--record", "/dev/full"});
  EXPECT_TRUE(site.settles(Agent::Expectation::ofFile(recordingPath("fabric-3vni.end.json"))));
  EXPECT_THAT(agent.errors(),
              testing::HasSubstr("recording stops, and is tried again: /dev/full: No space left on device"));
  std::string const copy = site.folder.path() + "/copy";
  std::filesystem::copy_file(feed, copy);
  auto const refused = TestSupport::run({"agent", "--dir", site.dir + '2', "--feed", copy, "--record", copy});
  EXPECT_EQ(refused.status, 1);
  EXPECT_THAT(refused.err, testing::HasSubstr("--record " + copy + ": this file is no recording"));
  EXPECT_EQ(linesOf(copy), linesOf(feed));
  EXPECT_THAT(TestSupport::run({"replay", copy}).err,
              testing::HasSubstr(copy + ": this file is no recording"));
  std::string const null = site.folder.path() + "/null";
  std::filesystem::create_symlink("/dev/null", null);
  outputOf({"agent", "--dir", site.dir + '3', "--feed", feed, "--exit-at-end"},
           {"--record", null, "--record-size", "1KB"});
  EXPECT_TRUE(std::filesystem::is_symlink(null) && filesOf(null).size() == 1);
}

}  // namespace
