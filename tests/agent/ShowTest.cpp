#include <gmock/gmock.h>

#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <sstream>

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

// Commands, what they print, and their exit status unless it is 0. A line with a # says what happened to the
// site in between.
TEST_F(ShowTest, PrintsWhatTheFileBesideThisSays) {
  std::string const file = site().exported() + "/host.table";
  std::map<std::string, std::function<void()>> const events = {
      {"# the writer of the hosts ends", [&] { hosts.unmount(); }},
      {"# a bit of the VTEP address 10.99.0.12 of a host changes",
       [&] {
         TestSupport::damage(file, {"\x0C\x00\x63\x0A", 4});
       }},
      {"# the first octet of the file of hosts changes",
       [&] { std::ofstream(file, std::ios::in | std::ios::binary).put('\0'); }}};
  EXPECT_EQ(run({"check", "--all", "--dir", dir() + "/none"}).status, 1) << "nothing there";
  std::string const expected = TestSupport::sourceText("tests/agent/ShowTest.transcript");
  std::string printed;
  std::istringstream lines(expected);
  for (std::string line; std::getline(lines, line);) {
    if (!line.starts_with("$ ") && !line.starts_with("# ")) continue;
    printed += line + '\n';
    if (line[0] == '#') {
      events.at(line)();
      continue;
    }
    std::istringstream words(line.substr(2));
    std::vector<std::string> arguments(std::istream_iterator<std::string>(words), {});
    arguments.insert(arguments.end(), {"--dir", dir()});
    Outcome const outcome = run(arguments);
    printed += outcome.out + outcome.err;
    if (outcome.status != 0) printed += "exit status " + std::to_string(outcome.status) + '\n';
  }
  for (std::size_t at; (at = printed.find(dir())) != std::string::npos;)
    printed.replace(at, dir().size(), "DIR");
  EXPECT_EQ(printed, expected);
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

}  // namespace
