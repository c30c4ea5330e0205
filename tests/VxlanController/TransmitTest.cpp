#include "VxlanController/Fixture.h"

namespace MachineTests {
namespace {

// Of all three machines at once.
class Transmit : public TransmitFixture {
 protected:
  void step(std::string const& disturbance, std::function<void()> const& cause) {
    cause();
    told(disturbance);
  }
};

// A life of the machines: every record with its level, the outputs after each step, and how often both tables
// were written, removed from and notified.
TEST_F(Transmit, TellsTheStoryInTheFileBesideThis) {
  for (uint32_t vni : {10u, 30u, 40u}) {
    for (uint32_t m : {1u, 3u, 4u}) hostTable->hostIs(host(vni, m, 99));
    for (uint32_t vtep : {12u, 14u, 19u}) floodTable->floodEntryIs(flood(vni, vtep));
  }
  for (uint32_t vni : {30u, 5u, 25u}) brIds->brIdListIs(brId(vni), true);
  auto const ten = vniIs("10"), fdb20 = vniIs("20");
  dir->entryIs(makePtr<Orb::Dir>("5"));
  MacVtepV2 const one(mac(1), ip(11), Seqno32(7), 200), other(mac(1), ip(11), Seqno32(7), 201);
  ten->macVtepTableIs(one);
  ten->macVtepTableIs(entry(2, 12));
  ten->macVtepFloodListTableIs(mac(5));
  auto const list = listOf(ten, {{12, true}, {13, true}, {14, false}});
  auto const evpn10 = evpn->vniStatusV2Is(Vni(10));
  evpn10->macVtepTableIs(entry(2, 12));
  auto const evpnList = listOf(evpn10, {{13, false}});
  counts();
  make();
  EXPECT_EQ(std::ranges::count(traces.functions(), "cleanupStaleVniEntries"), 13);
  EXPECT_EQ(std::ranges::count(traces.functions(), "cleanupStaleHostEntries"), 6);
  told("start over what an earlier run left");

  step("a MAC is learned", [&] { ten->macVtepTableIs(entry(3, 11)); });
  step("and forgotten", [&] { ten->macVtepTableDel(mac(3)); });
  step("EVPN supplies the same", [&] { evpn10->macVtepTableIs(one); });
  step("and something else", [&] { evpn10->macVtepTableIs(other); });
  step("unsupported entries leave two records each and do not refresh the identifier", [&] {
    brIds->brIdListDelAll();
    ten->macVtepMultiPathTableIs({mac(1), {}});
    evpn10->macVtepMultiPathTableIs({mac(1), {}});
    ten->macVtepFloodListTableIs(mac(6));
    evpn10->macVtepFloodListTableIs(mac(6));
  });
  step("the all-BUM address does", [&] { evpn10->macVtepMultiPathTableIs({bum, {}}); });
  step("and the full pass", [&] { root->vniFdbStatusSm(Vni(10))->handleMultiPath(); });
  step("a VTEP is switched on", [&] { list->vtepIpFloodListIs(ip(14), true); });
  step("EVPN has it, switched off", [&] { evpnList->vtepIpFloodListIs(ip(14), false); });
  step("EVPN withdraws its list", [&] { evpn10->macVtepFloodListTableDel(bum); });
  step("and its status", [&] { evpn->vniStatusV2Del(Vni(10)); });
  step("it has one for a VNI served and one for none", [&] {
    evpn->vniStatusV2Is(Vni(20));
    evpn->vniStatusV2Is(Vni(99));
  });
  step("the flood list goes", [&] { ten->macVtepFloodListTableDel(bum); });
  step("and comes", [&] { listOf(ten, {{15, true}}); });
  step("another status of VNI 10 is refused", [&] {
    EXPECT_THROW(vniIs("10"), Orb::ReinstantiationError);
    EXPECT_EQ(root->vniFdbStatusSm(Vni(10))->vniFdbStatus(), ten);
    EXPECT_NE(dir->entityPtr("10"), ten);
  });
  step("the same again is not", [&] { dir->entryIs(ten); });
  step("another flood list is refused too", [&] {
    EXPECT_THROW(ten->macVtepFloodListTableIs(makePtr<MacVtepFloodListV2>(bum)), Orb::ReinstantiationError);
  });
  step("so is another name of VNI 10", [&] { EXPECT_THROW(vniIs("10x", 10), Orb::ReinstantiationError); });
  step("whose end takes the VNI away all the same", [&] { dir->entryDel("10x"); });
  step("until the next pass", [&] { root->handleInitialized(); });
  step("an identifier that is listed is not written", [&] {
    brIds->brIdListIs(brId(10), false);
    ten->macVtepTableIs(entry(9, 11));
  });
  EXPECT_FALSE(*brIds->brIdList().find(brId(10)));
  step("VNI 10 goes", [&] { dir->entryDel("10"); });
  step("one that was never served", [&] { root->handleVniFdbStatus("40"); });

  auto const fdb50 = makePtr<VniFdbStatusV2>("50", Vni(50));
  step("VNI 50 comes, unsupported", [&] {
    fdb50->macVtepMultiPathTableIs({mac(1), {}});
    dir->entryIs(fdb50);
  });
  step("in another way", [&] {
    fdb50->macVtepFloodListTableIs(mac(6));
    fdb50->macVtepMultiPathTableDel(mac(1));
  });
  step("and is looked at again", [&] {
    fdb50->macVtepMultiPathTableIs({bum, {}});
    fdb50->macVtepMultiPathTableDel(bum);
  });
  step("unsupported entries alone do not take its identifier",
       [&] { fdb50->macVtepFloodListTableDel(mac(6)); });
  step("EVPN's status does", [&] { evpn->vniStatusV2Is(Vni(50)); });
  dir->entryDel("50");
  evpn->vniStatusV2Del(Vni(50));
  fdb20->macVtepMultiPathTableIs({mac(1), {}});
  listOf(fdb20, {{16, true}});
  traced();

  step("the machine of VNI 20 is cleaned up, alone and once", [&] {
    root->vniFdbStatusSm(Vni(20))->cleanup();
    root->vniFdbStatusSm(Vni(20))->cleanup();
  });
  root->vniFdbStatusSm(Vni(20))->initializedIs(true);
  traced();
  step("EVPN's status of VNI 20 goes behind the root's back", [&] {
    root->initializedIs(false);
    evpn->vniStatusV2Del(Vni(20));
  });
  step("all are", [&] {
    root->initializedIs(true);
    root->cleanup();
  });
  step("deaf until the next start", [&] {
    root->cleanup();
    root->handleVniFdbStatus();
    root->cleanupStaleBrIdEntries();
    root->publishBrId(brId(9));
    root->unpublishBrId(brId(9));
    vniIs("30");
    evpn->vniStatusV2Del(Vni(99));
  });
  step("start again", [&] { Orb::attributeInvoke(*root, "handleInitialized"); });
  step("switched off, the children too", [&] {
    root->hasNotificationActiveIs(false);
    fdb20->macVtepTableIs(entry(2, 11));
    listOf(fdb20, {{17, true}});
    vniIs("61");
    evpn->vniStatusV2Is(Vni(20));
  });
  step("destruction writes nothing", [&] { root = nullptr; });
  EXPECT_EQ(dir->notifieeList()->size() + evpn->notifieeList()->size() + fdb20->notifieeList()->size(), 0u);
  EXPECT_EQ(story, TestSupport::sourceText("tests/VxlanController/TransmitTest.story"));
}

}  // namespace
}  // namespace MachineTests
