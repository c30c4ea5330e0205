#include "agent/audit/Audit.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <thread>

#include "AgentSite.h"
#include "SiteWriter.h"

namespace Agent {
namespace {

using QorEvpn::FloodEntry, QorEvpn::Host, TestSupport::Program, TestSupport::run;

Bridging::BridgeId bridgeId(std::uint32_t vni) { return Bridging::BridgeId::ofVni(Vxlan::Vni(vni)); }

/// A site of the VNI 5000 in which all is well: the controller knows the MAC 1 from its switches and the
/// MAC 2 from EVPN. EVPN also has an older entry of the MAC 1.
SiteLook soundLook() {
  SiteLook look;
  look.state = {.isEnabled = true, .isCapable = true};
  look.sides.take(Vxlan::Vni(5000), nlohmann::ordered_json::parse(R"({
      "controller": {"hosts": ["00:00:00:00:00:01 10.99.0.11 1 16", "00:00:00:00:00:02 10.99.0.22 0 16"],
                     "multipaths": ["00:00:00:00:00:03"],
                     "floods": {"00:00:00:00:00:00": ["10.99.0.11 on", "10.99.0.12 off", "10.99.0.22 on"]}},
      "evpn": {"hosts": ["00:00:00:00:00:01 10.99.0.22 0 16", "00:00:00:00:00:02 10.99.0.22 0 16"],
               "multipaths": [], "floods": {"00:00:00:00:00:00": ["10.99.0.22 on"]}}})"));
  look.exported.add(host(5000, 1, 11, 1));
  look.exported.add(flood(5000, 11));
  look.exported.add(bridgeId(5000));
  for (std::uint64_t const mac : {1U, 2U}) look.learned.add(host(5000, mac, 22));
  look.learned.add(flood(5000, 22));
  return look;
}

std::vector<std::string> findingsOf(SiteLook& look) {
  look.exported.sort(), look.learned.sort();
  std::vector<std::string> found;
  for (Finding const& finding : audit(look)) found.push_back(Orb::toText(finding));
  return found;
}

TEST(AuditTest, NamesEachRowThatIsNotAsItShouldBe) {
  std::string const host5000 = "exported/host  vni 5000  mac 00:00:00:00:00:0";
  std::string const echoed = ": echoed: EVPN supplied exactly this, and nothing is echoed";
  std::string const notServed = ": orphan: no source of the controller serves the VNI";
  struct {
    void (*plant)(SiteLook&);
    std::vector<std::string> findings;
  } const cases[] = {
      {[](SiteLook&) {}, {}},
      {[](SiteLook& look) { look.exported.of<Host>().clear(); },
       {host5000 + "1: missing: the controller has it, and nothing keeps it out"}},
      {[](SiteLook& look) { look.exported.add(host(5000, 3, 11)); },
       {host5000 + "3: orphan: it is in the multipath table only"}},
      {[](SiteLook& look) { look.exported.add(host(6000, 1, 11)); },
       {"exported/host  vni 6000  mac 00:00:00:00:00:01" + notServed}},
      {[](SiteLook& look) { look.exported.add(host(5000, 2, 22)); }, {host5000 + "2" + echoed}},
      {[](SiteLook& look) { look.exported.of<Host>() = {host(5000, 1, 12, 1)}; },
       {host5000 + "1: stale: vtep 10.99.0.12, not 10.99.0.11"}},
      {[](SiteLook& look) { look.exported.of<Host>() = {host(5000, 1, 22)}; },
       {host5000 + "1: echoed: vtep 10.99.0.22, not 10.99.0.11; seq 0, not 1"}},
      {[](SiteLook& look) { look.exported.add(host(5000, 1, 11, 1)); },
       {host5000 + "1: duplicate: it is there 2 times"}},
      {[](SiteLook& look) {
         look.exported.of<FloodEntry>() = {flood(5000, 12), flood(5000, 22)};
       },
       {"exported/flood  vni 5000  vtep 10.99.0.11: missing: the controller floods to it, and nothing keeps "
        "it out",
        "exported/flood  vni 5000  vtep 10.99.0.12: orphan: the flood list has the VTEP switched off",
        "exported/flood  vni 5000  vtep 10.99.0.22" + echoed}},
      {[](SiteLook& look) { look.exported.of<Bridging::BridgeId>() = {bridgeId(6000)}; },
       {"exported/brId  vni 5000: missing: the VNI is served and has entries",
        "exported/brId  vni 6000" + notServed}},
      // What EVPN told is not what the agent holds.
      {[](SiteLook& look) {
         look.learned.of<Host>() = {host(5000, 1, 22), host(5000, 1, 22), host(5000, 2, 22, 7),
                                    host(5000, 4, 22)};
         look.learned.of<FloodEntry>().clear();
       },
       {"learned/host  vni 5000  mac 00:00:00:00:00:01: duplicate: it is there 2 times",
        "evpn-status/host  vni 5000  mac 00:00:00:00:00:02: stale: seq 0, not 7",
        "evpn-status/host  vni 5000  mac 00:00:00:00:00:04: missing: the learned table has it",
        "evpn-status/flood  vni 5000  vtep 10.99.0.22: orphan: the learned table has no such row"}},
      // While it is off nothing is there; what an earlier run left is not looked at before anybody has said.
      {[](SiteLook& look) {
         look.state.isCapable = false;
         look.sides.evpn->vniStatusV2Del(Vxlan::Vni(5000));
         look.exported.of<FloodEntry>().clear(), look.exported.of<Bridging::BridgeId>().clear();
       },
       {host5000 + "1: orphan: the integration is off, since EVPN is not capable"}},
      {[](SiteLook& look) { look.isKept = true, look.exported.of<Host>().clear(); }, {}},
      // Entries that are not supported decide late.
      {[](SiteLook& look) {
         for (std::uint32_t const vni : {1U, 2U}) {
           look.sides.take(Vxlan::Vni(vni), nlohmann::ordered_json::parse(R"({"evpn": null, "controller":
               {"hosts": [], "multipaths": ["00:00:00:00:00:03"], "floods": {}}})"));
         }
         look.exported.add(bridgeId(2));
       },
       {}},
  };
  for (auto const& each : cases) {
    SiteLook look = soundLook();
    each.plant(look);
    EXPECT_EQ(findingsOf(look), each.findings);
  }
}

TEST(AuditTest, NamesEachRemoteRowOfASwitchThatIsNotAsItShouldBe) {
  auto const findings = [](std::string const& unicast, std::string const& flood, bool isSettled) {
    SiteLook look = soundLook();
    look.isSettled = isSettled;
    look.remoteTables = RemoteTable::ofJson(Vxlan::Vni(5000), nlohmann::ordered_json::parse(R"([{
        "name": "leaf1", "own": ["10.99.0.11"], "told": ["00:00:00:00:00:04 10.99.0.44"],
        "tables": [{"name": "Ucast_Macs_Remote", "rows": [)" + unicast + R"(]},
                   {"name": "Mcast_Macs_Remote", "rows": [)" + flood + "]}]}]"));
    return findingsOf(look);
  };
  using testing::ElementsAre, testing::IsEmpty;
  std::string const table = "leaf1/Ucast_Macs_Remote  vni 5000  mac 00:00:00:00:00:0";
  std::string const right = "\"00:00:00:00:00:02 10.99.0.22\"", flood = "\"00:00:00:00:00:00 10.99.0.22\"";
  EXPECT_THAT(findings(right, flood, true), IsEmpty());
  EXPECT_THAT(findings("", flood, false),
              ElementsAre(table + "2: missing: the controller has it from elsewhere"));
  EXPECT_THAT(findings(right + "," + right, flood, true),
              ElementsAre(table + "2: duplicate: it is there 2 times"));
  EXPECT_THAT(findings("\"00:00:00:00:00:02 10.99.0.23\"", flood, true),
              ElementsAre(table + "2: stale: vteps 10.99.0.23, not 10.99.0.22"));
  std::string const others = right + R"(,"00:00:00:00:00:01 10.99.0.11","00:00:00:00:00:04 10.99.0.44",
                                        "00:00:00:00:00:05 10.99.0.22")";
  EXPECT_THAT(findings(others, flood, true),
              ElementsAre(table + "1: echoed: it leads to the switch itself",
                          table + "4: echoed: it leads to the switch itself",
                          table + "5: orphan: the controller has no such entry from elsewhere"));
  EXPECT_THAT(findings(right + ",\"00:00:00:00:00:05 10.99.0.22\"",
                       "\"00:00:00:00:00:00 10.99.0.22 10.99.0.23\"", false),
              IsEmpty())
      << "while sources tell their state, rows stay";
  EXPECT_THAT(findings(right, "\"00:00:00:00:00:00 10.99.0.22 10.99.0.23\"", true),
              ElementsAre("leaf1/Mcast_Macs_Remote  vni 5000  mac 00:00:00:00:00:00: stale: vteps 10.99.0.22 "
                          "10.99.0.23, not 10.99.0.22"));
}

