#include "agent/views/ShowFigures.h"

#include <cinttypes>
#include <cstdio>

#include "agent/site/Control.h"
#include "agent/views/FormatTable.h"

namespace Agent {

namespace {

using QorEvpn::FloodEntry;
using QorEvpn::Host;

template <class Row, auto attribute>
constexpr Column<Row> column(std::string_view heading, std::string_view member, bool isNumber) {
  return {heading,
          member,
          isNumber,
          false,
          [](std::string& out, Row const& row) { Orb::appendTexts(out, row.*attribute); },
          [](Row const& row) { return nlohmann::json(row.*attribute); }};
}

constexpr std::array counterColumns = {
    column<CounterFigure, &CounterFigure::owner>("OWNER", "owner", false),
    column<CounterFigure, &CounterFigure::name>("COUNTER", "name", false),
    column<CounterFigure, &CounterFigure::value>("VALUE", "value", true),
};
constexpr std::array stateColumns = {
    column<StateFigure, &StateFigure::name>("STATE", "name", false),
    column<StateFigure, &StateFigure::value>("VALUE", "value", false),
};
constexpr std::array tableColumns = {
    column<TableFigure, &TableFigure::table>("TABLE", "table", false),
    column<TableFigure, &TableFigure::status>("STATUS", "status", false),
    column<TableFigure, &TableFigure::rows>("ROWS", "rows", true),
    column<TableFigure, &TableFigure::capacity>("CAPACITY", "capacity", true),
    column<TableFigure, &TableFigure::writerAlive>("WRITER ALIVE", "writerAlive", false),
    column<TableFigure, &TableFigure::quiesced>("QUIESCED", "quiesced", false),
    column<TableFigure, &TableFigure::changeSequence>("CHANGE SEQUENCE", "changeSequence", true),
    column<TableFigure, &TableFigure::generation>("GENERATION", "generation", false),
    column<TableFigure, &TableFigure::note>("NOTE", "note", false),
};

TableFigure figureOf(Site const& site, TablePlace const& place) {
  TableFigure figure;
  figure.table = place.label();
  withReader(site, place, [&](auto& table) {
    table.deliver();  // says whether the writer is quiet
    figure.status = Brine::toText(table.mountStatus());
    if (!Brine::isReadable(table.mountStatus())) {
      figure.note = table.mountDetail();
      return;
    }
    Brine::Statistics const statistics = table.statistics();
    figure.rows = statistics.rows;
    figure.capacity = statistics.capacity;
    char digits[17];
    std::snprintf(digits, sizeof digits, "%016" PRIx64, statistics.generation);
    figure.generation = digits;
    figure.changeSequence = statistics.changeSequence;
    figure.writerAlive = statistics.writerAlive;
    figure.quiesced = statistics.quiesced;
  });
  return figure;
}

}  // namespace

std::span<Column<CounterFigure> const> CounterFigure::columns() { return counterColumns; }
std::span<Column<StateFigure> const> StateFigure::columns() { return stateColumns; }
std::span<Column<TableFigure> const> TableFigure::columns() { return tableColumns; }

std::vector<CounterFigure> countersOf(Site const& site) {
  std::vector<CounterFigure> figures;
  for (auto const& counter : controlRequest(site, "counters")) {
    figures.push_back({counter.at("owner"), counter.at("name"), counter.at("value")});
  }
  return figures;
}

nlohmann::ordered_json stateOf(Site const& site) { return controlRequest(site, "state"); }

std::vector<StateFigure> figuresOf(nlohmann::ordered_json const& state) {
  std::vector<StateFigure> figures;
  for (auto const& [name, value] : state.items()) {
    if (!value.is_object()) {
      figures.push_back({name, value.is_string() ? value.get<std::string>() : value.dump()});
      continue;
    }
    for (StateFigure& inner : figuresOf(value)) {
      figures.push_back({std::string(name).append(".").append(inner.name), std::move(inner.value)});
    }
  }
  return figures;
}

EvpnStatus evpnStatusOf(Site const& site, RowFilter const& filter) {
  std::string const request = filter.vni ? "evpn-status " + Orb::toText(*filter.vni) : "evpn-status";
  nlohmann::ordered_json const answer = controlRequest(site, request);
  EvpnStatus status;
  for (auto const& [vniText, rows] : answer.items()) {
    auto const vni = Orb::parseWhole<Vxlan::Vni>(vniText);
    VniRows wanted;
    for (auto const& entry : rows.at("hosts")) {
      Host host(QorEvpn::MacVniPair(Wirix::EthAddr(entry.at("mac").get<std::string>()), vni));
      host.vtepAddrIs(Wirix::IpAddr(entry.at("vtep").get<std::string>()));
      host.seqNoIs(Seqno32(entry.at("seq").get<std::uint32_t>()));
      host.preferenceIs(entry.at("preference").get<std::uint8_t>());
      if (filter.matches(host)) wanted.hosts.push_back(host);
    }
    for (auto const& vtep : rows.at("floods")) {
      FloodEntry const flood(QorEvpn::VniVtepPair(vni, Wirix::IpAddr(vtep.get<std::string>())));
      if (!filter.mac && filter.matches(flood)) wanted.floods.push_back(flood);
    }
    bool const isFiltered = filter.vni || filter.mac || filter.vtep;
    if (!isFiltered || !wanted.hosts.empty() || !wanted.floods.empty())
      status.emplace(vni, std::move(wanted));
  }
  return status;
}

std::vector<TableFigure> tablesOf(Site const& site) {
  std::vector<TableFigure> figures;
  for (TablePlace const& place : allTables) figures.push_back(figureOf(site, place));
  return figures;
}

void writeEvpnStatus(Output& out, EvpnStatus const& status) {
  std::string_view separator = "{";
  for (auto const& [vni, rows] : status) {
    nlohmann::json entry = {{"floods", nlohmann::json::array()}, {"hosts", nlohmann::json::array()}};
    for (FloodEntry const& flood : rows.floods)
      entry["floods"].push_back(Orb::toText(flood.key().vtepAddr()));
    for (Host const& host : rows.hosts) {
      entry["hosts"].push_back(rowJson(host));
      entry["hosts"].back().erase("vni");
    }
    out.write(separator, "\n\"", vni, "\":", entry.dump());
    separator = ",";
  }
  out.write(status.empty() ? "{}" : "}");
}

}  // namespace Agent
