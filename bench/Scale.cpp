/// How cost grows with rows, VNIs, readers and the length of a burst. Prints a line a figure, separated by
/// tabs: axis, where on it, picture, subject, value, unit. `--quick` leaves out ten million rows.

#include <poll.h>
#include <signal.h>

#include <fstream>
#include <random>

#include "Harness.h"
#include "Orb/FlatMap.h"
#include "VxlanController/QorEvpnRxSm.h"
#include "VxlanController/QorEvpnTxSm.h"
#include "peers/Peer.h"

namespace Bench {
namespace {

constexpr uint32_t usualVnis = 4000, usualRows = 1'000'000;
/// MAC addresses of a VNI that is added and removed: as many as others have where 4,000 share a million.
constexpr uint32_t macsOfOne = usualRows / usualVnis;
constexpr uint32_t eventsOfATurn = 256, eventsOfAPass = 4096;
/// As the agent reads.
constexpr uint64_t changesOfATurn = 1024;

/// Without axis and place, which the parent knows.
void tell(std::string const& picture, std::string const& subject, double value, std::string const& unit) {
  char text[32];
  std::snprintf(text, sizeof text, "%.4g", value);
  say(picture + '\t' + subject + '\t' + text + '\t' + unit);
}

template <class TablePtr>
void mount(TablePtr const& table, std::string const& directory, Brine::Mode mode) {
  Brine::MountOptions options;
  options.directory = directory;
  options.name = table->name().text();
  options.mode = mode;
  options.turns = true;
  if (table->mount(options) != Brine::MountStatus::mounted) fail("mount: " + table->mountDetail());
}

QorEvpn::Host hostOf(uint32_t number, uint32_t vnis, uint32_t seqNo) {
  QorEvpn::Host host(
      QorEvpn::MacVniPair(Wirix::EthAddr::ofValue(0x020000000000U + number), Vxlan::Vni(1 + number % vnis)));
  host.vtepAddrIs(Wirix::IpAddr(0x0A630000U + number % 251));
  host.seqNoIs(Seqno32(seqNo));
  return host;
}

/// What a controller and EVPN know, the transmit machines, and the tables that they write. MAC addresses are
/// dealt over the VNIs.
class Machines {
 public:
  using Status = VxlanController::VniFdbStatusV2;

  Machines(std::string const& directory, uint32_t rows, uint32_t vnis)
      : rows_(rows),
        hosts_(QorEvpn::hostTableFactory(Orb::Name("host"))),
        floods_(QorEvpn::floodTableFactory(Orb::Name("flood"))) {
    mountSeconds_ = seconds(Clock::cpu, [&] { mount(hosts_, directory, Brine::Mode::writer); });
    mount(floods_, directory, Brine::Mode::writer);
    for (uint32_t i = 0; i < vnis; ++i) {
      statuses_.push_back(statusOf(1 + i));
      dir_->entryIs(statuses_.back());
    }
  }

  /// Builds the machines: their first pass, in one turn.
  double start() {
    for (auto const& status : statuses_) {
      if (status->macVtepTables()) brIds_->brIdListIs(Bridging::BridgeId::ofVni(status->vni()), true);
    }
    return turn([&] { machine_ = QorEvpn::qorEvpnTxSmFactory(dir_, evpn_, brIds_, hosts_, floods_); });
  }

  /// The controller learns every MAC address, VNI by VNI. Returns seconds.
  double learn() {
    double sum = 0;
    std::vector<uint32_t> some;
    auto const flush = [&] {
      sum += turn([&] {
        for (uint32_t const number : some) event(number, 0);
      });
      some.clear();
    };
    for (uint32_t vni = 0; vni < statuses_.size(); ++vni) {
      for (uint32_t number = vni; number < rows_; number += static_cast<uint32_t>(statuses_.size())) {
        some.push_back(number);
        if (some.size() == eventsOfATurn) flush();
      }
    }
    flush();
    return sum;
  }

