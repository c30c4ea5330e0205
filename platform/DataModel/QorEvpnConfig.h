#pragma once

#include "Orb/Entity.h"

namespace QorEvpn {

/// Whether the integration of controller and EVPN is on. Written by the integration-mode machine, read by the
/// parts of the agent that run the transmit and receive machines.
class QorEvpnConfig : public Orb::Entity {
 public:
  static constexpr Orb::Scalar qorEvpnIntegrationModeAttr{256};

  using Entity::Entity;
  Orb::TypeDescriptor const& fwkType() const override;

  bool qorEvpnIntegrationMode() const noexcept { return qorEvpnIntegrationMode_; }
  /// Announces `qorEvpnIntegrationMode`, if the value is another one: writers need not compare.
  void qorEvpnIntegrationModeIs(bool qorEvpnIntegrationMode);

 private:
  bool qorEvpnIntegrationMode_ = false;
};

}  // namespace QorEvpn
