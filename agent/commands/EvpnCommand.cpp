#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>

#include "agent/base/ServiceManager.h"
#include "agent/commands/Commands.h"
#include "agent/commands/FeedOptions.h"
#include "agent/commands/LogOptions.h"
#include "agent/evpn/EvpnSide.h"
#include "agent/evpn/Exchange.h"
#include "agent/explain/WhyLearned.h"
#include "agent/feed/Feeds.h"
#include "agent/live/SpeakerSide.h"
#include "agent/site/Control.h"
#include "agent/views/Format.h"

namespace Agent {

namespace {

struct EvpnOptions {
  std::string dir{Site::defaultDir};
  std::vector<std::string> peers;
  FeedOptions feed;
  SpeakerOptions speaker;
  LogOptions log;
  bool repair = false;
};

int runSources(EvpnOptions const& options) {
  auto const log = loggerOf("evpn " + options.dir);
  Logs const logs{log, loggerOf("evpn " + options.dir, LogLevel::warning)};
  Loop loop;
  loop.takeSignals();
  options.log.begin(loop);
  if (options.speaker.isGiven()) options.speaker.check();
  Feeds feeds(loop, options.feed.feeds(), options.feed.exitAtEnd);
  // Now only: a feed that cannot be opened leaves nothing behind.
  Site const site = Site::made(options.dir);
  EvpnSide side(loop, site, options.repair, options.feed.hold(), logs);
  ServiceManager serviceManager(loop);
  loop.turnEndIs([&] {
    side.learned().endTurn();
    if (side.sources().isSettled()) serviceManager.ready();
  });
  log("started, " + countText(side.learned().rows(), "row") + " found" +
      (feeds.names().empty() ? "" : "; feed: " + feeds.names()));
  std::optional<SpeakerSide> speaker;
  if (options.speaker.isGiven()) speaker.emplace(loop, site, options.speaker, side.sources(), logs);
  ControlServer const control(
      loop, site.evpnControlSocket(), [&](std::string_view command, std::string_view argument) {
        if (command == "why") return whyLearned(side, speaker ? &*speaker : nullptr, argument);
        if (command != "state")
          throw std::runtime_error("the EVPN side does not know '" + std::string(command) + "'");
        nlohmann::ordered_json state = {{"pid", getpid()}, {"sources", side.sources().state()}};
        if (speaker) speaker->describe(state["sources"]);
        return state;
      });
  feeds.start([&](Feed const& feed) { return Feeds::Sides{{}, side.sources().add(aboutFeed(feed))}; }, logs);
  loop.run();
  return feeds.haveFailed() ? exitFailed : exitOk;
}

/// Of directories that may have to be made still.
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

int runExchange(EvpnOptions const& options) {
  auto const log = loggerOf("evpn " + options.dir);
  Loop loop;
  loop.takeSignals();
  options.log.begin(loop);
  std::vector<Site> sites{Site(options.dir)};
  for (std::string const& peer : options.peers) sites.emplace_back(peer);
  for (auto site = sites.begin(); site != sites.end(); ++site) {
    bool const isTwice =
        std::any_of(sites.begin(), site, [&](Site const& other) { return isSame(other.dir(), site->dir()); });
    if (isTwice) throw UsageError("--peer " + site->dir() + ": this site takes part already");
  }
  // Now only: a command that is refused leaves nothing behind.
  for (Site const& site : sites) Site::made(site.dir());
  Exchange exchange(loop, sites, options.repair, log);
  loop.turnEndIs([&] { exchange.endTurn(); });
  exchange.endTurn();
  ServiceManager serviceManager(loop);
  serviceManager.ready();
  log("started, exchanging between " + std::to_string(sites.size()) + " sites");
  loop.run();
  return exitOk;
}

}  // namespace

void addEvpnCommand(CLI::App& app, Run& run) {
  auto const options = std::make_shared<EvpnOptions>();
  CLI::App* const command = app.add_subcommand("evpn", "Stand in for the EVPN side of a site");
  command->add_option("--dir", options->dir, "The site's directory")->capture_default_str();
  CLI::Option* const feed = options->feed.addTo(*command);
  CLI::Option* const peer =
      command->add_option("--peer", options->peers, "Exchange with the site of this directory, both ways")
          ->allow_extra_args(false)
          ->excludes(feed);
  if (CLI::Option* const speaker = options->speaker.addTo(*command)) peer->excludes(speaker);
  options->log.addTo(*command);
  command->add_flag("--repair", options->repair, "Drop damaged rows of the tables instead of giving up");
  command->footer(
      "Owns the tables that the site's agent reads. Takes them from the `evpn` events of a feed, or from\n"
      "what the agents of other sites export, or from a BGP speaker, which in turn announces what this site\n"
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
    run = [options] { return options->peers.empty() ? runSources(*options) : runExchange(*options); };
  });
}

}  // namespace Agent
