/// The kinds of a site's tables, listed once, and the tables as the commands name, mount and read them: as
/// readers, which cost the writer nothing.
#pragma once

#include <algorithm>
#include <stdexcept>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <vector>

#include "Brine/Table.h"
#include "agent/site/Site.h"
#include "agent/tables/BridgeIds.h"
#include "agent/tables/Floods.h"
#include "agent/tables/Hosts.h"
#include "agent/tables/States.h"

namespace Agent {

/// The rows of the kinds that hold what a site knows, in the order in which tables are shown.
using EntryRows = std::tuple<QorEvpn::Host, QorEvpn::FloodEntry, Bridging::BridgeId>;
/// Of every kind: behind them, what a side says of its tables.
using TableRows = std::tuple<QorEvpn::Host, QorEvpn::FloodEntry, Bridging::BridgeId, EvpnState>;

/// Calls `visit` with `std::type_identity<Row>` for each kind in turn.
template <class Rows = TableRows, class Visit>
void forEachKind(Visit visit) {
  [&]<class... Row>(std::type_identity<std::tuple<Row...>>) {
    (visit(std::type_identity<Row>()), ...);
  }(std::type_identity<Rows>());
}

/// One of a site's tables.
struct TablePlace {
  std::string_view file;
  std::string_view word;    ///< On the command line.
  std::string_view member;  ///< In JSON.
  bool learned;             ///< Written by the EVPN side, not by the agent.

  /// "exported/host"
  std::string label() const { return std::string(learned ? "learned/" : "exported/").append(file); }
  std::string directory(Site const& site) const { return learned ? site.learned() : site.exported(); }
};

template <class Row>
TablePlace placeOf(bool learned) {
  using Kind = TableKind<Row>;
  return {Kind::file, Kind::word, Kind::member, learned};
}

/// Every table of a site: what the agent exports, then what the EVPN side learned.
std::vector<TablePlace> allTables();
/// The words of the command line for all kinds.
std::vector<std::string> tableWords();

/// The table of that kind on the side that the command line asks for, or on the only side that there is.
/// Raises `UsageError` where that side has none, and for a filter on what its rows do not have.
TablePlace placeOf(std::string_view word, bool learned, RowFilter const& filter);

/// Calls `visit` with the type of the rows of that place.
template <class Visit>
void withRow(TablePlace const& place, Visit visit) {
  forEachKind([&]<class Row>(std::type_identity<Row> row) {
    if (TableKind<Row>::word == place.word) visit(row);
  });
}

/// Calls `visit` with a reader of that table, mounted or not, as its status says.
template <class Visit>
void withReader(Site const& site, TablePlace const& place, Visit visit) {
  withRow(place, [&]<class Row>(std::type_identity<Row>) {
    Brine::Table<Row> table;
    table.mount({.directory = place.directory(site), .name = std::string(place.file)});
    visit(table);
  });
}

/// What the table's mount status means to the one who asked, in a sentence that says what to do about it.
/// Empty for `mounted`.
std::string explain(Brine::TableBase const& table, TablePlace const& place);

/// Raises std::runtime_error with `explain()` unless rows can be read.
void requireReadable(Brine::TableBase const& table, TablePlace const& place);

/// What one folder of a site knows: rows of each kind, as often as they are there.
class SiteRows {
 public:
  template <class Row>
  std::vector<Row>& of() {
    return std::get<std::vector<Row>>(rows_);
  }
  template <class Row>
  std::vector<Row> const& of() const {
    return std::get<std::vector<Row>>(rows_);
  }
  template <class Row>
  void add(Row const& row) {
    of<Row>().push_back(row);
  }
  /// Into the order in which rows are shown.
  void sort() {
    forEachKind<EntryRows>(
        [&]<class Row>(std::type_identity<Row>) { std::ranges::sort(of<Row>(), shownBefore<Row>); });
  }

  friend bool operator==(SiteRows const&, SiteRows const&) = default;

 private:
  template <class... Row>
  static std::tuple<std::vector<Row>...> listsOf(std::type_identity<std::tuple<Row...>>);

  decltype(listsOf(std::type_identity<EntryRows>())) rows_;
};

}  // namespace Agent
