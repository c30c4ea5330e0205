/// Two sites with a BGP speaker each, GoBGP, and everything between a controller's switches and the other
/// site's: agent, EVPN side and speaker of both, each killed and started again.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>
#include <memory>
#include <random>
#include <set>

#include "agent/AgentSite.h"
#include "support/Gobgpd.h"
#include "support/Scale.h"

namespace Agent {

namespace {

using TestSupport::Gobgpd;
using TestSupport::Program;

/// A site: its tables, its processes, what its switches say, and observers that count removals.
class LiveSite {
 public:
  LiveSite(unsigned number, Gobgpd const& speaker) : number_(number), speaker_(speaker) {}

  void start() {
    startEvpn();
    startAgent();
    tellAll();
    for (bool const isLearned : {false, true}) {
      std::vector<std::string> arguments{"watch", "hosts", "floods", "--dir", site_.dir, "--stay", "--json"};
      if (isLearned) arguments.push_back("--learned");
      observers_.push_back(std::make_unique<Program>(arguments));
    }
  }
  void startAgent() {
    agent_ = std::make_unique<Program>(std::vector<std::string>{"agent", "--dir", site_.dir, "--feed", "-"});
  }
  void startEvpn() {
    evpn_ = std::make_unique<Program>(
        std::vector<std::string>{"evpn", "--dir", site_.dir, "--speaker", speaker_.endpoint(), "--as",
                                 std::to_string(speaker_.as()), "--router-id", speaker_.routerId()});
  }
  void killAgent() { agent_.reset(); }
  void killEvpn() { evpn_.reset(); }

  /// A switch learns a MAC, or learns it behind another VTEP.
  void learn(unsigned host, unsigned seq) {
    hosts_[host] = seq;
    if (agent_) agent_->write(line(host));
  }
  void forget(unsigned host) {
    hosts_.erase(host);
    agent_->write(R"({"from":"controller","op":"mac-del","vni":5000,"mac":")" + mac(host) + "\"}\n");
  }
  /// What a feed tells from its beginning, and how much of its hosts; `isWhole`: and that this was all.
  void tell(std::size_t begin, std::size_t end, bool isWhole) {
    if (begin == 0) {
      agent_->write(R"({"from":"controller","op":"enabled","value":true})"
                    "\n"
                    R"({"from":"controller","op":"vni","vni":5000})"
                    "\n");
      agent_->write(R"({"from":"controller","op":"flood","vni":5000,"vtep":")" + vtep(0) + "\"}\n");
    }
    std::size_t i = 0;
    for (auto const& [host, seq] : hosts_) {
      if (i >= begin && i < end) agent_->write(line(host));
      ++i;
    }
    if (isWhole)
      agent_->write(R"({"from":"controller","op":"synced"})"
                    "\n");
  }
  void tellAll() { tell(0, hosts_.size(), true); }
  std::size_t hosts() const { return hosts_.size(); }

  /// Rows of hosts that this site's switches know, as any site shows them.
  std::set<std::string> known() const {
    std::set<std::string> rows;
    for (auto const& [host, seq] : hosts_)
      rows.insert(mac(host) + ' ' + vtep(seq) + ' ' + std::to_string(seq));
    return rows;
  }
  std::set<std::string> exported() { return rowsOf("exported"); }
  std::set<std::string> learned() { return rowsOf("learned"); }
  std::string speakerState() const {
    try {
      return controlRequest(Site(site_.dir), "state", ControlSide::evpn)["sources"][0]["state"];
    } catch (std::exception const&) {
      return {};
    }
  }
  bool isAgentWhole() const {
    try {
      return site_.ask("state")["settled"] == true;
    } catch (std::exception const&) {
      return false;
    }
  }

  /// The tables, and what the speaker announces, are as they should be.
  bool isSound() const {
    return TestSupport::run({"audit", "--dir", site_.dir, "--pause", "0.2"}).status == 0;
  }

  /// Ends the observers: what was removed from the tables while they watched.
  std::vector<std::string> removals() {
    std::vector<std::string> found;
    for (auto const& observer : observers_) {
      observer->signal(SIGTERM);
      std::istringstream lines(observer->rest());
      for (std::string each; std::getline(lines, each);) {
        if (each.find(R"("event":"removed")") != std::string::npos) found.push_back(each);
      }
    }
    observers_.clear();
    return found;
  }