/// A running site of which the test has the EVPN side's tables.
struct AuditSite : testing::Test, SiteWriter {
  AuditSite() : agent({"agent", "--dir", dir(), "--feed", "-"}) {
    mount(learnedHosts, true);
    agent.write(
        "{\"from\":\"controller\",\"op\":\"enabled\",\"value\":true}\n"
        "{\"from\":\"evpn\",\"op\":\"capability\",\"value\":true}\n");
    tell(1, 0);
  }
  void tell(std::uint64_t mac, unsigned seq) const {
    agent.write(R"({"from":"controller","op":"mac","vni":5000,"mac":")" +
                Orb::toText(Wirix::EthAddr::ofValue(mac)) + R"(","vtep":"10.99.0.11","seq":)" +
                std::to_string(seq) + "}\n");
  }
  bool settles() const {
    return becomes([&] { return SiteView(site()).exported().of<Host>().size() == 1; });
  }
  TestSupport::Outcome audit(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), {"audit", "--dir", dir()});
    return run(arguments);
  }
  Program agent;
};

TEST_F(AuditSite, FindsRowsThatAreNotTheAgentsOwn) {
  ASSERT_TRUE(settles()) << agent.errors();
  EXPECT_EQ(audit({"--pause", "0"}).out, "Every row is as it should be.\n");
  EXPECT_EQ(run({"show", "switches", "--dir", dir()}).out, "none\n");
  // Somebody puts another site's table in the place of the agent's.
  SiteWriter other;
  other.mountHosts();
  other.write({host(5000, 9, 11)});
  std::filesystem::copy(other.site().exported() + "/host.table", dir() + "/copy");
  std::filesystem::rename(dir() + "/copy", site().exported() + "/host.table");
  auto const outcome = audit({"--pause", "0.01", "--json"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(nlohmann::json::parse(outcome.out), nlohmann::json::parse(R"([
      {"table": "exported/host", "vni": 5000, "mac": "00:00:00:00:00:01", "fault": "missing",
       "reason": "the controller has it, and nothing keeps it out"},
      {"table": "exported/host", "vni": 5000, "mac": "00:00:00:00:00:09", "fault": "orphan",
       "reason": "the controller has no such entry"}])"));
}

TEST_F(AuditSite, IsNotMisledByRowsThatChangeWhileItLooks) {
  ASSERT_TRUE(settles()) << agent.errors();
  std::jthread const busy([this](std::stop_token const& stop) {
    for (unsigned seq = 1; !stop.stop_requested(); ++seq) tell(1 + seq % 64, seq);
  });
  for (int i = 0; i < 5; ++i) EXPECT_EQ(audit({"--pause", "0"}).out, "Every row is as it should be.\n");
}

TEST(UnreachableTest, IsNamedByAuditsAndNotMistakenForRight) {
  AgentSite site;
  Program agent({"agent", "--dir", site.dir, "--switch", "leaf1=unix:" + site.dir + "/none", "--speaker",
                 "127.0.0.1:1", "--as", "1", "--router-id", "10.0.0.1"});
  ASSERT_TRUE(site.isHosted()) << agent.errors();
  auto const outcome = run({"audit", "--dir", site.dir});
  EXPECT_EQ(outcome.out,
            "not looked at: exported tables (they stay as they were until sources tell what is on)\n"
            "not looked at: speaker 127.0.0.1:1 (connecting)\nnot looked at: switch leaf1 (connecting)\n"
            "Every row that was looked at is as it should be.\n");
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_THAT(run({"audit", "-j", "--dir", site.dir}).out,
              testing::HasSubstr(R"("notLookedAt":"switch leaf1","reason":"connecting")"));
  EXPECT_THAT(run({"evpn", "--speaker", "127.0.0.1:1", "--as", "1", "--router-id", "0.0.0.0"}).err,
              testing::HasSubstr("--router-id 0.0.0.0: it identifies no speaker"));
  EXPECT_THAT(run({"show", "agent", "--dir", site.dir}).out, testing::Not(testing::HasSubstr("feed")));
}

}  // namespace
}  // namespace Agent
