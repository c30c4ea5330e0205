#include "agent/views/ShowFigures.h"

#include <cinttypes>
#include <cstdio>
#include <ctime>

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
constexpr std::array figureFields = {
    figure<StateFigure, &StateFigure::name>("STATE", "name", false),
    figure<StateFigure, &StateFigure::value>("VALUE", "value", false),
};
/// "2026-11-22 08:26:18", in local time.
std::string timeText(std::uint64_t seconds) {
  auto const time = static_cast<std::time_t>(seconds);
  std::tm parts{};
  localtime_r(&time, &parts);
  char text[32];
  return {text, std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts)};
}

constexpr std::array sourceFields = {
    figure<SourceFigure, &SourceFigure::name>("NAME", "name", false),
    figure<SourceFigure, &SourceFigure::process>("PROCESS", "process", false),
    figure<SourceFigure, &SourceFigure::kind>("KIND", "kind", false),
    figure<SourceFigure, &SourceFigure::state>("STATE", "state", false),
    Field<SourceFigure>{"SINCE", "since", false,
                        [](std::string& out, SourceFigure const& row) { out += timeText(row.since); },
                        [](SourceFigure const& row) { return nlohmann::json(row.since); }},
    figure<SourceFigure, &SourceFigure::entries>("ENTRIES", "entries", true),
    figure<SourceFigure, &SourceFigure::endpoint>("ENDPOINT", "endpoint", false),
};
constexpr auto asIs = [](auto const& value) { return value; };
template <auto attribute>
constexpr auto fdbValue = [](FdbFigure const& row) { return row.*attribute; };
constexpr std::array fdbFields = {
    field<FdbFigure, fdbValue<&FdbFigure::vni>, asNumber>("VNI", "vni", true),
    field<FdbFigure, fdbValue<&FdbFigure::mac>, asText>("MAC", "mac", false),
    field<FdbFigure, fdbValue<&FdbFigure::vtep>, asText>("VTEP", "vtep", false),
    field<FdbFigure, fdbValue<&FdbFigure::seq>, asIs>("SEQ", "seq", true),
    figure<FdbFigure, &FdbFigure::from>("FROM", "from", false),
    figure<FdbFigure, &FdbFigure::why>("WHY", "why", false),
};
constexpr std::array tableFields = {
    figure<TableFigure, &TableFigure::table>("TABLE", "table", false),
    figure<TableFigure, &TableFigure::status>("STATUS", "status", false),
    figure<TableFigure, &TableFigure::rows>("ROWS", "rows", true),
    figure<TableFigure, &TableFigure::capacity>("CAPACITY", "capacity", true),
    figure<TableFigure, &TableFigure::writerAlive>("WRITER ALIVE", "writerAlive", false),
    figure<TableFigure, &TableFigure::quiesced>("QUIESCED", "quiesced", false),
    figure<TableFigure, &TableFigure::changeSequence>("CHANGES", "changeSequence", true),
    figure<TableFigure, &TableFigure::generation>("GENERATION", "generation", false),
    figure<TableFigure, &TableFigure::note>("NOTE", "note", false),
};

constexpr std::array tableColumns = {tableFields[0], tableFields[1], tableFields[2],
                                     tableFields[3], tableFields[5], tableFields[6]};

/// The tables whose rows belong to VNIs.
std::vector<TablePlace> vniTables() {
  std::vector<TablePlace> places;
  for (TablePlace const& place : allTables()) {
    withRow(place, [&]<class Row>(std::type_identity<Row>) {
      if (HasVni<Row>) places.push_back(place);
    });
  }
  return places;
}

/// One of the counts, by its position, for a column.
template <std::size_t index>
Field<VniFigure> countField(std::vector<std::string> const& names) {
  return {names[index], names[index], true,
          [](std::string& out, VniFigure const& row) { Orb::appendTexts(out, row.counts[index]); },
          [](VniFigure const& row) { return nlohmann::json(row.counts[index]); }};
}

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
std::span<Field<StateFigure> const> StateFigure::fields() { return figureFields; }
std::span<Field<SourceFigure> const> SourceFigure::fields() { return sourceFields; }
std::span<Field<FdbFigure> const> FdbFigure::fields() { return fdbFields; }
std::span<Field<TableFigure> const> TableFigure::fields() { return tableFields; }
std::span<Field<TableFigure> const> TableFigure::columns() { return tableColumns; }

