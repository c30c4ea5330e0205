#include <gtest/gtest.h>

#include "DataModel/QorBrIdList.h"
#include "DataModel/VniFdbStatusV2.h"
#include "DataModel/VniStatusV2.h"
#include "Orb/Type.h"
#include "support/Watcher.h"

namespace {

using namespace VxlanController;
using Orb::makePtr;

Wirix::EthAddr const mac("02:00:00:00:00:01");
Wirix::IpAddr const vtep("10.99.0.11");
Vxlan::Vni const vni(7);

void fill(auto const& status, Wirix::IpAddr addr) {
  status->macVtepTableIs(MacVtepV2(mac, addr));
  status->macVtepMultiPathTableIs({mac, {addr}});
  status->macVtepFloodListTableIs(mac);
}
void empty(auto const& status) {
  status->macVtepTableDel(mac);
  status->macVtepMultiPathTableDel(mac);
  status->macVtepFloodListTableDel(mac);
}

TEST(DataModel, AnnouncesEffectiveChangesOnly) {
  // What each step of one entity announces: the attributes' identifiers.
  auto const expect = [](auto const& entity,
                         std::vector<std::pair<std::function<void()>, std::string>> const& steps) {
    std::string log;
    auto const watcher = makePtr<TestSupport::Watcher>(*entity, [&](Orb::AttributeId id, void const* key) {
      ASSERT_NE(key, nullptr);
      log += std::to_string(id) + " ";
    });
    for (auto const& [step, announced] : steps) {
      step();
      EXPECT_EQ(std::exchange(log, {}), announced);
      step();  // for the second time changes nothing
      EXPECT_EQ(std::exchange(log, {}), "") << announced;
    }
  };
  auto const fdb = makePtr<VniFdbStatusV2>("7", vni);
  auto const otherList = makePtr<MacVtepFloodListV2>(mac);
  expect(fdb, {{[&] { fill(fdb, vtep); }, "258 259 260 "},
               {[&] { fill(fdb, {}); }, "258 259 "},
               {[&] { fdb->macVtepFloodListTableIs(otherList); }, "260 "},
               {[&] { empty(fdb); }, "258 259 260 "}});
  EXPECT_EQ(fdb->macVtepTable(mac), MacVtepV2());
  auto const status = makePtr<VniStatusV2>(vni);
  expect(status, {{[&] { fill(status, vtep); }, "259 260 261 "},
                  {[&] { status->ipToMacTableIs(vtep, mac); }, "262 "},
                  {[&] { status->ipToMacTableDel(vtep); }, "262 "},
                  {[&] { empty(status); }, "259 260 261 "}});
  expect(otherList, {{[&] { otherList->vtepIpFloodListIs(vtep, false); }, "257 "},
                     {[&] { otherList->vtepIpFloodListIs(vtep, true); }, "257 "},
                     {[&] { otherList->vtepIpFloodListDel(vtep); }, "257 "}});
  auto const dir = makePtr<VniStatusDirV2>("dir");
  expect(dir, {{[&] { EXPECT_EQ(dir->vniStatusV2Is(vni)->fullName(), "/dir/7"); }, "256 "},
               {[&] { dir->vniStatusV2Del(vni); }, "256 "}});
  auto const brIds = makePtr<QorEvpn::QorBrIdList>("brIds");
  auto const brId = Bridging::BridgeId::ofVni;
  expect(brIds, {{[&] { brIds->brIdListIs(brId(vni), true), brIds->brIdListIs(brId(Vxlan::Vni(8)), true); },
                  "256 256 "},
                 {[&] { brIds->brIdListDelAll(); }, "256 256 "}});
}

}  // namespace
