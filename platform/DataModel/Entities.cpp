#include "DataModel/EvpnCapability.h"
#include "DataModel/QorBrIdList.h"
#include "DataModel/QorEvpnConfig.h"
#include "Orb/Type.h"

namespace QorEvpn {

void EvpnCapability::evpnEnabledIs(bool evpnEnabled) {
  if (std::exchange(evpnEnabled_, evpnEnabled) != evpnEnabled) notify(evpnEnabledAttr);
}

Orb::TypeDescriptor const& EvpnCapability::fwkType() const {
  using A = Orb::Attributes<EvpnCapability>;
  static Orb::TypeDescriptor const descriptor(
      "QorEvpn::EvpnCapability",
      {A::writable<&EvpnCapability::evpnEnabled, &EvpnCapability::evpnEnabledIs>("evpnEnabled",
                                                                                 evpnEnabledAttr.id)},
      &Entity::type());
  return descriptor;
}

void QorEvpnConfig::qorEvpnIntegrationModeIs(bool mode) {
  if (std::exchange(qorEvpnIntegrationMode_, mode) != mode) notify(qorEvpnIntegrationModeAttr);
}

Orb::TypeDescriptor const& QorEvpnConfig::fwkType() const {
  using A = Orb::Attributes<QorEvpnConfig>;
  static Orb::TypeDescriptor const descriptor(
      "QorEvpn::QorEvpnConfig",
      {A::writable<&QorEvpnConfig::qorEvpnIntegrationMode, &QorEvpnConfig::qorEvpnIntegrationModeIs>(
          "qorEvpnIntegrationMode", qorEvpnIntegrationModeAttr.id)},
      &Entity::type());
  return descriptor;
}

void QorBrIdList::brIdListIs(Bridging::BridgeId brId, bool value) {
  if (brIdList_.put(brId, value)) notify(brIdListAttr, brId);
}

void QorBrIdList::brIdListDel(Bridging::BridgeId brId) {
  if (brIdList_.erase(brId)) notify(brIdListAttr, brId);
}

void QorBrIdList::brIdListDelAll() {
  Orb::Ptr<QorBrIdList> const self(this);
  for (auto const& entry : brIdList_) brIdListDel(entry.key);
}

Orb::TypeDescriptor const& QorBrIdList::fwkType() const {
  using A = Orb::Attributes<QorBrIdList>;
  static Orb::TypeDescriptor const descriptor(
      "QorEvpn::QorBrIdList",
      {A::collection<BrIdList, &QorBrIdList::brIdList, &BrIdList::Entry::key>("brIdList", brIdListAttr.id)},
      &Entity::type());
  return descriptor;
}

}  // namespace QorEvpn
