#include "agent/explain/Why.h"

#include <gtest/gtest.h>

#include "AgentSite.h"
#include "VxlanController/ExpectedExport.h"

namespace Agent {
namespace {

using VxlanController::MacVtepV2;

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

HostFacts exportedHost() { return {{mac, vni}, on, local, std::nullopt, false, false, false, rowOf(local)}; }

/// What is wrong with each set of facts is the one thing in which it differs from an exported host's.
TEST(Why, EachRuleThatKeepsAHostOutHasItsAnswer) {
  struct Case {
    Rule rule;
    void (*change)(HostFacts&);
  };
  Case const cases[] = {
      {Rule::databaseOff, [](HostFacts& facts) { facts.state.isEnabled = false; }},
      {Rule::notCapable, [](HostFacts& facts) { facts.state.isCapable = false; }},
      {Rule::notServed, [](HostFacts& facts) { facts.state.isServed = false; }},
      {Rule::notKnown, [](HostFacts& facts) { facts.controller.reset(); }},
      {Rule::multipathOnly,
       [](HostFacts& facts) {
         facts.controller.reset();
         facts.isMultipath = true;
       }},
      {Rule::defaultEntry, [](HostFacts& facts) { facts.controller = MacVtepV2(); }},
      {Rule::evpnSupplied, [](HostFacts& facts) { facts.evpn = facts.controller; }},
      {Rule::evpnNewer,
       [](HostFacts& facts) {
         facts.evpn = facts.controller;
         facts.isOvertaken = true;
       }},
      {Rule::refused,
       [](HostFacts& facts) {
         facts.controller.reset();
         facts.key = QorEvpn::MacVniPair(Wirix::EthAddr("01:00:5e:00:00:01"), vni);
       }},
  };
  EXPECT_EQ(explain(exportedHost()).rule, Rule::exported);
  EXPECT_TRUE(explain(exportedHost()).isAsItShouldBe);
  for (Case const& each : cases) {
    HostFacts facts = exportedHost();
    each.change(facts);
    EXPECT_EQ(explain(facts).rule, each.rule) << toText(each.rule);
    EXPECT_FALSE(explain(facts).isAsItShouldBe) << toText(each.rule) << ": its row is there";
    facts.row.reset();
    EXPECT_TRUE(explain(facts).isAsItShouldBe) << toText(each.rule);
  }
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
  EXPECT_TRUE(explain(facts).isAsItShouldBe) << "rows stay while sources tell their state";
}

TEST(Why, EachRuleThatKeepsAFloodRowOutHasItsAnswer) {
  FloodFacts const exported{{vni, Wirix::IpAddr("10.99.0.11")}, on, true, false, false, true};
  auto const with = [&](auto change) {
    FloodFacts facts = exported;
    change(facts);
    EXPECT_FALSE(explain(facts).isAsItShouldBe);
    return explain(facts).rule;
  };
  EXPECT_EQ(explain(exported).rule, Rule::exported);
  EXPECT_EQ(with([](FloodFacts& facts) { facts.controller = false; }), Rule::entryOff);
  EXPECT_EQ(with([](FloodFacts& facts) { facts.isEvpns = true; }), Rule::evpnSupplied);
  EXPECT_EQ(with([](FloodFacts& facts) { facts.controller.reset(); }), Rule::notKnown);
  EXPECT_EQ(with([](FloodFacts& facts) {
              facts.controller.reset();
              facts.isInListOfOneMac = true;
            }),
            Rule::notAllBum);
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

TEST(Why, ARunningAgentNamesTheRuleOfEachKey) {
  AgentSite site;
  auto const start = [&site] {
    return TestSupport::Program({"agent", "--dir", site.dir, "--feed", "-", "--with-evpn"});
  };
  auto const answer = [&site](std::string const& question) { return site.ask("why " + question).at(0); };
  {
    auto const agent = start();
    agent.write(R"({"from":"controller","op":"enabled","value":true}
{"from":"evpn","op":"capability","value":true}
{"from":"controller","op":"mac","vni":1,"mac":"02:00:00:00:00:01","vtep":"10.0.0.1","seq":3}
{"from":"evpn","op":"mac","vni":1,"mac":"02:00:00:00:00:01","vtep":"10.0.0.9","seq":2}
{"from":"evpn","op":"mac","vni":1,"mac":"02:00:00:00:00:02","vtep":"10.0.0.9"}
{"from":"controller","op":"mac","vni":1,"mac":"02:00:00:00:00:03","vtep":"10.0.0.1"}
{"from":"evpn","op":"mac","vni":1,"mac":"02:00:00:00:00:03","vtep":"10.0.0.9","seq":1}
{"from":"controller","op":"multipath","vni":1,"mac":"02:00:00:00:00:04","vteps":["10.0.0.1"]}
{"from":"controller","op":"flood","vni":1,"vtep":"10.0.0.1"}
{"from":"controller","op":"flood","vni":1,"vtep":"10.0.0.2","on":false}
{"from":"controller","op":"flood","vni":1,"vtep":"10.0.0.3","mac":"02:00:00:00:00:01"}
{"from":"evpn","op":"flood","vni":1,"vtep":"10.0.0.9"}
{"from":"evpn","op":"mac","vni":2,"mac":"02:00:00:00:00:01","vtep":"10.0.0.9"}
)");
    ASSERT_TRUE(becomes([&] { return site.feed()["events"] == 13; })) << agent.errors();
    struct {
      char const *question, *rule, *importRule;
    } const cases[] = {
        {"02:00:00:00:00:01 1", "exported", "imported"},
        {"02:00:00:00:00:02 1", "evpn-supplied", "imported"},
        {"02:00:00:00:00:03 1", "evpn-newer", "imported"},
        {"02:00:00:00:00:04 1", "multipath-only", "not-learned"},
        {"02:00:00:00:00:05 1", "not-known", "not-learned"},
        {"01:00:00:00:00:05 1", "refused", "not-learned"},
        {"02:00:00:00:00:01 2", "not-served", "imported"},
        {"00:00:00:00:00:00 0", "not-served", "default-row"},
        {"10.0.0.1 1", "exported", "not-learned"},
        {"10.0.0.2 1", "entry-off", "not-learned"},
        {"10.0.0.3 1", "not-all-bum", "not-learned"},
        {"10.0.0.4 1", "not-known", "not-learned"},
        {"224.0.0.1 1", "refused", "not-learned"},
        {"10.0.0.9 1", "evpn-supplied", "imported"},
        {"10.0.0.1 2", "not-served", "not-learned"},
    };
    for (auto const& each : cases) {
      auto const said = answer(each.question);
      EXPECT_EQ(said["rule"], each.rule) << each.question;
      EXPECT_EQ(said["import"]["rule"], each.importRule) << each.question;
      EXPECT_EQ(said["asItShouldBe"], true) << each.question;
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
  }
  auto const agent = start();
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
