#include "VxlanController/QorEvpnModeSm.h"

#include "VxlanController/Fixture.h"

namespace MachineTests {
namespace {

using Controllerdb::Status;
using QorEvpn::EvpnCapability;

class QorEvpnModeSmTest : public testing::Test {
 protected:
  void make() { sm = QorEvpn::qorEvpnIntegrationModeSmFactory(status, capability, config); }
  // Adds to the story what is traced and what the flag is then; it was the opposite before.
  void step(std::string const& disturbance, bool mode, std::function<void()> const& cause) {
    config->qorEvpnIntegrationModeIs(!mode);
    cause();
    EXPECT_EQ(config->qorEvpnIntegrationMode(), mode) << disturbance;
    Orb::appendTexts(story, "# ", disturbance, '\n');
    for (std::string const& line : traces.take()) Orb::appendTexts(story, line, '\n');
  }

  TestSupport::TraceCapture traces{"QorEvpnModeSm", 1U << 8};
  Ptr<Status> status = makePtr<Status>("controllerdb");
  Ptr<EvpnCapability> capability = makePtr<EvpnCapability>("capability");
  Ptr<QorEvpn::QorEvpnConfig> config = makePtr<QorEvpn::QorEvpnConfig>("config");
  Ptr<QorEvpn::QorEvpnIntegrationModeSm> sm;
  std::string story;
};

TEST_F(QorEvpnModeSmTest, TellsTheStoryInTheFileBesideThis) {
  for (bool const enabled : {false, true}) {
    for (bool const evpnEnabled : {false, true}) {
      sm = nullptr;
      status->enabledIs(enabled);
      capability->evpnEnabledIs(evpnEnabled);
      step("a machine is made", enabled && evpnEnabled, [&] {
        make();
        std::string const pass = "handleInitialized", rule = "setQorEvpnIntegrationMode";
        EXPECT_EQ(traces.functions(), (Texts{pass, rule, rule, rule, rule, pass}));
      });
      step("EVPN changes", enabled && !evpnEnabled, [&] { capability->evpnEnabledIs(!evpnEnabled); });
      step("the controller changes", !enabled && !evpnEnabled, [&] { status->enabledIs(!enabled); });
    }
  }
  auto const other = makePtr<Status>("other");
  other->enabledIs(true);
  capability->evpnEnabledIs(true);
  traces.take();
  step("another status is taken", true, [&] { sm->orbControllerdbStatus()->notifierIs(other); });
  step("it changes, the former one too", false, [&] { status->enabledIs(true), other->enabledIs(false); });
  step("another capability is taken", false,
       [&] { sm->orbEvpnCapability()->notifierIs(makePtr<EvpnCapability>("off")); });
  sm->orbControllerdbStatus()->orbDoZombieReactors(true);
  sm->orbControllerdbStatus()->notifierIs(status);
  EXPECT_EQ(traces.take(), Texts()) << "the reactor is a zombie";
  EXPECT_EQ(story, TestSupport::sourceText("tests/VxlanController/QorEvpnModeSmTest.story"));
}

TEST_F(QorEvpnModeSmTest, WithoutACapabilityItIsOffAndLookingForOneEndsTheProcess) {
  capability = nullptr;
  std::string const null =
      "null Orb::Ptr dereferenced: evpnCapability\\(\\), function .*QorEvpnModeSm.cpp:[0-9]+";
  {
    TestSupport::TraceCapture const others("QorEvpnModeSm", Trace::allLevels ^ 1U << 8);
    step("a machine is made", false, [&] { make(); });
    EXPECT_EQ(sm->evpnCapabilityDel(), nullptr);
    EXPECT_DEATH(status->enabledIs(true), null);
  }
  EXPECT_DEATH(sm->handleInitialized(), null) << "to trace it";
}

}  // namespace
}  // namespace MachineTests
