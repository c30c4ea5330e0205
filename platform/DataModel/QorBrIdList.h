#pragma once

#include "Bridging/BridgeId.h"
#include "Orb/Entity.h"
#include "Orb/FlatMap.h"

namespace QorEvpn {

/// The bridge identifiers of the VNIs that the controller serves. The transmit root is the only writer within
/// the module; the EVPN side reads the list.
class QorBrIdList : public Orb::Entity {
 public:
  using BrIdList = Orb::FlatMap<Bridging::BridgeId, bool>;
  static constexpr Orb::Attribute<Bridging::BridgeId> brIdListAttr{256};

  using Entity::Entity;
  Orb::TypeDescriptor const& fwkType() const override;

  /// Presence of a key is what counts. The walk tolerates every change of the list.
  BrIdList const& brIdList() const noexcept { return brIdList_; }

  /// Insert or overwrite, remove (an absent key is no error), empty. Each effective change is announced with
  /// its key.
  void brIdListIs(Bridging::BridgeId brId, bool value);
  void brIdListDel(Bridging::BridgeId brId);
  void brIdListDelAll();

 private:
  BrIdList brIdList_;
};

}  // namespace QorEvpn
