/// The stale-VNI sweep of the transmit path.
#pragma once

#include <set>

#include "VxlanController/QorEvpnTxSm.h"

namespace QorEvpn {

/// Removes everything of the given VNIs from the root's outputs: first their bridge identifiers, then host
/// rows, then flood rows. Rows are chosen by VNI alone, whoever wrote them, so rows of an earlier run go too.
/// Both tables are walked whatever the size of the set; a damaged table ends its own walk and nothing else.
/// The root's `initialized` is not looked at: that is the callers' part.
void cleanupStaleVniEntries(Orb::Ptr<QorEvpnTxSm> sm, std::set<Vxlan::Vni> const& staleVnis);

}  // namespace QorEvpn
