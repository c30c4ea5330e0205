/// The tables of one row in which a side says of itself whether its other tables are whole.
#pragma once

#include "agent/site/EvpnState.h"
#include "agent/tables/TableKind.h"

namespace Agent {

template <>
struct TableKind<EvpnState> {
  static constexpr std::string_view file = EvpnState::file, word = "state", member = "state",
                                    noun = "state row";
  static constexpr bool isExported = true, isLearned = true;

  static std::span<Field<EvpnState> const> fields();
};

}  // namespace Agent
