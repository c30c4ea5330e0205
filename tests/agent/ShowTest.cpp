#include <gmock/gmock.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "agent/base/MacNotation.h"
#include "tests/agent/SiteWriter.h"

namespace {

using testing::AllOf, testing::HasSubstr;
using TestSupport::Outcome, TestSupport::run;

struct ShowTest : testing::Test, SiteWriter {
  ShowTest() {
    mountHosts();
    mount(floods);
    mount(brIds);
    mount(learnedState, true);
    learnedState.write({.capability = Agent::EvpnState::Capability::on, .isWhole = true});
    learnedState.endTurn();
    // In none of the orders that rows are shown in.
    write({host(70000, 2, 11, 4294967295), host(5000, 0xAABBCCDDEE01, 12, 7), host(5000, 1, 11)});
    for (auto const& row : {flood(70000, 11), flood(5000, 12), flood(5000, 11)}) floods.write(row);
    for (std::uint32_t const vni : {70000U, 5000U}) brIds.write(Bridging::BridgeId::ofVni(Vxlan::Vni(vni)));
    floods.endTurn();
    brIds.endTurn();
  }

  Outcome show(std::vector<std::string> arguments, bool isNobodys = false) const {
    arguments.insert(arguments.begin(), {"show", "--dir", dir()});
    return run(arguments, isNobodys);
  }
};

TEST_F(ShowTest, RowsAreSortedAndFilteredInEachForm) {
  struct {
    std::vector<std::string> arguments;
    std::string out;
  } const cases[] = {
      {{"hosts"},
       "  VNI  MAC                VTEP               SEQ  PREFERENCE\n"
       " 5000  00:00:00:00:00:01  10.99.0.11           0          16\n"
       " 5000  aa:bb:cc:dd:ee:01  10.99.0.12           7          16\n"
       "70000  00:00:00:00:00:02  10.99.0.11  4294967295          16\n"},
      {{"hosts", "--text", "--vni", "5000", "--vtep", "10.99.0.12"},
       "Value('QorEvpn::Host', ** {'key': Value('QorEvpn::MacVniPair', ** {'macAddr': aa:bb:cc:dd:ee:01, "
       "'vni': "
       "5000}), 'vtepAddr': 10.99.0.12, 'seqNo': 7, 'preference': 16})\n"},
      {{"hosts", "--json", "--mac", "AABB.CCDD.EE01"},
       "{\"hosts\":[\n{\"mac\":\"aa:bb:cc:dd:ee:01\",\"preference\":16,\"seq\":7,\"vni\":5000,"
       "\"vtep\":\"10.99.0.12\"}]}\n"},
      {{"floods", "--vtep", "10.99.0.8/30"}, "  VNI  VTEP\n 5000  10.99.0.11\n70000  10.99.0.11\n"},
      {{"floods", "--vni", "1,5000", "--vtep", "10.99.0.0/16,10.98.0.1"},
       " VNI  VTEP\n5000  10.99.0.11\n5000  10.99.0.12\n"},
      {{"floods", "bridge-ids", "--json", "--vni", "70000"},
       "{\"floods\":[\n{\"vni\":70000,\"vtep\":\"10.99.0.11\"}],\n\"bridgeIds\":[\n33624432]}\n"},
      {{"hosts", "--vni", "1"}, "VNI  MAC  VTEP  SEQ  PREFERENCE\n"},
      {{"hosts", "--vni", "1", "--json"}, "{\"hosts\":[]}\n"},
      {{"state", "--learned"}, "WHOLE  OWN    CAPABILITY\ntrue   false  on\n"},
      {{"state", "--learned", "--text"}, "whole, capability on\n"},
      {{"state", "--learned", "--json"},
       "{\"state\":[\n{\"capability\":\"on\",\"own\":false,\"whole\":true}]}\n"},
      {{"summary", "--vtep", "10.99.0.11"},
       "  VNI  exported/host  exported/flood  exported/brId  learned/host  learned/flood\n"
       " 5000              1               1              1             0              0\n"
       "70000              1               1              1             0              0\n"},
  };
  for (auto const& each : cases) {
    Outcome const outcome = show(each.arguments);
    EXPECT_EQ(outcome.out, each.out);
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(outcome.status, 0);
  }
}

TEST_F(ShowTest, EachFailureSaysWhatIsWrong) {
  hosts.unmount();
  struct {
    std::vector<std::string> arguments;
    int status;
    std::vector<std::string> errors;
  } const cases[] = {
      {{"hosts"}, 0, {"exported/host", "not running"}},
      {{"hosts", "--learned"}, 1, {"no table " + dir() + "/learned/host", "the EVPN side"}},
      {{"counters"}, 1, {"no agent runs for " + dir()}},
      {{"evpn-status"}, 1, {"no agent runs"}},
      {{"hosts", "--vni", "1,16777216"}, 2, {"--vni: '16777216' is not a VNI, a number from 0 to 16777215"}},
      {{"hosts", "--mac", "02:00"}, 2, {"--mac", "02:00"}},
      {{"hosts", "--vtep", "10.99.0.0/33"}, 2, {"--vtep", "10.99.0.0/24"}},
      {{"hosts", "--vtep", "10.99.0.1/24"}, 2, {"--vtep"}},
      {{"floods", "--mac", "02:00:00:00:00:01"}, 2, {"flood rows have no MAC addresses"}},
      {{"bridge-ids", "--learned"}, 2, {"--learned"}},
      {{"state", "--vni", "1"}, 2, {"state rows have no VNIs"}},
      {{"tables", "--vni", "1"}, 2, {"filters"}},
      {{"hosts", "--text", "--json"}, 2, {"--text"}},
      {{"cats"}, 2, {"cats"}},
      {{}, 2, {"what"}},
  };
  for (auto const& each : cases) {
    Outcome const outcome = show(each.arguments);
    EXPECT_EQ(outcome.status, each.status) << outcome.err;
    for (std::string const& error : each.errors) EXPECT_THAT(outcome.err, HasSubstr(error));
  }
}

TEST_F(ShowTest, StateOfTheTablesIsShownEvenWhereSomeCannotBeRead) {
  hosts.unmount();
  brIds.unmount();
  std::ofstream(site().exported() + "/brId.table", std::ios::trunc) << "garbage";
  auto const tables = nlohmann::json::parse(show({"tables", "--json"}).out).at("tables");
  ASSERT_EQ(tables.size(), 7U);
  std::vector<std::string> seen;
  for (auto const& table : tables) {
    seen.push_back(table.at("table").get<std::string>() + ": " + table.at("status").get<std::string>());
  }
  EXPECT_THAT(seen, testing::ElementsAre("exported/host: writer gone", "exported/flood: mounted",
                                         "exported/brId: corrupt", "exported/state: no table",
                                         "learned/host: no table", "learned/flood: no table",
                                         "learned/state: mounted"));
  // Of everything, whatever can be shown is shown; people's lines fit a terminal.
  Outcome const all = show({"all"});
  EXPECT_THAT(all.err, HasSubstr("no agent runs"));
  EXPECT_THAT(all.out, AllOf(HasSubstr("exported/flood\n  VNI"), HasSubstr("  exported/brId: ")));
  std::istringstream lines(show({"tables"}).out);
  for (std::string line; std::getline(lines, line);) EXPECT_TRUE(line.size() <= 80 || line[0] == ' ') << line;
  EXPECT_EQ(tables[0].at("rows"), 3);
  EXPECT_EQ(tables[0].at("writerAlive"), false);
  EXPECT_EQ(tables[1].at("writerAlive"), true);
  EXPECT_EQ(tables[1].at("quiesced"), true);
  EXPECT_EQ(tables[1].at("changeSequence"), floods.statistics().changeSequence);
  EXPECT_EQ(std::stoull(tables[1].at("generation").get<std::string>(), nullptr, 16),
            floods.statistics().generation);
}

TEST_F(ShowTest, AnotherUserSeesTheTablesOnlyThroughTheirGroup) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can become another user";
  Outcome const refused = show({"hosts"}, true);
  if (refused.status > 2) GTEST_SKIP() << "another user cannot run the program from this build tree";
  EXPECT_EQ(refused.status, 1);
  EXPECT_THAT(refused.err, AllOf(HasSubstr("exported/host"), HasSubstr("ermi")));

