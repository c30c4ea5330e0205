/// A switch's database through agent, EVPN side and speaker to the other site, and back: how long it takes,
/// whose processor time it is, and how long a turn of the loop lasts meanwhile. Then the same without a
/// speaker, with a hundred thousand rows.

#include <algorithm>
#include <numeric>

#include "Harness.h"
#include "adapters/gobgp/Speaker.h"
#include "adapters/ovsdb/Session.h"
#include "agent/evpn/EvpnSide.h"
#include "agent/live/SpeakerSide.h"
#include "agent/live/SwitchSide.h"
#include "agent/site/HostedModule.h"
#include "support/Database.h"
#include "support/Gobgpd.h"

namespace Bench {
namespace {

using Ovsdb::Json;
using TestSupport::Database;
using TestSupport::Gobgpd;

Wirix::EthAddr mac(unsigned number) { return Wirix::EthAddr::ofValue(0x020000000000 + number); }

/// A database with a logical switch and a locator, which writes many rows by itself.
class Tor {
 public:
  Tor() {
    database_.vtep(
        "add-ps tor -- set Physical_Switch tor tunnel_ips=10.99.0.11 -- add-ls red -- set Logical_Switch red "
        "tunnel_key=5000 -- add-mcast-local red unknown-dst 10.99.0.11");
    logicalSwitch_ = database_.vtep("--bare --columns=_uuid list Logical_Switch").substr(0, 36);
    locator_ = database_.vtep("--bare --columns=_uuid list Physical_Locator").substr(0, 36);
  }
  Database& database() { return database_; }
  double time() const { return processorTime(database_.pid()); }

  /// The switch hears so many MACs more.
  void learn(unsigned first, unsigned count) {
    for (unsigned end = first + count; first < end;) {
      Json operations = Json::array({"hardware_vtep"});
      for (unsigned const part = std::min(end, first + 10'000); first < part; ++first) {
        operations.push_back({{"op", "insert"},
                              {"table", "Ucast_Macs_Local"},
                              {"row",
                               {{"MAC", Orb::toText(mac(first))},
                                {"logical_switch", {"uuid", logicalSwitch_}},
                                {"locator", {"uuid", locator_}}}}});
      }
      transact(operations);
    }
  }
  void forgetAll() {
    transact({"hardware_vtep", {{"op", "delete"}, {"table", "Ucast_Macs_Local"}, {"where", Json::array()}}});
  }

 private:
  void transact(Json const& operations) {
    Agent::Loop loop;
    Ovsdb::Session* asked = nullptr;
    Ovsdb::Session session(
        loop, Ovsdb::Endpoint(database_.endpoint()), {}, {},
        {[&] {
           asked->request("transact", operations, [&](Ovsdb::Session::Reply&& reply) {
             if (!reply.error.is_null()) fail(reply.error.dump());
             loop.stop();
           });
         },
         [](auto const&, auto const&, auto&&) {}, [](std::string const& cause, auto) { fail(cause); }});
    asked = &session;
    loop.run();
  }

  Database database_;
  std::string logicalSwitch_, locator_;
};

/// A site's agent and EVPN side in one loop, between a switch and whatever the EVPN side learns from.
class Chain {
 public:
  /// Begins with what an earlier one left there.
  Chain(Tor& tor, Place const& place) : site_(Agent::Site::made(place.path() + "/site")) {
    loop_.turnEndIs([this] { turnEnded(); });
    options_.switches = {"tor=" + tor.database().endpoint()};
    switches_.emplace(loop_, options_, module_.sources(), module_.controller());
    module_.enabledIs(true);
  }

  Agent::Loop& loop() { return loop_; }
  Agent::Site const& site() const { return site_; }
  Agent::EvpnSide& evpn() { return evpn_; }
  std::size_t exported() const { return module_.state()["exportedHosts"]; }
  std::size_t told() const { return tor()["remoteRows"]; }
  std::string state() const { return tor()["state"]; }
  bool isSettled() const { return module_.state()["settled"]; }

  void await(std::function<bool()> condition) {
    condition_ = std::move(condition);
    turnBegan_ = now(Clock::cpu);
    loop_.run();
    condition_ = {};
  }
  /// Processor time; longest turn since this was asked last.
  double longest() { return std::exchange(longest_, 0); }
  /// What turns took, without the conditions that were awaited.
  double worked() const { return worked_; }

 private:
  nlohmann::ordered_json tor() const {
    auto sources = module_.state()["sources"];
    switches_->describe(sources);
    return sources[0];
  }
  void turnEnded() {
    module_.endTurn();
    evpn_.learned().endTurn();
    double const turn = now(Clock::cpu) - turnBegan_;
    longest_ = std::max(longest_, turn);
    worked_ += turn;
    if (condition_ && condition_()) loop_.stop();
    turnBegan_ = now(Clock::cpu);
  }
  static Agent::Logs logs() {
    return {[](std::string const&) {}, [](std::string const&) {}};
  }

