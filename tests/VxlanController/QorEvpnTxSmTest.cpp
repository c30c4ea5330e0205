#include "VxlanController/QorEvpnTxSweep.h"
#include "VxlanController/Site.h"

namespace MachineTests {
namespace {

using TxSm = Site;

std::string child(uint32_t vni, std::string const& handler) {
  return "VniFdbStatusSm(" + std::to_string(vni) + ")::" + handler;
}
// The start-up of a VNI whose status is empty.
std::string emptyStart(uint32_t vni) {
  std::string const brIds =
      run(child(vni, "updateBrIdList()"), run("QorEvpnTxSm()::unpublishBrId(" + std::to_string(vni) + ")"));
  return run(
      child(vni, "handleInitialized()"),
      run(child(vni, "handleHost()"), brIds + run(child(vni, "cleanupStaleHostEntries()"))) +
          run(child(vni, "handleFloodList()"), brIds + run(child(vni, "cleanupStaleFloodListEntries()"))));
}
std::string const sweep = "cleanupStaleVniEntries()", rowSweep = "8 QorEvpnTxSm()::cleanupStaleVniEntries(";

TEST_F(TxSm, StartSweepsListedVnisWithoutStatusBeforeItMakesChildren) {
  vniIs("10"), vniIs("20");
  for (uint32_t vni : {30u, 10u, 25u}) brIds->brIdListIs(brId(vni), true);
  for (uint32_t vni : {10u, 30u, 40u}) {
    for (uint32_t m : {1u, 2u}) hostTable->hostIs(host(vni, m, 11));
    floodTable->floodEntryIs(flood(vni, 12));
  }
  counts();
  make();
  std::string const stale = " Deleting stale host entry (macAddr: 02:00:00:00:00:0";
  auto const functions = traces.functions();
  std::string const ten = emptyStart(10);
  std::string const hosts10 = "4 " + child(10, "cleanupStaleHostEntries() return\n");
  std::string const floods10 = "4 " + child(10, "cleanupStaleFloodListEntries() return\n");
  std::string started = ten;
  started.insert(started.find(hosts10),
                 "8 " + child(10, "cleanupStaleHostEntries()") + stale + "1, ip: 10.99.0.11)\n8 " +
                     child(10, "cleanupStaleHostEntries()") + stale + "2, ip: 10.99.0.11)\n");
  started.insert(started.find(floods10), "8 " + child(10, "cleanupStaleFloodListEntries()") +
                                             " Deleting stale flood list entry (ip: 10.99.0.12)\n");
  EXPECT_EQ(
      traced(),
      run("QorEvpnTxSm()::handleInitialized()",
          run("QorEvpnTxSm()::handleVniFdbStatus()",
              run("QorEvpnTxSm()::cleanupStaleBrIdEntries()",
                  run(sweep, "3 " + sweep + " Deleting stale VNI 25\n3 " + sweep +
                                 " Deleting stale VNI 30\n" + rowSweep + "30)" + stale +
                                 "1, ip: 10.99.0.11)\n" + rowSweep + "30)" + stale + "2, ip: 10.99.0.11)\n" +
                                 rowSweep + "30) Deleting stale flood list entry (ip: 10.99.0.12)\n")) +
                  run("QorEvpnTxSm()::handleVniFdbStatus(10)", started) +
                  run("QorEvpnTxSm()::handleVniFdbStatus(20)", emptyStart(20)))));
  EXPECT_EQ(std::count(functions.begin(), functions.end(), "cleanupStaleVniEntries"), 7);
  EXPECT_EQ(std::count(functions.begin(), functions.end(), "cleanupStaleHostEntries"), 6);
  EXPECT_EQ(std::count(functions.begin(), functions.end(), "operator()"), 0);
  EXPECT_EQ(counts(), (Counts{0, 4, 4, 0, 2, 2}));
  EXPECT_EQ(tables(), "40:1>11/1/16 40:2>11/1/16 | 40>12 | ");  // of a VNI that nobody lists
  EXPECT_TRUE(root->hasNotificationActive() && root->vniFdbStatusSm(Vni(10))->hasNotificationActive());
}

TEST_F(TxSm, RemovedVniIsSweptThenTakenOutThenCleanedUp) {
  auto const status = vniIs("10");
  status->macVtepTableIs(entry(1, 11));
  listOf(status, {{12, true}});
  make();
  EXPECT_EQ(tables(), "10:1>11/1/16 | 10>12 | 10 ");
  traced(), counts();
  std::string atCleanup;
  auto const sink = Trace::sinkIs({});
  Trace::sinkIs([&](Trace::Record const& record) {
    if (record.text.find("cleanup()") != std::string::npos && record.level == 3)
      atCleanup += tables() + std::to_string(root->vniFdbStatusSm().members());
    sink(record);
  });
  dir->entryDel("10");
  Trace::sinkIs(sink);
  EXPECT_EQ(atCleanup, "| | 0| | 0");
  std::string const list = "MacVtepFloodListSm(00:00:00:00:00:00)(10)::cleanup()";
  EXPECT_EQ(
      traced(),
      run("QorEvpnTxSm()::handleVniFdbStatus(10)",
          run(sweep, "3 " + sweep + " Deleting stale VNI 10\n" + rowSweep +
                         "10) Deleting stale host entry (macAddr: 02:00:00:00:00:01, ip: 10.99.0.11)\n" +
                         rowSweep + "10) Deleting stale flood list entry (ip: 10.99.0.12)\n") +
              run(child(10, "cleanup()"),
                  run(list, "8 " + list + " Deleting flood list entry (ip: 10.99.0.12)\n") + "3 " +
                      child(10, "handleInitialized()\n"))));
  EXPECT_EQ(counts(), (Counts{0, 1, 1, 0, 2, 1}));
  // Without a child the sweep is the same, and rows of other VNIs are neither touched nor traced.
  hostTable->hostIs(host(10, 1, 11)), hostTable->hostIs(host(11, 1, 11)),
      floodTable->floodEntryIs(flood(11, 1));
  root->handleVniFdbStatus("10");
  EXPECT_EQ(tables(), "11:1>11/1/16 | 11>1 | ");
  EXPECT_EQ(traced().find("11) Deleting"), std::string::npos);
}

TEST_F(TxSm, NamesStandForTheNumberAtTheirBeginning) {
  make();
  for (auto [name, vni] : std::map<std::string, uint32_t>{
           {"16777215", 16777215}, {"abc", 0}, {"4294967301", 5}, {" 7x", 7}, {"+8", 8}, {"010", 10}}) {
    auto const status = vniIs(name);
    ASSERT_TRUE(root->vniFdbStatusSm(Vni(vni))) << name;
    EXPECT_EQ(root->vniFdbStatusSm(Vni(vni))->vniFdbStatus(), status);
    traced();
    dir->entryDel(name);
    EXPECT_FALSE(root->vniFdbStatusSm(Vni(vni)));
    EXPECT_EQ(traced().substr(0, 37 + name.size()), "3 QorEvpnTxSm()::handleVniFdbStatus(" + name + ")");
  }
  counts();
  for (std::string const name : {"-1", "16777216"}) {
    for (auto const& change : {std::function<void()>([&] { vniIs(name); }), {[&] { dir->entryDel(name); }}}) {
      traced();
      try {
        change();
        ADD_FAILURE() << name;
      } catch (Orb::RangeError const& error) {
        EXPECT_STREQ(error.what(), "Vni::value < Vni::min or > Vni::max not allowed");
      }
      EXPECT_EQ(traced(), "3 QorEvpnTxSm()::handleVniFdbStatus(" + name + ")\n");
    }
  }
  EXPECT_EQ(counts(), Counts());
  // An alias takes the VNI away from its namesake.
  vniIs("7"), vniIs("8");
  root->handleVniFdbStatus(" 7x");
  EXPECT_FALSE(root->vniFdbStatusSm(Vni(7)));
}

TEST_F(TxSm, EntryOfAnotherTypeKeepsItsVniOutOfTheFirstSweepOnly) {
  dir->entryIs(makePtr<Orb::Dir>("5"));
  brIds->brIdListIs(brId(5), true);
  make();
  EXPECT_EQ(traced(), run("QorEvpnTxSm()::handleInitialized()",
                          run("QorEvpnTxSm()::handleVniFdbStatus()",
                              run("QorEvpnTxSm()::cleanupStaleBrIdEntries()", run(sweep)) +
                                  run("QorEvpnTxSm()::handleVniFdbStatus(5)",
                                      run(sweep, "3 " + sweep + " Deleting stale VNI 5\n")))));
  EXPECT_EQ(tables(), "| | ");
}

TEST_F(TxSm, ReplacedStatusIsRefusedAndTheChangeStays) {
  auto const old = vniIs("10");
  make();
  auto const former = root->vniFdbStatusSm(Vni(10));
  traced();
  EXPECT_THROW(vniIs("10"), Orb::ReinstantiationError);
  EXPECT_EQ(traced(), "3 QorEvpnTxSm()::handleVniFdbStatus(10)\n");
  EXPECT_NE(dir->entityPtr("10"), old);
  EXPECT_EQ(root->vniFdbStatusSm(Vni(10)), former);
  EXPECT_EQ(former->vniFdbStatus(), old);
  dir->entryIs(old);
  EXPECT_EQ(traced(), run("QorEvpnTxSm()::handleVniFdbStatus(10)"));
  EXPECT_EQ(root->vniFdbStatusSm(Vni(10)), former);
}

TEST_F(TxSm, EvpnStatusReachesLivingChildrenAndLaterOnes) {
  auto const line = [](bool init, std::string const& vni) {
    return "8 void QorEvpn::QorEvpnTxSm::handleVniStatusFromEvpn(Vxlan::Vni) init " +
           std::string(init ? "true" : "false") + " vni " + vni + "\n";
  };
  make();
  traced();
  auto const of10 = evpn->vniStatusV2Is(Vni(10));
  EXPECT_EQ(traced(), line(true, "10"));
  vniIs("10"), vniIs("20");
  EXPECT_EQ(root->vniFdbStatusSm(Vni(10))->vniStatusFromEvpn(), of10);
  traced();
  auto const of20 = evpn->vniStatusV2Is(Vni(20));
  EXPECT_EQ(traced(), line(true, "20") + emptyStart(20));
  EXPECT_EQ(root->vniFdbStatusSm(Vni(20))->vniStatusFromEvpn(), of20);
  evpn->vniStatusV2Del(Vni(10));
  EXPECT_EQ(root->vniFdbStatusSm(Vni(10))->vniStatusFromEvpn(), nullptr);
  root->initializedIs(false);
  traced();
  evpn->vniStatusV2Del(Vni(20));
  EXPECT_EQ(traced(), line(false, "20"));
  EXPECT_EQ(root->vniFdbStatusSm(Vni(20))->vniStatusFromEvpn(), of20);
  root->publishBrId(brId(9)), root->unpublishBrId(brId(9)), root->cleanupStaleBrIdEntries();
  EXPECT_EQ(traced(), "");
}

TEST_F(TxSm, CleanupEmptiesTheOutputsThenTheChildren) {
  make();
  for (std::string const name : {"10", "20"}) {
    auto const status = vniIs(name);
    status->macVtepTableIs(entry(1, 11));
    listOf(status, {{12, true}});
  }
  hostTable->hostIs(host(40, 1, 11));
  std::string order;
  auto const watch = [&](Orb::Notifier const& source, char letter) {
    return makePtr<TestSupport::Watcher>(source, [&order, letter](auto, auto) { order += letter; });
  };
  std::vector<Orb::Ptr<TestSupport::Watcher>> const watchers = {watch(*brIds, 'b'), watch(*hostTable, 'h'),
                                                                watch(*floodTable, 'f')};
  auto const children = {root->vniFdbStatusSm(Vni(10)), root->vniFdbStatusSm(Vni(20))};
  traced(), counts();
  Orb::attributeInvoke(*root, "cleanup");
  EXPECT_EQ(order, "bbhhhff");
  EXPECT_EQ(counts(), (Counts{0, 3, 3, 0, 4, 2}));
  std::string const lines = traced();
  EXPECT_EQ(lines.find("3 QorEvpnTxSm()::cleanup()\n3 VniFdbStatusSm("), 0u);
  EXPECT_TRUE(lines.ends_with("\n4 QorEvpnTxSm()::cleanup() return\n"));
  for (auto const& former : children) EXPECT_FALSE(former->initialized());
  EXPECT_EQ(tables() + std::to_string(root->vniFdbStatusSm().members()), "| | 0");
  // Deaf until it is started again.
  root->cleanup(), root->handleVniFdbStatus();
  vniIs("30")->macVtepTableIs(entry(1, 11));
  dir->entryDel("10");
  EXPECT_EQ(traced(), "");
  Orb::attributeInvoke(*root, "handleInitialized");
  EXPECT_EQ(tables(), "20:1>11/1/16 30:1>11/1/16 | 20>12 | 20 30 ");
  // Destruction writes nothing.
  counts();
  root = nullptr;
  EXPECT_EQ(counts(), Counts());
  EXPECT_EQ(dir->notifieeList()->size() + evpn->notifieeList()->size(), 0u);
}

TEST_F(TxSm, BridgeIdentifiersAreWrittenOnlyWhereThatChangesThem) {
  make();
  EXPECT_EQ(brId(5000).value(), 0x02001388u);
  brIds->brIdListIs(brId(5), false);  // which a write would turn into true
  root->publishBrId(brId(5));
  EXPECT_FALSE(*brIds->brIdList().find(brId(5)));
  root->publishBrId(brId(6));
  EXPECT_TRUE(*brIds->brIdList().find(brId(6)));
  root->unpublishBrId(brId(5)), root->unpublishBrId(brId(5));
  EXPECT_EQ(text(*brIds), "6 ");
  Bridging::BridgeId const other(0x01000005);
  brIds->brIdListIs(other, true);
  Trace::levelsIs("VxlanControllerEvpnTxSm", 0);
  for (auto const& call : {std::function<void()>([&] { root->publishBrId(other); }),
                           {[&] { root->unpublishBrId(other); }},
                           {[&] { root->cleanupStaleBrIdEntries(); }}}) {
    EXPECT_DEATH(call(), "assertion failed: brType\\(\\) == brTypeVni\\(\\), function .*vni");
  }
}

TEST_F(TxSm, DamageEndsItsWalkAndOtherErrorsLeaveTheSweep) {
  for (uint32_t m : {1u, 2u, 3u}) hostTable->hostIs(host(10, m, m)), floodTable->floodEntryIs(flood(10, m));
  make();
  for (std::set<Vni> const& stale : {std::set{Vni(10)}, {Vni(10), Vni(11)}}) {
    if (stale.size() == 1) folder.damage(host(10, 2, 2)), folder.damage(flood(10, 2));
    hostTable->hostIs(host(10, 1, 1)), floodTable->floodEntryIs(flood(10, 1));
    traced();
    QorEvpn::cleanupStaleVniEntries(root, stale);
    EXPECT_EQ(std::exchange(reports, {}), (std::vector<std::string>{"row 1 is damaged", "row 1 is damaged"}));
    std::string const lines = traced();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), '8'), 2);
    EXPECT_TRUE(lines.ends_with("\n4 cleanupStaleVniEntries() return\n"));
  }
  EXPECT_EQ(hostTable->corruptions() + floodTable->corruptions(), 4u);
  hostTable->hostIs(host(11, 1, 1));
  auto const watcher = makePtr<TestSupport::Watcher>(*hostTable, [](auto, auto) { throw 7; });
  EXPECT_THROW(QorEvpn::cleanupStaleVniEntries(root, {Vni(11)}), int);
}

