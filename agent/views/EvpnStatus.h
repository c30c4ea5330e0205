/// Agent::EvpnStatus: what EVPN supplied, by VNI, and its only JSON form:
///
///   {"5000": {"floods": ["10.99.0.2"], "hosts": [{"mac": .., "preference": 16, "seq": 0, "vtep": ..}]}}
///
/// The agent answers it on its control socket, a recording's `.end.json` has it, `show evpn-status --json`
/// prints it.
#pragma once

#include <map>
#include <nlohmann/json.hpp>
#include <string_view>
#include <vector>

#include "DataModel/VniStatusV2.h"
#include "agent/tables/Tables.h"

namespace Agent {

/// One VNI's, each in the order in which rows are shown.
struct VniRows {
  std::vector<QorEvpn::Host> hosts;
  std::vector<QorEvpn::FloodEntry> floods;

  friend bool operator==(VniRows const&, VniRows const&) = default;
};
using EvpnStatus = std::map<Vxlan::Vni, VniRows>;

/// The status that the receive machine writes: of one VNI, in decimal, or of all for an empty text. A text
/// that names no VNI of the status gives an empty result.
EvpnStatus evpnStatusOf(VxlanController::VniStatusDirV2 const& status, std::string_view vni = {});
/// From JSON; raises std::exception for what is not of that form.
EvpnStatus evpnStatusOf(nlohmann::json const& document);

/// Without the rows that are not wanted and, if any filter is given, without VNIs of which nothing is left.
EvpnStatus filtered(EvpnStatus const& status, RowFilter const& filter);

nlohmann::ordered_json toJson(EvpnStatus const& status);

}  // namespace Agent