  /// As many events as a pass has, each of some MAC address that is there. Returns seconds.
  double change() {
    double sum = 0;
    for (uint32_t i = 0; i < eventsOfAPass; i += eventsOfATurn) {
      sum += turn([&] {
        for (uint32_t j = 0; j < eventsOfATurn; ++j)
          event(static_cast<uint32_t>(random_() % rows_), ++seqNo_);
      });
    }
    return sum;
  }

  /// Another VNI comes with all its MAC addresses, and goes. Returns seconds of each.
  std::pair<double, double> vniComesAndGoes() {
    auto const status = statusOf(static_cast<uint32_t>(statuses_.size()) + 1);
    for (uint32_t i = 0; i < macsOfOne; ++i) status->macVtepTableIs(entryOf(rows_ + i, 0));
    double const comes = turn([&] { dir_->entryIs(status); });
    return {comes, turn([&] { dir_->entryDel(status->name()); })};
  }

  /// EVPN's status of the first VNI comes, with its first row, and goes with the last one. Returns seconds.
  double evpnComesAndGoes() {
    Vxlan::Vni const vni(1);
    double const comes = turn([&] { evpn_->vniStatusV2Is(vni)->macVtepTableIs(entryOf(rows_, 1)); });
    return comes + turn([&] { evpn_->vniStatusV2Del(vni); });
  }

  void removeAll() {
    turn([&] { hosts_->hostDelAll(); });
  }

  double mountSeconds() const { return mountSeconds_; }
  double longestTurn() { return std::exchange(longest_, 0); }
  double fileBytes() const { return static_cast<double>(hosts_->statistics().fileBytes); }

 private:
  static Orb::Ptr<Status> statusOf(uint32_t vni) {
    return Orb::makePtr<Status>(Orb::Name(std::to_string(vni)), Vxlan::Vni(vni));
  }
  static VxlanController::MacVtepV2 entryOf(uint32_t number, uint32_t seqNo) {
    return VxlanController::MacVtepV2(Wirix::EthAddr::ofValue(0x020000000000U + number),
                                      Wirix::IpAddr(0x0A630000U + number % 251), Seqno32(seqNo));
  }
  void event(uint32_t number, uint32_t seqNo) {
    statuses_[number % statuses_.size()]->macVtepTableIs(entryOf(number, seqNo));
  }
  template <class Work>
  double turn(Work const& work) {
    double const time = seconds(Clock::cpu, [&] {
      work();
      hosts_->endTurn();
      floods_->endTurn();
    });
    longest_ = std::max(longest_, time);
    return time;
  }

