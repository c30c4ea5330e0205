#include "VxlanController/QorEvpnModule.h"

QorEvpn::Module const* qorEvpnModule(uint32_t version) {
  static constexpr QorEvpn::Module table{
      .qorEvpnIntegrationModeSmFactory = &QorEvpn::qorEvpnIntegrationModeSmFactory,
      .qorEvpnTxSmFactory = &QorEvpn::qorEvpnTxSmFactory,
      .qorEvpnRxSmFactory = &VxlanController::qorEvpnRxSmFactory,
      .hostTableFactory = &QorEvpn::hostTableFactory,
      .floodTableFactory = &QorEvpn::floodTableFactory,
  };
  return version == QorEvpn::Module::version ? &table : nullptr;
}
