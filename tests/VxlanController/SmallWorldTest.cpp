/// The machines' small world, whole: two VNIs, and in each two MAC addresses and two VTEPs, on both sides.
/// Every event in every reachable state is done on the real machines and tables, and what they have
/// written then is compared with the pure functions of both sides.
///
/// States that differ only in which of the two MACs of a VNI, or which of its two VTEPs, is which are one
/// state; an event and the one that takes it back are done in a row.

#include <algorithm>

#include "VxlanController/ExpectedExport.h"
#include "VxlanController/Fixture.h"
#include "support/Scale.h"

namespace MachineTests {
namespace {

// What both sides hold of one VNI.
struct VniState {
  uint8_t present = 0;        // the controller has a status; what follows is 0 without one
  uint8_t own[2] = {};        // its entry of each MAC: none, one as EVPN's, one with another number
  uint8_t list = 0;           // its flood list
  uint8_t vtep[2] = {};       // each VTEP in it: absent, off, on
  uint8_t theirs[2] = {};     // EVPN's entry of each MAC
  uint8_t theirVtep[2] = {};  // each VTEP in EVPN's flood list

  auto operator<=>(VniState const&) const = default;

  VniState canonical() const {
    VniState least = *this;
    for (bool macs : {false, true}) {
      for (bool vteps : {false, true}) {
        VniState other = *this;
        if (macs) std::swap(other.own[0], other.own[1]), std::swap(other.theirs[0], other.theirs[1]);
        if (vteps) std::swap(other.vtep[0], other.vtep[1]), std::swap(other.theirVtep[0], other.theirVtep[1]);
        least = std::min(least, other);
      }
    }
    return least;
  }
  // All that one event makes of it.
  std::set<VniState> next() const {
    std::set<VniState> all;
    auto const each = [&](uint8_t(VniState::*fields)[2], uint8_t values) {
      for (size_t i : {0u, 1u}) {
        for (uint8_t value = 0; value < values; ++value) {
          VniState changed = *this;
          (changed.*fields)[i] = value;
          all.insert(changed);
        }
      }
    };
    each(&VniState::theirs, 2), each(&VniState::theirVtep, 2);
    if (present) {
      each(&VniState::own, 3);
      if (list) each(&VniState::vtep, 3);
      VniState other = *this;
      other.list = !list;
      for (VniState const& changed : withLists(other)) all.insert(changed);
      all.insert({.theirs = {theirs[0], theirs[1]}, .theirVtep = {theirVtep[0], theirVtep[1]}});
    } else {
      for (uint8_t content = 0; content < 18; ++content) {
        VniState filled = *this;
        filled.present = 1, filled.own[0] = content % 3, filled.own[1] = content / 3 % 3,
        filled.list = content / 9;
        for (VniState const& changed : withLists(filled)) all.insert(changed);
      }
    }
    all.erase(*this);
    return all;
  }
  // A list comes with any content.
  static std::vector<VniState> withLists(VniState state) {
    std::vector<VniState> all;
    for (uint8_t content = 0; content < (state.list ? 9 : 1); ++content) {
      state.vtep[0] = content % 3, state.vtep[1] = content / 3;
      all.push_back(state);
    }
    return all;
  }
  static std::vector<VniState> reachable() {
    std::set<VniState> all{VniState()};
    for (std::vector<VniState> open(all.begin(), all.end()); !open.empty();) {
      VniState const state = open.back();
      open.pop_back();
      for (VniState const& next : state.next()) {
        if (all.insert(next.canonical()).second) open.push_back(next.canonical());
      }
    }
    return {all.begin(), all.end()};
  }
};

class SmallWorld : public TransmitFixture {
 public:
  SmallWorld() {
    Trace::levelsIs("VxlanControllerEvpnTxSm", 0);
    makeRx(), make();
  }
  void makeRx() { rx = VxlanController::qorEvpnRxSmFactory(received.hostTable, received.floodTable, evpn); }
  static Vni vni(size_t which) { return Vni(static_cast<uint32_t>(5 + which)); }
  static EthAddr macOf(size_t i) { return mac(static_cast<uint32_t>(1 + i)); }
  static IpAddr vtepOf(size_t i) { return ip(static_cast<uint32_t>(1 + i)); }
  static MacVtepV2 entryOf(size_t m, uint8_t value) { return entry(static_cast<uint32_t>(1 + m), 11, value); }

