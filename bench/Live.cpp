/// Rows from one site's tables through its BGP speaker and the other site's to the events that the other site
/// is told: how long it takes, and of that the adapters' processor time beside the two speakers'.

#include <algorithm>

#include "Harness.h"
#include "adapters/gobgp/Speaker.h"
#include "support/Gobgpd.h"

namespace Bench {
namespace {

using namespace std::chrono_literals;
using TestSupport::Gobgpd;

class Live {
 public:
  explicit Live(Report& report) : report_(report) {
    loop_.turnEndIs([this] { turnEnded(); });
    here_.beginSending();
    await([this] { return isUp_[0] && isUp_[1]; });
  }

  void round() {
    std::vector<double> waits;
    for (unsigned i = 0; i < 20; ++i) waits.push_back(carry(1).wall);
    std::nth_element(waits.begin(), waits.begin() + 10, waits.end());
    report_.add("live-one", "wall", waits[10] * 1e3);
    Cost const cost = carry(1'000);
    report_.add("live-1k", "adapters' processor time", cost.ours * 1e3);
    report_.add("live-1k", "speakers' processor time", cost.theirs * 1e3);
    report_.add("live-1k", "wall", cost.wall * 1e3);
    report_.add("live-1k", "longest turn", longest_ * 1e3);
  }

 private:
  struct Cost {
    double wall, ours, theirs;
  };

  /// Announces so many hosts that were not there, until the other site knows all; then takes them back.
  Cost carry(unsigned count) {
    longest_ = 0;
    double const theirs = theirTime();
    double const ours = now(Clock::cpu);
    double const start = now(Clock::wall);
    for (unsigned i = 0; i < count; ++i) here_.hostIs(host(i));
    await([&] { return known_ == count; });
    Cost const cost{now(Clock::wall) - start, now(Clock::cpu) - ours, theirTime() - theirs};
    for (unsigned i = 0; i < count; ++i) here_.hostDel(host(i).key());
    await([&] { return known_ == 0; });
    return cost;
  }

  static QorEvpn::Host host(unsigned number) {
    QorEvpn::Host row{
        QorEvpn::MacVniPair(Wirix::EthAddr::ofValue(0x020000000000 + number), Vxlan::Vni(5000))};
    row.vtepAddrIs(Wirix::IpAddr("10.99.0.11"));
    return row;
  }
  double theirTime() const { return processorTime(west_.pid()) + processorTime(east_.pid()); }

  Gobgp::Speaker::Options optionsOf(Gobgpd const& gobgpd) const {
    return {.endpoint = gobgpd.endpoint(), .identity = {gobgpd.as(), Wirix::IpAddr(gobgpd.routerId())}};
  }
  void take(unsigned site, Agent::Event const& event) {
    if (event.op == Agent::Op::capability) isUp_[site] = event.value;
    if (site == 1 && event.op == Agent::Op::mac) ++known_;
    if (site == 1 && event.op == Agent::Op::macDel) --known_;
  }
  Agent::SourceHandlers handlersOf(unsigned site) {
    return {[this, site](Agent::Event const& event) { take(site, event); },
            [](Agent::SourceState, std::string const&) {}, [](std::string const& line) { fail(line); }};
  }
  void await(std::function<bool()> condition) {
    condition_ = std::move(condition);
    loop_.run();
  }
  /// Processor time between two waits is what a turn took.
  void turnEnded() {
    double const time = now(Clock::cpu);
    longest_ = std::max(longest_, time - turnBegan_);
    if (condition_ && condition_()) loop_.stop();
    turnBegan_ = now(Clock::cpu);
  }

  Report& report_;
  Agent::Loop loop_;
  bool isUp_[2] = {};
  std::size_t known_ = 0;
  double turnBegan_ = now(Clock::cpu), longest_ = 0;
  std::function<bool()> condition_;
  Gobgpd west_{1, {2}}, east_{2, {1}};
  Gobgp::Speaker here_{loop_, optionsOf(west_), handlersOf(0)};
  Gobgp::Speaker there_{loop_, optionsOf(east_), handlersOf(1)};
};

void run(Options const& options) {
  Report report(options, {{"live-one", "one MAC, site to site", "ms", false},
                          {"live-1k", "1,000 MACs, site to site", "ms", false}});
  Live live(report);
  for (unsigned i = 0; i < options.rounds; ++i) live.round();
  report.print();
}

}  // namespace
}  // namespace Bench

int main(int argc, char** argv) { return Bench::main(argc, argv, Bench::run); }
