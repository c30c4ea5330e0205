/// What arrives in one turn of the EVPN side's and takes the agent several of its own.

#include <gtest/gtest.h>

#include "SiteWriter.h"
#include "agent/site/HostedModule.h"

namespace {

struct EvpnTables : SiteWriter {
  EvpnTables() {
    Agent::Site::made(dir());
    mount(learnedHosts, true);
    mount(learnedState, true);
  }
};

class TurnTest : public testing::Test {
 protected:
  TurnTest() {
    source.state(Agent::SourceState::syncing, {});
    Agent::Event own;
    own.vni = Vxlan::Vni(1);
    for (auto const op : {Agent::Op::vni, Agent::Op::mac}) {
      own.op = op;
      own.mac = Wirix::EthAddr::ofValue(rows);
      own.vtep = Wirix::IpAddr("10.99.0.1");
      source.event(own);
    }
  }

  /// A turn that writes so many rows, a VNI each, and says that this is all.
  void tell(unsigned seq) {
    for (unsigned vni = 1; vni <= rows; ++vni) evpn.learnedHosts.write(host(vni, rows, 9, seq));
    evpn.learnedHosts.endTurn();
    evpn.learnedState.write({.capability = Agent::EvpnState::Capability::on, .isWhole = true});
    evpn.learnedState.endTurn();
  }
  /// Turns until `ends`, thirty times at most. Returns how many VNIs EVPN had after each.
  std::vector<unsigned> turnUntil(std::function<bool()> const& ends) {
    std::vector<unsigned> had;
    loop.turnEndIs([&] {
      module.endTurn();
      had.push_back(module.state()["evpnVnis"]);
      if (ends() || had.size() == 30) loop.stop();
    });
    loop.run();
    return had;
  }
  unsigned told(unsigned seq) const {
    return static_cast<unsigned>(std::ranges::count_if(
        module.evpnStatus(""), [&](auto const& vni) { return vni["hosts"][0]["seq"] == seq; }));
  }

  static constexpr unsigned rows = 12 * Agent::deliveryLimit;
  EvpnTables evpn;
  Agent::Loop loop;
  Agent::HostedModule module{
      loop, evpn.site(), false, std::chrono::seconds(0), {[](auto const&) {}, [](auto const&) {}}};
  Agent::SourceHandlers const source = module.sources().add({.name = "feed", .kind = "feed", .endpoint = ""});
};

TEST_F(TurnTest, AFullTableIsTakenAPartATurnAndNothingIsExportedBeforeItsEnd) {
  tell(7);
  module.enabledIs(true);
  EXPECT_FALSE(module.integrationIsOn());
  auto const had = turnUntil([&] { return module.integrationIsOn(); });
  EXPECT_GT(had.size(), 2U);
  EXPECT_EQ(had.back(), rows);
  for (std::size_t i = 1; i < had.size(); ++i) EXPECT_LE(had[i] - had[i - 1], 2 * Agent::deliveryLimit + 64);
  // EVPN's row of our MAC has the higher number.
  EXPECT_EQ(module.state()["exportedHosts"], 0);
  EXPECT_EQ(told(7), rows);
}

TEST_F(TurnTest, ABurstIsTakenAPartATurnAndTheIntegrationMayGoOffInBetween) {
  module.enabledIs(true);
  tell(7);
  turnUntil([&] { return told(7) == rows; });
  tell(9);
  turnUntil([] { return true; });
  EXPECT_LT(told(9), rows);
  for (bool const isOn : {false, true, false}) {
    module.enabledIs(isOn);
    module.endTurn();
    EXPECT_EQ(module.state()["evpnVnis"] != 0, isOn);
  }
  module.enabledIs(true);
  turnUntil([&] { return module.integrationIsOn(); });
  EXPECT_EQ(told(9), rows);
}

}  // namespace
