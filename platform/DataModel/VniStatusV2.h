#pragma once

#include "DataModel/VniTables.h"

namespace VxlanController {

/// What EVPN learned about one VNI. Written by the receive machine; the controller serves its switches from
/// it.
class VniStatusV2 : public VniTables<259> {
 public:
  using IpToMacTable = Orb::FlatMap<Wirix::IpAddr, Wirix::EthAddr>;
  static constexpr Orb::Attribute<Wirix::IpAddr> ipToMacTableAttr{262};
  static_assert(ipToMacTableAttr.id >= firstFree);

  explicit VniStatusV2(Vxlan::Vni vni);
  Orb::TypeDescriptor const& fwkType() const override;

  IpToMacTable const& ipToMacTable() const noexcept { return ipToMacTable_; }
  size_t ipToMacTables() const noexcept { return ipToMacTable_.size(); }
  void ipToMacTableIs(Wirix::IpAddr ipAddr, Wirix::EthAddr macAddr);
  void ipToMacTableDel(Wirix::IpAddr ipAddr);

 private:
  IpToMacTable ipToMacTable_;
};

/// What EVPN learned, by VNI.
class VniStatusDirV2 : public Orb::Entity {
 public:
  using VniStatuses = Orb::FlatMap<Vxlan::Vni, Orb::Ptr<VniStatusV2>>;
  static constexpr Orb::Attribute<Vxlan::Vni> vniStatusV2Attr{256};

  using Entity::Entity;
  ~VniStatusDirV2() override;
  Orb::TypeDescriptor const& fwkType() const override;

  VniStatuses const& vniStatusV2() const noexcept { return vniStatusV2_; }
  /// The status of a VNI, or null. Good until the directory changes.
  Orb::Ptr<VniStatusV2> const& vniStatusV2(Vxlan::Vni vni) const;

  /// The status of a VNI, made (empty) and announced if there is none yet.
  Orb::Ptr<VniStatusV2> vniStatusV2Is(Vxlan::Vni vni);
  /// Removes and announces; an absent VNI is no error.
  void vniStatusV2Del(Vxlan::Vni vni);

 private:
  VniStatuses vniStatusV2_;
};

}  // namespace VxlanController
