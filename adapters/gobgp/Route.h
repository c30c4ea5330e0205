/// EVPN routes as rows of the tables, and back.
///
///   host row   MAC/IP advertisement route (type 2) without IP address
///   flood row  inclusive multicast Ethernet tag route (type 3), ingress replication
///
/// In both kinds the next hop and the tunnel end point are the row's VTEP, the label is the VNI, the route
/// target is AS:VNI, and the encapsulation is VXLAN. The sequence number of a host row is in a MAC mobility
/// community, which is left out for 0.
///
/// A route's key in BGP consists of the route distinguisher (RD), the Ethernet tag, and the MAC address or
/// the VTEP; the label is not part of it. Therefore the tag is the VNI, and the RD is router-id:(VNI mod
/// 65536): router identifiers differ, and so do the RDs of any two sites. A second reason for the tag: GoBGP
/// takes two routes of one tag and one MAC for moves of one host, whatever their RDs are.
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
  /// For a host row only.
  Wirix::EthAddr mac() const { return Wirix::EthAddr::ofValue(address_); }
  /// For a flood row only.
  Wirix::IpAddr vtep() const { return Wirix::IpAddr(static_cast<std::uint32_t>(address_)); }
  std::uint32_t hash() const {
    return Orb::hashMix(address_ ^ std::uint64_t{vni_.value()} << 40 ^ std::uint64_t{isHost_} << 39);
  }
  friend bool operator==(RowKey const&, RowKey const&) = default;

 private:
  bool isHost_ = false;
  Vxlan::Vni vni_;
  std::uint64_t address_ = 0;
};

/// The rest of a row. In a flood row the sequence number is 0 and the VTEP is that of the key.
struct RowValue {
  Wirix::IpAddr vtep;
  Seqno32 seq;
  friend bool operator==(RowValue const&, RowValue const&) = default;
};

struct Row {
  RowKey key;
  RowValue value;
};

/// Why no row can hold a route: "with an IPv6 next hop".
struct Unusable {
  std::string cause;
};

/// The identity with which routes are announced.
struct Identity {
  std::uint32_t as = 0;  ///< A route target has two octets for it: the lower half, as in other speakers.
  Wirix::IpAddr routerId;
};

constexpr std::uint32_t afiL2vpn = 25;
constexpr std::uint32_t safiEvpn = 70;
void setEvpn(apipb::Family& family);
bool isEvpn(apipb::Family const& family);

/// The octets of a row's route (NLRI), and of its path attributes; a host's sequence number only
/// `withMobility`.
std::string nlriOf(Identity const& identity, RowKey const& key);
std::vector<std::string> attributesOf(Identity const& identity, Row const& row, bool withMobility);
/// The path that announces or withdraws a row's route.
void setPath(apipb::Path& path, Identity const& identity, Row const& row, bool isWithdrawal);

/// The row of a route that this identity announced; nothing for any other route.
std::optional<RowKey> ownKeyOf(Identity const& identity, apipb::Path const& path);

/// True where a neighbour told the speaker of this path.
bool isLearned(apipb::Path const& path);
/// The key of a path's route: what distinguishes it from other routes and never changes.
std::string routeKeyOf(apipb::Path const& path);
/// The row that a neighbour's route describes, or why no row can hold it.
std::variant<Row, Unusable> rowOf(apipb::Path const& path);

}  // namespace Gobgp
