#include "Brine/CollectionControl.h"

#include <utility>

#include "Orb/Type.h"

namespace Brine {

Orb::TypeDescriptor const& CollectionControl::fwkType() const {
  using A = Orb::Attributes<CollectionControl>;
  static Orb::TypeDescriptor const descriptor(
      "Brine::CollectionControl",
      {A::value<&CollectionControl::quiesced>("quiesced", quiescedAttr.id),
       A::value<&CollectionControl::mountStatus>("mountStatus", mountStatusAttr.id),
       A::value<&CollectionControl::entity>("entity", entityAttr.id)});
  return descriptor;
}

void CollectionControl::quiescedIs(bool quiesced) {
  if (std::exchange(quiesced_, quiesced) != quiesced) notify(quiescedAttr);
}

void CollectionControl::mountStatusIs(MountStatus status) {
  if (std::exchange(mountStatus_, status) != status) notify(mountStatusAttr);
}

void CollectionControl::entityIs(Orb::Ptr<Orb::Entity const> entity) {
  if (entity == entity_) return;
  entity_ = std::move(entity);
  notify(entityAttr);
}

}  // namespace Brine
