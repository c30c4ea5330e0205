#pragma once

#include "Orb/Entity.h"

namespace Controllerdb {

/// Whether the controller database is enabled.
class Status : public Orb::Entity {
 public:
  static constexpr Orb::Scalar enabledAttr{256};

  using Entity::Entity;
  Orb::TypeDescriptor const& fwkType() const override;

  bool enabled() const noexcept { return enabled_; }
  /// Announces `enabled`, if the value is another one.
  void enabledIs(bool enabled);

 private:
  bool enabled_ = false;
};

}  // namespace Controllerdb
