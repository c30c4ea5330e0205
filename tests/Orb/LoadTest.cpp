#include <dlfcn.h>
#include <gtest/gtest.h>

#include "Orb/Type.h"
#include "VxlanController/QorEvpnModule.h"
#include "support/Paths.h"

namespace {

// This program is not linked to the module.
TEST(Module, IsLoadedAtRunTime) {
  void* const library = ::dlopen(TestSupport::modulePath().c_str(), RTLD_NOW);
  ASSERT_NE(library, nullptr) << ::dlerror();
  auto const entry = reinterpret_cast<QorEvpn::Module::Entry>(::dlsym(library, QorEvpn::Module::entryName));
  ASSERT_NE(entry, nullptr);
  EXPECT_EQ(entry(QorEvpn::Module::version + 1), nullptr);
  QorEvpn::Module const* const module = entry(QorEvpn::Module::version);
  ASSERT_NE(module, nullptr);

  // Types are known by name before a machine is made.
  for (std::string const type :
       {"QorEvpn::QorEvpnIntegrationModeSm", "QorEvpn::QorEvpnTxSm", "QorEvpn::VniFdbStatusSm",
        "QorEvpn::MacVtepFloodListSm", "VxlanController::QorEvpnRxSm"}) {
    EXPECT_TRUE(Orb::TypeDescriptor::find(type)) << type;
  }
  auto const status = Orb::makePtr<Controllerdb::Status>("controllerdb");
  auto const capability = Orb::makePtr<QorEvpn::EvpnCapability>("capability");
  auto const config = Orb::makePtr<QorEvpn::QorEvpnConfig>("config");
  capability->evpnEnabledIs(true);
  auto machine = module->qorEvpnIntegrationModeSmFactory(status, capability, config);
  status->enabledIs(true);
  EXPECT_TRUE(config->qorEvpnIntegrationMode());
  EXPECT_FALSE(Orb::attribute(*machine, "initialized").as<bool>());
  Orb::Ptr<Orb::PtrInterface> const hosts = module->hostTableFactory("host");
  EXPECT_EQ(hosts->fwkType().name(), "QorEvpn::HostTable");
  machine = nullptr;
  EXPECT_EQ(status->references(), 1u);
}

}  // namespace
