#pragma once

#include "Brine/Status.h"
#include "Orb/Entity.h"

namespace Brine {

/// What is known of a collection in shared memory as a whole. Its table keeps it up to date; reactors may
/// watch it.
class CollectionControl : public Orb::Notifier {
 public:
  static constexpr Orb::Scalar quiescedAttr{256};
  static constexpr Orb::Scalar mountStatusAttr{257};
  static constexpr Orb::Scalar entityAttr{258};

  Orb::TypeDescriptor const& fwkType() const override;

  /// True while the writer is quiet and everything it changed has been told.
  bool quiesced() const { return quiesced_; }
  void quiescedIs(bool quiesced);

  MountStatus mountStatus() const { return mountStatus_; }
  void mountStatusIs(MountStatus status);

  /// The table, once it has lost its last reference while somebody held its control; null before. Keeps it
  /// alive.
  Orb::Ptr<Orb::Entity const> const& entity() const { return entity_; }
  void entityIs(Orb::Ptr<Orb::Entity const> entity);

 private:
  bool quiesced_ = false;
  MountStatus mountStatus_ = MountStatus::unmounted;
  Orb::Ptr<Orb::Entity const> entity_;
};

}  // namespace Brine

template <>
struct Orb::ValueTraits<Brine::MountStatus> {
  static std::string name() { return "Brine::MountStatus"; }
};
