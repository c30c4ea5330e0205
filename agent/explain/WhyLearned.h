#pragma once

#include "agent/evpn/EvpnSide.h"
#include "agent/live/SpeakerSide.h"

namespace Agent {

/// The EVPN side's answer about "MAC VNI" or "VTEP VNI": the sources that have such an entry, and the state
/// of the route for the row that the site exports. `speaker` may be null.
///
///   {"sources": [{"name": "speaker", "vtep": "10.99.0.22", "seq": 0, "preference": 16, "since": 176379632}],
///    "route": {"wanted": .., "announced": .., "waiting": false}}
///
/// About "MAC" alone: the VNIs in which a source's entry of it was refused, [5000, 5001].
///
/// Raises Orb::Error or std::runtime_error for another argument.
nlohmann::ordered_json whyLearned(EvpnSide const& side, SpeakerSide const* speaker,
                                  std::string_view argument);

}  // namespace Agent