  Agent::Loop loop_;
  Agent::Site site_;
  Agent::HostedModule module_{loop_, site_, false, std::chrono::seconds(300), logs()};
  Agent::EvpnSide evpn_{loop_, site_, false, std::chrono::seconds(300), logs()};
  Agent::SwitchOptions options_;
  std::optional<Agent::SwitchSide> switches_;
  std::function<bool()> condition_;
  double turnBegan_ = 0, longest_ = 0, worked_ = 0;
};

/// Database to speaker to the other site's speaker and adapter, and back.
class Path {
 public:
  /// `most`: as many MACs as the longest row takes, or 0 to leave it out.
  void round(Report& report, unsigned most) {
    for (bool const isBack : {false, true}) {
      std::vector<double> waits;
      for (unsigned i = 0; i < 20; ++i) waits.push_back(carry(1, isBack).wall);
      std::nth_element(waits.begin(), waits.begin() + 10, waits.end());
      std::string const way = isBack ? "-back" : "-out";
      report.add("chain-one" + way, "wall", waits[10] * 1e3);
      for (auto const& [row, count] : {std::pair("chain-1k", 1'000U), {"chain-10k", most}}) {
        if (count == 0) continue;
        Cost const cost = carry(count, isBack);
        report.add(row + way, "ours, processor time", cost.ours * 1e3);
        report.add(row + way, "speakers' processor time", cost.speakers * 1e3);
        report.add(row + way, "database's processor time", cost.database * 1e3);
        report.add(row + way, "wall", cost.wall * 1e3);
        report.add(row + way, "longest turn", cost.longest * 1e3);
      }
    }
  }

 private:
  struct Cost {
    double wall, ours, speakers, database, longest;
  };
  Cost carry(unsigned count, bool isBack) {
    chain_.await(
        [&] { return far_.state() == Agent::SourceState::synced && isFarUp_ && chain_.state() == "synced"; });
    chain_.longest();
    double const speakers = processorTime(west_.pid()) + processorTime(east_.pid());
    double const database = tor_.time(), ours = chain_.worked(), start = now(Clock::wall);
    if (isBack) {
      for (unsigned i = 0; i < count; ++i) far_.hostIs(host(i));
    } else {
      tor_.learn(0, count);
    }
    chain_.await([&] { return isBack ? chain_.told() >= count : known_ >= count; });
    Cost const cost{now(Clock::wall) - start, chain_.worked() - ours,
                    processorTime(west_.pid()) + processorTime(east_.pid()) - speakers,
                    tor_.time() - database, chain_.longest()};
    if (isBack) {
      for (unsigned i = 0; i < count; ++i) far_.hostDel(host(i).key());
      chain_.await([&] { return chain_.told() == 0; });
    } else {
      tor_.forgetAll();
      chain_.await([&] { return known_ == 0; });
    }
    return cost;
  }

  static QorEvpn::Host host(unsigned number) {
    QorEvpn::Host row{QorEvpn::MacVniPair(mac(number + 0x1000000), Vxlan::Vni(5000))};
    row.vtepAddrIs(Wirix::IpAddr("10.99.0.21"));
    return row;
  }
  void take(Agent::Event const& event) {
    if (event.op == Agent::Op::capability) isFarUp_ = event.value;
    if (event.op == Agent::Op::mac) ++known_;
    if (event.op == Agent::Op::macDel) --known_;
  }

  Gobgpd west_{1, {2}}, east_{2, {1}};
  Tor tor_;
  Place place_;
  Chain chain_{tor_, place_};
  Agent::SpeakerOptions const options_{west_.endpoint(), west_.as(), west_.routerId()};
  Agent::SpeakerSide speaker_{chain_.loop(),
                              chain_.site(),
                              options_,
                              chain_.evpn().sources(),
                              {[](std::string const&) {}, [](std::string const&) {}}};
  std::size_t known_ = 0;
  bool isFarUp_ = false;
  Gobgp::Speaker far_{
      chain_.loop(),
      {.endpoint = east_.endpoint(), .identity = {east_.as(), Wirix::IpAddr(east_.routerId())}},
      {[this](Agent::Event const& event) { take(event); },
       [this](Agent::SourceState, std::string const&) { far_.beginSending(); },
       [](std::string const& line) { fail(line); }}};
};

/// Full tables, without a speaker.
class Full {
 public:
  Full(Report& report, unsigned rows) : report_(report), rows_(rows) { tor_.learn(0, rows); }

  void run() {
    start();
    measure("full-out", [this] { return chain_->exported() == rows_; });
    // EVPN's first row of a VNI is a full pass of that VNI's machines.
    inTurn([this] { tell(Agent::Op::mac, rows_); });
    measure("full-first", [this] { return chain_->told() == 1; });
    inTurn([this] { tell(Agent::Op::macDel, rows_); });
    chain_->await([this] { return chain_->told() == 0; });
    tor_.database().kill();
    measure(
        "full-lost", [this] { return chain_->state() == "lost"; }, false);
    tor_.database().start();
    measure("full-again", [this] { return chain_->state() == "synced"; });
    tor_.forgetAll();
    measure("full-gone", [this] { return chain_->exported() == 0; });
    inTurn([this] { tellOn(); });
    measure("full-back", [this] { return chain_->told() == rows_; });
    tor_.learn(rows_, rows_);
    chain_->await([this] { return chain_->exported() == rows_; });
    teller_.reset();
    chain_.reset();
    start();
    inTurn([this] { tellOn(); });
    measure("full-start", [this] { return chain_->isSettled() && chain_->state() == "synced"; });
    if (chain_->exported() != rows_ || chain_->told() != rows_) fail("rows are missing");
  }

 private:
  void start() {
    chain_.emplace(tor_, place_);
    source_ = chain_->evpn().sources().add({.name = "bench", .kind = "feed", .endpoint = ""});
    next_ = 0;
    source_.state(Agent::SourceState::syncing, {});
    Agent::Event event;
    event.from = Agent::Origin::evpn;
    event.op = Agent::Op::capability;
    event.value = true;
    source_.event(event);
  }
  void tell(Agent::Op op, unsigned number) {
    Agent::Event event;
    event.from = Agent::Origin::evpn;
    event.op = op;
    event.vni = Vxlan::Vni(5000);
    event.vtep = Wirix::IpAddr("10.99.0.21");
    event.mac = mac(0x1000000 + number);
    source_.event(event);
  }
  void inTurn(std::function<void()> work) {
    teller_.emplace(chain_->loop(), std::move(work));
    teller_->start({});
  }
  /// A thousand rows a turn.
  void tellOn() {
    for (unsigned const end = std::min(rows_, next_ + 1'000); next_ < end; ++next_)
      tell(Agent::Op::mac, next_);
    if (next_ < rows_) return teller_->start({});
    source_.state(Agent::SourceState::synced, {});
  }
  void measure(std::string const& row, std::function<bool()> const& condition, bool isServed = true) {
    chain_->longest();
    double const database = isServed ? tor_.time() : 0, ours = chain_->worked(), start = now(Clock::wall);
    chain_->await(condition);
    report_.add(row, "ours, processor time", (chain_->worked() - ours) * 1e3);
    if (isServed) report_.add(row, "database's processor time", (tor_.time() - database) * 1e3);
    report_.add(row, "wall", (now(Clock::wall) - start) * 1e3);
    report_.add(row, "longest turn", chain_->longest() * 1e3);
  }

  Report& report_;
  unsigned const rows_;
  Tor tor_;
  Place place_;
  std::optional<Chain> chain_;
  std::optional<Agent::Timer> teller_;
  Agent::SourceHandlers source_;
  unsigned next_ = 0;
};

void run(Options const& options) {
  std::vector<Report::Row> rows;
  for (auto const& [way, text] :
       {std::pair("-out", ", database to the other site"), {"-back", ", and back"}}) {
    for (auto const& [name, count] :
         {std::pair("chain-one", "one MAC"), {"chain-1k", "1,000 MACs"}, {"chain-10k", "10,000 MACs"}}) {
      rows.push_back({std::string(name) + way, std::string(count) + text, "ms", false});
    }
  }
  for (auto const& [name, text] : {std::pair("full-out", "100,000 MACs, database to exported table"),
                                   {"full-first", "EVPN's first MAC of their VNI"},
                                   {"full-lost", "their database is killed"},
                                   {"full-again", "it comes back"},
                                   {"full-gone", "all are forgotten"},
                                   {"full-back", "100,000 MACs, EVPN's event to the database"},
                                   {"full-start", "agent and EVPN side start with 100,000 each way"}}) {
    rows.push_back({name, text, "ms", false});
  }
  Report report(options, rows);
  Path path;
  // Of the long ones, which the servers fill, one round, the last: they leave the speakers slow.
  for (unsigned i = 1; i <= options.rounds; ++i)
    path.round(report, i != options.rounds ? 0 : options.quick ? 1'000 : 10'000);
  Full(report, options.quick ? 10'000 : 100'000).run();
  report.print();
}

}  // namespace
}  // namespace Bench

int main(int argc, char** argv) { return Bench::main(argc, argv, Bench::run); }
