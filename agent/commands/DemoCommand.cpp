#include <sys/stat.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <filesystem>
#include <fstream>

#include "agent/base/Ranges.h"
#include "agent/commands/Child.h"
#include "agent/commands/Commands.h"
#include "agent/commands/DemoScreen.h"
#include "agent/commands/Verdict.h"
#include "agent/feed/Event.h"
#include "agent/site/Control.h"

namespace Agent {

namespace {

using Clock = std::chrono::steady_clock;
using OrderedJson = nlohmann::ordered_json;

struct DemoOptions {
  std::string dir = "/dev/shm/qorevpn-demo-" + std::to_string(getpid());
  double pace = 6;
  std::size_t rows = 8;
  bool keep = false;
  bool json = false;
};

/// The recording as the two sites' controllers see it: what the neighbour advertised is what the switches of
/// the site over there learned.
struct SiteFeeds {
  std::string west, east;
  double seconds = 0;
};

SiteFeeds splitRecording(std::string const& path) {
  std::ifstream file(path);
  SiteFeeds feeds;
  for (std::string line; std::getline(file, line);) {
    Event const event = parseEvent(line);
    if (event.time) feeds.seconds = std::max(feeds.seconds, *event.time);
    bool const isFlag = event.op == Op::enabled || event.op == Op::capability;
    OrderedJson object = OrderedJson::parse(line);
    if (!isFlag) object["from"] = "controller";
    std::string const text = object.dump() + '\n';
    if (isFlag || event.from == Origin::controller) feeds.west += text;
    if (isFlag || event.from == Origin::evpn) feeds.east += text;
  }
  return feeds;
}

/// The demonstration's own folder, removed with everything in it unless it is to be kept, as asked for or
/// because something in it must be looked at.
class DemoFolder {
 public:
  DemoFolder(std::string path, bool keep) : path_(std::move(path)), keep_(keep) {
    if (mkdir(path_.c_str(), 0755) != 0) throwErrno("cannot make the directory " + path_);
  }
  ~DemoFolder() {
    std::error_code ignored;
    if (!keep_) std::filesystem::remove_all(path_, ignored);
  }
  DemoFolder(DemoFolder const&) = delete;
  DemoFolder& operator=(DemoFolder const&) = delete;

  void keep() { keep_ = true; }
  bool isKept() const { return keep_; }

  std::string made(std::string const& name) const {
    std::filesystem::create_directory(path_ + '/' + name);
    return path_ + '/' + name;
  }

 private:
  std::string path_;
  bool keep_;
};

/// One of the two sites: its agent's process and what is seen from outside.
class DemoSite {
 public:
  DemoSite(std::string name, std::string const& root, std::string const& feed)
      : name_(std::move(name)), dir_(root + '/' + name_), feed_(dir_ + ".jsonl"), view_(Site(dir_)) {
    std::ofstream(feed_) << feed;
  }

  void start(double pace) {
    std::vector<std::string> arguments{"agent", "--dir", dir_, "--feed", feed_, "--strict"};
    if (pace > 0) arguments.insert(arguments.end(), {"--pace", std::to_string(pace)});
    agent_.emplace(std::move(arguments), dir_ + ".log");
  }
  void stop(int signal) { agent_->stop(signal); }
  bool isRunning() { return agent_->isRunning(); }

  std::string const& name() const { return name_; }
  std::string const& dir() const { return dir_; }
  SiteView& view() { return view_; }

  bool feedHasEnded() const {
    try {
      return controlRequest(Site(dir_), "state").at("feed").at("ended").get<bool>();
    } catch (std::exception const&) {
      return false;  // it is only just starting
    }
  }
  SiteState state() const { return {name_, lookAt(Site(dir_))}; }