  // One event, or as many as lie between the two states.
  void to(size_t which, VniState const& state) {
    VniState& now = states[which];
    Orb::Name const name(std::to_string(vni(which).value()));
    if (now.present && !state.present) dir->entryDel(name);
    if (state.present) {
      auto const before = now.present ? now : VniState();
      if (!now.present) status[which] = makePtr<VniFdbStatusV2>(name, vni(which));
      for (size_t m : {0u, 1u}) {
        if (before.own[m] == state.own[m]) continue;
        state.own[m] ? status[which]->macVtepTableIs(entryOf(m, state.own[m]))
                     : status[which]->macVtepTableDel(macOf(m));
      }
      toList(*status[which], before, state);
      if (!now.present) dir->entryIs(status[which]);
    }
    for (size_t i : {0u, 1u}) {
      Host const row = host(vni(which).value(), static_cast<uint32_t>(1 + i), 11);
      if (now.theirs[i] != state.theirs[i]) {
        state.theirs[i] ? evpns.hostTable->hostIs(row) : void(evpns.hostTable->hostDel(row.key()));
        delivered();
      }
      FloodEntry const vtep = flood(vni(which).value(), static_cast<uint32_t>(1 + i));
      if (now.theirVtep[i] != state.theirVtep[i]) {
        state.theirVtep[i] ? evpns.floodTable->floodEntryIs(vtep)
                           : void(evpns.floodTable->floodEntryDel(vtep.key()));
        delivered();
      }
    }
    now = state;
  }
  void toList(VniFdbStatusV2& own, VniState const& from, VniState const& state) const {
    if (from.list && !state.list) return own.macVtepFloodListTableDel(bum);
    if (!state.list) return;
    auto const list = from.list ? own.macVtepFloodListTable(bum) : makePtr<MacVtepFloodListV2>(bum);
    for (size_t i : {0u, 1u}) {
      if (from.list && from.vtep[i] == state.vtep[i]) continue;
      state.vtep[i] ? list->vtepIpFloodListIs(vtepOf(i), state.vtep[i] == 2)
                    : list->vtepIpFloodListDel(vtepOf(i));
    }
    if (!from.list) own.macVtepFloodListTableIs(list);
  }
  void delivered() {
    evpns.endTurn(), received.deliver();
    theirHosts = evpns.hostTable->hostSorted(), theirFloods = evpns.floodTable->floodEntrySorted();
    mayHaveLearned = true;
  }

  // What is wrong with the outputs; empty if nothing.
  std::string wrong() {
    auto const expected = QorEvpn::expectedExport(*dir, *evpn);
    if (hostTable->hostSorted() != expected.hosts) return "hosts";
    if (floodTable->floodEntrySorted() != expected.floods) return "flood rows";
    size_t listed = 0;
    for (auto const& of : brIds->brIdList()) listed += expected.brIds.contains(of.key.vni());
    if (listed != expected.brIds.size() || listed != brIds->brIdList().size()) return "bridge identifiers";
    for (Host const& row : theirHosts) {
      if (hostTable->host(row.key()) == row) return "a host of EVPN's is exported";
    }
    for (FloodEntry const& row : theirFloods) {
      if (floodTable->floodEntry(row.key()) == row && row != FloodEntry())
        return "a VTEP of EVPN's is exported";
    }
    if (mayHaveLearned && !QorEvpn::sameStatus(*evpn, *QorEvpn::expectedLearned(theirHosts, theirFloods)))
      return "what was learned";
    mayHaveLearned = false;
    return {};
  }
  // Fails the test once, with the state.
  bool holds(char const* what) {
    std::string const fault = wrong();
    if (fault.empty()) return true;
    ADD_FAILURE() << fault << " after " << what << ": " << describe(states[0]) << " beside "
                  << describe(states[1]) << "; exported " << tables() << "; from EVPN " << text(*evpn);
    return false;
  }
  static std::string describe(VniState const& s) {
    std::string out;
    Orb::appendTexts(out, "present ", s.present, " own ", s.own[0], s.own[1], " list ", s.list, ':',
                     s.vtep[0], s.vtep[1], " EVPN's ", s.theirs[0], s.theirs[1], ':', s.theirVtep[0],
                     s.theirVtep[1]);
    return out;
  }

