#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "Bridging/BridgeId.h"
#include "Vxlan/Vni.h"
#include "VxlanController/QorEvpnValues.h"
#include "Wirix/EthAddr.h"
#include "Wirix/IpAddr.h"
#include "agent/views/Format.h"

namespace Agent {

/// Which rows are wanted: those that agree with everything that is given.
struct RowFilter {
  std::optional<Vxlan::Vni> vni;
  std::optional<Wirix::EthAddr> mac;
  std::optional<Wirix::IpAddr> vtep;

  bool matches(QorEvpn::Host const& host) const;
  bool matches(QorEvpn::FloodEntry const& entry) const;
  /// By the VNI alone.
  bool matches(Bridging::BridgeId brId) const;
};

/// What the command line takes for a MAC address: the text form, capitals, '-' or '.' as separators, or none
/// at all. Raises `Orb::ParseError`.
Wirix::EthAddr macFromPeople(std::string_view text);

// The columns of each kind of row; the names of the members are those of the feeds.
std::span<Column<QorEvpn::Host> const> columnsOf(QorEvpn::Host const*);
std::span<Column<QorEvpn::FloodEntry> const> columnsOf(QorEvpn::FloodEntry const*);
std::span<Column<Bridging::BridgeId> const> columnsOf(Bridging::BridgeId const*);

template <class Row>
std::span<Column<Row> const> columnsOf() {
  return columnsOf(static_cast<Row const*>(nullptr));
}

// A bridge identifier is a plain number for programs, the others are objects.
nlohmann::json rowJson(QorEvpn::Host const& host);
nlohmann::json rowJson(QorEvpn::FloodEntry const& entry);
nlohmann::json rowJson(Bridging::BridgeId brId);

// The order in which rows are shown: by VNI, then MAC address or VTEP. The tables' own order of hosts begins
// with the MAC address.
bool shownBefore(QorEvpn::Host const& left, QorEvpn::Host const& right);
bool shownBefore(QorEvpn::FloodEntry const& left, QorEvpn::FloodEntry const& right);
bool shownBefore(Bridging::BridgeId left, Bridging::BridgeId right);

}  // namespace Agent
