/// What the machines should have written, as pure functions of what they read: the rules of the transmit
/// and the receive side in a few lines, without machines, traces or tables. Tests compare the machines
/// with them, and a running site can be audited by them.
///
/// They hold for a site that is running and has handled every change of its inputs, where each VNI stands
/// in the directory under one name. One thing depends on history besides: an entry that is not supported
/// (a multipath or a flood list of a specific MAC) makes its VNI count as served from the next supported
/// event of the VNI on, not by itself; so `brIds` may differ from the list for a VNI whose entries of that
/// kind changed last.
#pragma once

#include <optional>
#include <set>
#include <span>
#include <vector>

#include "DataModel/VniFdbStatusV2.h"
#include "DataModel/VniStatusV2.h"
#include "Orb/Dir.h"
#include "VxlanController/QorEvpnValues.h"

namespace QorEvpn {

/// Whether the VNI has an entry of any kind, which lists its bridge identifier at the next supported event.
bool hasEntries(VxlanController::VniFdbStatusV2 const& own);
/// Whether it has an entry whose events are supported: a MAC, or an entry or a list for all BUM addresses.
bool hasSupportedEntries(VxlanController::VniFdbStatusV2 const& own);

/// The host row of a MAC address: the controller's entry, unless EVPN supplied exactly that. `fromEvpn`
/// may be null.
std::optional<Host> expectedHost(VxlanController::VniFdbStatusV2 const& own,
                                 VxlanController::VniStatusV2 const* fromEvpn, Vxlan::Vni vni,
                                 Wirix::EthAddr macAddr);

/// Whether a VTEP has a flood row: it is switched on in the controller's list for all BUM addresses, and
/// is not in EVPN's. Either list may be null.
bool expectedFlood(VxlanController::MacVtepFloodListV2 const* own,
                   VxlanController::MacVtepFloodListV2 const* fromEvpn, Wirix::IpAddr vtepAddr);

/// What the transmit machines export.
struct ExpectedExport {
  std::vector<Host> hosts;         ///< Sorted by key.
  std::vector<FloodEntry> floods;  ///< Sorted by key.
  std::set<Vxlan::Vni> brIds;      ///< The VNIs whose bridge identifiers are listed.
  /// The VNIs that have entries of the unsupported kinds alone, or none any more: listed or not, as above.
  std::set<Vxlan::Vni> brIdsOfHistory;
};

/// Of all VNIs of the controller's directory; entries of another type and names that stand for no VNI are
/// passed over.
ExpectedExport expectedExport(Orb::Dir const& vniDir, VxlanController::VniStatusDirV2 const& fromEvpn);

/// What the receive machine makes of EVPN's rows; of a row that equals the default row, nothing.
Orb::Ptr<VxlanController::VniStatusDirV2> expectedLearned(std::span<Host const> hosts,
                                                          std::span<FloodEntry const> floods);

/// Whether two directories hold the same entries and flood lists for the same VNIs.
bool sameStatus(VxlanController::VniStatusDirV2 const& left, VxlanController::VniStatusDirV2 const& right);

}  // namespace QorEvpn
