#include "agent/controller/Controller.h"

#include <gtest/gtest.h>

namespace {

using Orb::makePtr;
using Wirix::EthAddr;
using Wirix::IpAddr;

// What EVPN learned may be there before the switches serve the VNI, and go while others hold its objects.
TEST(ControllerTest, AVniTakesUpWhatEvpnHadLearnedAndGivesItUpWithTheStatus) {
  Vxlan::Vni const vni(7);
  EthAddr const evpns("02:00:00:00:00:01"), own("02:00:00:00:00:02"), both("02:00:00:00:00:03"), allBum;
  IpAddr const local("10.99.0.1"), remote("10.99.0.2"), late("10.99.0.3");
  auto const dir = makePtr<VxlanController::VniStatusDirV2>(Orb::Name("evpn"));
  auto const learned = dir->vniStatusV2Is(vni);
  learned->macVtepTableIs(VxlanController::MacVtepV2(evpns, remote));
  learned->macVtepTableIs(VxlanController::MacVtepV2(both, remote, Seqno32(2)));
  auto const list = makePtr<VxlanController::MacVtepFloodListV2>(allBum);
  list->vtepIpFloodListIs(remote, true);
  learned->macVtepFloodListTableIs(list);

  auto const controller = Agent::Controller::ControllerIs(dir);
  controller->sourceIs(0, true);
  for (EthAddr const& mac : {own, both}) {
    Agent::Event event;
    event.op = Agent::Op::mac;
    event.vni = vni;
    event.mac = mac;
    event.vtep = local;
    controller->apply(0, event);
  }
  auto const merged =
      Orb::ptrCast<VxlanController::VniFdbStatusV2>(controller->vniDir()->entityPtr(Orb::Name("7")));
  auto const vtepOf = [&](EthAddr mac) {
    auto const* const entry = merged->macVtepTable().find(mac);
    return entry ? entry->vtepAddr() : IpAddr();
  };
  auto const floods = [&] {
    auto const all = merged->macVtepFloodListTable(allBum);
    return all ? all->vtepIpFloodList().size() : 0;
  };
  EXPECT_EQ(vtepOf(evpns), remote);
  EXPECT_EQ(vtepOf(own), local);
  EXPECT_EQ(vtepOf(both), remote);
  EXPECT_EQ(floods(), 1U);

  dir->vniStatusV2Del(vni);
  learned->macVtepTableIs(VxlanController::MacVtepV2(evpns, late));
  list->vtepIpFloodListIs(late, true);
  EXPECT_EQ(vtepOf(evpns), IpAddr());
  EXPECT_EQ(vtepOf(own), local);
  EXPECT_EQ(vtepOf(both), local);
  EXPECT_EQ(floods(), 0U);
}

}  // namespace
