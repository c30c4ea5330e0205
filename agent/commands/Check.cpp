#include <CLI/CLI.hpp>

#include "agent/commands/Commands.h"
#include "agent/commands/FormatOptions.h"
#include "agent/tables/Tables.h"

namespace Agent {

namespace {

struct CheckOptions : ViewOptions {
  std::vector<std::string> subjects;
  bool all = false;
};

struct Finding {
  TablePlace place;
  Brine::MountStatus status;
  std::uint64_t rows;
  std::vector<Brine::Violation> violations;
  std::string obstacle;  ///< Why it could not be checked.

  bool isSound() const { return violations.empty() && obstacle.empty(); }
};

/// Mounts and checks one table. A damaged one that cannot even be mounted violates the invariant "mount".
Finding checkTable(Site const& site, TablePlace const& place) {
  Finding finding{place, {}, 0, {}, {}};
  withReader(site, place, [&](auto const& table) {
    finding.status = table.mountStatus();
    if (Brine::isReadable(finding.status)) {
      finding.violations = table.check();
      finding.rows = table.statistics().rows;
    } else if (finding.status == Brine::MountStatus::corrupt ||
               finding.status == Brine::MountStatus::incompatible) {
      finding.violations.push_back({"mount", explain(table, place)});
    } else if (finding.status != Brine::MountStatus::noTable) {
      finding.obstacle = explain(table, place);
    }
  });
  return finding;
}

void writePeople(Output& out, Finding const& finding) {
  Colours const colours(out.hasColours());
  out.write(finding.place.label(), ": ");
  if (finding.status == Brine::MountStatus::noTable) {
    out.write("no table\n");
  } else if (!finding.obstacle.empty()) {
    out.write("not checked: ", finding.obstacle, "\n");
  } else if (finding.isSound()) {
    out.write(colours.added, "sound", colours.reset, ", ", countText(finding.rows, "row"), "\n");
  } else {
    out.write(colours.removed, "NOT SOUND", colours.reset, "\n");
  }
  for (Brine::Violation const& violation : finding.violations) {
    out.write("  ", violation.invariant, ": ", violation.detail, "\n");
  }
}

nlohmann::ordered_json toJson(Finding const& finding) {
  nlohmann::ordered_json object = {{"table", finding.place.label()},
                                   {"status", Brine::toText(finding.status)},
                                   {"rows", finding.rows},
                                   {"violations", nlohmann::ordered_json::array()}};
  if (!finding.obstacle.empty()) object["notChecked"] = finding.obstacle;
  for (Brine::Violation const& violation : finding.violations) {
    object["violations"].push_back({{"invariant", violation.invariant}, {"detail", violation.detail}});
  }
  return object;
}

int check(CheckOptions const& options) {
  std::vector<TablePlace> places;
  for (std::string const& subject : options.subjects) places.push_back(placeOf(subject, options.learned, {}));
  bool const all = places.empty();
  if (all) places = allTables();

  std::vector<Finding> findings;
  bool isSound = true;
  bool isThere = !all;
  for (TablePlace const& place : places) {
    Finding const& finding = findings.emplace_back(checkTable(Site(options.dir), place));
    bool const isMissing = finding.status == Brine::MountStatus::noTable;
    isSound = isSound && finding.isSound() && (all || !isMissing);
    isThere = isThere || !isMissing;
  }

  try {
    Output out(STDOUT_FILENO);
    if (options.json) {
      writeArray(out, std::span<Finding const>(findings), toJson);
      out.write("\n");
    } else {
      for (Finding const& finding : findings) writePeople(out, finding);
    }
    out.flush();
  } catch (OutputClosed const&) {
    // The exit status tells the result all the same.
  }
  if (!isThere) throw std::runtime_error("there is no table in " + options.dir);
  return isSound ? exitOk : exitFailed;
}

}  // namespace

void addCheckCommand(CLI::App& app, Run& run) {
  auto const options = std::make_shared<CheckOptions>();
  CLI::App* const command = app.add_subcommand("check", "Verify every invariant of the tables");
  auto* const what = command
                         ->add_option("what", options->subjects,
                                      "hosts, floods, bridge-ids, state; all tables if none is named")
                         ->check(CLI::IsMember(tableWords()));
  command->add_flag("--all", options->all, "All tables of both sides, as if none were named")->excludes(what);
  addViewOptions(*command, *options);
  command->add_flag("--learned", options->learned, "The tables that the EVPN side writes")->needs(what);
  command->footer(
      "Reads only, also while the tables are in use. Exit status 1, and the invariant's name, where one does "
      "not hold,\n"
      "or where a table that was named is missing.\n\n"
      "Examples:\n"
      "  qorevpn check --all\n"
      "  qorevpn check hosts floods --learned --json");
  command->callback([options, &run] { run = [options] { return check(*options); }; });
}

}  // namespace Agent
