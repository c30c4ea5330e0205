#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>

#include "agent/base/ServiceManager.h"
#include "agent/base/TurnMeter.h"
#include "agent/commands/Commands.h"
#include "agent/commands/FeedOptions.h"
#include "agent/commands/LogOptions.h"
#include "agent/commands/MetricsOptions.h"
#include "agent/commands/RecordOptions.h"
#include "agent/evpn/EvpnSide.h"
#include "agent/evpn/Exchange.h"
#include "agent/explain/WhyLearned.h"
#include "agent/feed/Feeds.h"
#include "agent/live/SpeakerSide.h"
#include "agent/metrics/Metrics.h"
#include "agent/metrics/MetricsServer.h"
#include "agent/site/Control.h"
#include "agent/site/SiteWatch.h"
#include "agent/views/Format.h"

namespace Agent {

namespace {

struct EvpnOptions {
  std::string dir{Site::defaultDir};
  std::vector<std::string> peers;
  FeedOptions feed;
  SpeakerOptions speaker;
  RecordOptions record;
  MetricsOptions metrics;
  LogOptions log;
  bool repair = false;
};

/// The path's canonical form; its directories need not exist yet.
bool isSame(std::filesystem::path const& left, std::filesystem::path const& right) {
  std::error_code error;
  if (std::filesystem::equivalent(left, right, error)) return true;
  // With a slash at the end, whether they are given with one or not.
  auto const place = [&error](std::filesystem::path const& dir) {
    return std::filesystem::weakly_canonical(std::filesystem::absolute(dir) / "", error);
  };
  std::filesystem::path const leftPlace = place(left);
  return !leftPlace.empty() && leftPlace == place(right);
}

/// The sites that take part, this one first.
std::vector<Site> sitesOf(EvpnOptions const& options) {
  std::vector<Site> sites{Site(options.dir)};
  for (std::string const& peer : options.peers) sites.emplace_back(peer);
  for (auto site = sites.begin(); site != sites.end(); ++site) {
    bool const isTwice =
        std::any_of(sites.begin(), site, [&](Site const& other) { return isSame(other.dir(), site->dir()); });
    if (isTwice) throw UsageError("--peer " + site->dir() + ": this site takes part already");
  }
  return sites;
}

/// A site's EVPN side, and what asks it.
struct ServedSide {
  ServedSide(Loop& loop, Site const& site, EvpnOptions const& options, Logs const& logs,
             TurnMeter const& meter)
      : side(loop, site, options.repair, options.feed.hold(), logs),
        control(loop, site.evpnControlSocket(),
                [this](std::string_view command, std::string_view argument) {
                  if (command == "why") return whyLearned(side, speaker ? &*speaker : nullptr, argument);
                  if (command == "counters") return countersJson();
                  if (command == "state") return state();
                  throw std::runtime_error("the EVPN side does not know '" + std::string(command) + "'");
                }),
        watch(loop, site, logs.warning),
        turns(meter) {}

  nlohmann::ordered_json state() const {
    nlohmann::ordered_json result = {
        {"pid", getpid()}, {"longestTurn", turns.longest()}, {"sources", side.sources().state()}};
    if (speaker) speaker->describe(result["sources"]);
    return result;
  }

