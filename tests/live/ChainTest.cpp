/// Two sites and everything between the switches of one and those of the other: databases, agents, EVPN
/// sides, BGP speakers, each killed and started again. Relays before the servers stop what they tell at an
/// octet that is not chosen. A server that comes back is compared with what it held, and observed, before we
/// reach it.
///
/// Not covered: which VTEP a switch's flood list lost when the session to a killed speaker fell (it may lose
/// those of that speaker's site; what it has at rest is compared); that what a server told just before it was
/// killed did arrive; two of them killed at a time; a node that loses power.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

#include "LiveSite.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::IsSupersetOf;
using TestSupport::LiveSite;
using TestSupport::Relay;

class ChainTest : public testing::Test {
 protected:
  void SetUp() override {
    for (LiveSite* const site : {&west, &east}) {
      for (unsigned tor = 0; tor < LiveSite::switches; ++tor) site->learn(tor, tor * hosts / 2, hosts / 2);
      site->start();
    }
    ASSERT_TRUE(becomes([&] { return isJoined(); })) << west.errors() << east.errors();
    for (LiveSite* const site : {&west, &east}) {
      site->observeFloods();
      site->removedOfOurs();
      site->removedFromOthers();
    }
  }
  /// Everybody knows what every switch heard.
  bool isJoined() {
    return west.exported() == west.known() && east.exported() == east.known() &&
           west.learned() == east.known() && east.learned() == west.known() && west.areSwitchesTold(east) &&
           east.areSwitchesTold(west);
  }

  static constexpr unsigned hosts = 40;
  LiveSite west{1, 2, false}, east{2, 1, true};
};

/// What the first switch of a site is told, without the VTEPs of MACs.
std::set<std::string> keysIn(LiveSite const& site) {
  std::set<std::string> keys;
  for (std::string const& row : site.databaseOf(0).remoteMacs("red"))
    keys.insert(row.starts_with("unknown-dst") ? row : row.substr(0, row.find(' ')));
  return keys;
}

