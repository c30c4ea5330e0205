#include "agent/metrics/Metrics.h"

#include <prometheus/text_serializer.h>

#include <map>

#include "Counter/Counter.h"
#include "agent/feed/Sources.h"
#include "agent/tables/Tables.h"

namespace Agent {

namespace {

using Json = nlohmann::ordered_json;
using prometheus::ClientMetric, prometheus::MetricFamily, prometheus::MetricType;
using Labels = std::vector<ClientMetric::Label>;

class Families {
 public:
  void gauge(std::string_view name, std::string_view help, double value, Labels labels = {}) {
    metric(MetricType::Gauge, name, help, std::move(labels)).gauge.value = value;
  }
  /// Its name ends in "_total".
  void counter(std::string_view name, std::string_view help, double value, Labels labels = {}) {
    metric(MetricType::Counter, name, help, std::move(labels)).counter.value = value;
  }
  std::string text() const { return prometheus::TextSerializer().Serialize(families_); }

 private:
  ClientMetric& metric(MetricType type, std::string_view name, std::string_view help, Labels labels) {
    std::string const full = "qorevpn_" + std::string(name);
    auto found =
        std::find_if(families_.begin(), families_.end(), [&](auto const& each) { return each.name == full; });
    if (found == families_.end())
      found = families_.insert(families_.end(), {full, std::string(help), type, {}});
    found->metric.emplace_back().label = std::move(labels);
    return found->metric.back();
  }

  std::vector<MetricFamily> families_;
};

double numberOf(Json const& value) {
  return value.is_boolean() ? value.get<bool>() : value.is_number() ? value.get<double>() : 0;
}

void addTables(Families& families, Site const& site) {
  for (TablePlace const& place : allTables()) {
    Labels const labels = {{"table", place.label()}};
    withReader(site, place, [&](auto& table) {
      bool const isReadable = Brine::isReadable(table.mountStatus());
      families.gauge("table_readable", "Whether the table is there and can be read", isReadable, labels);
      if (!isReadable) return;
      Brine::Statistics const now = table.statistics();
      auto const gauge = [&](std::string_view name, std::string_view help, auto value) {
        families.gauge(name, help, static_cast<double>(value), labels);
      };
      auto const counter = [&](std::string_view name, std::string_view help, auto value) {
        families.counter(name, help, static_cast<double>(value), labels);
      };
      gauge("table_rows", "Rows of the table", now.rows);
      gauge("table_capacity", "Rows for which it has room before it grows", now.capacity);
      gauge("table_file_bytes", "Size of its file", now.fileBytes);
      gauge("table_writer_alive", "Whether its writer runs", now.writerAlive);
      counter("table_changes_total", "Changes that its writer has published since it mounted the table",
              now.changes);
      counter("table_writers_total", "How often a writer has mounted it", now.incarnation);
      counter("table_dropped_rows_total", "Damaged rows that were dropped", now.dropped);
    });
  }
}

void addSources(Families& families, std::string_view side, Json const& sources) {
  for (Json const& source : sources) {
    Labels const labels = {
        {"process", std::string(side)}, {"source", source.at("name")}, {"kind", source.at("kind")}};
    auto const with = [&](std::string_view name, std::string_view value) {
      Labels more = labels;
      more.push_back({std::string(name), std::string(value)});
      return more;
    };
    for (SourceState const state :
         {SourceState::connecting, SourceState::syncing, SourceState::synced, SourceState::lost}) {
      families.gauge("source_state", "1 for the state that the source is in",
                     source.at("state") == toText(state), with("state", toText(state)));
    }
    families.gauge("source_since_seconds", "Unix time since which the source is in its state",
                   numberOf(source.at("since")), labels);
    families.gauge("source_entries", "Entries that the source holds", numberOf(source.at("entries")), labels);
    families.gauge("source_given_up", "Whether what it told was withdrawn", numberOf(source.at("givenUp")),
                   labels);
    for (auto const& [op, count] : source.at("events").items()) {
      families.counter("events_total", "Events that the source told", numberOf(count), with("op", op));
    }
    for (auto const& [reason, count] : source.at("refused").items()) {
      families.counter("refused_total", "Entries of it that cannot be", numberOf(count),
                       with("reason", reason));
    }
  }
}

void addAgent(Families& families, Json const& agent) {
  struct {
    char const* member;
    char const* name;
    char const* help;
    bool isCounter;
  } const figures[] = {
      {"enabled", "enabled", "Whether the controller's database is on", false},
      {"capability", "capability", "Whether EVPN is on", false},
      {"integration", "integration", "Whether the integration is on, which both of them make", false},
      {"held", "held", "Whether rows of an earlier run are kept for sources that are not synced", false},
      {"settled", "settled", "Whether every source is synced or given up, and the EVPN side is", false},
      {"servedVnis", "served_vnis", "VNIs that the controller serves", false},
      {"evpnVnis", "evpn_vnis", "VNIs of which EVPN has told anything", false},
      {"bridgeIds", "bridge_ids", "Bridge identifiers that are listed", false},
      {"resynchronisations", "resynchronisations_total",
       "Deliveries of learned rows that compared a whole table, for changes came faster than they were taken",
       true},
      {"moves", "moves_total", "MAC addresses that went from one site to another", true},
      {"duplicatesReported", "duplicates_total", "MAC addresses that were reported as duplicates", true},
  };
  for (auto const& figure : figures) {
    auto const found = agent.find(figure.member);
    if (found == agent.end()) continue;
    double const value = numberOf(*found);
    figure.isCounter ? families.counter(figure.name, figure.help, value)
                     : families.gauge(figure.name, figure.help, value);
  }
  auto const duplicates = agent.find("duplicates");
  if (duplicates != agent.end())
    families.gauge("duplicates", "MAC addresses that are duplicates now",
                   static_cast<double>(duplicates->size()));
  families.counter("bad_lines_total", "Lines of feeds that are no events",
                   numberOf(agent.at("feed").at("badLines")));
}

}  // namespace

nlohmann::ordered_json countersJson() {
  auto result = Json::array();
  for (Counter::Counter const* counter : Counter::counters()) {
    result.push_back({{"name", counter->name()}, {"owner", counter->owner()}, {"value", counter->value()}});
  }
  return result;
}

std::string metricsText(Site const& site, ProcessFigures const& processes) {
  Families families;
  auto const add = [&](std::string const& name, Json const& process, Json const& counters) {
    if (process.is_null()) return;
    families.gauge("up", "1 for each process that runs", 1, {{"process", name}});
    families.gauge("longest_turn_seconds", "Processor time of the longest turn of the process's loop",
                   numberOf(process.at("longestTurn")), {{"process", name}});
    if (name == "agent") addAgent(families, process);
    addSources(families, name, process.at("sources"));
    std::map<std::pair<std::string, std::string>, double> operations;  // of several sites in one process
    for (Json const& counter : counters)
      operations[{counter.at("owner"), counter.at("name")}] += numberOf(counter.at("value"));
    for (auto const& [each, value] : operations) {
      families.counter("operations_total", "Operations of the process on tables, by the counter's name",
                       value, {{"process", name}, {"table", each.first}, {"operation", each.second}});
    }
  };
  add("agent", processes.agent, processes.agentCounters);
  add("evpn", processes.evpn, processes.evpnCounters);
  addTables(families, site);
  return families.text();
}

}  // namespace Agent
