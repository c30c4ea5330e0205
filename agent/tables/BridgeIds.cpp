#include "agent/tables/BridgeIds.h"

#include <array>

namespace Agent {

namespace {

using Bridging::BridgeId;
using Kind = TableKind<BridgeId>;

constexpr auto itself = [](BridgeId row) { return row; };
constexpr std::array bridgeIdFields = {
    field<BridgeId, itself, asNumber>("BRIDGE ID", "bridgeId", true),
    field<BridgeId, Kind::vni, asNumber>("VNI", "vni", true),
};

}  // namespace

std::span<Field<BridgeId> const> Kind::fields() { return bridgeIdFields; }

}  // namespace Agent
