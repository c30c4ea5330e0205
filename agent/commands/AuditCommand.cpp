#include <unistd.h>

#include <CLI/CLI.hpp>
#include <utility>

#include "agent/audit/Audit.h"
#include "agent/base/Ranges.h"
#include "agent/commands/Commands.h"

namespace Agent {

namespace {

struct AuditOptions {
  std::string dir{Site::defaultDir};
  double pause = 1;
  bool json = false;
};

int runAudit(AuditOptions const& options) {
  auto const pause = std::chrono::duration<double>(options.pause);
  auto const [findings, notLookedAt] =
      auditSite(Site(options.dir), std::chrono::duration_cast<std::chrono::milliseconds>(pause));
  Output out(STDOUT_FILENO);
  try {
    if (options.json) {
      std::vector<nlohmann::ordered_json> all;
      for (Finding const& each : findings) all.push_back(toJson(each));
      for (auto const& [what, why] : notLookedAt) all.push_back({{"notLookedAt", what}, {"reason", why}});
      writeArray(out, std::span(std::as_const(all)), [](nlohmann::ordered_json const& each) { return each; });
      out.write("\n");
    } else {
      for (Finding const& each : findings) out.write(each, "\n");
      for (auto const& [what, why] : notLookedAt) out.write("not looked at: ", what, " (", why, ")\n");
      std::string_view const rows = notLookedAt.empty() ? "Every row" : "Every row that was looked at";
      out.write(findings.empty() ? std::string(rows) + " is as it should be."
                                 : countText(findings.size(), "row") + " not as they should be.",
                "\n");
    }
    out.flush();
  } catch (OutputClosed const&) {
    // The exit status tells the result all the same.
  }
  return findings.empty() ? exitOk : exitFailed;
}

}  // namespace

void addAuditCommand(CLI::App& app, Run& run) {
  auto const options = std::make_shared<AuditOptions>();
  CLI::App* const command =
      app.add_subcommand("audit", "Compare every row of a site with what should be there");
  command->add_option("--dir", options->dir, "The site's directory")->capture_default_str();
  command->add_option("--pause", options->pause, "Seconds before the second look at what differs")
      ->check(numberFrom("0", "3600"))
      ->capture_default_str();
  command->add_flag("-j,--json", options->json, "For programs");
  command->footer(
      "Asks the running agent what the controller and EVPN know, works out from that which rows should be\n"
      "there, and reads the tables. Names each row that is missing, orphan (nothing wants it), stale (other\n"
      "values), echoed (it came from the other side) or duplicate. While rows change, a difference counts "
      "only\n"
      "if it is still there in a second look. Says what it could not look at, such as a switch without a\n"
      "connection. Exit status 0 if every row that it looked at is right, 1 if not.\n\n"
      "Examples:\n"
      "  qorevpn audit\n"
      "  qorevpn audit --pause 5 --json | jq -r '.[].fault // empty' | sort | uniq -c");
  command->callback([options, &run] { run = [options] { return runAudit(*options); }; });
}

}  // namespace Agent
