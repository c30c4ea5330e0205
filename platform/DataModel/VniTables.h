#pragma once

#include "DataModel/MacVtepFloodListV2.h"
#include "DataModel/MacVtepV2.h"
#include "Orb/Entity.h"
#include "Orb/FlatMap.h"
#include "Vxlan/Vni.h"

namespace VxlanController {

/// The three tables that both statuses of a VNI have: the controller's own (VniFdbStatusV2) and the one
/// learned from EVPN (VniStatusV2). Every table is keyed by MAC address and announces each effective change
/// with its key.
///
/// `firstTable` is the identifier of the MAC table; the multipath and flood-list tables have the two after
/// it. A class derived from it numbers its own attributes from `firstFree`.
template <Orb::AttributeId firstTable>
class VniTables : public Orb::Entity {
 public:
  using MacVtepTable = Orb::FlatMap<Wirix::EthAddr, MacVtepV2>;
  using MacVtepMultiPathTable = Orb::FlatMap<Wirix::EthAddr, MacVtepMultiPathV2>;
  using MacVtepFloodListTable = Orb::FlatMap<Wirix::EthAddr, Orb::Ptr<MacVtepFloodListV2>>;
  using FloodListPtr = Orb::Ptr<MacVtepFloodListV2>;

  static constexpr Orb::Scalar vniAttr{256};
  static constexpr Orb::Attribute<Wirix::EthAddr> macVtepTableAttr{firstTable};
  static constexpr Orb::Attribute<Wirix::EthAddr> macVtepMultiPathTableAttr{firstTable + 1};
  static constexpr Orb::Attribute<Wirix::EthAddr> macVtepFloodListTableAttr{firstTable + 2};
  static constexpr Orb::AttributeId firstFree = firstTable + 3;
  static_assert(firstTable > vniAttr.id, "a table has the identifier of another attribute");

  Vxlan::Vni const& vni() const noexcept { return vni_; }

  /// The tables. Walks tolerate every change; copy a key before a call that may change its table.
  MacVtepTable const& macVtepTable() const noexcept { return macVtepTable_; }
  MacVtepMultiPathTable const& macVtepMultiPathTable() const noexcept { return macVtepMultiPathTable_; }
  MacVtepFloodListTable const& macVtepFloodListTable() const noexcept { return macVtepFloodListTable_; }
  size_t macVtepTables() const noexcept { return macVtepTable_.size(); }
  size_t macVtepMultiPathTables() const noexcept { return macVtepMultiPathTable_.size(); }
  size_t macVtepFloodListTables() const noexcept { return macVtepFloodListTable_.size(); }

  /// The entry of a MAC, or the default entry where there is none. Good until the table changes.
  MacVtepV2 const& macVtepTable(Wirix::EthAddr const& macAddr) const {
    static constexpr MacVtepV2 absent;
    MacVtepV2 const* const found = macVtepTable_.find(macAddr);
    return found ? *found : absent;
  }
  /// The flood list of a MAC, or null. Good until the table changes.
  FloodListPtr const& macVtepFloodListTable(Wirix::EthAddr const& macAddr) const {
    FloodListPtr const* const found = macVtepFloodListTable_.find(macAddr);
    return found ? *found : Orb::nullPtr<MacVtepFloodListV2>();
  }

  /// Insert or replace; remove, where an absent key is no error.
  void macVtepTableIs(MacVtepV2 entry) {
    Wirix::EthAddr const macAddr = entry.macAddr();
    if (macVtepTable_.put(macAddr, entry)) notify(macVtepTableAttr, macAddr);
  }
  void macVtepTableDel(Wirix::EthAddr macAddr) {
    if (macVtepTable_.erase(macAddr)) notify(macVtepTableAttr, macAddr);
  }

  void macVtepMultiPathTableIs(MacVtepMultiPathV2 const& entry) {
    Wirix::EthAddr const macAddr = entry.macAddr;
    if (macVtepMultiPathTable_.put(macAddr, entry)) notify(macVtepMultiPathTableAttr, macAddr);
  }
  void macVtepMultiPathTableDel(Wirix::EthAddr macAddr) {
    if (macVtepMultiPathTable_.erase(macAddr)) notify(macVtepMultiPathTableAttr, macAddr);
  }

  /// The flood list of a MAC, made (empty) and announced if there is none yet.
  FloodListPtr macVtepFloodListTableIs(Wirix::EthAddr macAddr) {
    if (FloodListPtr list = macVtepFloodListTable(macAddr)) return list;
    FloodListPtr const made = Orb::makePtr<MacVtepFloodListV2>(macAddr);
    macVtepFloodListTableIs(made);
    return made;
  }
  /// Puts a list under its own MAC, in the place of another if there is one.
  void macVtepFloodListTableIs(FloodListPtr const& list) {
    Wirix::EthAddr const macAddr = list->macAddr();
    if (macVtepFloodListTable_.put(macAddr, list)) notify(macVtepFloodListTableAttr, macAddr);
  }
  void macVtepFloodListTableDel(Wirix::EthAddr macAddr) {
    FloodListPtr removed;  // outlives the announcement
    if (macVtepFloodListTable_.take(macAddr, removed)) notify(macVtepFloodListTableAttr, macAddr);
  }

 protected:
  VniTables(Orb::Name name, Vxlan::Vni vni) : Entity(std::move(name)), vni_(vni) {}

 private:
  Vxlan::Vni vni_;
  MacVtepTable macVtepTable_;
  MacVtepMultiPathTable macVtepMultiPathTable_;
  MacVtepFloodListTable macVtepFloodListTable_;
};

}  // namespace VxlanController
