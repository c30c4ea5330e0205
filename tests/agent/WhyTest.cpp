#include "agent/explain/Why.h"

#include <gmock/gmock.h>

#include <sstream>

#include "AgentSite.h"
#include "SiteWriter.h"
#include "VxlanController/ExpectedExport.h"

namespace Agent {
namespace {

using VxlanController::MacVtepV2;
using Words = std::vector<std::string>;

Wirix::EthAddr const mac("02:00:00:00:00:01");
Vxlan::Vni const vni(5000);
MacVtepV2 const local(mac, Wirix::IpAddr("10.99.0.11"), Seqno32(1));
ExportState const on{.isEnabled = true, .isCapable = true, .isKeeping = false, .isServed = true};

QorEvpn::Host rowOf(MacVtepV2 const& entry) {
  QorEvpn::Host row(QorEvpn::MacVniPair(mac, vni));
  row.vtepAddrIs(entry.vtepAddr());
  row.seqNoIs(entry.seqNo());
  row.preferenceIs(entry.preference());
  return row;
}

HostFacts exportedHost() {
  HostFacts facts;
  facts.key = {mac, vni};
  facts.state = on;
  facts.controller = local;
  facts.row = rowOf(local);
  return facts;
}

TEST(Why, ARowThatARuleKeepsOutIsNotAsItShouldBe) {
  HostFacts facts = exportedHost();
  EXPECT_TRUE(explain(facts).isAsItShouldBe);
  facts.evpn = facts.controller;
  EXPECT_FALSE(explain(facts).isAsItShouldBe);
  facts.isOvertaken = facts.isFrozen = true;
  EXPECT_EQ(explain(facts).rule, Rule::frozen);
  FloodFacts flood{{vni, Wirix::IpAddr("10.99.0.11")}, on, true, false, false, true};
  EXPECT_TRUE(explain(flood).isAsItShouldBe);
  flood.controller = false;
  EXPECT_FALSE(explain(flood).isAsItShouldBe);
}

TEST(Why, NamesTheFieldsInWhichEvpnsEntryDiffers) {
  HostFacts facts = exportedHost();
  facts.evpn = MacVtepV2(mac, Wirix::IpAddr("10.99.0.12"), Seqno32(0));
  Explanation const answer = explain(facts);
  EXPECT_EQ(answer.rule, Rule::exported);
  EXPECT_EQ(answer.differences, (std::vector<std::string_view>{"vtep", "seq"}));
  facts.row = rowOf(*facts.evpn);
  EXPECT_FALSE(explain(facts).isAsItShouldBe) << "EVPN's entry is echoed";
}

TEST(Why, EntriesOfAnEarlierRunAreHeld) {
  HostFacts facts = exportedHost();
  facts.isEarlier = true;
  EXPECT_EQ(explain(facts).rule, Rule::held);
  facts.state = {.isEnabled = false, .isCapable = false, .isKeeping = true, .isServed = false};
  facts.evpn = MacVtepV2(mac, Wirix::IpAddr("10.99.0.12"), Seqno32(0));
  EXPECT_EQ(explain(facts).text.find("EVPN has the MAC too"), std::string::npos) << "held has its own text";
  FloodFacts flood{{vni, Wirix::IpAddr("10.99.0.11")}, facts.state, {}, false, false, true};
  EXPECT_EQ(explain(facts).rule, Rule::held) << "rows stay while sources tell their state";
  EXPECT_EQ(explain(flood).rule, Rule::held);
  facts.row.reset();
  EXPECT_EQ(explain(facts).rule, Rule::databaseOff);
  EXPECT_EQ(importRule(on, false, QorEvpn::Host(), {mac, vni}), ImportRule::unreadable);
}

/// The rule that is said to have decided, and what the machines are to make of the same inputs.
TEST(Why, ExportedIsWhatTheMachinesExport) {
  MacVtepV2 const newer(mac, Wirix::IpAddr("10.99.0.22"), Seqno32(2));
  std::optional<MacVtepV2> const entries[] = {std::nullopt, MacVtepV2(), local, newer};
  std::optional<bool> const vteps[] = {std::nullopt, false, true};
  auto const fill = [](auto& status, std::optional<MacVtepV2> const& entry, std::optional<bool> vtep) {
    if (entry && *entry != MacVtepV2()) status.macVtepTableIs(*entry);
    if (vtep) status.macVtepFloodListTableIs(Wirix::EthAddr())->vtepIpFloodListIs(local.vtepAddr(), *vtep);
  };
  for (auto const& ownEntry : entries) {
    for (auto const& theirEntry : entries) {
      for (auto const& ownVtep : vteps) {
        for (auto const& theirVtep : vteps) {
          VxlanController::VniFdbStatusV2 own(Orb::Name("5000"), vni);
          auto const dir = Orb::makePtr<VxlanController::VniStatusDirV2>(Orb::Name("evpn"));
          auto const theirs = dir->vniStatusV2Is(vni);
          fill(own, ownEntry, ownVtep);
          fill(*theirs, theirEntry, theirVtep);
          auto const host = explain(hostFacts({mac, vni}, &own, theirs.get(), on)).rule;
          auto const flood = explain(floodFacts({vni, local.vtepAddr()}, &own, theirs.get(), on)).rule;
          EXPECT_EQ(host == Rule::exported, QorEvpn::expectedHost(own, theirs.get(), vni, mac).has_value());
          EXPECT_EQ(flood == Rule::exported,
                    QorEvpn::expectedFlood(own.macVtepFloodListTable(Wirix::EthAddr()).get(),
                                           theirs->macVtepFloodListTable(Wirix::EthAddr()).get(),
                                           local.vtepAddr()));
        }
      }
    }
  }
}

/// EVPN's row of MAC 0 in a VNI has a key, but makes the default entry: it can come from another writer only.
TEST(Why, ARunningAgentTakesTheDefaultEntryForNone) {
  SiteWriter writer;
  writer.mount(writer.learnedHosts, true);
  writer.learnedHosts.write(QorEvpn::Host(QorEvpn::MacVniPair(Wirix::EthAddr(), Vxlan::Vni(1))));
  writer.learnedHosts.endTurn();
  TestSupport::Program const agent({"agent", "--dir", writer.dir(), "--feed", "-"});
  agent.write(R"({"from":"controller","op":"enabled","value":true}
{"from":"controller","op":"vni","vni":1}
{"from":"evpn","op":"capability","value":true}
)");
  auto said = nlohmann::ordered_json::object();
  EXPECT_TRUE(becomes([&] {
    try {
      said = Agent::controlRequest(writer.site(), "why 00:00:00:00:00:00 1").at(0);
    } catch (std::exception const&) {
    }
    return said.value("rule", "") == "default-entry";
  })) << said;
  EXPECT_EQ(said["import"]["rule"], "imported");
}

/// A switch and a feed have one MAC each; both are frozen, and EVPN's entries are newer.
TEST(Why, FreezingHoldsASwitchsMacOnly) {
  for (bool const isSwitchs : {true, false}) {
    auto const run = TestSupport::run({"why", isSwitchs ? "02:00:00:00:00:01" : "02:00:00:00:00:02", "-j",
                                       "--replay", TestSupport::sourcePath("tests/agent/WhyTest.rec")});
    auto const said = nlohmann::ordered_json::parse(run.out).at(0);
    EXPECT_EQ(said["rule"], isSwitchs ? "frozen" : "evpn-newer") << run.err;
    EXPECT_EQ(said["controller"].value("frozen", false), isSwitchs);
  }
}

TEST(Why, ARunningAgentNamesTheRuleOfEachKey) {
  AgentSite site;
  auto const start = [&site] {
    return TestSupport::Program(
        {"agent", "--dir", site.dir, "--feed", "-", "--with-evpn", "--duplicate-moves", "2"});
  };
  auto const answer = [&site](std::string const& question) { return site.ask("why " + question).at(0); };
  {
    auto const agent = start();
    std::istringstream story(TestSupport::sourceText("tests/agent/WhyTest.story"));
    unsigned events = 0;
    for (std::string line; std::getline(story, line);) {
      if (line[0] == '{') {
        agent.write(line + '\n');
        ++events;
        continue;
      }
      ASSERT_TRUE(becomes([&] { return site.feed()["events"] == events; })) << agent.errors();
      std::istringstream words(line.substr(2));
      std::string subject, of, rule, importRule;
      words >> subject >> of >> rule >> importRule;
      auto const said = answer(subject + ' ' + of);
      EXPECT_EQ(said["rule"], rule) << line;
      EXPECT_EQ(said["import"]["rule"], importRule) << line;
      EXPECT_EQ(said["asItShouldBe"], true) << line;
    }
    auto said = answer("02:00:00:00:00:01 1");
    EXPECT_EQ(said["differences"], nlohmann::ordered_json({"vtep", "seq"}));
    for (auto* const sources : {&said["sources"], &said["evpnSide"]["sources"]}) {
      ASSERT_EQ(sources->size(), 1U);
      EXPECT_LE(std::time(nullptr) - (*sources)[0]["since"].get<std::time_t>(), 600);
    }
    EXPECT_EQ(said["sources"][0]["vtep"], "10.0.0.1");
    EXPECT_EQ(said["evpnSide"]["sources"][0]["vtep"], "10.0.0.9");
    EXPECT_EQ(site.ask("why 02:00:00:00:00:01").size(), 2U) << "in every VNI";
    EXPECT_EQ(site.ask("why 02:00:00:00:00:06").size(), 3U) << "also where either side refused it";
    auto const shows = [&](Words words, std::string const& text) {
      words.insert(words.end(), {"--dir", site.dir});
      EXPECT_THAT(TestSupport::run(words).out, testing::ContainsRegex(text));
    };
    shows({"why", "02:00:00:00:00:06", "1"}, "cannot be: VTEP 0.0.0.0(.|\n)*input: refused VTEP 0.0.0.0");
    shows({"why", "02:00:00:00:00:04", "1"}, "controller  multipath 10.0.0.1\n.*: multipath 10.0.0.1  for ");
    shows({"why", "10.0.0.3", "1"},
          "controller  mac 02:00:00:00:00:01  on true\n.*: mac 02:.*  on true  for ");
    shows({"why", "02:00:00:00:00:08", "8"}, "bridge id   not listed: a multipath entry or");
    shows({"why", "02:00:00:00:00:08", "9"}, "bridge id   not listed: the VNI has no entries");
    shows({"why", "10.0.0.5", "1"},
          "  multipath 10.0.0.5\n.*: multipath 10.0.0.5  for .*\n  EVPN  *-\n  exp");
    shows({"show", "agent"}, "duplicate: vni 1  mac 02:00:00:00:00:07  between 10.9.0.1 and 10.0.0.1\n");
  }
  auto const agent = start();
  ASSERT_TRUE(becomes([&] { return site.feed()["events"] == 0; })) << agent.errors();
  EXPECT_EQ(answer("02:00:00:00:00:01 1")["rule"], "held") << "the flags have not been told";
  EXPECT_EQ(answer("10.0.0.1 1")["rule"], "held");
  EXPECT_EQ(answer("10.0.0.2 1")["rule"], "database-off");
  EXPECT_THAT(TestSupport::run({"why", "02:00:00:00:00:02", "--dir", site.dir}).out,
              testing::StartsWith("vni 1  02:00:00:00:00:02: Not exported: the integration is off"));
  agent.write(R"({"from":"controller","op":"enabled","value":true}
)");
  ASSERT_TRUE(becomes([&] { return site.feed()["events"] == 1; })) << agent.errors();
  EXPECT_EQ(answer("02:00:00:00:00:01 1")["rule"], "held");
  EXPECT_EQ(answer("10.0.0.1 1")["rule"], "held");
  agent.write(R"({"from":"evpn","op":"capability","value":false}
{"from":"controller","op":"synced"}
{"from":"evpn","op":"synced"}
)");
  ASSERT_TRUE(becomes([&] { return answer("02:00:00:00:00:01 1")["rule"] == "not-capable"; }))
      << agent.errors();
  EXPECT_EQ(answer("02:00:00:00:00:01 1")["import"]["rule"], "off");
  agent.write(R"({"from":"controller","op":"enabled","value":false}
)");
  ASSERT_TRUE(becomes([&] { return answer("10.0.0.1 1")["rule"] == "database-off"; })) << agent.errors();
}

}  // namespace
}  // namespace Agent