std::span<Field<VniFigure> const> VniFigure::fields() {
  static std::vector<std::string> const names = [] {
    std::vector<std::string> labels;
    for (TablePlace const& place : vniTables()) labels.push_back(place.label());
    return labels;
  }();
  static std::vector<Field<VniFigure>> const fields = [] {
    constexpr auto vniOf = [](VniFigure const& row) { return row.vni; };
    std::vector<Field<VniFigure>> result = {field<VniFigure, vniOf, asNumber>("VNI", "vni", true)};
    auto const all = [&]<std::size_t... index>(std::index_sequence<index...>) {
      ((index < names.size() ? result.push_back(countField<index>(names)) : void()), ...);
    };
    all(std::make_index_sequence<2 * std::tuple_size_v<TableRows>>());
    return result;
  }();
  return fields;
}

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

std::vector<std::string> SourceFigure::notes() const {
  std::vector<std::string> lines;
  if (givenUp) lines.push_back("given up: what it told is withdrawn until it comes back");
  for (auto const& [reason, count] : refused)
    lines.push_back("refused: " + std::to_string(count) + " x " + reason);
  for (auto const& [reason, count] : leftOut)
    lines.push_back("left out: " + std::to_string(count) + " x " + reason);
  if (!lastError.empty()) lines.push_back("last error: " + lastError);
  return lines;
}

nlohmann::ordered_json sourcesOf(Site const& site, std::string_view subject) {
  auto result = nlohmann::ordered_json::array();
  auto const add = [&](ControlSide side) {
    nlohmann::ordered_json const state = controlRequest(site, "state", side);
    for (auto const& each : state.value("sources", nlohmann::ordered_json::array())) {
      std::string const kind = each.at("kind");
      if (subject == "sources" || (subject == "switches" && kind == "switch") || subject == kind)
        result.emplace_back(each)["process"] = side == ControlSide::evpn ? "evpn" : "agent";
    }
  };
  bool runsEvpn = true;
  try {
    add(ControlSide::evpn);
  } catch (std::runtime_error const&) {
    runsEvpn = false;
  }
  try {
    add(ControlSide::agent);
  } catch (std::runtime_error const&) {
    if (!runsEvpn) throw;
  }
  return result;
}

std::vector<SourceFigure> sourceFiguresOf(nlohmann::ordered_json const& sources) {
  std::vector<SourceFigure> figures;
  using Counts = std::map<std::string, std::uint64_t>;
  for (auto const& each : sources) {
    figures.push_back({each.at("name"), each.at("process"), each.at("kind"), each.at("endpoint"),
                       each.at("state"), each.at("since"), each.at("entries"), each.value("lastError", ""),
                       each.value("refused", Counts()), each.value("givenUp", false),
                       each.value("leftOut", each.value("unusable", Counts()))});
  }
  return figures;
}

std::vector<FdbFigure> fdbOf(Site const& site, RowFilter const& filter) {
  std::vector<FdbFigure> figures;
  for (auto const& each : controlRequest(site, "fdb")) {
    FdbFigure figure{Vxlan::Vni(each.at("vni").get<std::uint32_t>()),
                     Wirix::EthAddr(each.at("mac").get<std::string>()),
                     Wirix::IpAddr(each.at("vtep").get<std::string>()),
                     each.at("seq"),
                     each.at("from"),
                     each.at("why")};
    if (filter.takesVni(figure.vni) && filter.takesMac(figure.mac) && filter.takesVtep(figure.vtep))
      figures.push_back(std::move(figure));
  }
  std::sort(figures.begin(), figures.end(), [](FdbFigure const& left, FdbFigure const& right) {
    return std::tuple(left.vni, left.mac) < std::tuple(right.vni, right.mac);
  });
  return figures;
}

EvpnStatus evpnStatusOf(Site const& site, RowFilter const& filter) {
  bool const isOfOne = filter.vnis.size() == 1;
  nlohmann::json const answer =
      controlRequest(site, isOfOne ? "evpn-status " + Orb::toText(filter.vnis.front()) : "evpn-status");
  return filtered(evpnStatusOf(answer), filter);
}

std::vector<VniFigure> summaryOf(Site const& site, RowFilter const& filter) {
  std::vector<TablePlace> const places = vniTables();
  std::map<Vxlan::Vni, VniFigure> figures;
  for (std::size_t i = 0; i < places.size(); ++i) {
    withReader(site, places[i], [&]<class Row>(Brine::Table<Row> const& table) {
      if constexpr (HasVni<Row>) {
        for (auto walk = table.walk(); Row const* const row = walk.next();) {
          if (!matches(filter, *row)) continue;
          Vxlan::Vni const vni = TableKind<Row>::vni(*row);
          VniFigure& figure = figures.try_emplace(vni, VniFigure{vni, {}}).first->second;
          figure.counts.resize(places.size());
          ++figure.counts[i];
        }
      }
    });
  }
  std::vector<VniFigure> result;
  for (auto& [vni, figure] : figures) result.push_back(std::move(figure));
  return result;
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
