#pragma once

#include "Orb/Entity.h"
#include "Orb/FlatMap.h"
#include "Wirix/EthAddr.h"
#include "Wirix/IpAddr.h"

namespace VxlanController {

/// The VTEPs to which frames for one destination MAC of a VNI are flooded. The list of the MAC
/// 00:00:00:00:00:00 is the one for all broadcast, unknown-unicast and multicast (BUM) traffic.
class MacVtepFloodListV2 : public Orb::Notifier {
 public:
  using VtepIpFloodList = Orb::FlatMap<Wirix::IpAddr, bool>;
  static constexpr Orb::Attribute<Wirix::IpAddr> vtepIpFloodListAttr{257};
  /// The MAC that stands for all BUM destination addresses.
  static constexpr Wirix::EthAddr allBum{};

  explicit MacVtepFloodListV2(Wirix::EthAddr macAddr) : macAddr_(macAddr) {}
  Orb::TypeDescriptor const& fwkType() const override;

  Wirix::EthAddr const& macAddr() const noexcept { return macAddr_; }

  /// Each VTEP with its switch. The walk tolerates every change of the list.
  VtepIpFloodList const& vtepIpFloodList() const noexcept { return vtepIpFloodList_; }

  /// Each effective change is announced with the address; removing an absent one is no error.
  void vtepIpFloodListIs(Wirix::IpAddr vtepAddr, bool on);
  void vtepIpFloodListDel(Wirix::IpAddr vtepAddr);

 private:
  Wirix::EthAddr macAddr_;
  VtepIpFloodList vtepIpFloodList_;
};

}  // namespace VxlanController
