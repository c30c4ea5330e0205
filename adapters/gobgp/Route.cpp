#include "adapters/gobgp/Route.h"

#include "Orb/Text.h"

namespace Gobgp {

namespace {

constexpr char macRoute = 2;
constexpr char multicastRoute = 3;
constexpr char ingressReplication = 6;
/// The speaker's text for a missing address.
constexpr std::string_view none = "<nil>";
constexpr std::string_view macIpType = "EVPNMACIPAdvertisementRoute";
constexpr std::string_view multicastType = "EVPNInclusiveMulticastEthernetTagRoute";

/// Appends the lower `count` octets of a number, the highest one first.
void appendNumber(std::string& out, std::uint64_t value, unsigned count) {
  for (unsigned i = count; i-- > 0;) out.push_back(static_cast<char>(value >> (8 * i) & 0xFF));
}

std::string attribute(unsigned char flags, unsigned char type, std::string_view value) {
  std::string result{static_cast<char>(flags), static_cast<char>(type), static_cast<char>(value.size())};
  return result.append(value);
}

/// "EVPNMACIPAdvertisementRoute" of "type.googleapis.com/apipb.EVPNMACIPAdvertisementRoute".
std::string_view typeOf(apipb::Any const& any) {
  std::string_view const url = any.type_url();
  return url.substr(url.rfind('.') + 1);
}

/// The first of several values of this type.
template <class Message>
std::optional<Message> find(google::protobuf::RepeatedPtrField<apipb::Any> const& values,
                            std::string_view type) {
  for (apipb::Any const& any : values) {
    Message message;
    if (typeOf(any) == type && message.ParseFromString(any.value())) return message;
  }
  return std::nullopt;
}

Seqno32 seqOf(apipb::Path const& path) {
  auto const communities =
      find<apipb::ExtendedCommunitiesAttribute>(path.pattrs(), "ExtendedCommunitiesAttribute");
  if (!communities) return Seqno32();
  auto const mobility = find<apipb::MacMobility>(communities->communities(), "MacMobilityExtended");
  return Seqno32(mobility ? mobility->sequence_num() : 0);
}

}  // namespace

void setEvpn(apipb::Family& family) {
  family.set_afi(afiL2vpn);
  family.set_safi(safiEvpn);
}

bool isEvpn(apipb::Family const& family) { return family.afi() == afiL2vpn && family.safi() == safiEvpn; }

std::string nlriOf(Identity const& identity, RowKey const& key) {
  std::string value;
  appendNumber(value, 1, 2);  // an RD of an IPv4 address and a number
  appendNumber(value, identity.routerId.value(), 4);
  appendNumber(value, key.vni().value(), 2);
  if (key.isHost()) {
    value.append(10, '\0');  // no Ethernet segment
    appendNumber(value, key.vni().value(), 4);
    appendNumber(value, 48, 1);
    appendNumber(value, key.mac().value(), 6);
    appendNumber(value, 0, 1);  // no IP address
    appendNumber(value, key.vni().value(), 3);
  } else {
    appendNumber(value, key.vni().value(), 4);
    appendNumber(value, 32, 1);
    appendNumber(value, key.vtep().value(), 4);
  }
  std::string nlri{key.isHost() ? macRoute : multicastRoute, static_cast<char>(value.size())};
  return nlri.append(value);
}

std::vector<std::string> attributesOf(Identity const& identity, Row const& row, bool withMobility) {
  Vxlan::Vni const vni = row.key.vni();
  std::string communities;
  appendNumber(communities, 0x0002, 2);  // route target
  appendNumber(communities, identity.as, 2);
  appendNumber(communities, vni.value(), 4);
  appendNumber(communities, 0x030C, 2);  // encapsulation: VXLAN
  appendNumber(communities, 8, 6);
  if (withMobility && row.value.seq != Seqno32()) {
    appendNumber(communities, 0x0600, 2);  // MAC mobility, not sticky
    appendNumber(communities, 0, 2);
    appendNumber(communities, row.value.seq.value(), 4);
  }

  std::string reach;
  appendNumber(reach, afiL2vpn, 2);
  appendNumber(reach, safiEvpn, 1);
  appendNumber(reach, 4, 1);
  appendNumber(reach, row.value.vtep.value(), 4);
  appendNumber(reach, 0, 1);
  reach += nlriOf(identity, row.key);

  // In the order and the lengths in which the speaker gives them back, so that octets can be compared.
  std::vector<std::string> result{attribute(0x40, 1, std::string_view("\0", 1)),
                                  attribute(0xC0, 16, communities)};
  if (!row.key.isHost()) {
    std::string tunnel{'\0', ingressReplication};
    appendNumber(tunnel, vni.value(), 3);
    appendNumber(tunnel, row.value.vtep.value(), 4);
    result.push_back(attribute(0xC0, 22, tunnel));
  }
  result.push_back(attribute(0x80, 14, reach));
  return result;
}

void setPath(apipb::Path& path, Identity const& identity, Row const& row, bool isWithdrawal) {
  setEvpn(*path.mutable_family());
  path.set_is_withdraw(isWithdrawal);
  path.set_nlri_binary(nlriOf(identity, row.key));
  // A withdrawal with a mobility community would be compared with the route, and may be refused.
  for (auto& each : attributesOf(identity, row, !isWithdrawal)) path.add_pattrs_binary(std::move(each));
}

std::optional<RowKey> ownKeyOf(Identity const& identity, apipb::Path const& path) {
  auto const vniOf = [&identity](auto const& route) -> std::optional<Vxlan::Vni> {
    apipb::RouteDistinguisher rd;
    bool const isOurs = typeOf(route.rd()) == "RouteDistinguisherIPAddress" &&
                        rd.ParseFromString(route.rd().value()) &&
                        rd.admin() == Orb::toText(identity.routerId);
    std::uint32_t const tag = route.ethernet_tag();
    bool const isVni = isOurs && tag <= Vxlan::Vni::max && rd.assigned() == (tag & 0xFFFF);
    return isVni ? std::optional(Vxlan::Vni(tag)) : std::nullopt;
  };
  apipb::EvpnMacIpRoute mac;
  apipb::EvpnMulticastRoute multicast;
  if (typeOf(path.nlri()) == macIpType && mac.ParseFromString(path.nlri().value())) {
    auto const vni = vniOf(mac);
    bool const hasIp = !mac.ip_address().empty() && mac.ip_address() != none;
    if (vni && !hasIp) return RowKey(*vni, Wirix::EthAddr(mac.mac_address()));
  } else if (typeOf(path.nlri()) == multicastType && multicast.ParseFromString(path.nlri().value())) {
    auto const vni = vniOf(multicast);
    bool const isIpv4 = multicast.ip_address().find(':') == std::string::npos;
    if (vni && isIpv4) return RowKey(*vni, Wirix::IpAddr(multicast.ip_address()));
  }
  return std::nullopt;
}

bool isLearned(apipb::Path const& path) { return !path.neighbor_ip().empty() && path.neighbor_ip() != none; }

std::string routeKeyOf(apipb::Path const& path) {
  auto const keyed = [](char type, auto const& route, std::string const& mac) {
    std::string key(1, type);
    appendNumber(key, route.ethernet_tag(), 4);
    return key + route.rd().value() + '/' + mac + '/' + route.ip_address();
  };
  if (typeOf(path.nlri()) == macIpType) {
    apipb::EvpnMacIpRoute route;
    if (route.ParseFromString(path.nlri().value())) return keyed(macRoute, route, route.mac_address());
  } else if (typeOf(path.nlri()) == multicastType) {
    apipb::EvpnMulticastRoute route;
    if (route.ParseFromString(path.nlri().value())) return keyed(multicastRoute, route, {});
  }
  return path.nlri().type_url() + path.nlri().value();
}

std::variant<Row, Unusable> rowOf(apipb::Path const& path) try {
  bool const isHost = typeOf(path.nlri()) == macIpType;
  if (!isHost && typeOf(path.nlri()) != multicastType) return Unusable{"of another type than 2 and 3"};

  auto const reach = find<apipb::MpReachAttribute>(path.pattrs(), "MpReachNLRIAttribute");
  if (!reach || reach->next_hops().empty()) return Unusable{"without a next hop"};
  if (reach->next_hops(0).find(':') != std::string::npos) return Unusable{"with an IPv6 next hop"};
  Wirix::IpAddr const vtep(reach->next_hops(0));

  if (isHost) {
    apipb::EvpnMacIpRoute route;
    if (!route.ParseFromString(path.nlri().value()) || route.labels().empty()) {
      return Unusable{"without a VNI"};
    }
    return Row{RowKey(Vxlan::Vni(route.labels(0)), Wirix::EthAddr(route.mac_address())), {vtep, seqOf(path)}};
  }
  auto const tunnel = find<apipb::PmsiTunnelAttribute>(path.pattrs(), "PmsiTunnelAttribute");
  if (!tunnel || tunnel->type() != ingressReplication) {
    return Unusable{"with another tunnel than ingress replication"};
  }
  return Row{RowKey(Vxlan::Vni(tunnel->label()), vtep), {vtep, Seqno32()}};
} catch (std::exception const& error) {
  return Unusable{std::string("that cannot be read (") + error.what() + ")"};
}

}  // namespace Gobgp
