#include "DataModel/Status.h"

#include "Orb/Type.h"

namespace Controllerdb {

void Status::enabledIs(bool enabled) {
  if (std::exchange(enabled_, enabled) != enabled) notify(enabledAttr);
}

Orb::TypeDescriptor const& Status::fwkType() const {
  using A = Orb::Attributes<Status>;
  static Orb::TypeDescriptor const descriptor(
      "Controllerdb::Status", {A::writable<&Status::enabled, &Status::enabledIs>("enabled", enabledAttr.id)},
      &Entity::type());
  return descriptor;
}

}  // namespace Controllerdb
