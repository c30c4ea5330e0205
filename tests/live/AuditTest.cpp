/// A site with a switch, a BGP speaker and all that is between: what is asked of both of them.

#include <gtest/gtest.h>

#include "agent/AgentSite.h"
#include "support/Database.h"
#include "support/Gobgpd.h"

namespace Agent {

namespace {

TEST(AuditTest, LooksAtTheSwitchesDatabaseAndAtTheSpeakersRoutes) {
  TestSupport::Gobgpd const speaker(1, {});
  TestSupport::Database database;
  database.vtep(
      "add-ps tor1 -- set Physical_Switch tor1 tunnel_ips=10.99.0.11 -- add-ls red"
      " -- set Logical_Switch red tunnel_key=5000 -- add-ucast-local red 02:00:00:00:00:01 10.99.0.11");
  AgentSite site;
  TestSupport::Program agent({"agent", "--dir", site.dir, "--feed", "-", "--switch",
                              "leaf1=" + database.endpoint(), "--speaker", speaker.endpoint(), "--as",
                              std::to_string(speaker.as()), "--router-id", speaker.routerId()});
  agent.write(R"({"from":"evpn","op":"capability","value":true}
{"from":"controller","op":"mac","vni":5000,"mac":"02:00:00:00:00:02","vtep":"10.99.0.12","seq":1}
{"from":"controller","op":"synced"}
)");
  auto const answer = [&site](std::string const& question) { return site.ask("why " + question).at(0); };
  ASSERT_TRUE(becomes([&] {
    return database.remoteMacs("red") == std::vector<std::string>{"02:00:00:00:00:02 10.99.0.12"} &&
           !answer("02:00:00:00:00:02 5000")["evpnSide"]["route"]["announced"].is_null();
  })) << agent.errors();
  auto const said = answer("02:00:00:00:00:02 5000");
  EXPECT_EQ(said["switches"],
            nlohmann::ordered_json::parse(R"([{"name": "leaf1", "remote": [["10.99.0.12"]]}])"));
  EXPECT_EQ(said["evpnSide"]["route"]["announced"],
            nlohmann::ordered_json::parse(R"({"vtep": "10.99.0.12", "seq": 1})"));
  EXPECT_EQ(answer("02:00:00:00:00:01 5000")["sources"][0]["name"], "leaf1");
  EXPECT_EQ(site.look().remoteTables.size(), 2U);

  auto const audit = [&] { return TestSupport::run({"audit", "--dir", site.dir, "--pause", "0.1"}); };
  EXPECT_TRUE(becomes([&] { return audit().out == "Every row is as it should be.\n"; })) << audit().out;
  ASSERT_EQ(speaker.command("global rib add -a evpn macadv 02:00:00:00:00:99 0.0.0.0 etag 5000 label 5000 rd "
                            "10.99.0.1:5000 rt 65001:5000 encap vxlan"),
            0);
  EXPECT_TRUE(becomes([&] {
    return audit().out.starts_with(
        "speaker/host  vni 5000  mac 02:00:00:00:00:99: orphan: the site exports no such row\n");
  })) << audit().out;
}

}  // namespace

}  // namespace Agent
