/// Agent::TableKind: what the program knows of a kind of table, in one place. `show`, `watch`, `check`, the
/// mounts and the views of a whole site take it from here, so a new kind is a specialisation and a line in
/// the list of agent/tables/Tables.h.
///
///   template <>
///   struct TableKind<Row> {
///     static constexpr std::string_view file = "host";     // exported/host and learned/host
///     static constexpr std::string_view word = "hosts";    // on the command line
///     static constexpr std::string_view member = "hosts";  // in JSON
///     static constexpr std::string_view noun = "host";     // for a count: "1 host", "2 hosts"
///     static constexpr bool isExported = true;             // the agent writes one,
///     static constexpr bool isLearned = true;              // and the EVPN side another
///     static std::span<Field<Row> const> fields();         // what is shown of a row, in this order
///     static Row ofJson(nlohmann::json const&);            // reads `rowJson`; raises std::exception
///
///     // As far as the rows have them; filters and the order in which rows are shown follow from these.
///     static Vxlan::Vni vni(Row const&);
///     static Wirix::EthAddr mac(Row const&);
///     static Wirix::IpAddr vtep(Row const&);
///     // Where a row is no JSON object of its fields.
///     static nlohmann::json json(Row const&);
///   };
#pragma once

#include <string_view>
#include <tuple>

#include "Brine/Codec.h"
#include "agent/tables/RowFilter.h"
#include "agent/views/Format.h"

namespace Agent {

template <class Row>
struct TableKind;

template <class Row>
concept HasVni = requires(Row const& row) {
  TableKind<Row>::vni(row);
};
template <class Row>
concept HasMac = requires(Row const& row) {
  TableKind<Row>::mac(row);
};
template <class Row>
concept HasVtep = requires(Row const& row) {
  TableKind<Row>::vtep(row);
};

/// Whether the row agrees with everything that the filter gives and that rows of its kind have.
template <class Row>
bool matches(RowFilter const& filter, Row const& row) {
  using Kind = TableKind<Row>;
  if constexpr (HasVni<Row>) {
    if (!filter.takesVni(Kind::vni(row))) return false;
  }
  if constexpr (HasMac<Row>) {
    if (!filter.takesMac(Kind::mac(row))) return false;
  }
  if constexpr (HasVtep<Row>) {
    if (!filter.takesVtep(Kind::vtep(row))) return false;
  }
  return true;
}

/// The order in which rows are shown: by VNI, then by the rest of the key.
template <class Row>
bool shownBefore(Row const& left, Row const& right) {
  auto const leftKey = Brine::Codec<Row>::key(left), rightKey = Brine::Codec<Row>::key(right);
  if constexpr (HasVni<Row>) {
    using Kind = TableKind<Row>;
    return std::tuple(Kind::vni(left), leftKey) < std::tuple(Kind::vni(right), rightKey);
  } else {
    return leftKey < rightKey;
  }
}

template <class Row>
nlohmann::json rowJson(Row const& row) {
  if constexpr (requires { TableKind<Row>::json(row); }) {
    return TableKind<Row>::json(row);
  } else {
    return toJson(TableKind<Row>::fields(), row);
  }
}

/// A field of what `get` finds in a row, in JSON what `asJson` makes of that.
template <class Row, auto get, auto asJson>
constexpr Field<Row> field(std::string_view heading, std::string_view member, bool isNumber) {
  return {heading, member, isNumber,
          [](std::string& out, Row const& row) { Orb::appendTexts(out, get(row)); },
          [](Row const& row) { return nlohmann::json(asJson(get(row))); }};
}

inline constexpr auto asText = [](auto const& value) { return Orb::toText(value); };
inline constexpr auto asNumber = [](auto const& value) { return value.value(); };
inline constexpr auto asItself = [](auto value) { return value; };

}  // namespace Agent