TEST_F(TxSm, GenericInterface) {
  vniIs("10");
  make();
  EXPECT_EQ(root->fwkType().name(), "QorEvpn::QorEvpnTxSm");
  EXPECT_EQ(namesOf(*root),
            "vniDir vniStatusDirFromEvpn qorBrIdList hostTableOut floodTableOut vniFdbStatusSm initialized "
            "handleInitialized handleVniFdbStatus handleVniStatusFromEvpn publishBrId unpublishBrId "
            "cleanupStaleBrIdEntries cleanup ");
  std::vector<Ptr<Orb::PtrInterface const>> const objects = {dir, evpn, brIds, hostTable, floodTable};
  for (Orb::AttributeId i = 0; i < objects.size(); ++i)
    EXPECT_EQ(Orb::attribute(*root, Orb::firstOwnAttribute + i).as<Ptr<Orb::PtrInterface const>>(),
              objects[i]);
  EXPECT_EQ(Orb::attribute(*root, "vniFdbStatusSm").as<std::vector<Orb::Value>>().at(0).as<Vni>(), Vni(10));
  Orb::attributeIs(*root, "initialized", false);
  EXPECT_FALSE(root->initialized());
  EXPECT_THROW(Orb::attributeInvoke(*root, "publishBrId"), Orb::AttributeAccessError);
  EXPECT_EQ(root->vniDirDel(), dir);
  EXPECT_EQ(root->vniStatusDirFromEvpnDel(), evpn);
  EXPECT_EQ(root->vniDirDel(), nullptr);
}

}  // namespace
}  // namespace MachineTests
