#include <gmock/gmock.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "tests/agent/SiteWriter.h"

namespace {

using testing::HasSubstr;
using TestSupport::Outcome, TestSupport::run;

struct CheckTest : testing::Test, SiteWriter {
  Outcome check(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), {"check", "--dir", dir()});
    return run(arguments);
  }
};

TEST_F(CheckTest, NamesTheInvariantThatFails) {
  EXPECT_EQ(check({"--all"}).status, 1) << "nothing there";
  mountHosts();
  mount(learnedHosts, true);
  for (std::uint64_t mac = 1; mac <= 20; ++mac) hosts.write(host(5000, mac, 11));
  hosts.endTurn();
  Outcome outcome = check({"--all"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.out,
            "exported/host: sound, 20 rows\nexported/flood: no table\nexported/brId: no table\n"
            "exported/state: no table\nlearned/host: sound, 0 rows\nlearned/flood: no table\n"
            "learned/state: no table\n");
  EXPECT_EQ(check({"floods"}).status, 1) << "named, but missing";

  std::string const path = site().exported() + "/host.table";
  TestSupport::damage(path, std::string("\x0B\x00\x63\x0A", 4));  // the VTEP address of one row
  outcome = check({"hosts", "--json"});
  EXPECT_EQ(outcome.status, 1);
  auto const finding = nlohmann::json::parse(outcome.out).at(0);
  EXPECT_EQ(finding.at("table"), "exported/host");
  EXPECT_EQ(finding.at("violations").at(0).at("invariant"), "row check");
  // What is sound is still shown, and the exit status says that something is missing.
  outcome = run({"show", "hosts", "--dir", dir(), "--text"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(std::count(outcome.out.begin(), outcome.out.end(), '\n'), 19);

  std::ofstream(path, std::ios::in | std::ios::binary).put('\0');  // the first byte of the file
  outcome = check({"--all"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.out, HasSubstr("exported/host: NOT SOUND\n  mount: "));
}

}  // namespace
