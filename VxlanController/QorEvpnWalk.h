/// The one way in which machines walk a shared table.
#pragma once

#include "Brine/Errors.h"

namespace QorEvpn {

/// Calls `action` with every row that `walk` over `table` yields. The action may change the table. Where the
/// engine reports corruption, the table's corruption handler gets its message and the walk ends; every other
/// exception leaves.
template <class Table, class Walk, class Action>
void forEachRow(Table const& table, Walk walk, Action const& action) {
  try {
    while (auto const* row = walk.next()) action(*row);
  } catch (Brine::CorruptionError const& error) {
    table.handleCorruption(error.what());
  }
}

}  // namespace QorEvpn
