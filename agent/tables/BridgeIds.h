/// The table of bridge identifiers, in which an agent keeps its `QorBrIdList`.
#pragma once

#include "VxlanController/QorBrIdTable.h"
#include "agent/tables/TableKind.h"

namespace Agent {

/// In JSON each is a plain number.
template <>
struct TableKind<Bridging::BridgeId> {
  using BridgeId = Bridging::BridgeId;
  static constexpr std::string_view file = "brId", word = "bridge-ids", member = "bridgeIds",
                                    noun = "bridge identifier";
  static constexpr bool isExported = true, isLearned = false;

  static std::span<Field<BridgeId> const> fields();
  static BridgeId ofJson(nlohmann::json const& value) { return BridgeId(value.get<std::uint32_t>()); }
  static nlohmann::json json(BridgeId row) { return row.value(); }
  static Vxlan::Vni vni(BridgeId row) { return Vxlan::Vni(row.number()); }
};

}  // namespace Agent
