#include "agent/controller/Controller.h"

#include <gmock/gmock.h>

#include <map>
#include <optional>
#include <sstream>

#include "Orb/Text.h"
#include "support/Paths.h"

namespace {

using Orb::makePtr;
using testing::ElementsAre, testing::IsEmpty;
using VxlanController::MacVtepV2, Wirix::EthAddr, Wirix::IpAddr;

/// A controller, its sources, and one MAC address.
struct OneMac {
  OneMac() {
    for (Agent::SourceId const each : {feed, feed2}) controller->sourceIs(each, true);
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
  /// The merged entry of the MAC: "10.0.0.1/3", or "none"; and whether there are flood lists.
  std::string entry() const {
    auto const* const status = controller->vniFdbStatus(vni);
    if (!status) return "the VNI is not served";
    auto const* const found = status->macVtepTable().find(m);
    return (found ? Orb::toText(found->vtepAddr()) + '/' + std::to_string(found->seqNo().value()) : "none") +
           (status->macVtepFloodListTable().empty() ? "" : ", flooded");
  }

  static constexpr Agent::SourceId feed = 0, leaf1 = 1, leaf2 = 2, feed2 = 3;
  Vxlan::Vni const vni{7};
  EthAddr const m{"02:00:00:00:00:01"}, allBum;
  IpAddr const v1{"10.0.0.1"}, v2{"10.0.0.2"}, far{"10.9.0.1"}, far2{"10.9.0.2"};
  Orb::Ptr<VxlanController::VniStatusDirV2> const evpn =
      makePtr<VxlanController::VniStatusDirV2>(Orb::Name("evpn"));
  Orb::Ptr<Agent::Controller> const controller = Agent::Controller::ControllerIs(evpn);
};

struct ControllerTest : testing::Test, OneMac {};

/// One line of the story: who tells what of the MAC.
void act(OneMac& one, std::string const& line) {
  std::istringstream words(line);
  std::string who, what, vtep = "0.0.0.0";
  unsigned seq = 0;
  words >> who >> what >> vtep >> seq;
  IpAddr const addr(vtep);
  if (who == "evpn") {
    what == "has" ? one.evpnIs(addr, seq) : static_cast<void>(one.evpn->vniStatusV2Del(one.vni));
  } else if (who == "mac") {
    one.controller->frozenIs(one.vni, one.m, what == "freezes");
  } else if (who == "earlier-run") {
    if (what == "goes") one.controller->earlierDel();
    if (what == "floods") one.controller->earlierIs(one.vni, addr);
    if (what == "has") one.controller->earlierIs(one.vni, MacVtepV2(one.m, addr, Seqno32(seq)));
    if (what == "serves") one.controller->earlierIs(one.vni);
  } else {
    Agent::SourceId const source = std::map<std::string, Agent::SourceId>{
        {"feed", OneMac::feed},
        {"feed2", OneMac::feed2},
        {"leaf1", OneMac::leaf1},
        {"leaf2", OneMac::leaf2}}.at(who);
    if (what == "has") one.mac(source, addr, seq);
    if (what == "lost") one.del(source);
    if (what == "begins") one.controller->begin(source);
    if (what == "whole") one.controller->whole(source);
    if (what == "withdrawn") one.controller->withdraw(source);
    if (what == "leaves") one.tell(source, Agent::Op::vniDel);
  }
}

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
  EXPECT_EQ(entry(), "10.9.0.1/2, flooded");

  evpn->vniStatusV2Del(vni);
  learned->macVtepTableIs(MacVtepV2(evpns, far2));
  list->vtepIpFloodListIs(far2, true);
  EXPECT_FALSE(merged.macVtepTable().contains(evpns));
  EXPECT_EQ(merged.macVtepTable(own).vtepAddr(), v1);
  EXPECT_EQ(entry(), "10.0.0.1/0");
  EXPECT_FALSE(merged.macVtepFloodListTable(allBum));
}

// What becomes of the MAC's entry. A line says who tells what and, behind `->`, what is in force then. A
// blank line stands before the next controller.
TEST(ControllerStory, IsToldInTheFileBesideThis) {
  std::string const expected = TestSupport::sourceText("tests/agent/ControllerTest.story");
  std::string story;
  std::optional<OneMac> one(std::in_place);
  std::istringstream lines(expected);
  for (std::string line; std::getline(lines, line); story += line + '\n') {
    if (line.empty()) one.emplace();
    if (line.empty() || line[0] == '#') continue;
    line.erase(std::min(line.size(), line.find(" ->")));
    act(*one, line);
    line += " -> " + one->entry();
  }
  EXPECT_EQ(story, expected);
}

TEST_F(ControllerTest, AMacThatMovesToAndFroIsReportedOnceAndFrozenIfAsked) {
  for (bool const freezes : {false, true}) {
    SCOPED_TRACE(freezes);
    Agent::Duplicates::Clock::time_point now{};
    std::vector<std::string> log;
    Agent::Duplicates duplicates(
        {4, std::chrono::seconds(10), freezes}, [&](std::string const& line) { log.push_back(line); },
        [&](auto each, auto mac, bool isFrozen) { controller->frozenIs(each, mac, isFrozen); },
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
    EXPECT_EQ(duplicates.thaw().has_value(), freezes);
    now += std::chrono::seconds(20);
    EXPECT_FALSE(duplicates.thaw());
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
