#include "VxlanController/Fixture.h"

namespace MachineTests {
namespace {

using VniFdbStatusSmTest = TransmitFixture;

TEST_F(VniFdbStatusSmTest, TakesEvpnsStatusBeforeItsStartAndAsALateInput) {
  serve();
  fdb10->macVtepTableIs(entry(1, 11));
  auto const other = QorEvpn::vniFdbStatusSmFactory(Vni(10), fdb10, root.get());
  EXPECT_TRUE(other->hasNotificationActive());
  auto const first = makePtr<VniStatusV2>(Vni(10)), second = makePtr<VniStatusV2>(Vni(10));
  first->macVtepTableIs(entry(1, 11));
  traced();
  std::string const pass = "3 VniFdbStatusSm(10)::handleInitialized()\n";
  other->vniStatusFromEvpnIs(first);
  other->vniStatusFromEvpnIs(first);
  other->handleHost();
  other->handleHost(mac(1));
  other->handleMultiPath();
  other->handleMultiPath(bum);
  other->handleFloodList();
  other->handleFloodList(bum);
  other->cleanupStaleHostEntries();
  other->cleanupStaleFloodListEntries();
  other->cleanup();
  EXPECT_EQ(traced(), pass);
  other->initializedIs(true);
  other->initializedIs(true);
  EXPECT_EQ(traced().rfind(pass), 0u);
  EXPECT_EQ(tables(), "| | 10 ");
  other->vniStatusFromEvpnIs(second);
  EXPECT_EQ(tables(), "10:1>11/1/16 | | 10 ");
  other->vniStatusFromEvpnIs(first);
  EXPECT_EQ(other->vniStatusFromEvpnDel(), first);
  EXPECT_EQ(tables(), "10:1>11/1/16 | | 10 ");
}

TEST_F(VniFdbStatusSmTest, AskedBeforeItsPassOrWithoutItsInputEndsTheProcess) {
  serve();
  sm10->initializedIs(false);
  Trace::levelsIs("VxlanControllerEvpnTxSm", 0);
  std::string const failed = "assertion failed: initialized\\(\\), function .*";
  EXPECT_DEATH(sm10->macEntryProvidedByEvpn(mac(1)), failed + "macEntryProvidedByEvpn");
  EXPECT_DEATH(sm10->updateBrIdList(), failed + "updateBrIdList");
  EXPECT_EQ(sm10->vniFdbStatusDel(), fdb10);
  EXPECT_DEATH(sm10->initializedIs(true), "null Orb::Ptr dereferenced: vniFdbStatus");
}

}  // namespace
}  // namespace MachineTests
