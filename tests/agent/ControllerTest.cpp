#include "agent/controller/Controller.h"

#include <gmock/gmock.h>

#include <map>

#include "Orb/Text.h"

namespace {

using Orb::makePtr;
using testing::ElementsAre, testing::IsEmpty;
using VxlanController::MacVtepV2;
using Wirix::EthAddr;
using Wirix::IpAddr;

class ControllerTest : public testing::Test {
 protected:
  ControllerTest() {
    controller->sourceIs(feed, true);
    for (Agent::SourceId const each : {leaf1, leaf2}) {
      controller->sourceIs(each, false);
      controller->begin(each);
    }
  }

  void tell(Agent::SourceId source, Agent::Op op, EthAddr mac = {}, IpAddr vtep = {}, unsigned seq = 0) {
    Agent::Event event;
    event.op = op;
    event.vni = vni;
    event.mac = mac;
    event.vtep = vtep;
    event.vteps = {vtep};
    event.seq = Seqno32(seq);
    controller->apply(source, event);
  }
  void mac(Agent::SourceId source, IpAddr vtep, unsigned seq = 0) {
    tell(source, Agent::Op::mac, m, vtep, seq);
  }
  void del(Agent::SourceId source) { tell(source, Agent::Op::macDel, m); }
  void evpnIs(IpAddr vtep, unsigned seq) {
    evpn->vniStatusV2Is(vni)->macVtepTableIs(MacVtepV2(m, vtep, Seqno32(seq)));
  }
  /// The merged entry of the MAC: "10.0.0.1/3", or "-".
  std::string entry() const {
    auto const* const status = controller->vniFdbStatus(vni);
    auto const* const found = status ? status->macVtepTable().find(m) : nullptr;
    return found ? Orb::toText(found->vtepAddr()) + '/' + std::to_string(found->seqNo().value()) : "-";
  }

