#include "agent/tables/Floods.h"

#include <array>

namespace Agent {

namespace {

using QorEvpn::FloodEntry;
using Kind = TableKind<FloodEntry>;

constexpr std::array floodFields = {
    field<FloodEntry, Kind::vni, asNumber>("VNI", "vni", true),
    field<FloodEntry, Kind::vtep, asText>("VTEP", "vtep", false),
};

}  // namespace

std::span<Field<FloodEntry> const> Kind::fields() { return floodFields; }

FloodEntry Kind::ofJson(nlohmann::json const& object) {
  return FloodEntry(QorEvpn::VniVtepPair(Vxlan::Vni(object.at("vni").get<std::uint32_t>()),
                                         Wirix::IpAddr(object.at("vtep").get<std::string>())));
}

}  // namespace Agent
