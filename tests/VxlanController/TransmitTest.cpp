#include <gmock/gmock.h>

#include "VxlanController/Site.h"

namespace MachineTests {
namespace {

class Transmit : public Site {
 public:
  // VNI 10, served by a machine.
  void serve() {
    if (!root) make();
    status = vniIs("10", 10);
    machine = root->vniFdbStatusSm(Vni(10));
    traced(), counts();
  }
  Ptr<VniFdbStatusV2> status;
  Ptr<VniFdbStatusSm> machine;
};

// One suite a machine; Transmit is of all three.
using TxSm = Transmit;
using VniFdbStatus = Transmit;

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
  ten->macVtepTableIs(MacVtepV2(mac(1), ip(11), Seqno32(7), 200)), ten->macVtepTableIs(entry(2, 12));
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
  ten->macVtepTableIs(entry(3, 11)), told("a MAC is learned");
  ten->macVtepTableDel(mac(3)), told("and forgotten");
  evpn10->macVtepTableIs(MacVtepV2(mac(1), ip(11), Seqno32(7), 200)), told("EVPN supplies the same");
  evpn10->macVtepTableIs(MacVtepV2(mac(1), ip(11), Seqno32(7), 201)), told("and something else");
  brIds->brIdListDelAll();
  ten->macVtepMultiPathTableIs({mac(1), {}}), evpn10->macVtepMultiPathTableIs({mac(1), {}});
  ten->macVtepFloodListTableIs(mac(6)), evpn10->macVtepFloodListTableIs(mac(6));
  told("unsupported entries leave two records each and do not refresh the identifier");
  evpn10->macVtepMultiPathTableIs({bum, {}}), told("the all-BUM address does");
  root->vniFdbStatusSm(Vni(10))->handleMultiPath(), told("and the full pass");
  list->vtepIpFloodListIs(ip(14), true), told("a VTEP is switched on");
  evpnList->vtepIpFloodListIs(ip(14), false), told("EVPN has it, switched off");
  evpn10->macVtepFloodListTableDel(bum), told("EVPN withdraws its list");
  evpn->vniStatusV2Del(Vni(10)), told("and its status");
  evpn->vniStatusV2Is(Vni(20)), evpn->vniStatusV2Is(Vni(99)),
      told("it has one for a VNI served and one for none");
  ten->macVtepFloodListTableDel(bum), told("the flood list goes");
  listOf(ten, {{15, true}}), told("and comes");
  EXPECT_THROW(vniIs("10"), Orb::ReinstantiationError);
  EXPECT_EQ(root->vniFdbStatusSm(Vni(10))->vniFdbStatus(), ten);
  EXPECT_NE(dir->entityPtr("10"), ten);
  told("another status of VNI 10 is refused");
  dir->entryIs(ten), told("the same again is not");
  EXPECT_THROW(ten->macVtepFloodListTableIs(makePtr<MacVtepFloodListV2>(bum)), Orb::ReinstantiationError);
  told("another flood list is refused too");
  EXPECT_THROW(vniIs("10x", 10), Orb::ReinstantiationError);
  told("so is another name of VNI 10");
  dir->entryDel("10x"), told("whose end takes the VNI away all the same");
  root->handleInitialized(), told("until the next pass");
  brIds->brIdListIs(brId(10), false);
  ten->macVtepTableIs(entry(9, 11)), told("an identifier that is listed is not written");
  EXPECT_FALSE(*brIds->brIdList().find(brId(10)));
  dir->entryDel("10"), told("VNI 10 goes");
  root->handleVniFdbStatus("40"), told("one that was never served");
  auto const fdb50 = makePtr<VniFdbStatusV2>("50", Vni(50));
  fdb50->macVtepMultiPathTableIs({mac(1), {}}), dir->entryIs(fdb50), told("VNI 50 comes, unsupported");
  fdb50->macVtepFloodListTableIs(mac(6)), fdb50->macVtepMultiPathTableDel(mac(1)), told("in another way");
  fdb50->macVtepMultiPathTableIs({bum, {}}), fdb50->macVtepMultiPathTableDel(bum);
  told("and is looked at again");
  fdb50->macVtepFloodListTableDel(mac(6)), told("unsupported entries alone do not take its identifier");
  evpn->vniStatusV2Is(Vni(50)), told("EVPN's status does");
  dir->entryDel("50"), evpn->vniStatusV2Del(Vni(50)), traced();
  fdb20->macVtepMultiPathTableIs({mac(1), {}}), listOf(fdb20, {{16, true}}), traced();
  root->vniFdbStatusSm(Vni(20))->cleanup(), root->vniFdbStatusSm(Vni(20))->cleanup();
  told("the machine of VNI 20 is cleaned up, alone and once");
  root->vniFdbStatusSm(Vni(20))->initializedIs(true), traced();
  root->initializedIs(false), evpn->vniStatusV2Del(Vni(20)),
      told("EVPN's status of VNI 20 goes behind the root's back");
  root->initializedIs(true);
  root->cleanup(), told("all are");
  root->cleanup(), root->handleVniFdbStatus(), root->cleanupStaleBrIdEntries();
  root->publishBrId(brId(9)), root->unpublishBrId(brId(9)), vniIs("30"), evpn->vniStatusV2Del(Vni(99));
  told("deaf until the next start");
  Orb::attributeInvoke(*root, "handleInitialized"), told("start again");
  root->hasNotificationActiveIs(false);
  fdb20->macVtepTableIs(entry(2, 11)), listOf(fdb20, {{17, true}}), vniIs("61"), evpn->vniStatusV2Is(Vni(20));
  told("switched off, the children too");
  root = nullptr, told("destruction writes nothing");
  EXPECT_EQ(dir->notifieeList()->size() + evpn->notifieeList()->size() + fdb20->notifieeList()->size(), 0u);
  EXPECT_EQ(story, TestSupport::sourceText("tests/VxlanController/TransmitTest.story"));
}

TEST_F(TxSm, NamesStandForTheNumberAtTheirBeginning) {
  make();
  for (auto const& [name, vni] : std::map<std::string, uint32_t>{
           {"16777215", 16777215}, {"abc", 0}, {"4294967301", 5}, {" 7x", 7}, {"+8", 8}, {"010", 10}}) {
    vniIs(name);
    EXPECT_TRUE(root->vniFdbStatusSm(Vni(vni))) << name;
    dir->entryDel(Orb::Name(name));
    EXPECT_FALSE(root->vniFdbStatusSm(Vni(vni))) << name;
  }
  counts();
  traced();
  auto const isRefused =
      testing::ThrowsMessage<Orb::RangeError>("Vni::value < Vni::min or > Vni::max not allowed");
  for (std::string const name : {"-1", "16777216"}) {
    EXPECT_THAT([&] { vniIs(name); }, isRefused) << name;
    EXPECT_THAT([&] { dir->entryDel(Orb::Name(name)); }, isRefused) << name;
    std::string const record = "3 QorEvpnTxSm()::handleVniFdbStatus(" + name + ")\n";
    EXPECT_EQ(traced(), record + record);
  }
  EXPECT_EQ(counts(), Counts());
}

TEST_F(TxSm, OutputsAreEmptiedInOrderAndTheChildIsOutBeforeItsCleanup) {
  Texts seen;
  auto const sink = Trace::sinkIs({});
  Trace::sinkIs([&](Trace::Record const& record) {
    if (record.text == "VniFdbStatusSm(10)::cleanup()")
      seen.push_back(tables() + std::to_string(root->vniFdbStatusSm().members()));
  });
  auto const note = [&](Orb::Notifier const& source, std::string const& name) {
    return makePtr<TestSupport::Watcher>(source, [&seen, name](auto, auto) { seen.push_back(name); });
  };
  for (bool const all : {false, true}) {
    serve();
    status->macVtepTableIs(entry(1, 11)), listOf(status, {{12, true}});
    std::vector const watchers = {note(*floodTable, "f"), note(*hostTable, "h"), note(*brIds, "b")};
    all ? root->cleanup() : static_cast<void>(dir->entryDel("10"));
    EXPECT_FALSE(machine->initialized());
  }
  Trace::sinkIs(sink);
  EXPECT_EQ(seen, (Texts{"b", "h", "f", "| | 0", "b", "h", "f", "| | 0"}));
}

TEST_F(Transmit, DamageEndsItsWalkAndOtherErrorsTheHandler) {
  for (uint32_t m : {1u, 2u, 3u}) hostTable->hostIs(host(10, m, m)), floodTable->floodEntryIs(flood(10, m));
  make();
  damage(host(10, 2, 2)), damage(flood(10, 2));
  for (uint32_t vnis : {1u, 2u, 0u}) {  // swept, or started where there are none
    hostTable->hostIs(host(10, 1, 1)), floodTable->floodEntryIs(flood(10, 1));
    traced(), counts();
    if (vnis == 0) status = vniIs("10");
    if (vnis > 0)
      QorEvpn::cleanupStaleVniEntries(root, vnis == 1 ? std::set{Vni(10)} : std::set{Vni(10), Vni(11)});
    EXPECT_EQ(std::exchange(reports, {}), (Texts{"row 1 is damaged", "row 1 is damaged"}));
    EXPECT_EQ(counts(), (Counts{0, 1, 1, 0, 1, 1}));
    std::array<uint32_t, 9> levels{};
    for (std::string const& line : traces.take()) ++levels.at(static_cast<size_t>(line[0] - '0'));
    EXPECT_EQ(levels[8], 2u);
    EXPECT_EQ(levels[3], levels[4] + vnis);  // whatever was entered returned
  }
  hostTable->hostIs(host(11, 1, 1));
  auto const watcher = makePtr<TestSupport::Watcher>(
      *hostTable, [](auto, auto) { throw Brine::CorruptionError("elsewhere"); });
  EXPECT_THROW(QorEvpn::cleanupStaleVniEntries(root, {Vni(11)}), Brine::CorruptionError);
  // A notifiee's error leaves through the setter that it began with; what was changed stays.
  EXPECT_THROW(status->macVtepTableIs(entry(4, 11)), Brine::CorruptionError);
  EXPECT_EQ(status->macVtepTables(), 1u);
  EXPECT_EQ(hostTable->host(host(10, 4, 11).key()), host(10, 4, 11));
  EXPECT_THROW(hostTable->hostDelAll(), Brine::CorruptionError);
  EXPECT_EQ(reports, Texts()) << "it is no damage of this table";
}

TEST_F(VniFdbStatus, EvpnStatusMayComeBeforeTheStartAndIsALateInput) {
  serve();
  status->macVtepTableIs(entry(1, 11));
  auto const other = QorEvpn::vniFdbStatusSmFactory(Vni(10), status, root.get());
  EXPECT_TRUE(other->hasNotificationActive());
  auto const first = makePtr<VniStatusV2>(Vni(10)), second = makePtr<VniStatusV2>(Vni(10));
  first->macVtepTableIs(entry(1, 11));
  traced();
  std::string const pass = "3 VniFdbStatusSm(10)::handleInitialized()\n";
  other->vniStatusFromEvpnIs(first), other->vniStatusFromEvpnIs(first);
  other->handleHost(), other->handleHost(mac(1)), other->handleMultiPath(), other->handleMultiPath(bum);
  other->handleFloodList(), other->handleFloodList(bum), other->cleanupStaleHostEntries();
  other->cleanupStaleFloodListEntries(), other->cleanup();
  EXPECT_EQ(traced(), pass);
  other->initializedIs(true), other->initializedIs(true);
  EXPECT_EQ(traced().rfind(pass), 0u);
  EXPECT_EQ(tables(), "| | 10 ");
  other->vniStatusFromEvpnIs(second);
  EXPECT_EQ(tables(), "10:1>11/1/16 | | 10 ");
  other->vniStatusFromEvpnIs(first);
  EXPECT_EQ(other->vniStatusFromEvpnDel(), first);
  EXPECT_EQ(tables(), "10:1>11/1/16 | | 10 ");
}

TEST_F(Transmit, Assertions) {
  serve();
  listOf(status, {});
  auto const child = machine->macVtepFloodListSm(bum);
  child->initializedIs(false), machine->initializedIs(false);
  Trace::levelsIs("VxlanControllerEvpnTxSm", 0);
  std::string const failed = "assertion failed: initialized\\(\\), function .*";
  EXPECT_DEATH(machine->macEntryProvidedByEvpn(mac(1)), failed + "macEntryProvidedByEvpn");
  EXPECT_DEATH(machine->updateBrIdList(), failed + "updateBrIdList");
  EXPECT_DEATH(child->floodIpProvidedByEvpn(ip(1)), failed + "floodIpProvidedByEvpn");
  Bridging::BridgeId const other(0x01000005);
  brIds->brIdListIs(other, true);
  std::string const type = "assertion failed: brType\\(\\) == brTypeVni\\(\\), function .*vni";
  EXPECT_DEATH(root->publishBrId(other), type);
  EXPECT_DEATH(root->unpublishBrId(other), type);
  EXPECT_DEATH(root->cleanupStaleBrIdEntries(), type);
  EXPECT_EQ(machine->vniFdbStatusDel(), status);
  EXPECT_DEATH(machine->initializedIs(true), "null Orb::Ptr dereferenced: vniFdbStatus");
}

}  // namespace
}  // namespace MachineTests
