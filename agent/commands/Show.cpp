#include "agent/commands/Show.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <set>

#include "agent/commands/Commands.h"
#include "agent/site/Control.h"
#include "agent/tables/Tables.h"
#include "agent/views/Json.h"
#include "agent/views/ShowFigures.h"

namespace Agent {

namespace {

using QorEvpn::FloodEntry;
using QorEvpn::Host;

/// Written to standard error, so that a program that reads the output does not get it.
void note(std::string const& text) { std::cerr << "qorevpn: " << text << '\n'; }

class Show {
 public:
  Show(ShowOptions const& options, Output& out)
      : options_(options), site_(options.dir), out_(out), isAll_(wants("all")) {}

  int run() {
    std::set<std::string> shown;
    for (std::string const& subject : isAll_ ? allSubjects() : options_.subjects) {
      if (!shown.insert(subject).second) continue;
      try {
        show(subject);
      } catch (UsageError const&) {
        throw;
      } catch (std::runtime_error const& error) {
        // `show all` shows every part that can be shown.
        if (!isAll_) throw;
        note(error.what());
      }
    }
    if (options_.json) out_.write(isFirst_ ? "{}\n" : "}\n");
    out_.flush();
    return status_;
  }

 private:
  bool wants(std::string_view subject) const {
    return std::find(options_.subjects.begin(), options_.subjects.end(), subject) != options_.subjects.end();
  }

  std::vector<std::string> allSubjects() const {
    std::vector<std::string> subjects = {"agent", "sources", "tables", "summary"};
    for (TablePlace const& place : allTables()) {
      if (place.learned == options_.learned) subjects.emplace_back(place.word);
    }
    subjects.insert(subjects.end(), {"evpn-status", "counters"});
    return subjects;
  }

  void show(std::string const& subject) {
    if (subject == "evpn-status") {
      evpnStatus();
    } else if (subject == "counters") {
      figures("counters", countersOf(site_));
    } else if (subject == "agent") {
      agent();
    } else if (subject == "sources" || subject == "switches" || subject == "speaker") {
      sources(subject);
    } else if (subject == "fdb") {
      fdb();
    } else if (subject == "tables") {
      tables();
    } else if (subject == "summary") {
      list("summary", "rows by VNI", VniFigure::fields(), summaryOf(site_, options_.filter));
    } else {
      table(placeOf(subject, options_.learned, isAll_ ? RowFilter() : options_.filter));
    }
  }

  /// Begins a part: its member in JSON, its title where people read more than one.
  void title(std::string_view member, std::string_view words, bool isOneOfMany = false) {
    if (options_.json) {
      out_.write(isFirst_ ? "{" : ",\n", "\"", member, "\":");
    } else if (!options_.text && (isAll_ || isOneOfMany || options_.subjects.size() > 1)) {
      Colours const colours(out_.hasColours());
      out_.write(isFirst_ ? "" : "\n", colours.heading, words, colours.reset, "\n");
    }
    isFirst_ = false;
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
    if (!isAll_ && (options_.learned || options_.text || !options_.filter.isEmpty())) {
      throw UsageError(subject + ": only rows have --learned, filters and a text form");
    }
  }

  void agent() {
    requireRows("agent");
    nlohmann::ordered_json state = stateOf(site_);
    if (state.at("feed").at("name") == "") state.erase("feed");  // there is none
    title("agent", "agent");
    if (options_.json) {
      out_.write(state.dump());
    } else {
      state.erase("sources");  // a part of their own
      auto const duplicates =
          std::exchange(state["duplicates"], state.value("duplicates", nlohmann::ordered_json()).size());
      std::vector<StateFigure> const all = figuresOf(state);
      writeColumns(out_, StateFigure::fields(), std::span(all));
      for (auto const& each : duplicates) {
        auto const text = [&](auto const& value) { return value.template get<std::string>(); };
        out_.write("  duplicate: vni ", each.at("vni").get<std::uint32_t>(), "  mac ", text(each.at("mac")),
                   "  between ", text(each.at("vteps").at(0)), " and ", text(each.at("vteps").at(1)),
                   each.at("frozen").get<bool>() ? "  frozen" : "", "\n");
      }
    }
  }

