#include <gtest/gtest.h>

#include "Orb/Type.h"
#include "QorEvpn/QorBrIdList.h"
#include "VxlanController/VniFdbStatusV2.h"
#include "VxlanController/VniStatusV2.h"
#include "support/Watcher.h"

namespace {

using namespace VxlanController;
using Orb::makePtr;
using Wirix::EthAddr;
using Wirix::IpAddr;

// Counts what an entity announces by attribute, "258x2 259x1 ", and forgets it.
class Announcements {
 public:
  explicit Announcements(Orb::Notifier const& source)
      : watcher_(makePtr<TestSupport::Watcher>(source, [this](Orb::AttributeId id, void const* key) {
          EXPECT_NE(key, nullptr);
          ++counts_[id];
        })) {}
  std::string take() {
    std::string text;
    for (auto const& [id, count] : std::exchange(counts_, {})) {
      text += std::to_string(id) + "x" + std::to_string(count) + " ";
    }
    return text;
  }

 private:
  std::map<Orb::AttributeId, int> counts_;
  Orb::Ptr<TestSupport::Watcher> watcher_;
};

TEST(DataModel, AnnouncesEffectiveChangesOnly) {
  EthAddr const mac("02:00:00:00:00:01");
  IpAddr const vtep("10.99.0.11");
  auto const fdb = makePtr<VniFdbStatusV2>("5000", Vxlan::Vni(5000));
  auto const fromEvpn = makePtr<VniStatusV2>(Vxlan::Vni(5000));
  Announcements ofFdb(*fdb), ofEvpn(*fromEvpn);
  auto const fill = [&](auto const& status, IpAddr addr) {
    status->macVtepTableIs(MacVtepV2(mac, addr));
    status->macVtepMultiPathTableIs({mac, {addr}});
    return status->macVtepFloodListTableIs(mac);
  };
  auto const empty = [&](auto const& status) {
    status->macVtepTableDel(mac);
    status->macVtepMultiPathTableDel(mac);
    status->macVtepFloodListTableDel(mac);
  };
  for (auto [addr, announced] :
       {std::pair(vtep, "258x1 259x1 260x1 "), {vtep, ""}, {IpAddr(), "258x1 259x1 "}}) {
    fill(fdb, addr);
    EXPECT_EQ(ofFdb.take(), announced);
  }
  fdb->macVtepFloodListTableIs(makePtr<MacVtepFloodListV2>(mac));
  EXPECT_EQ(ofFdb.take(), "260x1 ");
  empty(fdb), empty(fdb);
  EXPECT_EQ(ofFdb.take(), "258x1 259x1 260x1 ");
  EXPECT_EQ(fdb->macVtepTable(mac), MacVtepV2());

  auto const list = fill(fromEvpn, vtep);
  fromEvpn->ipToMacTableIs(vtep, mac), fromEvpn->ipToMacTableIs(vtep, mac), fromEvpn->ipToMacTableDel(vtep);
  EXPECT_EQ(ofEvpn.take(), "259x1 260x1 261x1 262x2 ");
  Announcements ofList(*list);
  list->vtepIpFloodListIs(vtep, true), list->vtepIpFloodListIs(vtep, true),
      list->vtepIpFloodListIs(vtep, false);
  list->vtepIpFloodListDel(vtep), list->vtepIpFloodListDel(vtep);
  EXPECT_EQ(ofList.take(), "257x3 ");

  auto const dir = makePtr<VniStatusDirV2>("dir");
  Announcements ofDir(*dir);
  auto const status = dir->vniStatusV2Is(Vxlan::Vni(7));
  EXPECT_EQ(dir->vniStatusV2Is(Vxlan::Vni(7)), status);
  EXPECT_EQ(status->fullName(), "/dir/7");
  dir->vniStatusV2Del(Vxlan::Vni(7)), dir->vniStatusV2Del(Vxlan::Vni(7));
  EXPECT_EQ(status->parent(), nullptr);
  auto const brIds = makePtr<QorEvpn::QorBrIdList>("brIds");
  Announcements ofBrIds(*brIds);
  for (uint32_t vni : {1u, 2u, 1u}) brIds->brIdListIs(Bridging::BridgeId::ofVni(Vxlan::Vni(vni)), true);
  EXPECT_EQ(Orb::attribute(*brIds, "brIdList").as<std::vector<Orb::Value>>().size(), 2u);
  brIds->brIdListDelAll();
  EXPECT_EQ(ofDir.take() + ofBrIds.take(), "256x2 256x4 ");
}

}  // namespace
