#include "VxlanController/Site.h"

namespace MachineTests {
namespace {

std::string sm(std::string const& handler) { return "VniFdbStatusSm(10)::" + handler; }
std::string brIds(std::string const& how) {
  return run(sm("updateBrIdList()"), run("QorEvpnTxSm()::" + how + "BrId(10)"));
}
std::string list(std::string const& handler) {
  return "MacVtepFloodListSm(00:00:00:00:00:00)(10)::" + handler;
}
// Unsupported entries leave two records of level 3.
std::string unsupported(std::string const& handler) {
  return "3 " + sm(handler) + "\n3 " + sm(handler) +
         " QOR-EVPN only supports 'all BUM destination addresses' entries\n";
}
std::string const mac1 = "02:00:00:00:00:01", allBum = "00:00:00:00:00:00";

class VniSm : public Site {
 protected:
  void start() {
    make();
    traced(), counts();
    status = vniIs("10", 10);
    machine = root->vniFdbStatusSm(Vni(10));
  }
  // Forgets the published identifier, so that a refresh shows.
  bool refreshes(std::function<void()> const& change) {
    brIds->brIdListDelAll();
    change();
    return !brIds->brIdList().empty();
  }
  Ptr<VniFdbStatusV2> status;
  Ptr<VniFdbStatusSm> machine;
};

TEST_F(VniSm, TracesHostsAndDeletesWithoutReturn) {
  start();
  traced(), counts();
  status->macVtepTableIs(MacVtepV2(mac(1), ip(11), Seqno32(7), 200));
  EXPECT_EQ(traced(), run(sm("handleHost(" + mac1 + ")"), MachineTests::brIds("publish")));
  EXPECT_EQ(tables(), "10:1>11/7/200 | | 10 ");
  EXPECT_EQ(counts(), (Counts{1, 0, 1, 0, 0, 0}));
  status->macVtepTableDel(mac(1));
  EXPECT_EQ(traced(), "3 " + sm("handleHost(" + mac1 + ")") + "\n" + MachineTests::brIds("unpublish"));
  EXPECT_EQ(tables(), "| | ");
  machine->handleHost(mac(1));
  EXPECT_EQ(counts(), (Counts{0, 2, 1, 0, 0, 0}));
  // A VNI stays published for an entry that counts as absent.
  status->macVtepTableIs(MacVtepV2());
  EXPECT_EQ(tables(), "| | 10 ");
  EXPECT_EQ(counts(), (Counts{0, 1, 0, 0, 0, 0}));
}

TEST_F(VniSm, ExportsWhatDiffersFromEvpnInAnyField) {
  start();
  MacVtepV2 const own = entry(1, 11, 5, 20);
  auto const fromEvpn = evpn->vniStatusV2Is(Vni(10));
  status->macVtepTableIs(own);
  EXPECT_EQ(tables(), "10:1>11/5/20 | | 10 ");
  for (MacVtepV2 const& other : {entry(1, 12, 5, 20), entry(1, 11, 6, 20), entry(1, 11, 5, 21)}) {
    fromEvpn->macVtepTableIs(own);
    EXPECT_EQ(tables(), "| | 10 ");
    fromEvpn->macVtepTableIs(other);
    EXPECT_EQ(tables(), "10:1>11/5/20 | | 10 ");
    status->macVtepTableIs(other);
    EXPECT_EQ(tables(), "| | 10 ");
    status->macVtepTableIs(own);
    EXPECT_EQ(tables(), "10:1>11/5/20 | | 10 ");
  }
  fromEvpn->macVtepTableIs(own);
  fromEvpn->macVtepTableDel(mac(1));
  EXPECT_EQ(tables(), "10:1>11/5/20 | | 10 ");
  fromEvpn->macVtepTableIs(own);
  traced(), counts();
  evpn->vniStatusV2Del(Vni(10));
  EXPECT_EQ(tables(), "10:1>11/5/20 | | 10 ");
  EXPECT_EQ(counts(), (Counts{1, 0, 1, 0, 0, 0}));
  fromEvpn->macVtepTableIs(entry(2, 2));
  EXPECT_EQ(counts(), Counts());
}

TEST_F(VniSm, ReportsUnsupportedEntriesWithoutARefresh) {
  start();
  auto const fromEvpn = evpn->vniStatusV2Is(Vni(10));
  traced();
  for (bool const side : {false, true}) {
    auto const apply = [&](auto const& call) { side ? call(*fromEvpn) : call(*status); };
    EXPECT_FALSE(refreshes([&] { apply([](auto& of) { of.macVtepMultiPathTableIs({mac(1), {}}); }); }));
    EXPECT_EQ(traced(), unsupported("handleMultiPath(" + mac1 + ")"));
    EXPECT_FALSE(refreshes([&] { apply([](auto& of) { of.macVtepFloodListTableIs(mac(1)); }); }));
    EXPECT_EQ(traced(), unsupported("handleFloodList(" + mac1 + ")"));
    EXPECT_TRUE(refreshes([&] { apply([](auto& of) { of.macVtepMultiPathTableIs({mac(0), {}}); }); }));
    EXPECT_EQ(traced(), run(sm("handleMultiPath(" + allBum + ")"), MachineTests::brIds("publish")));
    // ... but they count when there is one.
    status->macVtepMultiPathTableDel(mac(0));
    EXPECT_EQ(text(*brIds), "10 ");
    traced();
  }
  status->macVtepMultiPathTableDel(mac(1));
  machine->handleMultiPath();
  EXPECT_EQ(traced(), unsupported("handleMultiPath(" + mac1 + ")") +
                          run(sm("handleMultiPath()"), MachineTests::brIds("publish")));
  status->macVtepFloodListTableDel(mac(1));
  EXPECT_EQ(text(*brIds), "10 ");
  machine->updateBrIdList();
  EXPECT_EQ(tables(), "| | ");
  EXPECT_EQ(machine->macVtepFloodListSm().members(), 0u);
}

TEST_F(VniSm, IdentifiersDifferBySide) {
  start();
  evpn->vniStatusV2Is(Vni(10));
  traced();
  auto const heard = [&](auto const& reactor) {
    std::string out;
    for (Orb::AttributeId id = 256; id < 264; ++id) {
      reactor->onAttribute(id, nullptr);
      EXPECT_EQ(traced(), "");
      EthAddr const key = mac(1);
      reactor->onAttribute(id, &key);
      std::string const lines = traced();
      size_t const from = lines.find("handle");
      if (from < lines.size()) out += std::to_string(id) + lines.substr(from + 6, 2) + " ";
    }
    return out;
  };
  EXPECT_EQ(heard(machine->orbVniFdbStatus()), "258Ho 259Mu 260Fl ");
  EXPECT_EQ(heard(machine->orbVniStatusFromEvpn()), "259Ho 260Mu 261Fl ");
}

TEST_F(VniSm, FloodListMakesRefreshesAndRemovesItsChild) {
  start();
  auto const fromEvpn = evpn->vniStatusV2Is(Vni(10));
  auto const evpnList = listOf(fromEvpn, {{11, true}, {12, false}});
  auto const controllers = makePtr<MacVtepFloodListV2>(bum);
  for (auto [vtep, on] : std::map<uint32_t, bool>{{11, true}, {12, true}, {13, true}, {14, false}})
    controllers->vtepIpFloodListIs(ip(vtep), on);
  traced(), counts();
  status->macVtepFloodListTableIs(controllers);
  std::string all;
  for (std::string const vtep : {"11", "12", "13", "14"})
    all += run(list("handleVtepIp(10.99.0." + vtep + ")"));
  // The new child exports its whole list before it knows that of EVPN.
  std::string const pass = run(list("handleInitialized()"), run(list("handleVtepIp()"), all));
  std::string const handler = sm("handleFloodList(" + allBum + ")"), publish = MachineTests::brIds("publish");
  EXPECT_EQ(traced(), run(handler, publish + pass + pass));
  EXPECT_EQ(tables(), "| 10>13 | 10 ");
  EXPECT_EQ(counts(), (Counts{0, 0, 0, 4, 4, 6}));
  auto const child = machine->macVtepFloodListSm(bum);
  EXPECT_EQ(child->floodListFromEvpn(), evpnList);
  EXPECT_TRUE(child->hasNotificationActive());
  // Only another list object runs the child's pass again; `initialized` is set in any case.
  machine->handleFloodList(bum);
  child->initializedIs(false);
  machine->handleFloodList(bum);
  EXPECT_TRUE(child->initialized());
  EXPECT_EQ(traced(), run(handler, publish) + run(handler, publish));
  EXPECT_EQ(machine->macVtepFloodListSm(bum), child);
  fromEvpn->macVtepFloodListTableDel(bum);
  EXPECT_EQ(traced(), run(handler, publish + pass));
  EXPECT_EQ(tables(), "| 10>11 10>12 10>13 | 10 ");
  listOf(fromEvpn, {{13, true}});
  EXPECT_EQ(tables(), "| 10>11 10>12 | 10 ");
  evpn->vniStatusV2Del(Vni(10));
  EXPECT_EQ(tables(), "| 10>11 10>12 10>13 | 10 ");
  // Another list under the MAC is refused, and the child keeps its own.
  EXPECT_THROW(status->macVtepFloodListTableIs(makePtr<MacVtepFloodListV2>(bum)), Orb::ReinstantiationError);
  EXPECT_EQ(child->macVtepFloodList(), controllers);
  traced(), counts();
  status->macVtepFloodListTableDel(bum);
  std::string deleted;
  for (std::string const vtep : {"11", "12", "13", "14"})
    deleted += "8 " + list("cleanup()") + " Deleting flood list entry (ip: 10.99.0." + vtep + ")\n";
  EXPECT_EQ(traced(), run(handler, MachineTests::brIds("unpublish") + run(list("cleanup()"), deleted)));
  EXPECT_EQ(counts(), (Counts{0, 0, 0, 0, 4, 3}));
  EXPECT_FALSE(child->initialized());
  EXPECT_EQ(machine->macVtepFloodListSm(bum), nullptr);
}

TEST_F(VniSm, StartKeepsRowsByKeyAndRewritesThem) {
  for (uint32_t m : {1u, 2u, 3u}) hostTable->hostIs(host(10, m, 99)), hostTable->hostIs(host(11, m, 99));
  for (uint32_t n : {1u, 2u, 3u})
    floodTable->floodEntryIs(flood(10, n)), floodTable->floodEntryIs(flood(11, n));
  auto const early = makePtr<VniFdbStatusV2>("10", Vni(10));
  early->macVtepTableIs(entry(1, 11)), early->macVtepTableIs(entry(2, 12));
  early->macVtepFloodListTableIs(mac(5));
  listOf(early, {{1, true}, {2, false}});
  auto const fromEvpn = evpn->vniStatusV2Is(Vni(10));
  fromEvpn->macVtepTableIs(entry(2, 12));
  make();
  traced(), counts();
  dir->entryIs(early);
  std::string const stale = " Deleting stale ", publish = MachineTests::brIds("publish");
  std::string vteps;
  for (std::string const vtep : {"1", "2"}) vteps += run(list("handleVtepIp(10.99.0." + vtep + ")"));
  EXPECT_EQ(traced(),
            run("QorEvpnTxSm()::handleVniFdbStatus(10)",
                "3 " + sm("handleInitialized()\n") +  // EVPN's status comes first, without effect
                    run(sm("handleInitialized()"),
                        run(sm("handleHost()"),
                            publish +
                                run(sm("cleanupStaleHostEntries()"),
                                    "8 " + sm("cleanupStaleHostEntries()") + stale +
                                        "host entry (macAddr: 02:00:00:00:00:03, ip: 10.99.0.99)\n") +
                                run(sm("handleHost(" + mac1 + ")"), publish) + "3 " +
                                sm("handleHost(02:00:00:00:00:02)\n") + publish) +
                            run(sm("handleFloodList()"),
                                publish +
                                    run(sm("cleanupStaleFloodListEntries()"),
                                        "8 " + sm("cleanupStaleFloodListEntries()") + stale +
                                            "flood list entry (ip: 10.99.0.3)\n") +
                                    unsupported("handleFloodList(02:00:00:00:00:05)") +
                                    run(sm("handleFloodList(" + allBum + ")"),
                                        publish + run(list("handleInitialized()"),
                                                      run(list("handleVtepIp()"), vteps)))))));
  EXPECT_EQ(tables(), "10:1>11/1/16 11:1>99/1/16 11:2>99/1/16 11:3>99/1/16 | 10>1 11>1 11>2 11>3 | 10 ");
  EXPECT_EQ(counts(), (Counts{1, 2, 3, 1, 2, 3}));
}

TEST_F(VniSm, LateInputAndStart) {
  start();
  status->macVtepTableIs(entry(1, 11));
  Ptr<VniFdbStatusSm> const other = QorEvpn::vniFdbStatusSmFactory(Vni(10), status, root.get());
  EXPECT_TRUE(other->hasNotificationActive());
  auto const first = makePtr<VniStatusV2>(Vni(10)), second = makePtr<VniStatusV2>(Vni(10));
  first->macVtepTableIs(entry(1, 11));
  hostTable->hostDelAll();
  traced(), counts();
  std::string const pass = "3 " + sm("handleInitialized()\n");
  other->vniStatusFromEvpnIs(first), other->vniStatusFromEvpnIs(first);
  EXPECT_EQ(traced(), pass);
  other->handleHost(), other->handleHost(mac(1)), other->handleMultiPath(), other->handleMultiPath(bum);
  other->handleFloodList(), other->handleFloodList(bum), other->cleanupStaleHostEntries();
  other->cleanupStaleFloodListEntries(), other->cleanup();
  EXPECT_EQ(traced(), "");
  other->initializedIs(true), other->initializedIs(true);
  std::string const lines = traced();
  EXPECT_EQ(lines.find(pass), 0u);
  EXPECT_EQ(lines.find(pass, 1), std::string::npos);
  EXPECT_EQ(tables(), "| | 10 ");
  auto const reactor = other->orbVniStatusFromEvpn();
  other->vniStatusFromEvpnIs(second);
  EXPECT_EQ(other->orbVniStatusFromEvpn(), reactor);
  EXPECT_EQ(tables(), "10:1>11/1/16 | | 10 ");
  second->macVtepTableIs(entry(1, 11));
  EXPECT_EQ(tables(), "| | 10 ");
  EXPECT_EQ(other->vniStatusFromEvpnDel(), second);
  EXPECT_EQ(other->vniStatusFromEvpnDel(), nullptr);
  EXPECT_EQ(tables(), "10:1>11/1/16 | | 10 ");
  traced();
  other->initializedIs(false);
  EXPECT_EQ(traced(), pass);
}

TEST_F(VniSm, CleanupLeavesHostsAndIdentifierAndDestructionEverything) {
  start();
  status->macVtepTableIs(entry(1, 11));
  listOf(status, {{12, true}});
  traced(), counts();
  machine->cleanup(), machine->cleanup();
  EXPECT_EQ(traced(),
            run(sm("cleanup()"), run(list("cleanup()"), "8 " + list("cleanup()") +
                                                            " Deleting flood list entry (ip: 10.99.0.12)\n") +
                                     "3 " + sm("handleInitialized()\n")));
  EXPECT_EQ(tables(), "10:1>11/1/16 | | 10 ");
  machine->initializedIs(true);
  auto const child = machine->macVtepFloodListSm(bum);
  machine->hasNotificationActiveIs(false);
  EXPECT_FALSE(child->hasNotificationActive());
  counts();
  status->macVtepTableIs(entry(2, 11)), child->macVtepFloodList();
  EXPECT_EQ(counts(), Counts());
  root->vniFdbStatusSmDel(Vni(10));
  machine = nullptr;
  EXPECT_EQ(tables(), "10:1>11/1/16 | 10>12 | 10 ");
  EXPECT_EQ(counts(), Counts());
}

TEST_F(VniSm, DamageEndsTheSweepOnly) {
  for (uint32_t m : {1u, 2u, 3u}) hostTable->hostIs(host(10, m, m)), floodTable->floodEntryIs(flood(10, m));
  make();
  folder.damage(host(10, 2, 2)), folder.damage(flood(10, 2));
  traced(), counts();
  vniIs("10");
  EXPECT_EQ(reports, (std::vector<std::string>{"row 1 is damaged", "row 1 is damaged"}));
  std::string const lines = traced();
  for (std::string const handler : {"cleanupStaleHostEntries()", "cleanupStaleFloodListEntries()"})
    EXPECT_NE(lines.find("8 " + sm(handler)), std::string::npos);
  EXPECT_NE(lines.find("4 " + sm("cleanupStaleHostEntries() return\n")), std::string::npos);
  EXPECT_NE(lines.find("4 " + sm("cleanupStaleFloodListEntries() return\n")), std::string::npos);
  EXPECT_EQ(counts(), (Counts{0, 1, 1, 0, 1, 1}));
}

TEST_F(VniSm, ErrorsOfNotifieesLeaveThroughTheSetter) {
  start();
  auto watcher = makePtr<TestSupport::Watcher>(*hostTable, [](auto, auto) { throw 7; });
  EXPECT_THROW(status->macVtepTableIs(entry(1, 11)), int);
  EXPECT_EQ(status->macVtepTables(), 1u);
  EXPECT_EQ(tables(), "10:1>11/1/16 | | 10 ");
  watcher = nullptr;
  status->macVtepTableIs(entry(1, 12));
  EXPECT_EQ(tables(), "10:1>12/1/16 | | 10 ");
}

TEST_F(VniSm, AssertsThatItIsInitialized) {
  start();
  listOf(status, {});
  auto const child = machine->macVtepFloodListSm(bum);
  child->initializedIs(false);
  machine->initializedIs(false);
  Trace::levelsIs("VxlanControllerEvpnTxSm", 0);
  std::string const failed = "assertion failed: initialized\\(\\), function .*";
  EXPECT_DEATH(machine->macEntryProvidedByEvpn(mac(1)), failed + "macEntryProvidedByEvpn");
  EXPECT_DEATH(machine->updateBrIdList(), failed + "updateBrIdList");
  EXPECT_DEATH(child->floodIpProvidedByEvpn(ip(1)), failed + "floodIpProvidedByEvpn");
  EXPECT_EQ(machine->vniFdbStatusDel(), status);
  EXPECT_DEATH(machine->initializedIs(true), "null Orb::Ptr dereferenced.*VniFdbStatusV2");
}

TEST_F(VniSm, FloodListMachineAlone) {
  start();
  auto const own = makePtr<MacVtepFloodListV2>(bum), fromEvpn = makePtr<MacVtepFloodListV2>(bum);
  own->vtepIpFloodListIs(ip(11), false);
  floodTable->floodEntryIs(flood(10, 11));
  traced(), counts();
  auto const alone = QorEvpn::macVtepFloodListSmFactory(mac(1), own, machine.get());
  EXPECT_TRUE(alone->initialized());
  EXPECT_EQ(tables(), "| | ");
  own->vtepIpFloodListIs(ip(11), true);
  EXPECT_EQ(tables(), "| 10>11 | ");
  fromEvpn->vtepIpFloodListIs(ip(11), false);  // a key, whatever its value
  alone->floodListFromEvpnIs(fromEvpn);
  EXPECT_EQ(tables(), "| | ");
  traced();
  alone->floodListFromEvpnIs(fromEvpn);
  EXPECT_EQ(traced(), "");
  fromEvpn->vtepIpFloodListDel(ip(11));
  EXPECT_EQ(traced(), run("MacVtepFloodListSm(02:00:00:00:00:01)(10)::handleVtepIp(10.99.0.11)"));
  EXPECT_EQ(tables(), "| 10>11 | ");
  fromEvpn->vtepIpFloodListIs(ip(11), true), fromEvpn->vtepIpFloodListIs(ip(12), true);
  own->vtepIpFloodListIs(ip(12), true), own->vtepIpFloodListIs(ip(13), false);
  EXPECT_EQ(tables(), "| | ");
  EXPECT_EQ(alone->floodListFromEvpnDel(), fromEvpn);
  EXPECT_EQ(alone->floodListFromEvpnDel(), nullptr);
  EXPECT_EQ(tables(), "| 10>11 10>12 | ");
  // The row's key holds no MAC: another machine of the VNI writes and deletes the same rows.
  auto const second = QorEvpn::macVtepFloodListSmFactory(mac(2), own, machine.get());
  second->cleanup();
  EXPECT_EQ(tables(), "| | ");
  alone->handleVtepIp();
  EXPECT_EQ(tables(), "| 10>11 10>12 | ");
  alone->floodListFromEvpnIs(fromEvpn);
  counts();
  alone->cleanup(), alone->cleanup();
  EXPECT_EQ(counts(), (Counts{0, 0, 0, 0, 3, 0}));
  own->vtepIpFloodListIs(ip(14), true), fromEvpn->vtepIpFloodListIs(ip(11), false), alone->handleVtepIp();
  EXPECT_EQ(counts(), Counts());
  // Without a list no address is wanted.
  alone->initializedIs(true);
  EXPECT_EQ(alone->macVtepFloodListDel(), own);
  floodTable->floodEntryIs(flood(10, 14));
  alone->handleVtepIp(), alone->handleVtepIp(ip(14)), alone->cleanup();
  EXPECT_EQ(tables(), "| | ");
}

TEST_F(VniSm, GenericInterface) {
  start();
  listOf(status, {{12, true}});
  EXPECT_EQ(machine->fwkType().name(), "QorEvpn::VniFdbStatusSm");
  EXPECT_EQ(namesOf(*machine),
            "vni vniFdbStatus vniStatusFromEvpn macVtepFloodListSm initialized qorEvpnTxSm handleInitialized "
            "handleHost handleMultiPath macEntryProvidedByEvpn handleFloodList updateBrIdList "
            "cleanupStaleHostEntries cleanupStaleFloodListEntries cleanup ");
  EXPECT_EQ(Orb::attribute(*machine, Orb::firstOwnAttribute).as<Vni>(), Vni(10));
  auto const keys = Orb::attribute(*machine, "macVtepFloodListSm").as<std::vector<Orb::Value>>();
  EXPECT_EQ(keys.at(0).as<EthAddr>(), bum);
  auto const child = machine->macVtepFloodListSm(bum);
  EXPECT_EQ(child->fwkType().name(), "QorEvpn::MacVtepFloodListSm");
  EXPECT_EQ(
      namesOf(*child),
      "macAddr macVtepFloodList floodListFromEvpn floodIpProvidedByEvpn handleVtepIp cleanup initialized "
      "handleInitialized vniFdbStatusSm ");
  using Object = Ptr<Orb::PtrInterface const>;
  EXPECT_EQ(Orb::attribute(*child, "vniFdbStatusSm").as<Object>(), machine);
  EXPECT_EQ(Orb::attribute(*machine, "qorEvpnTxSm").as<Object>(), root);
  EXPECT_FALSE(Orb::attribute(*child, "floodListFromEvpn").as<Object>());
  Orb::attributeInvoke(*child, Orb::firstOwnAttribute + 5);
  EXPECT_EQ(tables(), "| | 10 ");
  traced();
  Orb::attributeIs(*machine, "initialized", false);  // through the setter
  EXPECT_EQ(traced(), "3 " + sm("handleInitialized()\n"));
  EXPECT_THROW(Orb::attributeIs(*machine, "vni", Vni(1)), Orb::AttributeAccessError);
}

}  // namespace
}  // namespace MachineTests
