#include "VxlanController/QorEvpnModeSm.h"

#include <gtest/gtest.h>

#include "Orb/Dir.h"
#include "Orb/Type.h"
#include "support/TraceCapture.h"
#include "support/Watcher.h"

namespace {

using Controllerdb::Status;
using Orb::makePtr;
using Orb::Ptr;
using QorEvpn::EvpnCapability;
using QorEvpn::QorEvpnConfig;
using QorEvpn::QorEvpnIntegrationModeSm;
using Lines = std::vector<std::string>;

// One run of the rule as it is traced.
Lines run(bool enabled, bool evpnEnabled) {
  std::string const rule = "8 void QorEvpn::QorEvpnIntegrationModeSm::setQorEvpnIntegrationMode()";
  auto const text = [](bool value) { return std::string(value ? "true" : "false"); };
  return {rule,
          "8 controllerdbStatus()->enabled() " + text(enabled) + " evpnCapability()->evpnEnabled() " +
              text(evpnEnabled),
          std::string("8 Turning qorEvpnIntegrationMode ") + (enabled && evpnEnabled ? "ON" : "OFF"),
          rule + " return "};
}
Lines firstPass(Lines lines) {
  std::string const pass = "8 void QorEvpn::QorEvpnIntegrationModeSm::handleInitialized()";
  lines.insert(lines.begin(), pass);
  lines.push_back(pass + " return ");
  return lines;
}

class ModeSm : public testing::Test {
 protected:
  void make() { sm = QorEvpn::qorEvpnIntegrationModeSmFactory(status, capability, config); }
  void inputs(bool enabled, bool evpnEnabled) {
    status->enabledIs(enabled);
    capability->evpnEnabledIs(evpnEnabled);
  }
  bool mode() const { return config->qorEvpnIntegrationMode(); }

  TestSupport::TraceCapture traces{"QorEvpnModeSm", 1U << 8};
  Ptr<Status> status = makePtr<Status>("controllerdb");
  Ptr<EvpnCapability> capability = makePtr<EvpnCapability>("capability");
  Ptr<QorEvpnConfig> config = makePtr<QorEvpnConfig>("config");
  Ptr<QorEvpnIntegrationModeSm> sm;
};

TEST_F(ModeSm, IsOnWhenBothAreOn) {
  for (bool enabled : {false, true}) {
    for (bool evpnEnabled : {false, true}) {
      sm = nullptr;
      inputs(enabled, evpnEnabled);
      config->qorEvpnIntegrationModeIs(!(enabled && evpnEnabled));
      make();
      EXPECT_EQ(mode(), enabled && evpnEnabled);
      std::string const rule = "setQorEvpnIntegrationMode", pass = "handleInitialized";
      EXPECT_EQ(traces.functions(), (Lines{pass, rule, rule, rule, rule, pass}));
      EXPECT_EQ(traces.take(), firstPass(run(enabled, evpnEnabled)));

      // Every change of an input writes the flag, also where the result stays as it is.
      config->qorEvpnIntegrationModeIs(!(enabled && !evpnEnabled));
      inputs(enabled, !evpnEnabled);
      EXPECT_EQ(mode(), enabled && !evpnEnabled);
      EXPECT_EQ(traces.take(), run(enabled, !evpnEnabled));
      status->enabledIs(!enabled);
      EXPECT_EQ(mode(), !enabled && !evpnEnabled);
      EXPECT_EQ(traces.take(), run(!enabled, !evpnEnabled));
      Orb::attributeInvoke(*sm, "setQorEvpnIntegrationMode");
      EXPECT_EQ(traces.take(), run(!enabled, !evpnEnabled));
    }
  }
}

TEST_F(ModeSm, HearsOfNothingElse) {
  inputs(true, true);
  make();
  traces.take();
  sm->initializedIs(true);
  sm->evpnCapabilityDel(), sm->controllerdbStatusDel();
  inputs(false, false);
  sm = nullptr;
  EXPECT_EQ(traces.take(), Lines());
}

TEST_F(ModeSm, AReplacedInputRunsTheRuleOnceUnlessTheReactorIsAZombie) {
  inputs(true, true);
  make();
  traces.take();
  auto const on = makePtr<Status>("on");
  on->enabledIs(true);
  sm->orbControllerdbStatus()->notifierIs(on);
  EXPECT_EQ(traces.take(), run(true, true));
  status->enabledIs(false);
  on->enabledIs(false);
  EXPECT_EQ(traces.take(), run(false, true));
  sm->orbEvpnCapability()->notifierIs(makePtr<EvpnCapability>("off"));
  EXPECT_EQ(traces.take(), run(false, false));
  sm->orbControllerdbStatus()->orbDoZombieReactors(true);
  sm->orbControllerdbStatus()->notifierIs(status);
  EXPECT_EQ(traces.take(), Lines());
}

TEST_F(ModeSm, LooksAtTheCapabilityOnlyWhereItMatters) {
  capability = nullptr;
  {
    TestSupport::TraceCapture const others("QorEvpnModeSm", Trace::allLevels ^ 1U << 8);
    config->qorEvpnIntegrationModeIs(true);
    make();
    EXPECT_FALSE(mode());
    EXPECT_EQ(sm->orbEvpnCapability(), nullptr);
    EXPECT_EQ(sm->evpnCapabilityDel(), nullptr);
    EXPECT_DEATH(status->enabledIs(true), "null Orb::Ptr dereferenced.*EvpnCapability");
  }
  EXPECT_DEATH(sm->handleInitialized(), "null Orb::Ptr dereferenced.*EvpnCapability");
}

}  // namespace
