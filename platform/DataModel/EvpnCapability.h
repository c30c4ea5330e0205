#pragma once

#include "Orb/Entity.h"

namespace QorEvpn {

/// Whether EVPN is enabled.
class EvpnCapability : public Orb::Entity {
 public:
  static constexpr Orb::Scalar evpnEnabledAttr{256};

  using Entity::Entity;
  Orb::TypeDescriptor const& fwkType() const override;

  bool evpnEnabled() const noexcept { return evpnEnabled_; }
  /// Announces `evpnEnabled`, if the value is another one.
  void evpnEnabledIs(bool evpnEnabled);

 private:
  bool evpnEnabled_ = false;
};

}  // namespace QorEvpn
