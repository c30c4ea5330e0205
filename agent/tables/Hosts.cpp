#include "agent/tables/Hosts.h"

#include <array>

namespace Agent {

namespace {

using QorEvpn::Host;
using Kind = TableKind<Host>;

constexpr auto seqOf = [](Host const& row) { return row.seqNo(); };
constexpr auto preferenceOf = [](Host const& row) { return row.preference(); };
constexpr std::array hostFields = {
    field<Host, Kind::vni, asNumber>("VNI", "vni", true),
    field<Host, Kind::mac, asText>("MAC", "mac", false),
    field<Host, Kind::vtep, asText>("VTEP", "vtep", false),
    field<Host, seqOf, asNumber>("SEQ", "seq", true),
    field<Host, preferenceOf, asItself>("PREFERENCE", "preference", true),
};

}  // namespace

std::span<Field<Host> const> Kind::fields() { return hostFields; }

Host Kind::ofJson(nlohmann::json const& object) {
  Host row(QorEvpn::MacVniPair(Wirix::EthAddr(object.at("mac").get<std::string>()),
                               Vxlan::Vni(object.at("vni").get<std::uint32_t>())));
  row.vtepAddrIs(Wirix::IpAddr(object.at("vtep").get<std::string>()));
  row.seqNoIs(Seqno32(object.at("seq").get<std::uint32_t>()));
  row.preferenceIs(object.at("preference").get<std::uint8_t>());
  return row;
}

}  // namespace Agent
