/// The one way in which machines walk a shared table.
#pragma once

#include "Brine/Errors.h"

namespace QorEvpn {

/// The next row of a walk over `table`, or null at its end. Damage that the engine meets goes to the table's
/// corruption handler and ends the walk; every other exception leaves. What the caller does with a row, and
/// what other tables raise meanwhile, is none of this.
///
///   for (auto walk = hosts.hostWalk(vni); Host const* row = nextRow(hosts, walk);) ...
template <class Table, class Walk>
auto nextRow(Table const& table, Walk& walk) -> decltype(walk.next()) {
  try {
    return walk.next();
  } catch (Brine::CorruptionError const& error) {
    table.handleCorruption(error.what());
    return nullptr;
  }
}

}  // namespace QorEvpn
