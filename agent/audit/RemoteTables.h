/// Agent::RemoteTable: compares the remote rows in a switch's database with those that should be there: the
/// controller's entries from elsewhere, without entries that lead to the switch's own VTEPs and without
/// entries that the switch itself told.
///
///   member `switches` of the answer to `both-sides 5000`, of each switch that is synced:
///   {"name": "leaf1", "own": ["10.99.0.11"], "told": ["02:00:00:00:00:01 10.99.0.11"],
///    "tables": [{"name": "Ucast_Macs_Remote", "rows": ["02:00:00:00:00:02 10.99.0.22"]}, ..]}
///   with two tables for each logical switch that has the VNI; of a flood list all VTEPs in one row
#pragma once

#include <nlohmann/json.hpp>
#include <set>

#include "DataModel/VniFdbStatusV2.h"
#include "agent/audit/Findings.h"

namespace Agent {

struct RemoteRow {
  Vxlan::Vni vni;
  Wirix::EthAddr mac;
  std::vector<Wirix::IpAddr> vteps;  ///< By address; one, unless it is a flood list.
  friend bool operator==(RemoteRow const&, RemoteRow const&) = default;
};
bool shownBefore(RemoteRow const& left, RemoteRow const& right);

template <>
struct TableKind<RemoteRow> {
  static std::span<Field<RemoteRow> const> fields();
  static Vxlan::Vni vni(RemoteRow const& row) { return row.vni; }
  static Wirix::EthAddr mac(RemoteRow const& row) { return row.mac; }
};

/// One table of a switch, of one VNI.
struct RemoteTable {
  std::string name;  ///< "leaf1/Ucast_Macs_Remote"
  bool isFlood = false;
  Vxlan::Vni vni;
  std::set<Wirix::IpAddr> own;                              ///< The switch's VTEPs.
  std::set<std::pair<Wirix::EthAddr, Wirix::IpAddr>> told;  ///< By the switch.
  std::vector<RemoteRow> rows;

  /// Of the JSON above. Raises std::exception for what is not of that form.
  static std::vector<RemoteTable> ofJson(Vxlan::Vni vni, nlohmann::ordered_json const& switches);
  /// Adds the differences to `findings`. `status` is the controller's, or null. Rows that are not wanted
  /// count as a fault only if the controller is settled.
  void audit(Findings& findings, VxlanController::VniFdbStatusV2 const* status, bool isSettled) const;
};

}  // namespace Agent
