#include <CLI/CLI.hpp>
#include <algorithm>

#include "agent/base/Ranges.h"
#include "agent/base/ServiceManager.h"
#include "agent/base/TurnMeter.h"
#include "agent/commands/Commands.h"
#include "agent/commands/FeedOptions.h"
#include "agent/commands/LogOptions.h"
#include "agent/commands/MetricsOptions.h"
#include "agent/commands/RecordOptions.h"
#include "agent/evpn/EvpnSide.h"
#include "agent/explain/Why.h"
#include "agent/explain/WhyLearned.h"
#include "agent/feed/Feeds.h"
#include "agent/live/SpeakerSide.h"
#include "agent/live/SwitchSide.h"
#include "agent/metrics/Metrics.h"
#include "agent/metrics/MetricsServer.h"
#include "agent/site/Control.h"
#include "agent/site/HostedModule.h"
#include "agent/site/SiteWatch.h"
#include "agent/views/Format.h"
#include "agent/views/TraceOutput.h"

namespace Agent {

namespace {

struct AgentOptions {
  std::string dir{Site::defaultDir};
  FeedOptions feed;
  LogOptions log;
  SwitchOptions switches;
  Duplicates::Rule duplicates;
  unsigned duplicateSeconds = 180;
  SpeakerOptions speaker;
  RecordOptions record;
  MetricsOptions metrics;
  bool withEvpn = false;
  bool cleanup = false;
  bool repair = false;
  std::vector<std::string> traces;
  std::string traceFile;
};

/// A site's agent, from its start to its end.
class AgentProcess {
 public:
  AgentProcess(AgentOptions const& options, Loop& loop)
      : options_(options),
        loop_(loop),
        feeds_(loop_, options.feed.feeds(), options.feed.exitAtEnd),
        site_(Site::made(options.dir)),
        module_(loop_, site_, options.repair, options.feed.hold(), logs()),
        control_(loop_, site_.controlSocket(),
                 [this](std::string_view command, std::string_view argument) {
                   return answer(command, argument);
                 }),
        siteWatch_(loop_, site_, logger(LogLevel::warning)),
        serviceManager_(loop_) {
    Duplicates::Rule duplicates = options.duplicates;
    duplicates.window = std::chrono::seconds(options.duplicateSeconds);
    module_.duplicatesIs(duplicates);
    if (options.withEvpn || options.speaker.isGiven()) {
      evpn_.emplace(loop_, site_, options.repair, options.feed.hold(), logs());
    }
    if (options.record.isGiven()) record();
    if (options.speaker.isGiven()) speaker_.emplace(loop_, site_, options.speaker, evpn_->sources(), logs());
    if (options.switches.areGiven()) {
      switches_.emplace(loop_, options.switches, module_.sources(), module_.controller());
      // A switch cannot tell `enabled`; giving a switch enables the database.
      module_.enabledIs(true);
    }
    if (options.metrics.address) {
      metrics_.emplace(loop_, *options.metrics.address, [this] {
        return metricsText(site_, {state(), countersJson(), nullptr, nullptr});
      });
    }
    loop_.turnEndIs([this] {
      turns_.endTurn();
      module_.endTurn();
      if (evpn_) evpn_->learned().endTurn();
      if (recorder_) recorder_->endTurn();
      if (module_.sources().isSettled()) serviceManager_.ready();
    });
  }

  int run() {
    log("started, " + countText(module_.rowsFound(), "row") + " found" +
        (feeds_.names().empty() ? "" : "; feed: " + feeds_.names()));
    feeds_.start([this](Feed const& feed) { return sidesOf(feed); }, logs());
    loop_.run();
    serviceManager_.stopping();
    if (evpn_) {
      evpn_->sources().finish();
      evpn_->learned().endTurn();
      module_.deliver();
    }
    module_.sources().finish();
    module_.endTurn();
    if (options_.cleanup && loop_.stopSignal() != 0) {
      module_.cleanup();
      module_.endTurn();
      if (evpn_) evpn_->learned().clear();
      log("cleaned up");
    }
    return feeds_.haveFailed() ? exitFailed : exitOk;
  }

 private:
  std::function<void(std::string const&)> logger(LogLevel level = LogLevel::info) const {
    return loggerOf("agent " + options_.dir, level);
  }
  Logs logs() const { return {logger(), logger(LogLevel::warning)}; }
  void log(std::string const& line) const { logger()(line); }

