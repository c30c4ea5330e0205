/// Agent::BothSides: the entries of the controller and of EVPN, by VNI, as a running agent sends them for
/// audits.
///
///   request            answer
///   both-sides         {"enabled": true, "capability": true, "kept": false, "settled": true, "vnis": [5000]}
///                      `kept`: rows of an earlier run stay, since no source has told yet what is on
///   both-sides 5000    {"controller": {"hosts": ["02:00:00:00:00:01 10.99.0.11 1 16"],
///                                      "multipaths": ["02:00:00:00:00:02"],
///                                      "floods": {"00:00:00:00:00:00": ["10.99.0.11 on"]}},
///                       "evpn": null}
///                      with `switches` as agent/audit/RemoteTables.h says; of a host MAC, VTEP, sequence
///                      number and preference; null where it has no such VNI
///
/// Entries are texts, which cost the agent less time than JSON objects: a VNI may have many hosts.
#pragma once

#include <nlohmann/json.hpp>

#include "DataModel/VniFdbStatusV2.h"
#include "DataModel/VniStatusV2.h"
#include "Orb/Dir.h"

namespace Agent {

struct BothSides {
  BothSides();

  Orb::Ptr<Orb::Dir> controller;  ///< A VniFdbStatusV2 for each VNI that is served.
  Orb::Ptr<VxlanController::VniStatusDirV2> evpn;

  /// The controller's status of a VNI, or null.
  VxlanController::VniFdbStatusV2 const* own(Vxlan::Vni vni) const;
  /// EVPN's, or null.
  VxlanController::VniStatusV2 const* theirs(Vxlan::Vni vni) const { return evpn->vniStatusV2(vni).get(); }

  /// Adds a VNI that was not there, from its JSON. Raises std::exception for what is not of that form.
  void take(Vxlan::Vni vni, nlohmann::ordered_json const& document);
};

/// The answer for one VNI; either may be null.
nlohmann::ordered_json bothSidesJson(VxlanController::VniFdbStatusV2 const* own,
                                     VxlanController::VniStatusV2 const* theirs);

}  // namespace Agent
