#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <random>

#include "VxlanController/Site.h"
#include "support/Child.h"
#include "support/Scale.h"

namespace MachineTests {
namespace {

using TestSupport::Child;
constexpr Brine::Mode writer = Brine::Mode::writer, keyshadow = Brine::Mode::keyshadow;

// What both sides know in a round, and what must therefore cross. Both processes work it out for themselves.
struct Round {
  Round(uint32_t seed, uint32_t round) {
    std::mt19937 random(seed * 1000 + round);
    auto const below = [&](uint32_t bound) { return static_cast<uint32_t>(random() % bound); };
    for (uint32_t v : {1u, 10u, 20u, 30u}) {
      Vni const vni(v);
      if (below(4) == 0) continue;
      bool const served = below(4) != 0;
      for (uint32_t m = 1; m <= 40; ++m) {
        MacVtepV2 const theirs = entry(m, 1 + below(3), below(3)), ours = entry(m, 11 + below(3), below(3));
        if (uint32_t const kind = below(6); kind < 4) {
          if (kind != 0) evpnHosts[{theirs.macAddr(), vni}] = hostOf(vni, theirs);
          if (kind == 1 || !served) continue;
          statuses[vni].push_back(kind == 2 ? theirs : ours);  // what the controller took over is not echoed
          if (kind != 2) hosts[{ours.macAddr(), vni}] = hostOf(vni, ours);
        }
        if (uint32_t const kind = below(6); kind < 3) {
          VniVtepPair const key(vni, ip(m));
          if (kind != 0) evpnFloods[key] = FloodEntry(key);
          if (kind == 1 || !served) continue;
          lists[vni].push_back(key.vtepAddr());
          if (kind == 0) floods[key] = FloodEntry(key);
        }
      }
    }
  }
  std::map<Vni, std::vector<MacVtepV2>> statuses;  // the controller's entries, ...
  std::map<Vni, std::vector<IpAddr>> lists;        // ... its flood lists, ...
  std::map<MacVniPair, Host> hosts, evpnHosts;     // ... and the rows of either side
  std::map<VniVtepPair, FloodEntry> floods, evpnFloods;
};

// A side's tables: its own, which it writes, and those of the other side.
struct Side {
  Side(Folder const& folder, char const* own, char const* theirs)
      : hosts(QorEvpn::hostTableFactory(Orb::Name(std::string(own) + "-host"))),
        theirHosts(QorEvpn::hostTableFactory(Orb::Name(std::string(theirs) + "-host"))),
        floods(QorEvpn::floodTableFactory(Orb::Name(std::string(own) + "-flood"))),
        theirFloods(QorEvpn::floodTableFactory(Orb::Name(std::string(theirs) + "-flood"))) {
    folder.mount(hosts, writer), folder.mount(floods, writer);
    folder.mount(theirHosts, keyshadow), folder.mount(theirFloods, keyshadow);
  }
  // Ends the turn and takes what the other side wrote, until that is as expected.
  void until(std::function<bool()> const& done) const {
    using Clock = std::chrono::steady_clock;
    for (auto const hang = Clock::now() + std::chrono::minutes(1); Clock::now() < hang;) {
      hosts->endTurn(), floods->endTurn();
      theirHosts->deliver(), theirFloods->deliver();
      hosts->endTurn(), floods->endTurn();
      if (done()) return;
      pollfd fds[] = {{theirHosts->fd(), POLLIN, 0}, {theirFloods->fd(), POLLIN, 0}};
      ::poll(fds, 2, 60000);
    }
    throw std::runtime_error("the other side's rows never came");
  }
  Ptr<HostTable> hosts, theirHosts;
  Ptr<FloodTable> floods, theirFloods;
};

// Keeps a copy of a table by its notifications alone.
template <class Key, class Row>
struct Copy {
  template <class Table, class LookUp>
  Copy(Ptr<Table> const& table, LookUp lookUp) {
    watcher =
        makePtr<TestSupport::Watcher>(*table, [this, table, lookUp](Orb::AttributeId id, void const* key) {
          if (id != HostTable::hostAttr.id || !key) return;
          Key const changed = *static_cast<Key const*>(key);
          Row const row = lookUp(*table, changed);
          if (row == Row()) {
            if (rows.erase(changed) == 0) throw std::runtime_error("the end of a row that was never shown");
          } else {
            rows[changed] = row;
          }
        });
  }
  std::map<Key, Row> rows;
  Ptr<TestSupport::Watcher> watcher;
};

// Brings a table that may hold anything to the wanted rows.
template <class Rows, class Sorted, class Del, class Is>
void settle(Rows const& wanted, Sorted const& present, Del const& del, Is const& is) {
  for (auto const& row : present) {
    if (!wanted.contains(row.key())) del(row.key());
  }
  for (auto const& [key, row] : wanted) is(row);
}

void evpnSide(Folder const& folder, Child const& parent, uint32_t seed, uint32_t round) {
  Side const side(folder, "evpn", "agent");
  Copy<MacVniPair, Host> const hosts(side.theirHosts, [](auto& table, auto& key) { return table.host(key); });
  Copy<VniVtepPair, FloodEntry> const floods(side.theirFloods,
                                             [](auto& table, auto& key) { return table.floodEntry(key); });
  for (;; ++round) {
    Round const now(seed, round);
    settle(
        now.evpnHosts, side.hosts->hostSorted(), [&](auto const& key) { side.hosts->hostDel(key); },
        [&](auto const& row) { side.hosts->hostIs(row); });
    settle(
        now.evpnFloods, side.floods->floodEntrySorted(),
        [&](auto const& key) { side.floods->floodEntryDel(key); },
        [&](auto const& row) { side.floods->floodEntryIs(row); });
    side.until([&] { return hosts.rows == now.hosts && floods.rows == now.floods; });
    parent.tell();
    if (!parent.hear()) return;
  }
}

void agentSide(Folder const& folder, Child const& parent, uint32_t seed, uint32_t round) {
  Side const side(folder, "agent", "evpn");
  auto const dir = makePtr<Orb::Dir>("vnis");
  auto const fromEvpn = makePtr<VniStatusDirV2>("evpn");
  auto const brIds = makePtr<QorBrIdList>("brIds");
  auto const apply = [&](Round const& now) {
    for (uint32_t v : {1u, 10u, 20u, 30u}) {
      Orb::Name const name(std::to_string(v));
      if (!now.statuses.contains(Vni(v)) && !now.lists.contains(Vni(v))) {
        dir->entryDel(name);
        continue;
      }
      if (!dir->entityPtr(name)) dir->entryIs(makePtr<VniFdbStatusV2>(name, Vni(v)));
      auto const status = Orb::ptrCast<VniFdbStatusV2>(dir->entityPtr(name));
      std::set<EthAddr> macs;
      auto const entries = now.statuses.find(Vni(v));
      if (entries != now.statuses.end()) {
        for (MacVtepV2 const& entry : entries->second)
          macs.insert(entry.macAddr()), status->macVtepTableIs(entry);
      }
      for (auto const& of : status->macVtepTable()) {
        if (EthAddr const mac = of.key; !macs.contains(mac)) status->macVtepTableDel(mac);
      }
      status->macVtepFloodListTableDel(bum);
      auto const vteps = now.lists.find(Vni(v));
      if (vteps == now.lists.end()) continue;
      for (IpAddr vtep : vteps->second) status->macVtepFloodListTableIs(bum)->vtepIpFloodListIs(vtep, true);
    }
  };
  apply(Round(seed, round));
  // The list of identifiers is lost with the process: every VNI that still has rows goes on it.
  for (Host const& row : side.hosts->hostSorted())
    brIds->brIdListIs(Bridging::BridgeId::ofVni(row.key().vni()), true);
  for (FloodEntry const& row : side.floods->floodEntrySorted())
    brIds->brIdListIs(Bridging::BridgeId::ofVni(row.key().vni()), true);
  auto const rx = VxlanController::qorEvpnRxSmFactory(side.theirHosts, side.theirFloods, fromEvpn);
  auto const tx = QorEvpn::qorEvpnTxSmFactory(dir, fromEvpn, brIds, side.hosts, side.floods);
  for (;; ++round) {
    Round const now(seed, round);
    std::string const expected = text(*mirrorOf(now.evpnHosts, now.evpnFloods));
    apply(now);
    side.until([&] { return text(*fromEvpn) == expected; });
    std::vector<Host> rows;
    for (auto const& [key, row] : now.hosts) rows.push_back(row);
    if (side.hosts->hostSorted() != rows) throw std::runtime_error("other rows than those to be exported");
    parent.tell();
    if (!parent.hear()) return;
  }
}

TEST(TwoSides, RowsCrossAndEitherSideMayBeKilledAtAnyTime) {
  char const* const given = std::getenv("QOREVPN_TEST_SEED");
  uint32_t const seed = given ? static_cast<uint32_t>(std::stoul(given)) : 1;
  SCOPED_TRACE("QOREVPN_TEST_SEED=" + std::to_string(seed));
  std::mt19937 random(seed);
  Folder const folder;
  std::unique_ptr<Child> sides[2];
  auto const start = [&](size_t side, uint32_t round) {
    sides[side] = std::make_unique<Child>([&, side, round](Child const& parent) {
      (side == 0 ? evpnSide : agentSide)(folder, parent, seed, round);
    });
  };
  start(0, 0), start(1, 0);
  auto const rounds = static_cast<uint32_t>(TestSupport::scaled(60));
  for (uint32_t round = 0;; ++round) {
    for (auto const& side : sides) ASSERT_TRUE(side->hear()) << "round " << round;
    if (round == rounds) break;
    for (auto const& side : sides) side->tell();
    // The moment is left to chance, the outcome is not.
    for (size_t kills = random() % 3; kills > 0; --kills) {
      ::usleep(static_cast<useconds_t>(random() % 4000));
      size_t const victim = random() % 2;
      sides[victim]->kill();
      start(victim, round + 1);
    }
  }
}

}  // namespace
}  // namespace MachineTests