  static constexpr Agent::SourceId feed = 0, leaf1 = 1, leaf2 = 2;
  Vxlan::Vni const vni{7};
  EthAddr const m{"02:00:00:00:00:01"}, allBum;
  IpAddr const v1{"10.0.0.1"}, v2{"10.0.0.2"}, far{"10.9.0.1"}, far2{"10.9.0.2"};
  Orb::Ptr<VxlanController::VniStatusDirV2> const evpn =
      makePtr<VxlanController::VniStatusDirV2>(Orb::Name("evpn"));
  Orb::Ptr<Agent::Controller> const controller = Agent::Controller::ControllerIs(evpn);
};

// What EVPN learned may be there before the switches serve the VNI, and go while others hold its objects.
TEST_F(ControllerTest, AVniTakesUpWhatEvpnHadLearnedAndGivesItUpWithTheStatus) {
  EthAddr const evpns("02:00:00:00:00:02"), own("02:00:00:00:00:03");
  auto const learned = evpn->vniStatusV2Is(vni);
  learned->macVtepTableIs(MacVtepV2(evpns, far));
  learned->macVtepTableIs(MacVtepV2(m, far, Seqno32(2)));
  auto const list = makePtr<VxlanController::MacVtepFloodListV2>(allBum);
  list->vtepIpFloodListIs(far, true);
  learned->macVtepFloodListTableIs(list);
  mac(feed, v1);
  tell(feed, Agent::Op::mac, own, v1);
  auto const& merged = *controller->vniFdbStatus(vni);
  EXPECT_EQ(merged.macVtepTable(evpns).vtepAddr(), far);
  EXPECT_EQ(merged.macVtepTable(own).vtepAddr(), v1);
  EXPECT_EQ(entry(), "10.9.0.1/2");
  EXPECT_EQ(merged.macVtepFloodListTable(allBum)->vtepIpFloodList().size(), 1U);

  evpn->vniStatusV2Del(vni);
  learned->macVtepTableIs(MacVtepV2(evpns, far2));
  list->vtepIpFloodListIs(far2, true);
  EXPECT_FALSE(merged.macVtepTable().contains(evpns));
  EXPECT_EQ(merged.macVtepTable(own).vtepAddr(), v1);
  EXPECT_EQ(entry(), "10.0.0.1/0");
  EXPECT_FALSE(merged.macVtepFloodListTable(allBum));
}

TEST_F(ControllerTest, NumbersWhatSwitchesHear) {
  mac(leaf1, v1);
  mac(leaf2, v2);
  EXPECT_EQ(entry(), "10.0.0.1/0") << "what is listed at first was not newly heard";
  for (Agent::SourceId const each : {leaf1, leaf2}) controller->whole(each);
  del(leaf2);
  mac(leaf2, v2);
  EXPECT_EQ(entry(), "10.0.0.2/1");
  mac(leaf1, v1);
  EXPECT_EQ(entry(), "10.0.0.2/1") << "the same again is no news";
  del(leaf2);
  EXPECT_EQ(entry(), "10.0.0.1/2") << "falls back to who still lists it";
  evpnIs(far, 7);
  EXPECT_EQ(entry(), "10.9.0.1/7");
  mac(leaf2, v2);
  EXPECT_EQ(entry(), "10.0.0.2/8") << "newly heard, EVPN's before";
  mac(feed, far2, 20);
  del(leaf2);
  EXPECT_EQ(entry(), "10.9.0.2/20");
  mac(leaf2, v2);
  EXPECT_EQ(entry(), "10.0.0.2/21");
  mac(feed, far2, 4294967295);
  del(leaf2);
  mac(leaf2, v2);
  EXPECT_EQ(entry(), "10.0.0.2/4294967295") << "the last number";
  for (Agent::SourceId const each : {leaf1, leaf2, feed}) del(each);
  evpn->vniStatusV2Del(vni);
  EXPECT_EQ(entry(), "-");
  mac(leaf1, v1);
  EXPECT_EQ(entry(), "10.0.0.1/0");
}

TEST_F(ControllerTest, ASwitchThatListsItsStateAgainTakesNothingFromAnybody) {
  mac(leaf1, v1);
  controller->whole(leaf1);
  controller->whole(leaf2);
  mac(leaf2, v2);
  controller->begin(leaf1);
  mac(leaf1, v1);
  controller->whole(leaf1);
  EXPECT_EQ(entry(), "10.0.0.2/1");
  controller->begin(leaf2);
  EXPECT_EQ(entry(), "10.0.0.2/1");
  controller->whole(leaf2);
  EXPECT_EQ(entry(), "10.0.0.1/2") << "not repeated";
  controller->withdraw(leaf1);
  EXPECT_EQ(entry(), "-");
  EXPECT_FALSE(controller->vniFdbStatus(vni)) << "served by nobody";
}

TEST_F(ControllerTest, WhatAnEarlierRunLeftStaysWithItsNumberUntilItIsSweptOrOutdone) {
  controller->earlierIs(vni, MacVtepV2(m, v2, Seqno32(5)));
  controller->earlierIs(vni, far);
  controller->earlierIs(vni);
  mac(feed, v1, 4);
  EXPECT_EQ(entry(), "10.0.0.2/5") << "a recording tells what was";
  tell(feed, Agent::Op::vniDel);
  mac(leaf1, v1);
  EXPECT_EQ(entry(), "10.0.0.2/5") << "a list does not say when it was heard";
  mac(leaf2, v2);
  controller->earlierDel();
  EXPECT_EQ(entry(), "10.0.0.2/5");
  auto const& merged = *controller->vniFdbStatus(vni);
  EXPECT_TRUE(merged.macVtepFloodListTable().empty() && merged.macVtepMultiPathTable().empty());
  controller->withdraw(leaf2);
  EXPECT_EQ(entry(), "10.0.0.1/6");
  mac(feed, far, 6);
  EXPECT_EQ(entry(), "10.0.0.1/6") << "of equals the lowest VTEP";
  tell(leaf1, Agent::Op::vniDel);
  EXPECT_EQ(entry(), "10.9.0.1/6");
  tell(feed, Agent::Op::vniDel);
  EXPECT_FALSE(controller->vniFdbStatus(vni));
}

TEST_F(ControllerTest, FeedsAreMergedByNumberAndWhatOneRepeatsLateIsKept) {
  controller->sourceIs(leaf2, true);
  mac(feed, v1, 3);
  mac(leaf2, v2, 3);
  EXPECT_EQ(entry(), "10.0.0.1/3");
  mac(leaf2, v2, 4);
  controller->begin(leaf2);
  mac(leaf2, v1, 1);
  del(leaf2);
  EXPECT_EQ(entry(), "10.0.0.2/4") << "told of old";
  mac(leaf2, far, 4);
  EXPECT_EQ(entry(), "10.9.0.1/4");
  controller->begin(leaf2);
  controller->whole(leaf2);
  EXPECT_EQ(entry(), "10.0.0.1/3");
}

TEST_F(ControllerTest, AMacThatMovesToAndFroIsReportedOnceAndFrozenIfAsked) {
  for (bool const freezes : {false, true}) {
    SCOPED_TRACE(freezes);
    Agent::Duplicates::Clock::time_point now{};
    std::vector<std::string> log;
    Agent::Duplicates duplicates(
        {4, std::chrono::seconds(10), freezes}, [&](std::string const& line) { log.push_back(line); },
        [&] { return now; });
    controller->duplicatesIs(&duplicates);
    controller->whole(leaf1);
    unsigned seq = 0;
    auto const moves = [&] {  // away, and back
      del(leaf1);
      mac(leaf1, v1);
      seq += 10;
      evpnIs(far, seq);
      del(leaf1);
      mac(leaf1, v1);
      now += std::chrono::seconds(3);
    };
    moves();
    now += std::chrono::seconds(8);
    moves();
    EXPECT_THAT(log, IsEmpty()) << "the first ones are too long ago";
    moves();
    EXPECT_THAT(
        log, ElementsAre(testing::HasSubstr("duplicate: vni 7 mac 02:00:00:00:00:01 moved 4 times in 10 s")));
    EXPECT_EQ(duplicates.state().size(), 1U);
    moves();
    EXPECT_EQ(entry(), freezes ? "10.9.0.1/40" : "10.0.0.1/41");
    EXPECT_EQ(log.size(), 1U);
    now += std::chrono::seconds(20);
    EXPECT_TRUE(duplicates.state().empty());
    moves();
    EXPECT_EQ(entry(), "10.0.0.1/51");
    controller->duplicatesIs(nullptr);
    controller->withdraw(leaf1);
    evpn->vniStatusV2Del(vni);
  }
}

TEST_F(ControllerTest, ASwitchIsToldOfAllButItself) {
  Agent::RemoteRows& rows = controller->remoteRows();
  std::vector<std::string> told;
  bool isSettled = false;
  rows.ownVtepsIs({v1});
  rows.handlersIs({[&](auto) { told.push_back("vni"); }, [&](auto, auto) { told.push_back("mac"); },
                   [&](auto, auto) { told.push_back("flood"); }, [&] { isSettled = rows.isSettled(); }});
  mac(leaf1, v1);
  tell(leaf1, Agent::Op::flood, allBum, v1);
  EXPECT_THAT(told, ElementsAre("vni", "mac", "flood"));
  EXPECT_FALSE(rows.mac(vni, m));
  EXPECT_THAT(rows.flood(vni, allBum), IsEmpty());
  tell(leaf2, Agent::Op::flood, allBum, v2);
  tell(leaf2, Agent::Op::multipath, allBum, v2);
  evpnIs(far, 1);
  EXPECT_THAT(told, ElementsAre("vni", "mac", "flood", "flood", "mac"));
  EXPECT_EQ(rows.mac(vni, m), far);
  EXPECT_THAT(rows.flood(vni, allBum), ElementsAre(v2));
  std::map<EthAddr, IpAddr> macs;
  rows.forEachMac(vni, [&](EthAddr mac, IpAddr vtep) { macs[mac] = vtep; });
  EXPECT_EQ(macs, (std::map<EthAddr, IpAddr>{{m, far}}));
  controller->settledIs();
  EXPECT_TRUE(isSettled);
}

}  // namespace