  /// Before the first source is added.
  void record() {
    recorder_.emplace(loop_, options_.record.recorder, Origin::controller, logs());
    module_.recorderIs(*recorder_);
    recorder_->begin();
  }

  /// Takes the controller's events and `capability`; with an EVPN side in this process, its events too.
  Feeds::Sides sidesOf(Feed const& feed) {
    SourceHandlers const controller = module_.sources().add(aboutFeed(feed));
    SourceHandlers evpn;
    if (options_.withEvpn) {
      Sources::About about = aboutFeed(feed);
      about.name += " (evpn)";
      evpn = evpn_->sources().add(std::move(about));
    }
    auto const deliver = [this] {
      evpn_->learned().endTurn();
      module_.deliver();
    };
    SourceHandlers both;
    both.event = [=](Event const& event) {
      if (event.op == Op::capability) controller.event(event);
      if (!evpn.event) return;
      evpn.event(event);
      deliver();
    };
    if (evpn.state) {
      both.state = [=](SourceState state, std::string const& cause) {
        evpn.state(state, cause);
        deliver();
      };
    }
    return {controller, both};
  }

  nlohmann::ordered_json answer(std::string_view command, std::string_view argument) {
    if (command == "evpn-status") return module_.evpnStatus(argument);
    if (command == "fdb")
      return module_.controller().fdb([this](SourceId id) { return module_.sources().name(id); });
    if (command == "why") return why(argument);
    if (command == "both-sides") return bothSides(argument);
    if (command == "counters") return countersJson();
    if (command == "state") return state();
    if (command == "trace") {
      if (!argument.empty()) traceLevelsIs(argument);
      return traceLevels();
    }
    throw std::runtime_error("the agent does not know '" + std::string(command) + "'");
  }

  /// The module's answers, completed by the other parts of this process.
  nlohmann::ordered_json why(std::string_view argument) const {
    auto answers = module_.why(argument);
    if (Subject const subject = Subject::parse(argument); evpn_ && subject.mac && !subject.vni) {
      for (auto const& vni : whyLearned(*evpn_, nullptr, argument)) {
        if (std::ranges::none_of(answers, [&](auto const& each) { return each.at("vni") == vni; }))
          answers.push_back(module_.why(std::string(argument) + ' ' + vni.dump()).at(0));
      }
    }
    for (auto& answer : answers) {
      bool const isHost = answer.contains("mac");
      std::string const subject = answer.at(isHost ? "mac" : "vtep");
      Vxlan::Vni const vni(answer.at("vni").get<std::uint32_t>());
      if (switches_) {
        auto const mac = isHost ? Orb::parseWhole<Wirix::EthAddr>(subject) : Wirix::EthAddr();
        answer["switches"] = switches_->remoteRowsOf(vni, mac);
      }
      if (evpn_) {
        answer["evpnSide"] =
            whyLearned(*evpn_, speaker_ ? &*speaker_ : nullptr, subject + ' ' + Orb::toText(vni));
      }
    }
    return answers;
  }

  nlohmann::ordered_json bothSides(std::string_view argument) const {
    auto result = module_.bothSides(argument);
    if (switches_ && !argument.empty())
      result["switches"] = switches_->rowsOf(Orb::parseWhole<Vxlan::Vni>(argument));
    return result;
  }

  nlohmann::ordered_json state() const {
    nlohmann::ordered_json result = {{"pid", getpid()}};
    result.update(module_.state());
    result["longestTurn"] = turns_.longest();
    result["feed"] = feeds_.state();
    if (switches_) switches_->describe(result["sources"]);
    if (evpn_) {
      auto sources = evpn_->sources().state();
      if (speaker_) speaker_->describe(sources);
      for (auto& each : sources) result["sources"].push_back(std::move(each));
    }
    return result;
  }