/// Each process is killed at a point of its work that is not chosen, and finds its state told by half when it
/// comes back, or tells its own by half.
TEST_F(ChainTest, NothingValidIsRemovedWhicheverProcessIsKilled) {
  char const* const given = std::getenv("QOREVPN_TEST_SEED");
  auto const seed = given ? static_cast<unsigned>(std::stoul(given)) : std::random_device()();
  SCOPED_TRACE("QOREVPN_TEST_SEED=" + std::to_string(seed));
  std::mt19937 random(seed);
  auto const pick = [&random](unsigned count) { return static_cast<unsigned>(random() % count); };
  std::vector<std::pair<LiveSite*, LiveSite::Part>> kills;
  for (LiveSite* const site : {&west, &east}) {
    for (auto const part : {LiveSite::agent, LiveSite::database, LiveSite::speaker, LiveSite::evpn}) {
      if (site != &east || part != LiveSite::evpn) kills.emplace_back(site, part);
    }
  }
  std::shuffle(kills.begin(), kills.end(), random);
  unsigned next = hosts;
  for (auto const& [site, part] : kills) {
    LiveSite& other = site == &west ? east : west;
    SCOPED_TRACE(std::string(site == &west ? "west" : "east") + ", part " + std::to_string(part));
    // Something is on its way when it dies, and something happens while it is away.
    site->move(pick(hosts / 2));
    other.move(pick(hosts / 2));
    std::this_thread::sleep_for(std::chrono::microseconds(pick(20'000)));
    std::set<std::string> const told = keysIn(*site);
    site->kill(part);
    other.learn(0, next, 1);
    site->move(hosts / 2 + pick(hosts / 2));
    site->learn(part == LiveSite::database ? 1 : 0, next++, 1);
    std::string const source = site->sourceOf(part);
    bool const isServer = part == LiveSite::database || part == LiveSite::speaker;
    ASSERT_TRUE(!isServer || becomes([&, site = site] { return site->stateOf(source) == "lost"; }));
    Relay& relay = site->relayOf(part);
    relay.allow(0);
    site->start(part);
    EXPECT_THAT(keysIn(*site), IsSupersetOf(told));
    relay.allow(pick(source == "speaker" ? 200 : 20'000));
    ASSERT_TRUE(becomes([&] { return relay.isStuck(); }));
    if (part == LiveSite::agent) {
      // What the other switch tells arrives, also what is new there.
      ASSERT_TRUE(becomes([&, site = site] { return site->exported().size() == site->hosts(); }));
    }
    EXPECT_THAT(site->stateOf(source), testing::AnyOf("connecting", "syncing", "lost"));
    relay.open();
    ASSERT_TRUE(becomes([&] { return isJoined(); })) << west.errors() << east.errors();
    EXPECT_THAT(site->removedOfOurs(), IsEmpty());
    EXPECT_THAT(site->removedFromOthers(), IsEmpty());
    EXPECT_THAT(other.removedOfOurs(), IsEmpty());
    // The session to a speaker that is killed falls, and with it what it announced.
    auto removed = other.removedFromOthers();
    if (part == LiveSite::speaker) {
      std::erase_if(removed, [&, site = site](std::string const& line) {
        return site->isOurs(line) || line.find(",old,") != std::string::npos;
      });
    }
    EXPECT_THAT(removed, IsEmpty());
  }
  // What a switch forgets is removed, and all that is.
  west.forget(0);
  ASSERT_TRUE(becomes([&] { return isJoined() && west.isSound() && east.isSound(); }));
  std::string const mac = west.mac(0);
  EXPECT_THAT(west.removedOfOurs(), ElementsAre(HasSubstr(mac)));
  // Its neighbour's database and its own speaker's table; learned table, databases and table of the other.
  std::size_t atHome = 0, elsewhere = 0;
  EXPECT_TRUE(becomes([&] { return (atHome += west.removedFromOthers().size()) == 2; })) << atHome;
  EXPECT_TRUE(becomes([&] { return (elsewhere += east.removedFromOthers().size()) == 4; })) << elsewhere;
  EXPECT_TRUE(becomes([&] { return west.isReplayed() && east.isReplayed(); }));
}

/// Of a MAC that more than one switch lists, of one site or of both, the number says who heard it last.
TEST_F(ChainTest, AMoveRaisesTheNumberWhereverItGoes) {
  std::string const mac = west.mac(0);
  auto const rowIn = [&](std::set<std::string> const& rows) {
    auto const found = rows.lower_bound(mac);
    return found != rows.end() && found->starts_with(mac) ? found->substr(mac.size() + 1) : "";
  };
  auto const hears = [&](LiveSite const& site, unsigned tor) {
    site.databaseOf(tor).vtep("del-ucast-local red " + mac);
    site.databaseOf(tor).vtep("add-ucast-local red " + mac + ' ' + site.vtep(tor, 0));
  };
  auto const becomesKnown = [&](LiveSite& site, LiveSite& other, std::string const& vtep, unsigned seq) {
    std::string const row = vtep + ' ' + std::to_string(seq);
    EXPECT_TRUE(becomes([&] {
      return rowIn(site.exported()) == row && rowIn(other.learned()) == row &&
             rowIn(other.exported()).empty() && rowIn(site.learned()).empty();
    })) << row
        << ", not: " << rowIn(site.exported()) << ", " << rowIn(other.learned());
    for (LiveSite const* const each : {&site, &other}) {
      for (unsigned tor = 0; tor < LiveSite::switches; ++tor) {
        bool const isOwn = each == &site && (vtep == site.vtep(tor, 0));
        EXPECT_TRUE(becomes([&] {
          auto const told = each->databaseOf(tor).remoteMacs("red");
          return isOwn != std::binary_search(told.begin(), told.end(), mac + ' ' + vtep);
        })) << tor;
      }
    }
  };
  becomesKnown(west, east, west.vtep(0, 0), 0);
  hears(west, 1);
  becomesKnown(west, east, west.vtep(1, 0), 1);
  hears(east, 0);
  becomesKnown(east, west, east.vtep(0, 0), 2);
  // Both come back with switches that list it still, and nobody has heard it since.
  for (LiveSite* const site : {&west, &east}) {
    site->kill(LiveSite::agent);
    site->start(LiveSite::agent);
    ASSERT_TRUE(
        becomes([&] { return site->stateOf("tor0") == "synced" && site->stateOf("tor1") == "synced"; }));
    becomesKnown(east, west, east.vtep(0, 0), 2);
  }
  hears(west, 0);
  becomesKnown(west, east, west.vtep(0, 0), 3);
  // Forgotten by the one, it falls back to the other that lists it still.
  west.databaseOf(0).vtep("del-ucast-local red " + mac);
  becomesKnown(west, east, west.vtep(1, 0), 4);
}

}  // namespace
