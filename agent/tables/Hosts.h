/// The host tables: which VTEP a MAC address in a VNI lives behind.
#pragma once

#include "VxlanController/QorEvpnBrine.h"
#include "agent/tables/TableKind.h"

namespace Agent {

template <>
struct TableKind<QorEvpn::Host> {
  using Host = QorEvpn::Host;
  static constexpr std::string_view file = "host", word = "hosts", member = "hosts", noun = "host";
  static constexpr bool isExported = true, isLearned = true;

  static std::span<Field<Host> const> fields();
  static Host ofJson(nlohmann::json const& object);
  static Vxlan::Vni vni(Host const& row) { return row.key().vni(); }
  static Wirix::EthAddr mac(Host const& row) { return row.key().macAddr(); }
  static Wirix::IpAddr vtep(Host const& row) { return row.vtepAddr(); }
};

}  // namespace Agent