  AgentOptions const& options_;
  Loop& loop_;
  Feeds feeds_;  ///< Before the site is made: a feed that cannot be opened leaves nothing behind.
  Site site_;
  std::optional<Recorder> recorder_;  ///< Before the members that it records.
  HostedModule module_;
  std::optional<EvpnSide> evpn_;
  std::optional<SwitchSide> switches_;
  std::optional<SpeakerSide> speaker_;
  ControlServer control_;  ///< After the members that its answers describe: destroyed first.
  SiteWatch siteWatch_;    ///< After the socket, whose removal it must not report.
  std::optional<MetricsServer> metrics_;
  ServiceManager serviceManager_;
  TurnMeter turns_;
};

int runAgent(AgentOptions const& options) {
  options.switches.check();
  if (options.speaker.isGiven()) options.speaker.check();
  if (!options.traceFile.empty()) traceFileIs(options.traceFile);
  for (std::string const& trace : options.traces) {
    try {
      traceLevelsIs(trace);
    } catch (std::exception const& error) {
      throw UsageError("--trace " + trace + ": " + error.what());
    }
  }
  Loop loop;
  loop.takeSignals();
  options.log.begin(loop, [&options] {
    if (options.traceFile.empty()) return;
    try {
      traceFileIs(options.traceFile);
    } catch (std::system_error const& error) {
      logLine(LogLevel::error, std::string("the trace file cannot be opened again: ") + error.what());
    }
  });
  return AgentProcess(options, loop).run();
}

}  // namespace

void addAgentCommand(CLI::App& app, Run& run) {
  auto const options = std::make_shared<AgentOptions>();
  CLI::App* const command = app.add_subcommand("agent", "Host the module for a site");
  command->add_option("--dir", options->dir, "The site's directory")->capture_default_str();
  options->feed.addTo(*command);
  options->switches.addTo(*command);
  options->speaker.addTo(*command);
  options->record.addTo(*command);
  options->metrics.addTo(*command);
  options->log.addTo(*command);
  command->add_flag("--with-evpn", options->withEvpn,
                    "Play the EVPN side from the same feed, each event in its recorded order");
  command
      ->add_option("--duplicate-moves", options->duplicates.moves,
                   "Report a MAC as a duplicate that moves between sites so often; 0 reports none")
      ->capture_default_str();
  command->add_option("--duplicate-seconds", options->duplicateSeconds, "The time within which it does")
      ->check(numberFrom("1", "86400"))
      ->capture_default_str();
  command->add_flag("--freeze-duplicates", options->duplicates.freezes,
                    "Leave a duplicate to the other site for that time, whatever switches hear");
  command->add_flag("--cleanup", options->cleanup, "On SIGINT or SIGTERM remove what was written");
  command->add_flag("--repair", options->repair, "Drop damaged rows of the tables instead of giving up");
  command->add_option("--trace", options->traces, "Trace HANDLE/LEVELS, such as QorEvpnModeSm/8")
      ->allow_extra_args(false);
  command
      ->add_option("--trace-file", options->traceFile,
                   "Append traces to this file, not standard error; SIGHUP opens it again")
      ->type_name("FILE");
  command->footer(
      "Takes every `controller` event of its feeds, and `capability`. Runs until it is told to stop, and\n"
      "then leaves its rows for the next start, which withdraws none of them before each feed has told its\n"
      "state: at its end, or with the line {\"from\":\"controller\",\"op\":\"synced\"}.\n\n"
      "Examples:\n"
      "  qorevpn agent --feed events.jsonl              apply a file and stay\n"
      "  mkfifo switches && qorevpn agent --feed switches    follow one writer after the other\n"
      "  tail -n +1 -f events.jsonl | qorevpn agent --feed -    follow a growing file, which says synced\n"
      "  qorevpn agent --feed events.jsonl --pace 10    ten times as fast as recorded\n"
      "  qorevpn agent --feed events.jsonl --trace QorEvpnModeSm/8 --trace VxlanControllerEvpnTxSm/3,4,8\n"
      "  qorevpn agent --feed events.jsonl --with-evpn --exit-at-end   both sides, to the end, no more\n"
      "  qorevpn agent --switch leaf1=tcp:10.0.0.11:6640 --switch leaf2=tcp:10.0.0.12:6640\n"
      "  qorevpn agent --switch leaf1=tcp:10.0.0.11:6640 --speaker 127.0.0.1:50051 --as 65001 \\\n"
      "                --router-id 10.99.0.1            switches, BGP and what is between, in one process");
  command->callback([options, &run] {
    if (options->feed.files.empty() && !options->switches.areGiven())
      throw CLI::RequiredError("--feed or --switch");
    run = [options] { return runAgent(*options); };
  });
}

}  // namespace Agent
