#include "agent/explain/Why.h"

#include <gtest/gtest.h>

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

HostFacts exportedHost() { return {{mac, vni}, on, local, std::nullopt, false, false, rowOf(local)}; }

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

}  // namespace
}  // namespace Agent
