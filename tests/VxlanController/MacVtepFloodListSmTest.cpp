#include "VxlanController/Fixture.h"

namespace MachineTests {
namespace {

using MacVtepFloodListSmTest = TransmitFixture;

TEST_F(MacVtepFloodListSmTest, WithdrawsWhatEvpnHasUntilEvpnsListIsRemoved) {
  serve();
  listOf(fdb10, {{12, true}, {13, true}, {14, false}});
  auto const child = sm10->macVtepFloodListSm(bum);
  auto const theirs = makePtr<MacVtepFloodListV2>(bum);
  theirs->vtepIpFloodListIs(ip(13), false);
  child->floodListFromEvpnIs(theirs);
  EXPECT_EQ(tables(), "| 10>12 | 10 ");
  EXPECT_EQ(child->floodListFromEvpnDel(), theirs);
  EXPECT_EQ(tables(), "| 10>12 10>13 | 10 ");
  EXPECT_EQ(child->floodListFromEvpnDel(), nullptr);
  child->initializedIs(false);
  EXPECT_DEATH(child->floodIpProvidedByEvpn(ip(1)),
               "assertion failed: initialized\\(\\), function .*floodIpProvidedByEvpn");
}

}  // namespace
}  // namespace MachineTests