  bool passAgain() {
    for (auto const& child : root->vniFdbStatusSm()) {
      child->handleInitialized();
      for (auto const& list : child->macVtepFloodListSm()) list->handleInitialized();
    }
    root->handleInitialized();
    return holds("another full pass");
  }
  bool restart() {
    make();
    return holds("a restart over the rows of before");
  }
  bool stopAndStart() {
    root->cleanup();
    EXPECT_EQ(tables(), "| | ");
    root->handleInitialized();
    return holds("a stop and a start");
  }
  bool restartRx() {
    rx->cleanup();
    EXPECT_TRUE(evpn->vniStatusV2().empty());
    rx = nullptr, makeRx();
    mayHaveLearned = true;
    return holds("a restart of the receive machine");
  }

  Tables evpns{Brine::Mode::writer}, received{Brine::Mode::keyshadow, evpns.folder};
  Ptr<QorEvpnRxSm> rx;
  Ptr<VniFdbStatusV2> status[2];
  VniState states[2];
  std::vector<Host> theirHosts;  // what EVPN's tables hold
  std::vector<FloodEntry> theirFloods;
  bool mayHaveLearned = true;  // since the last comparison
  std::vector<VniState> const all = VniState::reachable();
};

TEST_F(SmallWorld, EveryEventInEveryState) {
  ASSERT_EQ(all.size(), 513u);
  size_t const step = all.size() / TestSupport::scaled(TestSupport::scaled(all.size()));
  for (size_t beside = 0; beside < all.size(); beside += step) {
    to(1, all[beside]);
    for (VniState const& state : all) {
      to(0, state);
      if (!holds("the way there") || !passAgain()) return;
      for (VniState const& next : state.next()) {
        if (next.canonical() < state) continue;  // done there, and taken back
        to(0, next);
        if (!holds("an event")) return;
        to(0, state);
        if (!holds("its reverse")) return;
      }
    }
  }
}

// A stop or a death in every state, with and without an event before the next start.
TEST_F(SmallWorld, EveryRestartInEveryState) {
  for (VniState const& beside :
       {VniState(), VniState{.present = 1, .own = {1, 2}, .list = 1, .vtep = {2, 1}}}) {
    to(1, beside);
    for (VniState const& state : all) {
      to(0, state);
      if (!restart() || !stopAndStart() || !restartRx()) return;
      for (VniState const& next : state.next()) {
        root = nullptr;
        to(0, next);
        if (!restart()) return;
        root->cleanup();
        to(0, state);
        root->handleInitialized();
        if (!holds("a start after an event")) return;
      }
    }
  }
}

// Whatever a run that died left of a VNI, the next one puts right for whatever the inputs are then: rows are
// there only with the identifier.
TEST_F(SmallWorld, EveryStartOverWhatAnyRunLeft) {
  for (VniState const& state : all) {
    to(0, state);
    for (uint32_t left = 0; left < 37; ++left) {
      root = nullptr;
      hostTable->hostDelAll(), floodTable->floodEntryDelAll(), brIds->brIdListDelAll();
      if (left > 0) {
        brIds->brIdListIs(brId(5), true);
        uint32_t const macs[2] = {(left - 1) % 3, (left - 1) / 3 % 3}, vteps = (left - 1) / 9;
        for (uint32_t i : {0u, 1u}) {
          if (macs[i]) hostTable->hostIs(host(5, 1 + i, 10 + macs[i]));
          if (vteps >> i & 1) floodTable->floodEntryIs(flood(5, 1 + i));
        }
      }
      if (!restart()) return;
    }
  }
}

}  // namespace
}  // namespace MachineTests
