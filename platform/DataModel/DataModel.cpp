#include "DataModel/VniFdbStatusV2.h"
#include "DataModel/VniStatusV2.h"
#include "Orb/Type.h"

namespace VxlanController {

namespace {

/// The attributes that both statuses of a VNI list.
template <Orb::AttributeId firstTable>
std::vector<Orb::AttributeInfo> tableAttributes() {
  using Tables = VniTables<firstTable>;
  using A = Orb::Attributes<Tables>;
  using Macs = typename Tables::MacVtepTable;
  using MultiPaths = typename Tables::MacVtepMultiPathTable;
  using FloodLists = typename Tables::MacVtepFloodListTable;
  return {A::template value<&Tables::vni>("vni", Tables::vniAttr.id),
          A::template collection<Macs, &Tables::macVtepTable, &Macs::Entry::key>("macVtepTable",
                                                                                 Tables::macVtepTableAttr.id),
          A::template collection<MultiPaths, &Tables::macVtepMultiPathTable, &MultiPaths::Entry::key>(
              "macVtepMultiPathTable", Tables::macVtepMultiPathTableAttr.id),
          A::template collection<FloodLists, &Tables::macVtepFloodListTable, &FloodLists::Entry::key>(
              "macVtepFloodListTable", Tables::macVtepFloodListTableAttr.id)};
}

}  // namespace

void MacVtepFloodListV2::vtepIpFloodListIs(Wirix::IpAddr vtepAddr, bool on) {
  if (vtepIpFloodList_.put(vtepAddr, on)) notify(vtepIpFloodListAttr, vtepAddr);
}

void MacVtepFloodListV2::vtepIpFloodListDel(Wirix::IpAddr vtepAddr) {
  if (vtepIpFloodList_.erase(vtepAddr)) notify(vtepIpFloodListAttr, vtepAddr);
}

Orb::TypeDescriptor const& MacVtepFloodListV2::fwkType() const {
  using A = Orb::Attributes<MacVtepFloodListV2>;
  static Orb::TypeDescriptor const descriptor(
      "VxlanController::MacVtepFloodListV2",
      {A::value<&MacVtepFloodListV2::macAddr>("macAddr"),
       A::collection<VtepIpFloodList, &MacVtepFloodListV2::vtepIpFloodList, &VtepIpFloodList::Entry::key>(
           "vtepIpFloodList", vtepIpFloodListAttr.id)});
  return descriptor;
}

Orb::TypeDescriptor const& VniFdbStatusV2::fwkType() const {
  static Orb::TypeDescriptor const descriptor("VxlanController::VniFdbStatusV2",
                                              tableAttributes<macVtepTableAttr.id>(), &Entity::type());
  return descriptor;
}

VniStatusV2::VniStatusV2(Vxlan::Vni vni) : VniTables(Orb::Name(std::to_string(vni.value())), vni) {}

void VniStatusV2::ipToMacTableIs(Wirix::IpAddr ipAddr, Wirix::EthAddr macAddr) {
  if (ipToMacTable_.put(ipAddr, macAddr)) notify(ipToMacTableAttr, ipAddr);
}

void VniStatusV2::ipToMacTableDel(Wirix::IpAddr ipAddr) {
  if (ipToMacTable_.erase(ipAddr)) notify(ipToMacTableAttr, ipAddr);
}

Orb::TypeDescriptor const& VniStatusV2::fwkType() const {
  using A = Orb::Attributes<VniStatusV2>;
  static Orb::TypeDescriptor const descriptor = [] {
    auto attributes = tableAttributes<macVtepTableAttr.id>();
    attributes.push_back(A::collection<IpToMacTable, &VniStatusV2::ipToMacTable, &IpToMacTable::Entry::key>(
        "ipToMacTable", ipToMacTableAttr.id));
    return Orb::TypeDescriptor("VxlanController::VniStatusV2", std::move(attributes), &Entity::type());
  }();
  return descriptor;
}

VniStatusDirV2::~VniStatusDirV2() {
  for (auto const& entry : vniStatusV2_) entry.value->parentIs(nullptr, {});
}

Orb::Ptr<VniStatusV2> const& VniStatusDirV2::vniStatusV2(Vxlan::Vni vni) const {
  Orb::Ptr<VniStatusV2> const* const found = vniStatusV2_.find(vni);
  return found ? *found : Orb::nullPtr<VniStatusV2>();
}

Orb::Ptr<VniStatusV2> VniStatusDirV2::vniStatusV2Is(Vxlan::Vni vni) {
  if (Orb::Ptr<VniStatusV2> status = vniStatusV2(vni)) return status;
  Orb::Ptr<VniStatusV2> const made = Orb::makePtr<VniStatusV2>(vni);
  vniStatusV2_.put(vni, made);
  made->parentIs(this, "vniStatusV2");
  notify(vniStatusV2Attr, vni);
  return made;
}

void VniStatusDirV2::vniStatusV2Del(Vxlan::Vni vni) {
  Orb::Ptr<VniStatusDirV2> const self(this);  // the announcement of the parent may drop it
  Orb::Ptr<VniStatusV2> removed;
  if (!vniStatusV2_.take(vni, removed)) return;
  removed->parentIs(nullptr, {});
  notify(vniStatusV2Attr, vni);
}

Orb::TypeDescriptor const& VniStatusDirV2::fwkType() const {
  using A = Orb::Attributes<VniStatusDirV2>;
  static Orb::TypeDescriptor const descriptor(
      "VxlanController::VniStatusDirV2",
      {A::collection<VniStatuses, &VniStatusDirV2::vniStatusV2, &VniStatuses::Entry::key>(
          "vniStatusV2", vniStatusV2Attr.id)},
      &Entity::type());
  return descriptor;
}

}  // namespace VxlanController
