#include <gtest/gtest.h>

#include <filesystem>

#include "AgentSite.h"
#include "SiteWriter.h"
#include "agent/evpn/Learned.h"
#include "agent/site/Control.h"

namespace {

using Agent::SiteRows;
using TestSupport::Program;

/// The EVPN side between three sites, whose agents' tables the test writes itself.
class ExchangeTest : public testing::Test {
 protected:
  void start() {
    evpn_.emplace(std::vector<std::string>{"evpn", "--dir", sites_[0].dir(), "--peer", sites_[1].dir(),
                                           "--peer", sites_[2].dir()});
  }
  void mount() {
    for (SiteWriter& site : sites_) {
      site.mountHosts();
      site.mount(site.floods);
    }
  }
  /// Waits until every site has learned exactly these rows.
  void expectLearned(std::vector<std::vector<QorEvpn::Host>> const& wanted) {
    for (std::size_t i = 0; i < 3; ++i) {
      EXPECT_TRUE(becomes([&] { return views_[i].learned().of<QorEvpn::Host>() == wanted[i]; }))
          << "site " << i << " learned " << views_[i].learned().of<QorEvpn::Host>().size() << " hosts";
    }
  }

  SiteWriter sites_[3];
  Agent::SiteView views_[3]{Agent::SiteView(sites_[0].site()), Agent::SiteView(sites_[1].site()),
                            Agent::SiteView(sites_[2].site())};
  std::optional<Program> evpn_;
};

TEST_F(ExchangeTest, SequenceNumbersDecideAndNothingReturns) {
  start();
  mount();
  auto const first = host(5000, 1, 1, 4), lower = host(5000, 1, 2, 5), tied = host(5000, 1, 3, 5);
  sites_[0].write({first});
  expectLearned({{}, {first}, {first}});
  sites_[2].write({tied});
  expectLearned({{tied}, {tied}, {}});
  // Of equals the lower VTEP address wins, and the loser learns the winner's.
  sites_[1].write({lower});
  expectLearned({{lower}, {}, {lower}});
  sites_[1].remove(lower);
  expectLearned({{tied}, {tied}, {}});
  sites_[2].remove(tied);
  expectLearned({{}, {first}, {first}});

  for (std::size_t const site : {0U, 1U}) {
    sites_[site].floods.write(flood(5000, 9));
    sites_[site].floods.endTurn();
  }
  EXPECT_TRUE(becomes([&] {
    return views_[0].learned().of<QorEvpn::FloodEntry>().size() == 1 &&
           views_[1].learned().of<QorEvpn::FloodEntry>().size() == 1 &&
           views_[2].learned().of<QorEvpn::FloodEntry>().size() == 1;
  }));
  sites_[0].floods.erase(flood(5000, 9).key());
  sites_[0].floods.endTurn();
  EXPECT_TRUE(becomes([&] {
    return views_[1].learned().of<QorEvpn::FloodEntry>().empty() &&
           !views_[0].learned().of<QorEvpn::FloodEntry>().empty();
  }));
}

TEST_F(ExchangeTest, ARestartWithdrawsWhatIsNoLongerExportedAndTouchesNothingElse) {
  mount();
  start();
  auto const stays = host(5000, 1, 1), goes = host(5000, 2, 1), comes = host(5000, 3, 2);
  sites_[0].write({stays, goes});
  expectLearned({{}, {stays, goes}, {stays, goes}});
  Agent::TablePair learned("learned", sites_[2].site().learned());
  learned.mountAsReader();
  learned.deliver();

  evpn_->signal(SIGKILL);
  evpn_->wait();
  sites_[0].remove(goes);
  sites_[1].write({comes});
  expectLearned({{}, {stays, goes}, {stays, goes}});
  auto const before = learned.host->statistics().delivered;
  start();
  expectLearned({{comes}, {stays}, {stays, comes}});
  EXPECT_TRUE(becomes([&] {
    learned.deliver();
    return learned.host->statistics().delivered >= before + 2;
  }));
  EXPECT_EQ(learned.host->statistics().delivered, before + 2) << "one removal, one insertion";
}

TEST_F(ExchangeTest, ASiteWhoseTablesAreMissingLosesNoRowsUntilItIsBackOrGivenUp) {
  mount();
  start();
  auto const stays = host(5000, 1, 1), goes = host(5000, 2, 1), other = host(5000, 3, 2),
             fed = host(5000, 4, 3);
  sites_[1].write({stays, goes});
  sites_[2].write({other});
  expectLearned({{stays, goes, other}, {other}, {stays, goes}});
  evpn_->signal(SIGKILL);
  evpn_->wait();
  std::string const place = sites_[1].site().exported(), away = place + ".away";
  std::filesystem::rename(place, away);
  sites_[1].remove(goes);
  sites_[2].remove(other);

  // What a feed says is merged with what other sites export.
  std::vector<std::string> arguments{"evpn", "--dir", sites_[0].dir(), "--feed", "-"};
  for (std::size_t const peer : {1U, 2U}) arguments.insert(arguments.end(), {"--peer", sites_[peer].dir()});
  evpn_.emplace(arguments);
  evpn_->write(R"({"from":"evpn","op":"mac","vni":5000,"mac":"00:00:00:00:00:04","vtep":"10.99.0.3"})"
               "\n"
               R"({"from":"evpn","op":"synced"})"
               "\n");
  expectLearned({{stays, goes, other, fed}, {}, {stays, goes}});
  auto const state = [&] {
    return Agent::controlRequest(sites_[0].site(), "state", Agent::ControlSide::evpn)["sources"][0]["state"];
  };
  EXPECT_EQ(state(), "connecting");
  std::filesystem::rename(away, place);
  expectLearned({{stays, fed}, {}, {stays}});
  EXPECT_EQ(state(), "synced");
}

TEST_F(ExchangeTest, ARowThatReadersTakeForAbsentIsNotLeftInTheTable) {
  Agent::Learned learned(sites_[0].site(), false);
  QorEvpn::Host row;
  row.vtepAddrIs(Wirix::IpAddr("10.99.0.1"));
  learned.hostIs(row);
  EXPECT_EQ(learned.rows(), 1u);
  learned.hostIs(QorEvpn::Host());
  EXPECT_EQ(learned.rows(), 0u);
}

}  // namespace
