#include <unistd.h>

#include <CLI/CLI.hpp>

#include "Orb/Text.h"
#include "Wirix/IpAddr.h"
#include "agent/base/MacNotation.h"
#include "agent/commands/Commands.h"
#include "agent/site/Control.h"
#include "agent/site/Site.h"
#include "agent/views/Format.h"

namespace Agent {

namespace {

struct WhyOptions {
  std::string dir{Site::defaultDir};
  std::string subject;
  std::optional<std::uint32_t> vni;
  bool json = false;
};

/// A MAC or a VTEP as the agent reads it. Raises UsageError.
std::string subjectText(std::string const& subject) {
  try {
    return Orb::toText(Orb::parseWhole<Wirix::IpAddr>(subject));
  } catch (Orb::Error const&) {
  }
  try {
    return Orb::toText(macFromPeople(subject));
  } catch (Orb::Error const&) {
    throw UsageError("why: '" + subject + "' is neither a MAC address nor the IPv4 address of a VTEP");
  }
}

/// "  controller  vtep 10.99.0.11  seq 1  preference 16  from leaf1 (heard last)", or what there is of it.
void writeSide(Output& out, std::string_view title, nlohmann::ordered_json const& answer, char const* key) {
  auto const side = answer.find(key);
  out.write("  ", title);
  if (side == answer.end() || *side == false) {
    out.write("-\n");
    return;
  }
  if (side->is_boolean()) {
    out.write("yes\n");
    return;
  }
  std::string_view separator;
  for (auto const& [name, value] : side->items()) {
    out.write(separator, name, " ", value.is_string() ? value.get<std::string>() : value.dump());
    separator = "  ";
  }
  out.write("\n");
}

int runWhy(WhyOptions const& options) {
  std::string request = "why " + subjectText(options.subject);
  if (options.vni) request += " " + std::to_string(*options.vni);
  nlohmann::ordered_json const answers = controlRequest(Site(options.dir), request);
  Output out(STDOUT_FILENO);
  if (options.json) {
    out.write(answers.dump(2), "\n");
  } else if (answers.empty()) {
    out.write("No VNI has ", options.subject, ": neither the controller nor EVPN knows it.\n");
  }
  for (auto const& answer : options.json ? nlohmann::ordered_json::array() : answers) {
    out.write("vni ", answer.at("vni").get<std::uint32_t>(), "  ", options.subject, ": ",
              answer.at("text").get<std::string>(), "\n");
    writeSide(out, "controller  ", answer, "controller");
    writeSide(out, "EVPN        ", answer, "evpn");
    writeSide(out, "exported    ", answer, "row");
    if (!answer.at("asItShouldBe").get<bool>()) out.write("  The table is not as this rule wants it.\n");
  }
  out.flush();
  return exitOk;
}

}  // namespace

void addWhyCommand(CLI::App& app, Run& run) {
  auto const options = std::make_shared<WhyOptions>();
  CLI::App* const command = app.add_subcommand("why", "Say why a MAC or a VTEP is exported, or is not");
  command->add_option("--dir", options->dir, "The site's directory")->capture_default_str();
  command->add_option("SUBJECT", options->subject, "A MAC address, or a VTEP of a flood list")->required();
  command->add_option("VNI", options->vni, "The VNI; of a MAC, every VNI that knows it if none is named")
      ->check(CLI::Range(0U, 16777215U));
  command->add_flag("-j,--json", options->json, "For programs");
  command->footer(
      "Asks the running agent what both sides know, which rule decided, and whether the table is so.\n\n"
      "Examples:\n"
      "  qorevpn why 02:00:00:00:00:01 5000\n"
      "  qorevpn why 0200.0000.0001            in every VNI\n"
      "  qorevpn why 10.99.0.11 5000           a VTEP of the VNI's flood list");
  command->callback([options, &run] { run = [options] { return runWhy(*options); }; });
}

}  // namespace Agent
