#include <gmock/gmock.h>

#include <csignal>
#include <nlohmann/json.hpp>

#include "tests/agent/SiteWriter.h"

namespace {

using testing::AllOf, testing::HasSubstr, testing::UnorderedElementsAre;
using TestSupport::Program;

struct WatchTest : testing::Test, SiteWriter {
  WatchTest() : SiteWriter(16) {}

  std::vector<std::string> command(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), {"watch", "--dir", dir()});
    return arguments;
  }
  /// The next line without its time.
  static std::string next(Program& watch) {
    std::string const line = watch.line().value_or("00:00:00  the end");
    return line.substr(std::min(line.size(), line.find("  ") + 2));
  }
};

TEST_F(WatchTest, EveryDifferenceIsALineWithBeforeAndAfter) {
  mountHosts();
  write({host(5000, 1, 11), host(6000, 1, 11)});
  Program all(command({"hosts", "--initial"}));
  mount(floods);
  Program json(command({"hosts", "floods", "--vni", "6000,7000", "-j", "--initial"}));
  std::vector<std::string> const present = {next(all), next(all)};
  EXPECT_THAT(present,
              UnorderedElementsAre(
                  "present  vni 5000  mac 00:00:00:00:00:01  vtep 10.99.0.11  seq 0  preference 16",
                  "present  vni 6000  mac 00:00:00:00:00:01  vtep 10.99.0.11  seq 0  preference 16"));
  EXPECT_THAT(next(all), HasSubstr("-- initial-end"));
  EXPECT_THAT(json.line().value(), AllOf(HasSubstr("present"), HasSubstr("exported/host")));
  EXPECT_EQ(json.line(), R"({"event":"initial-end"})");
  write({host(5000, 2, 11)});
  EXPECT_EQ(next(all), "added    vni 5000  mac 00:00:00:00:00:02  vtep 10.99.0.11  seq 0  preference 16");
  write({host(6000, 1, 12, 1)});
  EXPECT_EQ(
      next(all),
      "changed  vni 6000  mac 00:00:00:00:00:01  vtep 10.99.0.11 -> 10.99.0.12  seq 0 -> 1  preference 16");
  EXPECT_THAT(json.line().value(), HasSubstr("changed"));
  floods.write(flood(7000, 12));
  floods.endTurn();
  EXPECT_THAT(json.line().value(), AllOf(HasSubstr("added"), HasSubstr("exported/flood")));
  write({host(6000, 1, 12, 1)});  // Equal: nothing to say.
  remove(host(5000, 2, 11));
  EXPECT_EQ(next(all), "removed  vni 5000  mac 00:00:00:00:00:02  vtep 10.99.0.11  seq 0  preference 16");
  hosts.unmount();
  EXPECT_EQ(all.line(), std::nullopt);
  EXPECT_EQ(all.wait(), 0);
  EXPECT_THAT(all.errors(), AllOf(HasSubstr("exported/host"), HasSubstr("not running")));
  EXPECT_EQ(nlohmann::json::parse(json.line().value()).at("event"), "writer gone");
  floods.write(flood(7000, 13));  // One that ends does not end the others.
  floods.endTurn();
  EXPECT_THAT(json.line().value(), HasSubstr("10.99.0.13"));
  floods.unmount();
  EXPECT_EQ(json.wait(), 0);
}

TEST_F(WatchTest, AFilterLetsPassWhatMatchesBeforeOrAfter) {
  mountHosts();
  write({host(5000, 9, 12)});
  Program watch(command({"hosts", "--vtep", "10.99.0.12", "--json", "--initial"}));
  EXPECT_THAT(watch.line().value(), HasSubstr("present"));
  EXPECT_THAT(watch.line().value(), HasSubstr("initial-end"));
  for (std::string const line : {"10.99.0.12 -> 10.99.0.11", "10.99.0.11 -> 10.99.0.12"}) {
    std::uint32_t const vtep = line.ends_with('1') ? 11 : 12;
    write({host(5000, 1, 11, vtep), host(5000, 9, vtep)});
    auto const event = nlohmann::json::parse(watch.line().value());
    EXPECT_EQ(event.at("event"), "changed");
    auto const vtepOf = [&](char const* side) { return event.at(side).at("vtep").get<std::string>(); };
    EXPECT_EQ(vtepOf("before") + " -> " + vtepOf("after"), line);
  }
}

TEST_F(WatchTest, AWatcherThatWasLeftBehindSaysSoAndIsRight) {
  mountHosts();
  write({host(1, 1, 11), host(1, 2, 11)});
  Program watch(command({"hosts", "--initial"}));
  next(watch), next(watch), next(watch);
  watch.stop();
  // More changes than the ring holds; only the last of each key counts.
  for (std::uint32_t seq = 1; seq <= 100; ++seq) write({host(1, 1, 11, seq)});
  remove(host(1, 2, 11));
  watch.signal(SIGCONT);
  EXPECT_THAT(next(watch), HasSubstr("resynchronised"));
  std::vector<std::string> const changes = {next(watch), next(watch)};
  EXPECT_THAT(changes, UnorderedElementsAre(AllOf(HasSubstr("changed"), HasSubstr("seq 0 -> 100")),
                                            AllOf(HasSubstr("removed"), HasSubstr("mac 00:00:00:00:00:02"))));
  write({host(1, 3, 11)});
  EXPECT_THAT(next(watch), HasSubstr("added"));
}

TEST_F(WatchTest, StayingGoesOnWithTheNextWriter) {
  Program watch(command({"hosts", "--stay"}));
  EXPECT_THAT(next(watch), HasSubstr("-- no table"));
  mountHosts();
  EXPECT_THAT(next(watch), HasSubstr("-- mounted"));
  write({host(1, 1, 11)});
  EXPECT_THAT(next(watch), HasSubstr("added"));
  hosts.unmount();
  EXPECT_THAT(next(watch), HasSubstr("-- writer gone"));
  mountHosts();
  EXPECT_THAT(next(watch), HasSubstr("-- mounted"));
  EXPECT_THAT(next(watch), HasSubstr("-- resynchronised: the writer started again"));
  write({host(1, 1, 12)});
  EXPECT_THAT(next(watch), HasSubstr("changed"));
  watch.signal(SIGINT);
  EXPECT_EQ(watch.wait(), 0);
}

TEST_F(WatchTest, EndsWhenItIsNotWantedAnyMore) {
  mountHosts();
  for (std::uint64_t mac = 0; mac < 20000; ++mac) hosts.write(host(1, mac, 11));
  hosts.endTurn();
  // Its reader goes while nothing changes.
  Program silent(command({"hosts"}));
  silent.closeOutput();
  EXPECT_EQ(silent.wait(), 0);
  // Told to stop while its reader does not read.
  Program stuck(command({"hosts", "--initial"}));
  ASSERT_TRUE(stuck.line());
  stuck.signal(SIGTERM);
  EXPECT_EQ(stuck.wait(), 0);
}

}  // namespace
