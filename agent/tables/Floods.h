/// The flood tables: the VTEPs in the flood list of each VNI.
#pragma once

#include "VxlanController/QorEvpnBrine.h"
#include "agent/tables/TableKind.h"

namespace Agent {

template <>
struct TableKind<QorEvpn::FloodEntry> {
  using FloodEntry = QorEvpn::FloodEntry;
  static constexpr std::string_view file = "flood", word = "floods", member = "floods", noun = "flood row";
  static constexpr bool isExported = true, isLearned = true;

  static std::span<Field<FloodEntry> const> fields();
  static FloodEntry ofJson(nlohmann::json const& object);
  static Vxlan::Vni vni(FloodEntry const& row) { return row.key().vni(); }
  static Wirix::IpAddr vtep(FloodEntry const& row) { return row.key().vtepAddr(); }
};

}  // namespace Agent