 private:
  std::string name_;
  std::string dir_;
  std::string feed_;
  SiteView view_;
  std::optional<Child> agent_;
};

/// Both sites and the exchange between them, from empty tables to the verdict.
class Demo {
 public:
  Demo(DemoOptions const& options, DemoScreen& screen, SiteFeeds const& feeds, Expectation const& expected,
       std::string const& root)
      : options_(options),
        screen_(screen),
        feeds_(feeds),
        expected_(expected),
        west_("west", root, feeds.west),
        east_("east", root, feeds.east),
        exchangeLog_(root + "/exchange.log"),
        exchange_({"evpn", "--dir", west_.dir(), "--peer", east_.dir()}, exchangeLog_) {}

  /// Plays the recording, killing and restarting the west agent in the middle if that is wanted.
  void play(bool withKill) {
    begin_ = Clock::now();
    west_.start(options_.pace);
    east_.start(options_.pace);
    double const middle = feeds_.seconds / 2;
    bool killed = false;
    while (recorded() < feeds_.seconds) {
      progress();
      if (withKill && !killed && recorded() > middle) {
        killAndRestart();
        killed = true;
      }
      screen_.wait(std::chrono::milliseconds(50));
      requireRunning();
    }
  }

  /// Waits until every check holds, or time is up.
  std::vector<Check> settle() {
    auto const deadline = Clock::now() + std::chrono::seconds(5);
    for (;;) {
      requireRunning();
      progress();
      if (west_.feedHasEnded() && east_.feedHasEnded()) {
        std::vector<Check> checks = verdictOn(west_.state(), east_.state(), expected_);
        if (holds(checks) || Clock::now() > deadline) {
          progress(true);
          return checks;
        }
      } else if (Clock::now() > deadline) {
        throw std::runtime_error("an agent did not come to the end of its feed");
      }
      screen_.wait(std::chrono::milliseconds(20));
    }
  }

  void showTables() {
    for (DemoSite* const site : {&west_, &east_}) {
      SiteRows const rows = site->view().exported();
      screen_.heading(site->name() + " exports");
      screen_.rows<QorEvpn::Host>(rows, options_.rows);
      screen_.rows<QorEvpn::FloodEntry>(rows, options_.rows);
    }
  }

 private:
  double recorded() const {
    return std::chrono::duration<double>(Clock::now() - begin_).count() * options_.pace;
  }

  void progress(bool isLast = false) {
    screen_.progress({.now = std::min(recorded(), feeds_.seconds),
                      .end = feeds_.seconds,
                      .westHosts = west_.view().exportedHosts(),
                      .westLearned = west_.view().learnedHosts(),
                      .eastHosts = east_.view().exportedHosts(),
                      .eastLearned = east_.view().learnedHosts()},
                     isLast);
  }

  void killAndRestart() {
    west_.stop(SIGKILL);
    SiteRows const left = west_.view().exported();
    screen_.note("west's agent is killed (SIGKILL) at " + DemoScreen::seconds(recorded()) + "; it leaves " +
                 countText(left.of<QorEvpn::Host>().size(), "host") + " to the EVPN side");
    // The restarted agent learns from its switches again, as fast as it can.
    west_.start(0);
    screen_.note("west's agent is started again, and reads its recording to the end at once");
  }

  void requireRunning() {
    for (DemoSite* const site : {&west_, &east_}) {
      if (!site->isRunning())
        throw std::runtime_error(site->name() + "'s agent has ended; see " + site->dir() + ".log");
    }
    if (!exchange_.isRunning()) throw std::runtime_error("the exchange has ended; see " + exchangeLog_);
  }

