/// Ovsdb::Replica: a copy of the rows of one hardware_vtep database that this program uses, kept by the
/// database's updates.
///
///   Logical_Switch            tunnel_key is the VNI that it serves; without one it serves none
///   Physical_Locator          dst_ip is a VTEP
///   Physical_Locator_Set      several of them
///   Physical_Switch           tunnel_ips are the switch's own VTEPs
///   Ucast_Macs_Local          MAC behind a locator, as the switch learned it
///   Mcast_Macs_Local          flood list of a MAC; "unknown-dst" is 00:00:00:00:00:00, all BUM traffic
///   Ucast_ and Mcast_Macs_Remote   the same, written for the switch by its controllers
///
/// Rows may come in any order. A row that no event can hold (an IPv6 locator, a name for a MAC) is reported
/// and left out. Whether an entry is valid is checked by the listener of the events, not here.
#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "Vxlan/Vni.h"
#include "Wirix/EthAddr.h"
#include "Wirix/IpAddr.h"

namespace Ovsdb {

using Json = nlohmann::json;

/// A row's identifier.
struct Uuid {
  std::uint64_t high = 0;
  std::uint64_t low = 0;
  static Uuid parse(std::string_view text);  ///< Raises RowError.
  std::string text() const;
  friend auto operator<=>(Uuid const&, Uuid const&) = default;
};

/// A row that is not as the schema says; the text names table, row and column.
class RowError : public std::runtime_error {
 public:
  using runtime_error::runtime_error;
};

/// The key of an entry that a switch learned or is given.
struct Key {
  Vxlan::Vni vni;
  Wirix::EthAddr mac;
  friend auto operator<=>(Key const&, Key const&) = default;
};

enum class MacTable : std::uint8_t { ucastLocal, mcastLocal, ucastRemote, mcastRemote };
std::string_view nameOf(MacTable table);

/// Addresses in ascending order, each once.
using VtepList = std::vector<Wirix::IpAddr>;

/// Removes at most `limit` elements from the front of a map or a set, and subtracts their number from
/// `limit`.
template <class Map>
void shrinkMap(Map& map, std::size_t& limit) {
  for (; limit != 0 && !map.empty(); --limit) map.erase(map.begin());
}

class Replica {
 public:
  struct Handlers {
    std::function<void(Vxlan::Vni)> vniChanged;  ///< The VNI is served now, or no longer.
    std::function<void(Key const&)> localChanged;
    std::function<void(Key const&)> remoteChanged;
    std::function<void()> ownVtepsChanged;
    std::function<void(std::string const&)> refused;
  };
  explicit Replica(Handlers handlers) : handlers_(std::move(handlers)) {}

  /// The tables and columns that the replica needs, as the parameter of a `monitor` request.
  static Json monitorRequests();
  /// Which of them a schema lacks; empty if none. `columns`: the columns of each table of the schema.
  static std::string missing(std::map<std::string, Json> const& columns);

  /// Takes one row of an update: a member "UUID":{"old":...,"new":...} of its table. Raises RowError, or the
  /// JSON library's error.
  void take(std::string const& table, std::string const& member);
  /// Announces at most `limit` entries of logical switches whose VNI changed; false if none is left.
  bool relabel(std::size_t limit);
  /// Removes at most `limit` rows without announcing them; false if none is left.
  bool shrink(std::size_t limit);

  bool serves(Vxlan::Vni vni) const { return switchesOf_.contains(vni); }
  std::set<Uuid> const& switchesOf(Vxlan::Vni vni) const;
  bool usesServiceNodes(Uuid const& logicalSwitch) const;
  /// The rows of a MAC in a logical switch; the one that was added or changed last is the last one.
  std::vector<Uuid> const& rowsOf(MacTable table, Uuid const& logicalSwitch, Wirix::EthAddr mac) const;
  /// Each MAC that has rows in a logical switch.
  void forEachMac(MacTable table, Uuid const& logicalSwitch,
                  std::function<void(Wirix::EthAddr, std::vector<Uuid> const&)> const& visit) const;
  /// A row's VTEPs.
  VtepList vtepsOf(MacTable table, Uuid const& row) const;
  /// A locator of that VTEP with no tunnel key of its own.
  std::optional<Uuid> locatorOf(Wirix::IpAddr vtep) const;
  std::set<Wirix::IpAddr> ownVteps() const;
  void forEachVni(std::function<void(Vxlan::Vni)> const& visit) const {
    for (auto const& [vni, switches] : switchesOf_) visit(vni);
  }
  std::size_t vnis() const { return switchesOf_.size(); }
  std::size_t rows(MacTable table) const { return index(table).rows.size(); }
  /// The number of rows that no event can hold, by cause.
  std::map<std::string_view, std::size_t> const& leftOut() const { return leftOut_; }

 private:
  struct LogicalSwitch {
    std::optional<Vxlan::Vni> vni;
    bool serviceNodes = false;
  };
  struct Locator {
    std::optional<Wirix::IpAddr> vtep;
    bool hasKey = false;
  };
  struct MacRow {
    Wirix::EthAddr mac;
    Uuid logicalSwitch;
    Uuid target;  ///< A locator, or a set of them.
  };
  using Place = std::pair<Uuid, Wirix::EthAddr>;  ///< Logical switch and MAC.
  struct MacIndex {
    std::map<Uuid, MacRow> rows;
    std::map<Place, std::vector<Uuid>> places;
  };
  /// A logical switch whose VNI changed: its entries up to `next` have been announced.
  struct Relabelled {
    Uuid logicalSwitch;
    Vxlan::Vni vni;
    MacTable table;
    Wirix::EthAddr next;
  };

  MacIndex& index(MacTable table) { return macs_[static_cast<std::size_t>(table)]; }
  MacIndex const& index(MacTable table) const { return macs_[static_cast<std::size_t>(table)]; }
  void takeLogicalSwitch(Uuid const& id, Json const* row);
  void takeLocator(Uuid const& id, Json const* row);
  void takeLocatorSet(Uuid const& id, Json const* row);
  void takePhysicalSwitch(Uuid const& id, Json const* row);
  void takeMac(MacTable table, Uuid const& id, Json const* row);
  std::optional<Wirix::EthAddr> macOf(MacTable table, Uuid const& id, std::string const& text);
  std::optional<Wirix::IpAddr> vtepOf(Uuid const& id, std::string const& column, std::string const& text);
  void refuse(Uuid const& id, std::string_view fault, std::string const& what);
  void changed(MacTable table, Place const& place);
  void announce(MacTable table, Key const& key);
  void relabel(Uuid const& logicalSwitch, Vxlan::Vni vni);

  Handlers handlers_;
  std::map<Uuid, LogicalSwitch> logicalSwitches_;
  std::map<Vxlan::Vni, std::set<Uuid>> switchesOf_;
  std::map<Uuid, Locator> locators_;
  std::map<Wirix::IpAddr, std::set<Uuid>> locatorsOf_;  ///< Those with no tunnel key.
  std::map<Uuid, std::vector<Uuid>> locatorSets_;
  std::map<Uuid, std::vector<Wirix::IpAddr>> tunnelIps_;
  std::array<MacIndex, 4> macs_;
  std::vector<Relabelled> relabelled_;
  std::map<Uuid, std::string_view> faults_;
  std::map<std::string_view, std::size_t> leftOut_;
};

}  // namespace Ovsdb
