/// A MAC entry of a status and its row in a table of hosts: the same, in the two forms that the module joins.
#pragma once

#include "DataModel/MacVtepV2.h"
#include "VxlanController/QorEvpnValues.h"

namespace QorEvpn {

/// The row of an entry of that VNI.
inline Host hostOf(Vxlan::Vni vni, VxlanController::MacVtepV2 const& entry) {
  Host row(MacVniPair(entry.macAddr(), vni));
  row.vtepAddrIs(entry.vtepAddr());
  row.seqNoIs(entry.seqNo());
  row.preferenceIs(entry.preference());
  return row;
}

/// The entry that a row tells of; in which VNI, its key says.
inline VxlanController::MacVtepV2 entryOf(Host const& row) {
  return VxlanController::MacVtepV2(row.key().macAddr(), row.vtepAddr(), row.seqNo(), row.preference());
}

}  // namespace QorEvpn