  TestSupport::Program waiting({"watch", "hosts", "--dir", dir(), "--stay"}, true);
  EXPECT_THAT(waiting.line().value(), HasSubstr("-- not permitted"));
  for (char const* name : {"", "/host.table"}) {
    ASSERT_EQ(chown((site().exported() + name).c_str(), 0, TestSupport::nobody), 0);
  }
  Outcome const shown = show({"hosts"}, true);
  EXPECT_EQ(shown.status, 0) << shown.err;
  EXPECT_EQ(shown.out, show({"hosts"}).out);

  EXPECT_THAT(waiting.line().value(), HasSubstr("-- mounted"));
  TestSupport::Program watch({"watch", "hosts", "--dir", dir(), "--initial", "--json"}, true);
  for (int i = 0; i < 3; ++i) EXPECT_THAT(watch.line().value(), HasSubstr("present"));
  EXPECT_THAT(watch.line().value(), HasSubstr("initial-end"));
  write({host(5000, 3, 12)});
  EXPECT_THAT(watch.line().value(), AllOf(HasSubstr("added"), HasSubstr("00:00:00:00:00:03")));
}

TEST(FormatTest, MacAddressesAreTakenAsPeopleWriteThem) {
  auto const expected = Wirix::EthAddr::ofValue(0x02A000138801);
  for (char const* text :
       {"02:a0:00:13:88:01", "02:A0:00:13:88:01", "02-a0-00-13-88-01", "02a0.0013.8801", "02A000138801"}) {
    EXPECT_EQ(Agent::macFromPeople(text), expected) << text;
  }
  for (char const* text :
       {"", "02:a0:00:13:88", "02:a0:00:13:88:01:02", "02:a0:00:13:88:0g", "02:a0-00:13:88:01",
        "02.a0.00.13.88.01", "02a0:0013:8801", "02:a0:00:13:88:01 "}) {
    EXPECT_THROW(Agent::macFromPeople(text), Orb::ParseError) << text;
  }
}

}  // namespace
