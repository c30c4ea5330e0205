#pragma once

#include <cstdint>

#include "VxlanController/QorEvpnBrine.h"
#include "VxlanController/QorEvpnModeSm.h"
#include "VxlanController/QorEvpnRxSm.h"
#include "VxlanController/QorEvpnTxSm.h"

namespace QorEvpn {

/// What an agent needs that loads the module at run time instead of linking it: the factories of the machines
/// and tables that an agent builds.
///
///   void* const library = dlopen("libqorevpn.so.1", RTLD_NOW);
///   auto const entry = reinterpret_cast<QorEvpn::Module::Entry>(dlsym(library, QorEvpn::Module::entryName));
///   QorEvpn::Module const* const module = entry(QorEvpn::Module::version);
///   auto const machine = module->qorEvpnIntegrationModeSmFactory(status, capability, config);
///
/// Agent and module use one and the same platform library. The module stays loaded for as long as anything
/// that it made lives.
struct Module {
  /// Counts up with every change of this table or of what its factories take.
  static constexpr uint32_t version = 2;
  static constexpr char const* entryName = "qorEvpnModule";
  /// Returns the table, or null where the module was built with another version of it than the caller's.
  using Entry = Module const* (*)(uint32_t version);

  decltype(&QorEvpn::qorEvpnIntegrationModeSmFactory) qorEvpnIntegrationModeSmFactory;
  decltype(&QorEvpn::qorEvpnTxSmFactory) qorEvpnTxSmFactory;
  decltype(&VxlanController::qorEvpnRxSmFactory) qorEvpnRxSmFactory;
  decltype(&QorEvpn::hostTableFactory) hostTableFactory;
  decltype(&QorEvpn::floodTableFactory) floodTableFactory;
};

}  // namespace QorEvpn

/// The entry point, a `QorEvpn::Module::Entry`. Any thread; the table lives as long as the library.
extern "C" QorEvpn::Module const* qorEvpnModule(uint32_t version);
