#include "agent/views/ShowFigures.h"

#include <cinttypes>
#include <cstdio>

#include "agent/site/Control.h"
#include "agent/tables/Tables.h"

namespace Agent {

namespace {

template <class Row, auto attribute>
constexpr Field<Row> figure(std::string_view heading, std::string_view member, bool isNumber) {
  return {heading, member, isNumber,
          [](std::string& out, Row const& row) { Orb::appendTexts(out, row.*attribute); },
          [](Row const& row) { return nlohmann::json(row.*attribute); }};
}

constexpr std::array counterFields = {
    figure<CounterFigure, &CounterFigure::owner>("OWNER", "owner", false),
    figure<CounterFigure, &CounterFigure::name>("COUNTER", "name", false),
    figure<CounterFigure, &CounterFigure::value>("VALUE", "value", true),
};
constexpr std::array stateFields = {
    figure<StateFigure, &StateFigure::name>("STATE", "name", false),
    figure<StateFigure, &StateFigure::value>("VALUE", "value", false),
};
constexpr std::array tableFields = {
    figure<TableFigure, &TableFigure::table>("TABLE", "table", false),
    figure<TableFigure, &TableFigure::status>("STATUS", "status", false),
    figure<TableFigure, &TableFigure::rows>("ROWS", "rows", true),
    figure<TableFigure, &TableFigure::capacity>("CAPACITY", "capacity", true),
    figure<TableFigure, &TableFigure::writerAlive>("WRITER ALIVE", "writerAlive", false),
    figure<TableFigure, &TableFigure::quiesced>("QUIESCED", "quiesced", false),
    figure<TableFigure, &TableFigure::changeSequence>("CHANGE SEQUENCE", "changeSequence", true),
    figure<TableFigure, &TableFigure::generation>("GENERATION", "generation", false),
    figure<TableFigure, &TableFigure::note>("NOTE", "note", false),
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

std::span<Field<CounterFigure> const> CounterFigure::fields() { return counterFields; }
std::span<Field<StateFigure> const> StateFigure::fields() { return stateFields; }
std::span<Field<TableFigure> const> TableFigure::fields() { return tableFields; }

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
  bool const isOfOne = filter.vnis.size() == 1;
  nlohmann::json const answer =
      controlRequest(site, isOfOne ? "evpn-status " + Orb::toText(filter.vnis.front()) : "evpn-status");
  return filtered(evpnStatusOf(answer), filter);
}

std::vector<TableFigure> tablesOf(Site const& site) {
  std::vector<TableFigure> figures;
  for (TablePlace const& place : allTables()) figures.push_back(figureOf(site, place));
  return figures;
}

void writeEvpnStatus(Output& out, EvpnStatus const& status) {
  nlohmann::ordered_json const document = toJson(status);
  std::string_view separator = "{";
  for (auto const& [vni, rows] : document.items()) {
    out.write(separator, "\n\"", vni, "\":", rows.dump());
    separator = ",";
  }
  out.write(status.empty() ? "{}" : "}");
}

}  // namespace Agent
