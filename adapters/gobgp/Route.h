/// EVPN routes as rows of the tables, and back.
///
///   host row   MAC/IP advertisement route (type 2) without IP address
///   flood row  inclusive multicast Ethernet tag route (type 3), ingress replication
///
/// Of both: next hop and tunnel end the row's VTEP, label the VNI, route target AS:VNI, encapsulation VXLAN;
/// a host row's sequence number in a MAC mobility community, which is left out for 0.
///
/// A route's key in BGP has the route distinguisher (RD), the Ethernet tag, and the MAC address or the VTEP,
/// but not the label. So the tag is the VNI and the RD router-id:(VNI mod 65536): router identifiers differ,
/// and so do the RDs of any two sites. GoBGP takes routes of one tag and MAC for the moves of one host,
/// whatever their RDs are, which is the other reason for the tag.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "Orb/Hash.h"
#include "Vxlan/Vni.h"
#include "Wirix/EthAddr.h"
#include "Wirix/IpAddr.h"
#include "Wirix/Seqno32.h"
#include "gobgp.pb.h"

namespace Gobgp {

/// Key of a host row or of a flood row.
class RowKey {
 public:
  RowKey() = default;
  RowKey(Vxlan::Vni vni, Wirix::EthAddr mac) : isHost_(true), vni_(vni), address_(mac.value()) {}
  RowKey(Vxlan::Vni vni, Wirix::IpAddr vtep) : vni_(vni), address_(vtep.value()) {}

  bool isHost() const { return isHost_; }
  Vxlan::Vni vni() const { return vni_; }
  Wirix::EthAddr mac() const { return Wirix::EthAddr::ofValue(address_); }                    ///< Of a host.
  Wirix::IpAddr vtep() const { return Wirix::IpAddr(static_cast<std::uint32_t>(address_)); }  ///< Of a flood.
  std::uint32_t hash() const {
    return Orb::hashMix(address_ ^ std::uint64_t{vni_.value()} << 40 ^ std::uint64_t{isHost_} << 39);
  }
  friend bool operator==(RowKey const&, RowKey const&) = default;

 private:
  bool isHost_ = false;
  Vxlan::Vni vni_;
  std::uint64_t address_ = 0;
};

/// The rest of a row. A flood row has no sequence number, and the VTEP of its key.
struct RowValue {
  Wirix::IpAddr vtep;
  Seqno32 seq;
  friend bool operator==(RowValue const&, RowValue const&) = default;
};

struct Row {
  RowKey key;
  RowValue value;
};

/// Why a route is no row: "with an IPv6 next hop".
struct Unusable {
  std::string cause;
};

/// As whom routes are announced.
struct Identity {
  std::uint32_t as = 0;  ///< Of a route target's two octets: the lower half, as other speakers have it.
  Wirix::IpAddr routerId;
};

constexpr std::uint32_t afiL2vpn = 25;
constexpr std::uint32_t safiEvpn = 70;
void setEvpn(apipb::Family& family);
bool isEvpn(apipb::Family const& family);

/// The octets of a row's route.
std::string nlriOf(Identity const& identity, RowKey const& key);
std::vector<std::string> attributesOf(Identity const& identity, Row const& row, bool withMobility);
/// The path that announces or withdraws a row's route.
void setPath(apipb::Path& path, Identity const& identity, Row const& row, bool isWithdrawal);

/// The row of a route of ours; nothing where this identity does not announce such.
std::optional<RowKey> ownKeyOf(Identity const& identity, apipb::Path const& path);

/// True where a neighbour told the speaker of this path.
bool isLearned(apipb::Path const& path);
/// What tells a path's route from others, without what may change of it.
std::string routeKeyOf(apipb::Path const& path);
/// The row of a neighbour's route.
std::variant<Row, Unusable> rowOf(apipb::Path const& path);

}  // namespace Gobgp