  uint32_t const rows_;
  uint32_t seqNo_ = 0;
  double longest_ = 0, mountSeconds_ = 0;
  std::mt19937 random_{1};
  Orb::Ptr<QorEvpn::HostTable> hosts_;
  Orb::Ptr<QorEvpn::FloodTable> floods_;
  Orb::Ptr<Orb::Dir> dir_ = Orb::makePtr<Orb::Dir>(Orb::Name("vnis"));
  Orb::Ptr<VxlanController::VniStatusDirV2> evpn_ =
      Orb::makePtr<VxlanController::VniStatusDirV2>(Orb::Name("evpn"));
  Orb::Ptr<QorEvpn::QorBrIdList> brIds_ = Orb::makePtr<QorEvpn::QorBrIdList>(Orb::Name("bridges"));
  std::vector<Orb::Ptr<Status>> statuses_;
  Orb::Ptr<QorEvpn::QorEvpnTxSm> machine_;
};

/// Of this process, without what it shares with others.
double privateBytes() {
  std::ifstream file("/proc/self/status");
  for (std::string word; file >> word;) {
    double kib = 0;
    if (word == "RssAnon:" && file >> kib) return kib * 1024;
  }
  return 0;
}

/// Machines of a site that begins empty. They are killed at their end, in the middle of a turn.
void measureSite(std::string const& directory, uint32_t rows, uint32_t vnis) {
  Machines site(directory, rows, vnis);
  site.start();
  auto const longest = [&](std::string const& when) { tell("turn", when, site.longestTurn() * 1e3, "ms"); };
  double const before = privateBytes();
  site.longestTurn();
  tell("event", "MAC event, new row", site.learn() * 1e9 / rows, "ns");
  longest("256 new rows");
  tell("memory", "table", site.fileBytes() / rows, "bytes a row");
  tell("memory", "statuses, machines", (privateBytes() - before) / rows, "bytes a row");
  site.change();
  site.longestTurn();
  std::vector<double> passes(100);
  for (double& pass : passes) pass = site.change();
  tell("event", "MAC event", median(passes) * 1e9 / eventsOfAPass, "ns");
  longest("256 changes");
  std::vector<double> comes, goes;
  for (unsigned i = 0; i < 21; ++i) {
    auto const [one, other] = site.vniComesAndGoes();
    comes.push_back(one);
    goes.push_back(other);
  }
  tell("vni", "VNI of 250 MACs comes", median(comes) * 1e3, "ms");
  tell("vni", "VNI of 250 MACs goes", median(goes) * 1e3, "ms");
  longest("VNI comes or goes");
  std::vector<double> flaps(rows / vnis > 100'000 ? 3 : 11);
  for (double& flap : flaps) flap = site.evpnComesAndGoes();
  tell("vni", "EVPN's status of a VNI comes and goes", median(flaps) * 1e3, "ms");
  longest("EVPN's status comes or goes");
  say("end");
  for (;;) site.change();
}

/// The same site again, whose rows are there.
void measureRestart(std::string const& directory, uint32_t rows, uint32_t vnis) {
  Machines site(directory, rows, vnis);
  tell("start", "mount after a clean end", site.mountSeconds() * 1e3, "ms");
  site.learn();
  site.longestTurn();
  tell("start", "machines' first pass", site.start() * 1e3, "ms");
  tell("turn", "first pass", site.longestTurn() * 1e3, "ms");
  site.removeAll();
  tell("memory", "table, all rows removed", site.fileBytes() / rows, "bytes a row");
  say("end");
}

/// The flat map alone: what caches cost.
void measureMap(uint32_t rows) {
  Orb::FlatMap<QorEvpn::MacVniPair, Value> map;
  std::mt19937 random(1);
  auto const put = [&](uint32_t number, uint32_t seqNo) {
    QorEvpn::Host const host = hostOf(number, usualVnis, seqNo);
    map.put(host.key(), Value(host));
  };
  for (uint32_t number = 0; number < rows; ++number) put(number, 0);
  std::vector<double> passes(100);
  uint32_t seqNo = 0;
  auto const pass = [&] {
    for (uint32_t i = 0; i < eventsOfAPass; ++i) put(static_cast<uint32_t>(random() % rows), ++seqNo);
  };
  pass();
  for (double& one : passes) one = seconds(Clock::cpu, pass);
  tell("event", "flat map, overwrite", median(passes) * 1e9 / eventsOfAPass, "ns");
  say("end");
}

/// Reads bursts of these lengths, some `limit` changes a turn; says processor time and longest turn of each.
template <class TablePtr>
void readBursts(TablePtr const& table, std::vector<std::string> const& bursts, uint64_t limit) {
  table->deliver();
  say("ready");
  for (std::string const& burst : bursts) {
    uint64_t left = std::stoull(burst);
    double longest = 0;
    double const start = now(Clock::cpu);
    while (left != 0) {
      pollfd entry{table->fd(), POLLIN, 0};
      ::poll(&entry, 1, 10'000);
      uint64_t changes = 0;
      longest = std::max(longest, seconds(Clock::cpu, [&] { changes = table->deliver(limit).changes; }));
      if (changes > left) fail("a reader was told of more than changed");
      left -= changes;
    }
    double const time = now(Clock::cpu) - start;
    say(time);
    say(longest);
  }
  heard();
}

void read(std::string const& directory, std::string const& kind, std::vector<std::string> const& bursts) {
  auto const hosts = QorEvpn::hostTableFactory(Orb::Name("host"));
  mount(hosts, directory, Brine::Mode::keyshadow);
  if (kind == "plain") return readBursts(hosts, bursts, UINT64_MAX);
  auto const floods = QorEvpn::floodTableFactory(Orb::Name("flood"));
  auto const statuses = Orb::makePtr<VxlanController::VniStatusDirV2>(Orb::Name("evpn"));
  auto const machine = VxlanController::qorEvpnRxSmFactory(hosts, floods, statuses);
  readBursts(hosts, bursts, kind == "agent" ? changesOfATurn : UINT64_MAX);
}

void runRole(std::vector<std::string> const& role) {
  auto const number = [&](size_t i) { return static_cast<uint32_t>(std::stoul(role.at(i))); };
  if (role[0] == "site") measureSite(role.at(1), number(2), number(3));
  if (role[0] == "restart") measureRestart(role.at(1), number(2), number(3));
  if (role[0] == "map") measureMap(number(1));
  if (role[0] == "read") read(role.at(1), role.at(2), {role.begin() + 3, role.end()});
}

// ---- The parent ----

struct Spot {
  std::string axis;
  uint64_t at;
};
using Spots = std::vector<Spot>;

void print(Spots const& spots, std::string const& figure) {
  for (Spot const& each : spots)
    std::printf("%s\t%llu\t%s\n", each.axis.c_str(), static_cast<unsigned long long>(each.at),
                figure.c_str());
  std::fflush(stdout);
}
void print(Spots const& spots, std::string const& what, double value, std::string const& unit) {
  char text[32];
  std::snprintf(text, sizeof text, "%.4g", value);
  print(spots, what + '\t' + text + '\t' + unit);
}

void pass(Child& child, Spots const& spots) {
  for (std::string line = child.line(); line != "end"; line = child.line()) print(spots, line);
}

void siteOf(Spots const& spots, uint32_t rows, uint32_t vnis) {
  std::fprintf(stderr, "%u rows, %u VNIs ...\n", rows, vnis);
  Place const place;
  std::vector<std::string> role{"site", place.path(), std::to_string(rows), std::to_string(vnis)};
  {
    Child child(role);
    pass(child, spots);
    child.kill(SIGKILL);
    child.wait();
  }
  {
    BrineStore::Table table;
    Brine::MountOptions options;
    options.directory = place.path();
    options.name = "host";
    options.mode = Brine::Mode::writer;
    double const time = seconds(Clock::cpu, [&] { table.mount(options); });
    if (table.statistics().rows != rows) fail("rows are missing: " + table.mountDetail());
    print(spots, "start\tmount after kill -9", time * 1e3, "ms");
  }
  role[0] = "restart";
  Child child(role);
  pass(child, spots);
  child.wait();
}

/// One writer and readers of a table; bursts are of distinct rows, each a turn.
class Readers {
 public:
  Readers(uint32_t rows, unsigned readers, std::string const& kind, std::vector<std::string> const& bursts)
      : rows_(rows), store_(place_) {
    for (uint32_t i = 0; i < rows; ++i) store_.table.write(hostOf(i, usualVnis, 0));
    store_.table.endTurn();
    std::vector<std::string> role{"read", place_.path(), kind};
    role.insert(role.end(), bursts.begin(), bursts.end());
    for (unsigned i = 0; i < readers; ++i) children_.push_back(std::make_unique<Child>(role));
    for (auto const& child : children_) {
      if (child->line() != "ready") fail("a reader is not ready");
    }
  }
  ~Readers() {
    for (auto const& child : children_) {
      child->tell();
      child->wait();
    }
  }

  struct Times {
    double writer, reader, longest, wall;
  };
  Times burst(uint32_t length) {
    Times times{};
    double const start = now(Clock::wall);
    ++seqNo_;
    times.writer = seconds(Clock::cpu, [&] {
      for (uint32_t i = 0; i < length; ++i)
        store_.table.write(hostOf(next_ = (next_ + step) % rows_, usualVnis, seqNo_));
      store_.table.endTurn();
    });
    for (auto const& child : children_) {
      times.reader += child->number() / static_cast<double>(children_.size());
      times.longest = std::max(times.longest, child->number());
    }
    times.wall = now(Clock::wall) - start;
    return times;
  }

 private:
  static constexpr uint32_t step = 7919;  ///< Rows lie far apart, and all come once.
  uint32_t rows_, next_ = 0, seqNo_ = 0;
  Place place_;
  BrineStore store_;
  std::vector<std::unique_ptr<Child>> children_;
};

/// The median of each time over some bursts of one length.
Readers::Times medians(Readers& readers, uint32_t length, size_t count) {
  std::vector<double> writer, reader, longest, wall;
  for (size_t i = 0; i < count; ++i) {
    auto const times = readers.burst(length);
    writer.push_back(times.writer);
    reader.push_back(times.reader);
    longest.push_back(times.longest);
    wall.push_back(times.wall);
  }
  return {median(writer), median(reader), median(longest), median(wall)};
}

size_t repeats(uint32_t length) { return std::clamp<size_t>(100'000 / length, 3, 101); }

void burstsOf(std::string const& kind, std::string const& subject) {
  std::fprintf(stderr, "bursts, %s ...\n", subject.c_str());
  constexpr std::array<uint32_t, 7> lengths{1, 10, 100, 1'000, 10'000, 100'000, 1'000'000};
  std::vector<std::string> all;
  for (uint32_t const length : lengths) all.insert(all.end(), repeats(length), std::to_string(length));
  Readers readers(usualRows, 1, kind, all);
  for (uint32_t const length : lengths) {
    auto const times = medians(readers, length, repeats(length));
    Spots const spots{{"burst", length}};
    if (kind == "plain") print(spots, "delivery\twriter", times.writer * 1e9 / length, "ns a change");
    print(spots, "delivery\t" + subject, times.reader * 1e9 / length, "ns a change");
    print(spots, "burst turn\t" + subject, times.longest * 1e3, "ms");
    print(spots, "burst time\t" + subject, times.wall * 1e3, "ms");
  }
}

void readersOf(unsigned count) {
  std::fprintf(stderr, "%u readers ...\n", count);
  constexpr uint32_t rows = 100'000, length = 500;
  constexpr size_t bursts = 41;
  Readers readers(rows, count, "plain", std::vector<std::string>(bursts, std::to_string(length)));
  auto const times = medians(readers, length, bursts);
  Spots const spots{{"readers", count}};
  print(spots, "readers\twriter", times.writer * 1e9 / length, "ns a change");
  print(spots, "readers\ta reader", times.reader * 1e9 / length, "ns a change");
  print(spots, "readers\tuntil the last one was told", times.wall * 1e9 / length, "ns a change");
}

void run(Options const& options) {
  std::vector<uint32_t> counts{10'000, 100'000, usualRows, 10'000'000};
  if (options.quick) counts.pop_back();
  for (uint32_t const rows : counts) {
    Spots spots{{"rows", rows}};
    if (rows == usualRows) spots.push_back({"VNIs", usualVnis});
    siteOf(spots, rows, usualVnis);
    Child child({"map", std::to_string(rows)});
    pass(child, {{"rows", rows}});
    child.wait();
  }
  for (uint32_t const vnis : {1U, 100U, 16'000U}) siteOf({{"VNIs", vnis}}, usualRows, vnis);
  burstsOf("plain", "reader");
  burstsOf("machine", "receive machine");
  burstsOf("agent", "the same, 1,024 changes a turn");
  for (unsigned const count : {1U, 4U, 16U, 64U}) readersOf(count);
}

}  // namespace
}  // namespace Bench

int main(int argc, char** argv) { return Bench::main(argc, argv, Bench::run, Bench::runRole); }
