#include "agent/commands/Show.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <set>

#include "agent/commands/Commands.h"
#include "agent/site/Control.h"
#include "agent/tables/Tables.h"
#include "agent/views/ShowFigures.h"

namespace Agent {

namespace {

using QorEvpn::FloodEntry;
using QorEvpn::Host;

/// For the person at the terminal, not for the program behind the pipe.
void note(std::string const& text) { std::cerr << "qorevpn: " << text << '\n'; }

class Show {
 public:
  Show(ShowOptions const& options, Output& out) : options_(options), site_(options.dir), out_(out) {}

  int run() {
    std::string_view separator = options_.json ? "{" : "";
    std::set<std::string> shown;
    for (std::string const& subject : options_.subjects) {
      if (!shown.insert(subject).second) continue;
      out_.write(separator);
      separator = options_.json ? ",\n" : "\n";
      show(subject);
    }
    if (options_.json) out_.write("}\n");
    out_.flush();
    return status_;
  }

 private:
  void show(std::string const& subject) {
    if (subject == "evpn-status") {
      evpnStatus();
    } else if (subject == "counters") {
      figures("counters", countersOf(site_));
    } else if (subject == "agent") {
      agent();
    } else if (subject == "tables") {
      figures("tables", tablesOf(site_));
    } else {
      table(placeOf(subject, options_.learned, options_.filter));
    }
  }

  /// What a subject is called: a member in JSON, a title where people asked for more than one.
  void title(std::string_view member, std::string_view words) {
    if (options_.json) {
      out_.write("\"", member, "\":");
    } else if (options_.subjects.size() > 1 && !options_.text) {
      Colours const colours(out_.hasColours());
      out_.write(colours.faint, words, colours.reset, "\n");
    }
  }

  template <class Row>
  void rows(std::span<Row const> rows) {
    switch (options_.form()) {
      case Form::people: writeColumns(out_, TableKind<Row>::fields(), rows); break;
      case Form::text:
        for (Row const& row : rows) out_.write(row, "\n");
        break;
      case Form::json: writeArray(out_, rows, [](Row const& row) { return rowJson(row); }); break;
    }
  }

  void requireRows(std::string const& subject) const {
    RowFilter const& filter = options_.filter;
    if (options_.learned || options_.text || !filter.isEmpty()) {
      throw UsageError(subject + ": only rows have --learned, filters and a text form");
    }
  }

  void agent() {
    requireRows("agent");
    nlohmann::ordered_json const state = stateOf(site_);
    title("agent", "agent");
    if (options_.json) {
      out_.write(state.dump());
    } else {
      std::vector<StateFigure> const all = figuresOf(state);
      writeColumns(out_, StateFigure::fields(), std::span(all));
    }
  }

  template <class Figures>
  void figures(std::string const& member, std::vector<Figures> const& all) {
    requireRows(member);
    title(member, member);
    std::span<Field<Figures> const> const fields = Figures::fields();
    if (options_.json) {
      writeArray(out_, std::span(all), [&](Figures const& row) { return toJson(fields, row); });
    } else {
      writeColumns(out_, fields, std::span(all));
    }
  }

  void table(TablePlace const& place) {
    withReader(site_, place, [&]<class Row>(Brine::Table<Row> const& table) {
      requireReadable(table, place);
      if (table.mountStatus() != Brine::MountStatus::mounted) note(explain(table, place));
      std::vector<Row> const found = readRows(table, place);
      title(place.member, place.label());
      rows(std::span<Row const>(found));
    });
  }

  /// All rows that are wanted, in the order in which they are shown. Damaged ones are noted and left out.
  template <class Row>
  std::vector<Row> readRows(Brine::Table<Row> const& table, TablePlace const& place) {
    std::vector<Row> found;
    auto cursor = table.walk();
    for (bool atEnd = false; !atEnd;) {
      try {
        Row const* const row = cursor.next();
        atEnd = row == nullptr;
        if (!atEnd && matches(options_.filter, *row)) found.push_back(*row);
      } catch (Brine::CorruptionError const& error) {
        note(place.label() + ": " + error.what() + "; `qorevpn check` says more");
        status_ = exitFailed;
      }
    }
    std::sort(found.begin(), found.end(), shownBefore<Row>);
    return found;
  }

  void evpnStatus() {
    EvpnStatus const status = evpnStatusOf(site_, options_.filter);
    if (options_.json) {
      title("evpnStatus", "");
      writeEvpnStatus(out_, status);
      return;
    }
    std::vector<Host> hosts;
    std::vector<FloodEntry> floods;
    for (auto const& [vni, rows] : status) {
      hosts.insert(hosts.end(), rows.hosts.begin(), rows.hosts.end());
      floods.insert(floods.end(), rows.floods.begin(), rows.floods.end());
    }
    title("", "status from EVPN, hosts");
    rows(std::span<Host const>(hosts));
    out_.write(options_.text ? "" : "\n");
    title("", "status from EVPN, floods");
    rows(std::span<FloodEntry const>(floods));
  }

  ShowOptions const& options_;
  Site site_;
  Output& out_;
  int status_ = exitOk;
};

}  // namespace

int show(ShowOptions const& options, Output& out) { return Show(options, out).run(); }

void addShowCommand(CLI::App& app, Run& run) {
  auto const options = std::make_shared<ShowOptions>();
  CLI::App* const command =
      app.add_subcommand("show", "Show rows, status, counters or the state of the tables");
  command
      ->add_option("what", options->subjects,
                   "hosts, floods, bridge-ids: rows of a table. tables: their state. "
                   "agent, counters, evpn-status: what the running agent says")
      ->required()
      ->check(CLI::IsMember({"hosts", "floods", "bridge-ids", "tables", "agent", "counters", "evpn-status"}));
  addViewOptions(*command, *options);
  addRowOptions(*command, *options);
  command->footer(
      "Tables can be shown while no agent runs: they outlive it.\n\n"
      "Examples:\n"
      "  qorevpn show hosts                                 what the agent exports\n"
      "  qorevpn show hosts --vni 5000 --vtep 10.99.0.11    of it, one VNI behind one VTEP\n"
      "  qorevpn show hosts --learned --mac 02:a0:00:13:88:01\n"
      "  qorevpn show tables                                rows, state, writer of each table\n"
      "  qorevpn show agent                                 is the integration on, how far is the feed\n"
      "  qorevpn show hosts floods bridge-ids evpn-status --json");
  command->callback([options, &run] {
    run = [options] {
      Output out(STDOUT_FILENO);
      try {
        return show(*options, out);
      } catch (OutputClosed const&) {
        return int{exitOk};
      }
    };
  });
}

}  // namespace Agent
