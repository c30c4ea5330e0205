#include <unistd.h>

#include <CLI/CLI.hpp>
#include <ctime>
#include <iostream>
#include <set>

#include "Orb/Text.h"
#include "VxlanController/QorEvpnBrine.h"
#include "Wirix/IpAddr.h"
#include "agent/base/MacNotation.h"
#include "agent/base/Ranges.h"
#include "agent/commands/Commands.h"
#include "agent/commands/ReplayOptions.h"
#include "agent/site/Control.h"
#include "agent/site/Site.h"
#include "agent/tables/Tables.h"
#include "agent/views/Format.h"

namespace Agent {

namespace {

using Json = nlohmann::ordered_json;

struct WhyOptions {
  std::string dir{Site::defaultDir};
  std::string subject;
  std::optional<std::uint32_t> vni;
  ReplayOptions recording;
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

/// "12 s", "3 min", "5 h", "9 days"; of a recording, at its end.
std::string ageText(std::uint64_t since) {
  std::uint64_t const now = nowInSeconds();
  std::uint64_t const age = now > since ? now - since : 0;
  if (age < 120) return std::to_string(age) + " s";
  if (age < 7200) return std::to_string(age / 60) + " min";
  if (age < 48 * 3600) return std::to_string(age / 3600) + " h";
  return std::to_string(age / 86400) + " days";
}

/// "vtep 10.99.0.11  seq 1  preference 16  for 12 s", or what there is of it.
std::string entryText(Json const& entry) {
  std::string text;
  for (auto const& [name, value] : entry.items()) {
    if (name == "name") continue;
    std::string word = value.is_string() ? value.get<std::string>() : value.is_array() ? "" : value.dump();
    for (Json const& each : value.is_array() ? value : Json::array())
      Orb::appendTexts(word, word.empty() ? "" : ",", each.get_ref<std::string const&>());
    Orb::appendTexts(text, text.empty() ? "" : "  ", name == "since" ? "for" : name, " ",
                     name == "since" ? ageText(value.get<std::uint64_t>()) : word);
  }
  return text;
}

class Answer {
 public:
  Answer(Output& out, Json const& answer) : out_(out), answer_(answer) {}

  void write(std::string const& subject) {
    out_.write("vni ", answer_.at("vni").get<std::uint32_t>(), "  ", subject, ": ",
               answer_.at("text").get_ref<std::string const&>(), "\n");
    side("controller", "controller");
    sources(answer_);
    side("EVPN", "evpn");
    Json const evpnSide = answer_.value("evpnSide", Json::object());
    Json const import = answer_.value("import", Json::object());
    std::string const rule = import.value("rule", "imported");
    // That EVPN has no row says something where nobody has one, or where its side has an entry all the same.
    bool const isPlain =
        rule == "not-learned" && answer_.contains("controller") && !evpnSide.value("sources", Json()).size();
    if (rule != "imported" && !isPlain) line("", import.at("text"));
    sources(evpnSide);
    if (evpnSide.contains("error")) line("", evpnSide.at("error").get<std::string>());
    if (auto const& fields = answer_.at("differences"); !fields.empty()) {
      std::string text = "the two differ in";
      for (Json const& field : fields) text.append(" ").append(field.get_ref<std::string const&>());
      line("", text);
    }
    side("exported", "row");
    if (!answer_.at("asItShouldBe").get<bool>()) line("", "The table is not as this rule wants it.");
    line("bridge id", answer_.at("bridgeId").get<bool>()
                          ? "listed"
                          : "not listed: " + answer_.at("bridgeIdText").get<std::string>());
    if (auto const route = evpnSide.find("route"); route != evpnSide.end()) line("route", routeText(*route));
    for (Json const& each : answer_.value("switches", Json::array())) {
      std::string text;
      for (Json const& row : each.at("remote")) {
        text += text.empty() ? "remote row" : ", and";
        for (Json const& vtep : row) text.append(" ").append(vtep.get_ref<std::string const&>());
      }
      line(each.at("name"), text.empty() ? "no remote row" : text);
    }
  }

 private:
  void line(std::string title, std::string const& text) {
    title.resize(std::max<std::size_t>(title.size(), 10), ' ');
    out_.write("  ", title, "  ", text, "\n");
  }
  void side(std::string const& title, char const* key) {
    auto const found = answer_.find(key);
    bool const isThere = found != answer_.end() && *found != false;
    line(title, !isThere ? "-" : found->is_boolean() ? "yes" : entryText(*found));
  }
  void sources(Json const& of) {
    for (Json const& each : of.value("sources", Json::array()))
      line("", each.at("name").get<std::string>() + ": " + entryText(each));
  }
  static std::string routeText(Json const& route) {
    Json const wanted = route.value("wanted", Json()), announced = route.value("announced", Json());
    std::string text = announced.is_null() ? "none announced" : "announced  " + entryText(announced);
    if (route.value("waiting", false)) return text + "  (a change is on its way)";
    if (wanted != announced)
      text += wanted.is_null() ? "  (to be withdrawn)" : "  (to be " + entryText(wanted) + ")";
    return text;
  }

