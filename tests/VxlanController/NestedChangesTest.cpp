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
    VniFdbStatusV2& own = *statuses[below(2)];
    Vni const vni = own.vni();
    Ptr<VniStatusV2> const theirs = evpn->vniStatusV2(vni);
    switch (below(16)) {
      case 0: return root->cleanup();
      case 1:
      case 2: return root->handleInitialized();
      case 3:
      case 4: return dir->entityPtr(own.name()) ? void(dir->entryDel(own.name())) : dir->entryIs(&own);
      case 5:
      case 6: return theirs ? evpn->vniStatusV2Del(vni) : void(evpn->vniStatusV2Is(vni));
      default: return below(2) && theirs ? changeTables(*theirs) : changeTables(own);
    }
  }
  void changeTables(auto& status) {
    Ptr<MacVtepFloodListV2> const list = status.macVtepFloodListTable(bum);
    switch (below(list ? 8 : 5)) {
      case 0:
      case 1: return status.macVtepTableIs(entry(1 + below(3), 1 + below(2)));
      case 2: return status.macVtepTableDel(mac(1 + below(3)));
      case 3:
        return status.macVtepMultiPathTable().contains(bum) ? status.macVtepMultiPathTableDel(bum)
                                                            : status.macVtepMultiPathTableIs({bum, {}});
      case 4:
        return list ? status.macVtepFloodListTableDel(bum) : status.macVtepFloodListTableIs(lists[below(3)]);
      case 5: return list->vtepIpFloodListDel(ip(1 + below(3)));
      default: return list->vtepIpFloodListIs(ip(1 + below(3)), below(4) != 0);
    }
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
