#include <random>

#include "VxlanController/Fixture.h"
#include "support/Scale.h"

namespace MachineTests {
namespace {

// Inputs that anybody may change at any time, on both sides, and the transmit machines over them.
class NestedChanges : public TransmitFixture {
 public:
  static constexpr unsigned deepest = 4;

  uint32_t below(uint32_t bound) { return static_cast<uint32_t>(random() % bound); }

  // Any change of any input, also a stop and a start. May raise the re-instantiation error.
  void change() {
    size_t const which = below(2);
    switch (below(8)) {
      case 0: return changeDir(*statuses[which]);
      case 1: return changeEvpnDir(Vni(which + 5));
      case 2:
        if (below(8) == 0) root->cleanup();
        return;
      case 3:
        if (below(2) == 0) root->handleInitialized();
        return;
      default: break;
    }
    if (below(2)) return changeTables(*statuses[which]);
    if (Ptr<VniStatusV2> const theirs = evpn->vniStatusV2(Vni(which + 5))) changeTables(*theirs);
  }
  void changeDir(VniFdbStatusV2& status) const {
    dir->entityPtr(status.name()) ? void(dir->entryDel(status.name())) : dir->entryIs(&status);
  }
  void changeEvpnDir(Vni vni) const {
    evpn->vniStatusV2(vni) ? evpn->vniStatusV2Del(vni) : void(evpn->vniStatusV2Is(vni));
  }
  void changeTables(auto& status) {
    switch (below(4)) {
      case 0: return status.macVtepTableIs(entry(1 + below(3), 1 + below(2)));
      case 1: return status.macVtepTableDel(mac(1 + below(3)));
      case 2: return changeList(status);
      default:
        status.macVtepMultiPathTable().contains(bum) ? status.macVtepMultiPathTableDel(bum)
                                                     : status.macVtepMultiPathTableIs({bum, {}});
    }
  }
  void changeList(auto& status) {
    Ptr<MacVtepFloodListV2> const list = status.macVtepFloodListTable(bum);
    if (!list) return status.macVtepFloodListTableIs(lists[below(3)]);
    if (below(3) == 0) return status.macVtepFloodListTableDel(bum);
    below(3) ? list->vtepIpFloodListIs(ip(1 + below(3)), below(4) != 0)
             : list->vtepIpFloodListDel(ip(1 + below(3)));
  }

  std::mt19937 random;
  Ptr<VniFdbStatusV2> const statuses[2] = {makePtr<VniFdbStatusV2>("5", Vni(5)),
                                           makePtr<VniFdbStatusV2>("6", Vni(6))};
  Ptr<MacVtepFloodListV2> const lists[3] = {
      makePtr<MacVtepFloodListV2>(bum), makePtr<MacVtepFloodListV2>(bum), makePtr<MacVtepFloodListV2>(bum)};
};

// For the address sanitizer: whoever hears of an output changes inputs, against the rule. What the tables
// hold then is nobody's promise.
TEST_F(NestedChanges, EndWithoutFault) {
  unsigned depth = 0;
  uint64_t nested = 0;
  auto const heard = [&](auto, auto) {
    if (depth == deepest || below(2) == 0) return;
    ++depth, ++nested;
    try {
      change();
    } catch (Orb::ReinstantiationError const&) {
    }
    --depth;
  };
  auto const seeds = static_cast<uint32_t>(TestSupport::scaled(200));
  for (uint32_t seed = 1; seed <= seeds; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    random.seed(seed);
    Trace::levelsIs("VxlanControllerEvpnTxSm", seed % 2 ? Trace::allLevels : 0);  // traces look, too
    root = nullptr;
    std::vector<Ptr<TestSupport::Watcher>> watchers;
    make();
    for (Orb::Notifier const* output :
         std::initializer_list<Orb::Notifier const*>{hostTable.get(), floodTable.get(), brIds.get()})
      watchers.push_back(makePtr<TestSupport::Watcher>(*output, heard));
    for (unsigned step = 0; step < 200; ++step) {
      try {
        change();
      } catch (Orb::ReinstantiationError const&) {
      }
    }
    traces.take();
  }
  EXPECT_GT(nested, 10u * seeds);
}

}  // namespace
}  // namespace MachineTests
