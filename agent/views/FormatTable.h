/// The tables of a site as the commands name, mount and read them: always as readers, which cost the writer
/// nothing.
#pragma once

#include <array>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>

#include "Brine/Table.h"
#include "VxlanController/QorEvpnBrine.h"
#include "agent/site/BrIdTable.h"
#include "agent/site/Site.h"
#include "agent/views/FormatRows.h"

namespace Agent {

enum class Kind { host, flood, brId };

/// One of a site's tables.
struct TablePlace {
  Kind kind;
  bool learned;

  /// "exported/host"
  std::string label() const;
  /// "hosts", "floods", "bridge-ids": the word on the command line.
  std::string_view word() const;
  /// "hosts", "floods", "bridgeIds": the member in JSON.
  std::string_view member() const;
  Brine::MountOptions options(Site const& site, Brine::Mode mode) const;
};

inline constexpr std::array<TablePlace, 5> allTables = {{{Kind::host, false},
                                                         {Kind::flood, false},
                                                         {Kind::brId, false},
                                                         {Kind::host, true},
                                                         {Kind::flood, true}}};

/// The table of that kind on the side that the command line asks for. Raises `UsageError` for bridge
/// identifiers that are learned, and for a filter on what its rows do not have.
TablePlace placeOf(std::string_view word, bool learned, RowFilter const& filter);

/// Calls `visit` with the type of the rows of that kind.
template <class Visit>
decltype(auto) withKind(Kind kind, Visit visit) {
  switch (kind) {
    case Kind::host: return visit(std::type_identity<QorEvpn::Host>());
    case Kind::flood: return visit(std::type_identity<QorEvpn::FloodEntry>());
    case Kind::brId: break;
  }
  return visit(std::type_identity<Bridging::BridgeId>());
}

/// Calls `visit` with a reader of that table, mounted or not, as its status says.
template <class Visit>
decltype(auto) withReader(Site const& site, TablePlace const& place, Visit visit) {
  return withKind(place.kind, [&]<class Row>(std::type_identity<Row>) {
    Brine::Table<Row> table;
    table.mount(place.options(site, Brine::Mode::reader));
    return visit(table);
  });
}

/// What the table's mount status means to the one who asked, in a sentence that says what to do about it.
/// Empty for `mounted`.
std::string explain(Brine::TableBase const& table, TablePlace const& place);

/// Raises std::runtime_error with `explain()` unless rows can be read.
void requireReadable(Brine::TableBase const& table, TablePlace const& place);

}  // namespace Agent
