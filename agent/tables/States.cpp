#include "agent/tables/States.h"

#include <array>

namespace Agent {

namespace {

constexpr auto capabilityOf = [](EvpnState const& row) { return toText(row.capability); };
constexpr auto isWhole = [](EvpnState const& row) { return row.isWhole; };
constexpr auto hasOwn = [](EvpnState const& row) { return row.hasOwn; };
constexpr std::array stateFields = {
    field<EvpnState, isWhole, asItself>("WHOLE", "whole", false),
    field<EvpnState, hasOwn, asItself>("OWN", "own", false),
    field<EvpnState, capabilityOf, asItself>("CAPABILITY", "capability", false),
};

}  // namespace

std::span<Field<EvpnState> const> TableKind<EvpnState>::fields() { return stateFields; }

}  // namespace Agent
