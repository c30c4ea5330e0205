#include "agent/views/FormatRows.h"

#include <array>
#include <cctype>

namespace Agent {
namespace {

using Bridging::BridgeId;
using QorEvpn::FloodEntry;
using QorEvpn::Host;

/// A column of what `get` finds in a row, in JSON what `asJson` makes of that.
template <class Row, auto get, auto asJson>
constexpr Column<Row> column(std::string_view heading, std::string_view member, bool isNumber, bool isKey) {
  return {heading,
          member,
          isNumber,
          isKey,
          [](std::string& out, Row const& row) { Orb::appendTexts(out, get(row)); },
          [](Row const& row) { return nlohmann::json(asJson(get(row))); }};
}

constexpr auto asText = [](auto const& value) { return Orb::toText(value); };
constexpr auto asNumber = [](auto const& value) { return value.value(); };
constexpr auto asItself = [](auto value) { return value; };

constexpr auto vniOf = [](auto const& row) { return row.key().vni(); };
constexpr auto hostMacOf = [](Host const& row) { return row.key().macAddr(); };
constexpr auto hostVtepOf = [](Host const& row) { return row.vtepAddr(); };
constexpr auto seqOf = [](Host const& row) { return row.seqNo(); };
constexpr auto preferenceOf = [](Host const& row) { return row.preference(); };
constexpr auto floodVtepOf = [](FloodEntry const& row) { return row.key().vtepAddr(); };
constexpr auto brIdOf = [](BridgeId brId) { return brId; };
constexpr auto brVniOf = [](BridgeId brId) { return brId.value() & 0xFFFFFFU; };

constexpr std::array hostColumns = {
    column<Host, vniOf, asNumber>("VNI", "vni", true, true),
    column<Host, hostMacOf, asText>("MAC", "mac", false, true),
    column<Host, hostVtepOf, asText>("VTEP", "vtep", false, false),
    column<Host, seqOf, asNumber>("SEQ", "seq", true, false),
    column<Host, preferenceOf, asItself>("PREFERENCE", "preference", true, false),
};
constexpr std::array floodColumns = {
    column<FloodEntry, vniOf, asNumber>("VNI", "vni", true, true),
    column<FloodEntry, floodVtepOf, asText>("VTEP", "vtep", false, true),
};
constexpr std::array bridgeIdColumns = {
    column<BridgeId, brIdOf, asNumber>("BRIDGE ID", "bridgeId", true, true),
    column<BridgeId, brVniOf, asItself>("VNI", "vni", true, false),
};

template <class Value>
bool agrees(std::optional<Value> const& wanted, Value const& value) {
  return !wanted || *wanted == value;
}

}  // namespace

bool RowFilter::matches(Host const& host) const {
  return agrees(vni, host.key().vni()) && agrees(mac, host.key().macAddr()) && agrees(vtep, host.vtepAddr());
}

bool RowFilter::matches(FloodEntry const& entry) const {
  return agrees(vni, entry.key().vni()) && agrees(vtep, entry.key().vtepAddr());
}

bool RowFilter::matches(BridgeId brId) const { return !vni || brId == BridgeId::ofVni(*vni); }

Wirix::EthAddr macFromPeople(std::string_view text) {
  std::string digits;
  for (char const c : text) {
    if (std::isxdigit(static_cast<unsigned char>(c)) != 0) {
      digits.push_back(static_cast<char>(std::tolower(static_cast<unsigned char>(c))));
    } else if (c != ':' && c != '-' && c != '.') {
      return Wirix::EthAddr(text);
    }
  }
  if (digits.size() != 12) return Wirix::EthAddr(text);
  for (std::size_t i = 10; i > 0; i -= 2) digits.insert(i, ":");
  return Wirix::EthAddr(digits);
}

std::span<Column<Host> const> columnsOf(Host const*) { return hostColumns; }
std::span<Column<FloodEntry> const> columnsOf(FloodEntry const*) { return floodColumns; }
std::span<Column<BridgeId> const> columnsOf(BridgeId const*) { return bridgeIdColumns; }

nlohmann::json rowJson(Host const& host) { return toJson(columnsOf<Host>(), host); }
nlohmann::json rowJson(FloodEntry const& entry) { return toJson(columnsOf<FloodEntry>(), entry); }
nlohmann::json rowJson(BridgeId brId) { return brId.value(); }

bool shownBefore(Host const& left, Host const& right) {
  auto const byVni = left.key().vni() <=> right.key().vni();
  return byVni != 0 ? byVni < 0 : left.key().macAddr() < right.key().macAddr();
}
bool shownBefore(FloodEntry const& left, FloodEntry const& right) { return left.key() < right.key(); }
bool shownBefore(BridgeId left, BridgeId right) { return left < right; }

}  // namespace Agent