  Output& out_;
  Json const& answer_;
};

/// Adds the EVPN side's answer, if it runs in a process of its own; or why there is none.
void addEvpnSide(Json& answer, Site const& site, std::string const& subject) {
  if (answer.contains("evpnSide")) return;
  try {
    std::string const vni = std::to_string(answer.at("vni").get<std::uint32_t>());
    answer["evpnSide"] = controlRequest(site, "why " + subject + ' ' + vni, ControlSide::evpn);
  } catch (NotRunning const&) {
    // The rest of the answer is whole without it.
  } catch (std::runtime_error const& error) {
    answer["evpnSide"] = {{"error", error.what()}};
  }
}

/// Asks about each VNI that is not answered yet and in which the EVPN side has such a row, which the agent
/// does not read while the integration is off, or refused one.
void addLearned(Json& answers, Site const& site, std::string const& subject) {
  std::set<std::uint32_t> unanswered;
  try {
    unanswered = controlRequest(site, "why " + subject, ControlSide::evpn).get<std::set<std::uint32_t>>();
  } catch (NotRunning const&) {
    // Then nothing is refused.
  } catch (std::runtime_error const& error) {
    std::cerr << "qorevpn: " << error.what() << '\n';
  }
  if (controlRequest(site, "state").at("integration") == false) {
    auto const mac = Orb::parseWhole<Wirix::EthAddr>(subject);
    Brine::Table<QorEvpn::Host> table;
    table.mount({.directory = site.learned(), .name = std::string(TableKind<QorEvpn::Host>::file)});
    for (auto walk = table.walk(); QorEvpn::Host const* const row = walk.next();)
      if (row->key().macAddr() == mac) unanswered.insert(row->key().vni().value());
  }
  for (Json const& answer : answers) unanswered.erase(answer.at("vni").get<std::uint32_t>());
  for (std::uint32_t const vni : unanswered)
    answers.push_back(controlRequest(site, "why " + subject + ' ' + std::to_string(vni)).at(0));
}

int runWhy(WhyOptions const& options) {
  Site const site(options.dir);
  std::string const subject = subjectText(options.subject);
  std::string const question = options.vni ? subject + ' ' + std::to_string(*options.vni) : subject;
  std::optional<Replay> replay;  // whose time counts for ages
  bool isWhole = true;
  Json answers;
  if (options.recording.files.empty()) {
    answers = controlRequest(site, "why " + question);
    if (!options.vni && subject.find(':') != std::string::npos) addLearned(answers, site, subject);
    for (Json& answer : answers) addEvpnSide(answer, site, subject);
  } else {
    isWhole = options.recording.run(replay.emplace(), [](double) { return true; });
    answers = replay->why(question);
  }
  Output out(STDOUT_FILENO);
  if (options.json) {
    out.write(answers.dump(2), "\n");
  } else if (answers.empty()) {
    out.write("No VNI has ", options.subject, ": neither the controller nor EVPN knows it.\n");
  }
  for (Json const& answer : options.json ? Json::array() : answers)
    Answer(out, answer).write(options.subject);
  out.flush();
  return isWhole ? exitOk : exitFailed;
}

}  // namespace

void addWhyCommand(CLI::App& app, Run& run) {
  auto const options = std::make_shared<WhyOptions>();
  CLI::App* const command = app.add_subcommand("why", "Say why a MAC or a VTEP is exported, or is not");
  command->add_option("--dir", options->dir, "The site's directory")->capture_default_str();
  command->add_option("SUBJECT", options->subject, "A MAC address, or a VTEP of a flood list")->required();
  command->add_option("VNI", options->vni, "The VNI; of a MAC, every VNI that knows it if none is named")
      ->check(numberFrom("0", "16777215"));
  command
      ->add_option("--replay", options->recording.files,
                   "Ask the recording of an agent instead; its files, in any order; give it last")
      ->type_name("FILE");
  options->recording.addTo(*command);
  command->add_flag("-j,--json", options->json, "For programs");
  command->footer(
      "Asks the running agent what both sides know, which rule decided, and whether the table is so.\n\n"
      "Examples:\n"
      "  qorevpn why 02:00:00:00:00:01 5000\n"
      "  qorevpn why 0200.0000.0001            in every VNI\n"
      "  qorevpn why 10.99.0.11 5000           a VTEP of the VNI's flood list\n"
      "  qorevpn why 0200.0000.0001 --until 2026-11-22T03:12:05Z --replay agent.rec*     what was then");
  command->callback([options, &run] { run = [options] { return runWhy(*options); }; });
}

}  // namespace Agent