  EvpnSide side;
  std::optional<SpeakerSide> speaker;
  ControlServer control;
  SiteWatch watch;
  TurnMeter const& turns;  ///< Of the process.
};

int runEvpn(EvpnOptions const& options) {
  Loop loop;
  loop.takeSignals();
  options.log.begin(loop);
  if (options.speaker.isGiven()) options.speaker.check();
  std::vector<Site> const sites = sitesOf(options);
  Feeds feeds(loop, options.feed.feeds(), options.feed.exitAtEnd);
  auto const logsOf = [](Site const& site) {
    return Logs{loggerOf("evpn " + site.dir()), loggerOf("evpn " + site.dir(), LogLevel::warning)};
  };
  // Not earlier, so that a refused command leaves no files behind.
  TurnMeter turns;
  std::optional<Recorder> recorder;
  std::vector<std::unique_ptr<ServedSide>> sides;
  std::vector<Exchange::Member> members;
  for (Site const& site : sites) {
    Site::made(site.dir());
    sides.push_back(std::make_unique<ServedSide>(loop, site, options, logsOf(site), turns));
    members.push_back({site, sides.back()->side});
  }
  ServedSide& own = *sides.front();
  Logs const logs = logsOf(sites.front());
  if (options.record.isGiven()) {
    recorder.emplace(loop, options.record.recorder, Origin::evpn, logs);
    own.side.recorderIs(*recorder);
    recorder->begin();
  }
  ServiceManager serviceManager(loop);
  auto const endTurn = [&] {
    for (auto const& each : sides) each->side.learned().endTurn();
    if (recorder) recorder->endTurn();
  };
  loop.turnEndIs([&] {
    turns.endTurn();
    endTurn();
    bool const areSettled = std::all_of(sides.begin(), sides.end(),
                                        [](auto const& each) { return each->side.sources().isSettled(); });
    if (areSettled) serviceManager.ready();
  });
  logs.info("started, " + countText(own.side.learned().rows(), "row") + " found" +
            (feeds.names().empty() ? "" : "; feed: " + feeds.names()) +
            (sites.size() == 1 ? "" : "; exchanging between " + std::to_string(sites.size()) + " sites"));
  if (options.speaker.isGiven()) {
    own.speaker.emplace(loop, sites.front(), options.speaker, own.side.sources(), logs);
  }
  std::optional<MetricsServer> metrics;
  if (options.metrics.address) {
    metrics.emplace(loop, *options.metrics.address, [&] {
      return metricsText(sites.front(), {nullptr, nullptr, own.state(), countersJson()});
    });
  }
  std::optional<Exchange> exchange;
  if (sites.size() > 1) exchange.emplace(loop, members);
  feeds.start(
      [&](Feed const& feed) {
        return Feeds::Sides{{}, own.side.sources().add(aboutFeed(feed))};
      },
      logs);
  loop.run();
  serviceManager.stopping();
  for (auto const& each : sides) each->side.sources().finish();
  endTurn();
  return feeds.haveFailed() ? exitFailed : exitOk;
}

}  // namespace

void addEvpnCommand(CLI::App& app, Run& run) {
  auto const options = std::make_shared<EvpnOptions>();
  CLI::App* const command = app.add_subcommand("evpn", "Stand in for the EVPN side of a site");
  command->add_option("--dir", options->dir, "The site's directory")->capture_default_str();
  options->feed.addTo(*command);
  command->add_option("--peer", options->peers, "Exchange with the site of this directory, both ways")
      ->allow_extra_args(false);
  options->speaker.addTo(*command);
  options->record.addTo(*command);
  options->metrics.addTo(*command);
  options->log.addTo(*command);
  command->add_flag("--repair", options->repair, "Drop damaged rows of the tables instead of giving up");
  command->footer(
      "Owns the tables that the site's agent reads. Takes them from the `evpn` events of feeds, from what\n"
      "the agents of other sites export, and from a BGP speaker, which in turn announces what this site\n"
      "exports: of each MAC the row with the highest sequence number. Runs until it is told to stop, and\n"
      "then leaves its rows.\n\n"
      "Examples:\n"
      "  qorevpn evpn --feed events.jsonl\n"
      "  qorevpn evpn --speaker 127.0.0.1:50051 --as 65001 --router-id 10.99.0.1\n"
      "  qorevpn evpn --dir /dev/shm/west --peer /dev/shm/east    for both sites\n"
      "  qorevpn evpn --dir /dev/shm/a --peer /dev/shm/b --peer /dev/shm/c");
  command->callback([options, &run] {
    bool const hasSources = !options->feed.files.empty() || options->speaker.isGiven();
    if (options->peers.empty() && !hasSources) throw CLI::RequiredError("--feed, --peer or --speaker");
    run = [options] { return runEvpn(*options); };
  });
}

}  // namespace Agent
