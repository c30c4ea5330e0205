#include "VxlanController/Fixture.h"

namespace MachineTests {
namespace {

class QorEvpnRxSmTest : public testing::Test {
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

TEST_F(QorEvpnRxSmTest, DefaultRowsAreDeletionsAndNothingIsTraced) {
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

TEST_F(QorEvpnRxSmTest, CleanupWithdrawsWhatTheRowsPutThereAndKeepsNoMemory) {
  hosts->hostIs(host(20, 1, 11)), floods->floodEntryIs(flood(40, 12));
  delivered();
  make();
  dir->vniStatusV2(Vni(20))->macVtepTableIs(entry(9, 9));
  Orb::attributeInvoke(*sm, "cleanup");
  EXPECT_EQ(content(), "20[9>9/1/16 ] ");
  Orb::attributeInvoke(*sm, "initSm");
  std::string const all = "20[1>11/1/16 9>9/1/16 ] 40[bum>12 ] ";
  EXPECT_EQ(content(), all);
  sm->hasNotificationActiveIs(false);
  hosts->hostIs(host(50, 1, 1));
  EXPECT_EQ(delivered(), all);
  sm = nullptr;  // writes nothing
  EXPECT_EQ(content(), all);
}

TEST_F(QorEvpnRxSmTest, CleanupBeforeADeliveryWithdrawsWhatItsWalkMeets) {
  make();
  hosts->hostIs(host(10, 1, 1)), hosts->hostIs(host(20, 1, 1));
  delivered();
  hosts->hostIs(host(30, 1, 1)), hosts->hostDel(host(10, 1, 1).key());
  evpns.endTurn();
  sm->cleanup();
  EXPECT_EQ(content(), "10[1>1/1/16 ] ") << "its removal comes with the delivery";
  EXPECT_EQ(delivered(), "");
  hosts->hostDel(host(20, 1, 1).key());
  evpns.endTurn();
  EXPECT_DEATH(own.deliver(), "assertion failed: vniStatus");
  sm->hasNotificationActiveIs(false);
  EXPECT_EQ(delivered(), "");
  hosts->hostIs(host(40, 1, 1));
  evpns.endTurn();
  EXPECT_DEATH(sm->cleanup(), "assertion failed: vniStatus");
  // What it missed while it was switched off counts as told; initSm() makes up for it.
  sm->hasNotificationActiveIs(true);
  sm->initSm();
  EXPECT_EQ(content(), "30[1>1/1/16 ] 40[1>1/1/16 ] ");
  hosts->hostDelAll();
  EXPECT_EQ(delivered(), "");
}

/// In either reading mode.
class QorEvpnRxSmAndOnlookersTest : public testing::TestWithParam<Brine::Mode> {
 protected:
  struct Machine {
    explicit Machine(Tables const& tables)
        : sm(VxlanController::qorEvpnRxSmFactory(tables.hostTable, tables.floodTable, dir)) {}
    Ptr<VniStatusDirV2> dir = makePtr<VniStatusDirV2>("evpn");
    Ptr<QorEvpnRxSm> sm;
  };
  void write(uint32_t vni, uint32_t vtep = 1) {
    evpns.hostTable->hostIs(host(vni, 1, vtep)), evpns.floodTable->floodEntryIs(flood(vni, 1)),
        evpns.endTurn();
  }
  void remove(uint32_t vni) {
    evpns.hostTable->hostDel(host(vni, 1, 1).key());
    evpns.floodTable->floodEntryDel(flood(vni, 1).key());
    evpns.endTurn();
  }
  static std::string content(Machine const& machine) { return text(*machine.dir); }

  Tables evpns{Brine::Mode::writer}, own{GetParam(), evpns.folder};
};

INSTANTIATE_TEST_SUITE_P(Modes, QorEvpnRxSmAndOnlookersTest,
                         testing::Values(Brine::Mode::reader, Brine::Mode::keyshadow));

TEST_P(QorEvpnRxSmAndOnlookersTest, EachMachineIsToldOfEveryDifferenceAndOfNothingElse) {
  write(1), write(2), write(3);
  own.deliver();
  Machine const one(own);
  remove(1), write(4), write(2, 9);
  Machine const other(own);
  write(7), remove(7);  // comes and goes unseen
  own.deliver();
  std::string const now = "2[1>9/1/16 bum>1 ] 3[1>1/1/16 bum>1 ] 4[1>1/1/16 bum>1 ] ";
  EXPECT_EQ(content(one), now);
  EXPECT_EQ(content(other), now);
  // While the tables are not mounted, too.
  own.hostTable->unmount(), own.floodTable->unmount();
  remove(3);
  Machine const late(own);
  own.hostTable->mount(optionsOf(*own.folder, GetParam()));
  own.floodTable->mount(optionsOf(*own.folder, GetParam()));
  own.deliver();
  std::string const left = "2[1>9/1/16 bum>1 ] 4[1>1/1/16 bum>1 ] ";
  EXPECT_EQ(content(one), left);
  EXPECT_EQ(content(other), left);
  EXPECT_EQ(content(late), "") << "told of nothing that has not changed since it came";
  late.sm->initSm();
  EXPECT_EQ(content(late), left);
  remove(2), remove(4);
  own.deliver();
  for (Machine const* const machine : {&one, &other, &late}) EXPECT_EQ(content(*machine), "");
}

TEST_F(QorEvpnRxSmTest, DamageEndsItsWalkAndCountsAsAbsence) {
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

TEST_F(QorEvpnRxSmTest, Assertions) {
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
  for (bool const isHosts : {true, false}) {
    auto const without = [&] {
      VxlanController::qorEvpnRxSmFactory(isHosts ? nullptr : own.hostTable,
                                          isHosts ? own.floodTable : nullptr, dir);
    };
    EXPECT_DEATH(without(), "null Orb::Ptr dereferenced: table, function .*handle.*QorEvpnRxSm.cpp:");
  }
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
