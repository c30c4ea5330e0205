#include "VxlanController/Site.h"

namespace MachineTests {
namespace {

class RxSm : public testing::Test {
 protected:
  Ptr<QorEvpnRxSm> const& make() {
    return sm = VxlanController::qorEvpnRxSmFactory(own.hostTable, own.floodTable, dir);
  }
  /// What the status holds after everything written so far was delivered.
  std::string delivered() {
    evpns.endTurn(), own.deliver();
    return content();
  }
  std::string content() const { return text(*dir); }

  Tables evpns{Brine::Mode::writer}, own{Brine::Mode::keyshadow, evpns.folder};
  Ptr<HostTable> hosts = evpns.hostTable;
  Ptr<FloodTable> floods = evpns.floodTable;
  TestSupport::TraceCapture traces{"VxlanControllerEvpnTxSm"};
  Ptr<VniStatusDirV2> dir = makePtr<VniStatusDirV2>("evpn");
  Ptr<QorEvpnRxSm> sm;
};

TEST_F(RxSm, DefaultRowsAreDeletionsAndNothingIsTraced) {
  make();
  sm->vniStatusDir()->vniStatusV2Is(Vni(0))->macVtepTableIs(MacVtepV2(EthAddr(), ip(1)));
  hosts->hostIs(Host());
  EXPECT_EQ(delivered(), "");
  Host almost;
  almost.preferenceIs(17);
  hosts->hostIs(almost);
  floods->floodEntryIs(FloodEntry(VniVtepPair(Vni(0), ip(1))));
  EXPECT_EQ(delivered(), "0[0>0/0/17 bum>1 ] ");
  floods->floodEntryIs(FloodEntry());
  EXPECT_EQ(delivered(), "0[0>0/0/17 bum>1 ] ");
  hosts->hostIs(Host());
  EXPECT_EQ(delivered(), "0[bum>1 ] ");
  floods->floodEntryDel(VniVtepPair(Vni(0), ip(1)));
  EXPECT_EQ(delivered(), "");
  EXPECT_EQ(traces.take(), Texts());
  // The assertions hold for them, too.
  EXPECT_DEATH(sm->handleHost(MacVniPair()), "assertion failed: vniStatus");
}

TEST_F(RxSm, CleanupWithdrawsWhatTheRowsPutThereAndKeepsNoMemory) {
  for (uint32_t vni : {10u, 20u}) hosts->hostIs(host(vni, 1, 11)), hosts->hostIs(host(vni, 2, 11));
  floods->floodEntryIs(flood(10, 12)), floods->floodEntryIs(flood(40, 12));
  delivered();
  make();
  dir->vniStatusV2(Vni(20))->macVtepTableIs(entry(9, 9));
  Orb::attributeInvoke(*sm, "cleanup");
  EXPECT_EQ(content(), "20[9>9/1/16 ] ");
  EXPECT_EQ(hosts->statistics().rows, 4u);
  Orb::attributeInvoke(*sm, "initSm");
  std::string const all = "10[1>11/1/16 2>11/1/16 bum>12 ] 20[1>11/1/16 2>11/1/16 9>9/1/16 ] 40[bum>12 ] ";
  EXPECT_EQ(content(), all);
  sm->hasNotificationActiveIs(false);
  hosts->hostIs(host(50, 1, 1));
  EXPECT_EQ(delivered(), all);
  sm = nullptr;  // writes nothing
  EXPECT_EQ(content(), all);
}

TEST_F(RxSm, DamageEndsItsWalkAndCountsAsAbsence) {
  for (uint32_t m : {1u, 2u, 3u}) hosts->hostIs(host(10, m, m)), floods->floodEntryIs(flood(10, m));
  delivered();
  make();
  std::string const all = "10[1>1/1/16 2>2/1/16 3>3/1/16 bum>1 bum>2 bum>3 ] ";
  EXPECT_EQ(content(), all);
  evpns.damage(host(10, 2, 2)), evpns.damage(flood(10, 2));
  Texts const two = {"row 1 is damaged", "row 1 is damaged"};
  sm->initSm();
  EXPECT_EQ(std::exchange(own.reports, {}), two);
  EXPECT_EQ(content(), all);
  sm->cleanup();
  EXPECT_EQ(std::exchange(own.reports, {}), two);
  EXPECT_EQ(content(), "10[2>2/1/16 3>3/1/16 bum>2 bum>3 ] ");
  sm->handleHost(host(10, 2, 2).key());
  EXPECT_EQ(content(), "10[3>3/1/16 bum>2 bum>3 ] ");
  EXPECT_EQ(own.reports.size(), 1u);
  // Errors of whoever hears of the status leave the walk, damage of other tables too.
  auto const watcher = makePtr<TestSupport::Watcher>(
      *dir->vniStatusV2(Vni(10)), [](auto, auto) { throw Brine::CorruptionError("another table"); });
  EXPECT_THROW(sm->initSm(), Brine::CorruptionError);
  EXPECT_EQ(own.reports.size(), 1u);
}

TEST_F(RxSm, Assertions) {
  make();
  std::string const failed = "assertion failed: ";
  MacVniPair const key = host(10, 1, 1).key();
  VniVtepPair const floodKey = flood(10, 1).key();
  EXPECT_DEATH(sm->deleteHostEntry(key), failed + "vniStatus, function .*deleteHostEntry");
  EXPECT_DEATH(sm->handleHost(key), failed + "vniStatus, function .*deleteHostEntry");
  EXPECT_DEATH(sm->handleFloodEntry(floodKey), failed + "vniStatus, function .*deleteFloodEntry");
  EXPECT_DEATH(sm->maybeDeleteVniStatus(Vni(10)), failed + "vniStatus, function .*maybeDeleteVniStatus");
  auto const status = dir->vniStatusV2Is(Vni(10));
  EXPECT_DEATH(sm->deleteFloodEntry(floodKey), failed + "floodList, function .*deleteFloodEntry");
  // Before it tests for emptiness, and whatever the first finds.
  status->macVtepTableIs(entry(2, 2));
  status->ipToMacTableIs(ip(1), mac(1));
  EXPECT_DEATH(sm->deleteHostEntry(key), failed + "!vniStatus->ipToMacTables\\(\\)");
  status->macVtepMultiPathTableIs({mac(1), {}});
  EXPECT_DEATH(sm->deleteHostEntry(key), failed + "!vniStatus->macVtepMultiPathTables\\(\\)");
  EXPECT_DEATH(VxlanController::qorEvpnRxSmFactory(nullptr, own.floodTable, dir),
               "null Orb::Ptr dereferenced");
  EXPECT_DEATH(VxlanController::qorEvpnRxSmFactory(own.hostTable, nullptr, dir),
               "null Orb::Ptr dereferenced");
}

}  // namespace
}  // namespace MachineTests