  DemoOptions const& options_;
  DemoScreen& screen_;
  SiteFeeds const& feeds_;
  Expectation const& expected_;
  DemoSite west_;
  DemoSite east_;
  std::string exchangeLog_;
  Child exchange_;
  Clock::time_point begin_;
};

OrderedJson toJson(std::string const& title, std::vector<Check> const& checks) {
  OrderedJson all = OrderedJson::array();
  for (Check const& check : checks) {
    all.push_back({{"claim", check.claim}, {"holds", check.fault.empty()}});
    if (!check.fault.empty()) all.back()["fault"] = check.fault;
  }
  return {{"round", title}, {"holds", holds(checks)}, {"checks", std::move(all)}};
}

OrderedJson playRound(Demo& demo, DemoScreen& screen, std::string const& title, bool withKill,
                      bool withTables) {
  screen.heading(title);
  demo.play(withKill);
  std::vector<Check> const checks = demo.settle();
  screen.progressEnds();
  if (withTables) demo.showTables();
  screen.verdict(checks);
  return toJson(title, checks);
}

int runDemo(DemoOptions const& options) {
  DemoScreen screen(options.json);
  SiteFeeds const feeds = splitRecording(dataFile("fabric-3vni.jsonl"));
  Expectation const expected = Expectation::ofFile(dataFile("fabric-3vni.end.json"));
  DemoFolder root(options.dir, options.keep);

  screen.line("Two sites, west and east, each with an agent of its own, and an exchange between them, play " +
              DemoScreen::seconds(feeds.seconds) + " of a recorded fabric, " +
              DemoScreen::number(options.pace) +
              " times as fast.\nProgress: seconds of the recording, hosts that each site exports (out) and "
              "has learned (in).");
  auto rounds = OrderedJson::array();
  try {
    for (bool const withKill : {false, true}) {
      Demo demo(options, screen, feeds, expected, root.made(withKill ? "2" : "1"));
      rounds.push_back(playRound(
          demo, screen,
          withKill ? "Round 2: the recording, with an agent killed in the middle" : "Round 1: the recording",
          withKill, !withKill));
    }
  } catch (DemoInterrupted const&) {
    screen.progressEnds();
    screen.line("interrupted");
    return exitFailed;
  } catch (OutputClosed const&) {
    return exitFailed;  // the reader of the output has gone
  } catch (UsageError const&) {
    throw;  // no process was started
  } catch (std::exception const&) {
    root.keep();  // the text names a log in it
    throw;
  }
  bool const good = std::ranges::all_of(rounds, [](auto const& each) { return each["holds"] == true; });
  if (!good) root.keep();
  if (options.json) {
    OrderedJson verdict = {{"holds", good}, {"rounds", std::move(rounds)}};
    if (root.isKept()) verdict["kept"] = options.dir;
    screen.lastLine(verdict.dump(2));
  }
  screen.line(good ? "\nEvery check held." : "\nA check FAILED.");
  if (root.isKept()) screen.line("Tables, feeds and logs are kept in " + options.dir);
  return good ? exitOk : exitFailed;
}

}  // namespace

void addDemoCommand(CLI::App& app, Run& run) {
  auto const options = std::make_shared<DemoOptions>();
  CLI::App* const command =
      app.add_subcommand("demo", "Two sites exchange a recording; says whether all held");
  command->add_option("--dir", options->dir, "Where the sites are made; must not exist yet")
      ->default_str("/dev/shm/qorevpn-demo-PID");
  command->add_option("--pace", options->pace, "How many times as fast as recorded")
      ->check(numberFrom("0.1", "1000"))
      ->capture_default_str();
  command->add_option("--rows", options->rows, "Rows of each table to show; 0 is all of them")
      ->check(numberFrom("0", "1000000000"))
      ->capture_default_str();
  command->add_flag("--keep", options->keep, "Leave the tables, feeds and logs behind");
  command->add_flag("-j,--json", options->json, "Print the verdict alone, for programs");
  command->footer(
      "Examples:\n"
      "  qorevpn demo                     about 12 seconds\n"
      "  qorevpn demo --pace 1 --rows 0   as slow as recorded, every row\n"
      "  qorevpn demo --keep --dir /dev/shm/two && qorevpn show hosts --dir /dev/shm/two/1/west");
  command->callback([options, &run] { run = [options] { return runDemo(*options); }; });
}

}  // namespace Agent
