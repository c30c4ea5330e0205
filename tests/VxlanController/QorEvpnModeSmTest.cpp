#include "VxlanController/QorEvpnModeSm.h"

#include "VxlanController/Fixture.h"

namespace MachineTests {
namespace {

using Controllerdb::Status;
using QorEvpn::EvpnCapability;

// One run of the rule as it is traced.
Texts run(bool enabled, bool evpnEnabled) {
  std::string const rule = "8 void QorEvpn::QorEvpnIntegrationModeSm::setQorEvpnIntegrationMode()";
  std::string inputs;
  Orb::appendTexts(inputs, "8 controllerdbStatus()->enabled() ", enabled, " evpnCapability()->evpnEnabled() ",
                   evpnEnabled);
  std::string const result = enabled && evpnEnabled ? "ON" : "OFF";
  return {rule, inputs, "8 Turning qorEvpnIntegrationMode " + result, rule + " return "};
}

class QorEvpnModeSmTest : public testing::Test {
 protected:
  void make() { sm = QorEvpn::qorEvpnIntegrationModeSmFactory(status, capability, config); }
  void inputs(bool enabled, bool evpnEnabled) {
    status->enabledIs(enabled);
    capability->evpnEnabledIs(evpnEnabled);
  }
  bool mode() const { return config->qorEvpnIntegrationMode(); }
  void expectRun(bool enabled, bool evpnEnabled) {
    EXPECT_EQ(mode(), enabled && evpnEnabled);
    EXPECT_EQ(traces.take(), run(enabled, evpnEnabled));
  }

  TestSupport::TraceCapture traces{"QorEvpnModeSm", 1U << 8};
  Ptr<Status> status = makePtr<Status>("controllerdb");
  Ptr<EvpnCapability> capability = makePtr<EvpnCapability>("capability");
  Ptr<QorEvpn::QorEvpnConfig> config = makePtr<QorEvpn::QorEvpnConfig>("config");
  Ptr<QorEvpn::QorEvpnIntegrationModeSm> sm;
};

TEST_F(QorEvpnModeSmTest, IsOnWhenBothInputsAreOn) {
  std::string const pass = "8 void QorEvpn::QorEvpnIntegrationModeSm::handleInitialized()";
  for (bool enabled : {false, true}) {
    for (bool evpnEnabled : {false, true}) {
      sm = nullptr;
      inputs(enabled, evpnEnabled);
      config->qorEvpnIntegrationModeIs(!(enabled && evpnEnabled));
      make();
      EXPECT_EQ(mode(), enabled && evpnEnabled);
      std::string const rule = "setQorEvpnIntegrationMode", first = "handleInitialized";
      EXPECT_EQ(traces.functions(), (Texts{first, rule, rule, rule, rule, first}));
      Texts expected = run(enabled, evpnEnabled);
      expected.insert(expected.begin(), pass);
      expected.push_back(pass + " return ");
      EXPECT_EQ(traces.take(), expected);

      // Every change of an input writes the flag, also where the result stays as it is.
      config->qorEvpnIntegrationModeIs(!(enabled && !evpnEnabled));
      inputs(enabled, !evpnEnabled), expectRun(enabled, !evpnEnabled);
      status->enabledIs(!enabled), expectRun(!enabled, !evpnEnabled);
    }
  }
}

TEST_F(QorEvpnModeSmTest, AReplacedInputRunsTheRuleOnceUnlessTheReactorIsAZombie) {
  inputs(true, true);
  make();
  traces.take();
  auto const on = makePtr<Status>("on");
  on->enabledIs(true);
  sm->orbControllerdbStatus()->notifierIs(on), expectRun(true, true);
  status->enabledIs(false), on->enabledIs(false), expectRun(false, true);
  sm->orbEvpnCapability()->notifierIs(makePtr<EvpnCapability>("off")), expectRun(false, false);
  sm->orbControllerdbStatus()->orbDoZombieReactors(true);
  sm->orbControllerdbStatus()->notifierIs(status);
  EXPECT_EQ(traces.take(), Texts());
}

TEST_F(QorEvpnModeSmTest, WithoutACapabilityItIsOffAndLookingForOneEndsTheProcess) {
  capability = nullptr;
  std::string const null =
      "null Orb::Ptr dereferenced: evpnCapability\\(\\), function .*QorEvpnModeSm.cpp:[0-9]+";
  {
    TestSupport::TraceCapture const others("QorEvpnModeSm", Trace::allLevels ^ 1U << 8);
    config->qorEvpnIntegrationModeIs(true);
    make();
    EXPECT_FALSE(mode());
    EXPECT_EQ(sm->evpnCapabilityDel(), nullptr);
    EXPECT_DEATH(status->enabledIs(true), null);
  }
  EXPECT_DEATH(sm->handleInitialized(), null) << "to trace it";
}

}  // namespace
}  // namespace MachineTests