 private:
  std::string mac(unsigned host) const {
    std::array<char, 18> text;
    std::snprintf(text.data(), text.size(), "02:0%u:00:00:%02x:%02x", number_, host >> 8 & 255, host & 255);
    return text.data();
  }
  /// A move is to the site's other VTEP.
  std::string vtep(unsigned seq) const {
    return "10.99." + std::to_string(number_) + '.' + std::to_string(1 + seq % 2);
  }
  std::string line(unsigned host) const {
    unsigned const seq = hosts_.at(host);
    return R"({"from":"controller","op":"mac","vni":5000,"mac":")" + mac(host) + R"(","vtep":")" + vtep(seq) +
           R"(","seq":)" + std::to_string(seq) + "}\n";
  }
  std::set<std::string> rowsOf(std::string const& folder) {
    std::set<std::string> rows;
    auto const all = folder == "exported" ? site_.view.exported() : site_.view.learned();
    for (QorEvpn::Host const& row : all.of<QorEvpn::Host>()) {
      rows.insert(Orb::toText(row.key().macAddr()) + ' ' + Orb::toText(row.vtepAddr()) + ' ' +
                  Orb::toText(row.seqNo()));
    }
    return rows;
  }

  unsigned number_;
  Gobgpd const& speaker_;
  AgentSite site_;
  std::map<unsigned, unsigned> hosts_;
  std::unique_ptr<Program> agent_, evpn_;
  std::vector<std::unique_ptr<Program>> observers_;
};

class ChainTest : public testing::Test {
 protected:
  void SetUp() override {
    for (LiveSite* const site : {&west, &east}) {
      for (unsigned host = 0; host < hosts; ++host) site->learn(host, 0);
      site->start();
    }
    ASSERT_TRUE(becomes([&] { return isJoined(); }));
  }
  /// Each site exports what its switches know, and has learned what the other one exports.
  bool isJoined() {
    return west.exported() == west.known() && east.exported() == east.known() &&
           west.learned() == east.known() && east.learned() == west.known();
  }

  static constexpr unsigned hosts = 40;
  Gobgpd westSpeaker{1, {2}}, eastSpeaker{2, {1}};
  LiveSite west{1, westSpeaker}, east{2, eastSpeaker};
};

TEST_F(ChainTest, NoValidRowIsRemovedWhicheverOfOurProcessesIsKilled) {
  std::mt19937 random(7);
  for (unsigned round = 0; round < 8; ++round) {
    SCOPED_TRACE(round);
    LiveSite& site = round % 2 == 0 ? west : east;
    std::size_t const half = site.hosts() / 2;
    bool const isAgent = round % 4 < 2;
    // Something is on its way when it dies, and something happens while it is away.
    site.learn(static_cast<unsigned>(random() % hosts), round + 1);
    isAgent ? site.killAgent() : site.killEvpn();
    site.learn(static_cast<unsigned>(random() % hosts), round + 1);
    site.learn(hosts + round, 0);
    if (isAgent) {
      site.startAgent();
      // Only half of its state is told at first, and that arrives.
      site.tell(0, half, false);
      site.tell(site.hosts() - 1, site.hosts(), false);
      ASSERT_TRUE(becomes([&] { return site.exported().size() == site.hosts(); }));
      ASSERT_FALSE(site.isAgentWhole());
      site.tell(half, site.hosts(), true);
    } else {
      site.startEvpn();
    }
    ASSERT_TRUE(becomes([&] { return isJoined(); }));
  }
  // What a switch forgets is removed, and all that is.
  west.forget(0);
  ASSERT_TRUE(becomes([&] { return isJoined() && west.isSound() && east.isSound(); }));
  EXPECT_THAT(west.removals(), testing::ElementsAre(testing::HasSubstr("02:01:00:00:00:00")));
  EXPECT_THAT(east.removals(), testing::ElementsAre(testing::HasSubstr("02:01:00:00:00:00")));
}

TEST_F(ChainTest, ASpeakerThatIsKilledTakesNothingFromItsOwnSite) {
  westSpeaker.kill();
  ASSERT_TRUE(becomes([&] { return west.speakerState() == "lost"; }));
  west.learn(hosts, 3);
  ASSERT_TRUE(becomes([&] { return west.exported() == west.known(); }));
  westSpeaker.start();
  ASSERT_TRUE(becomes([&] { return west.speakerState() == "synced" && isJoined(); }));
  EXPECT_THAT(west.removals(), testing::IsEmpty());
}

}  // namespace

}  // namespace Agent