  /// Where events come from: all of them, or the switches, or the speaker.
  void sources(std::string const& subject) {
    requireRows(subject);
    nlohmann::ordered_json const said = sourcesOf(site_, subject);
    if (options_.json) {
      title(subject, subject);
      out_.write(toLine(said));
      return;
    }
    std::vector<SourceFigure> const all = sourceFiguresOf(said);
    if (all.empty()) {
      title(subject, subject);
      return out_.write("none\n");
    }
    list(subject, subject, SourceFigure::fields(), all);
    for (SourceFigure const& source : all) {
      for (std::string const& line : source.notes())
        out_.write("  ", source.name, " (", source.process, "): ", line, "\n");
    }
  }

  void fdb() {
    list("fdb", "what the controller knows, and why", FdbFigure::fields(), fdbOf(site_, options_.filter));
  }

  void tables() {
    requireRows("tables");
    std::vector<TableFigure> const all = tablesOf(site_);
    if (options_.json) return list("tables", "", TableFigure::fields(), all);
    list("tables", "tables", TableFigure::columns(), all);
    for (TableFigure const& table : all) {
      if (!table.note.empty()) out_.write("  ", table.table, ": ", table.note, "\n");
    }
  }

  template <class Figure>
  void list(std::string_view member, std::string_view words, std::span<Field<Figure> const> fields,
            std::vector<Figure> const& all) {
    title(member, words);
    if (options_.json) {
      writeArray(out_, std::span(all), [&](Figure const& row) { return toJson(fields, row); });
    } else {
      writeColumns(out_, fields, std::span(all));
    }
  }

  template <class Figure>
  void figures(std::string const& member, std::vector<Figure> const& all) {
    requireRows(member);
    list(member, member, Figure::fields(), all);
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
    EvpnStatus const status = options_.evpnStatus ? filtered(*options_.evpnStatus, options_.filter)
                                                  : evpnStatusOf(site_, options_.filter);
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
    title("", "status from EVPN, hosts", true);
    rows(std::span<Host const>(hosts));
    title("", "status from EVPN, floods", true);
    rows(std::span<FloodEntry const>(floods));
  }

  ShowOptions const& options_;
  Site site_;
  Output& out_;
  bool isAll_;
  bool isFirst_ = true;
  int status_ = exitOk;
};

}  // namespace

int show(ShowOptions const& options, Output& out) { return Show(options, out).run(); }

void addShowCommand(CLI::App& app, Run& run) {
  auto const options = std::make_shared<ShowOptions>();
  CLI::App* const command =
      app.add_subcommand("show", "Show rows, status, counters or the state of the tables");
  std::vector<std::string> subjects = tableWords();
  subjects.insert(subjects.end(), {"summary", "tables", "agent", "sources", "switches", "speaker", "fdb",
                                   "evpn-status", "counters", "all"});
  command
      ->add_option("what", options->subjects,
                   "hosts, floods, bridge-ids, state: rows of a table\n"
                   "summary: how many rows, by VNI\n"
                   "tables: the state of each table\n"
                   "agent, sources, switches, speaker, fdb, evpn-status, counters:\n"
                   "what the running agent says\n"
                   "all: everything that can be shown")
      ->required()
      ->type_name("WORD")
      ->check([subjects](std::string const& word) {
        bool const isKnown = std::find(subjects.begin(), subjects.end(), word) != subjects.end();
        return isKnown ? std::string() : "there is no '" + word + "' to show";
      });
  addViewOptions(*command, *options);
  addRowOptions(*command, *options);
  command->footer(
      "Tables can be shown while no agent runs: they outlive it.\n\n"
      "Examples:\n"
      "  qorevpn show hosts                                 what the agent exports\n"
      "  qorevpn show hosts --vni 5000 --vtep 10.99.0.11    of it, one VNI behind one VTEP\n"
      "  qorevpn show hosts --learned --mac 02:a0:00:13:88:01\n"
      "  qorevpn show tables                                rows, state, writer of each table\n"
      "  qorevpn show hosts --vni 5000,5001 --vtep 10.99.0.0/24\n"
      "  qorevpn show summary                               how many rows each VNI has\n"
      "  qorevpn show agent sources                         is the integration on, are all sources there\n"
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
