/// How late a change is told, at worst too: from a writer's `hostIs` to a reader's callback, beside a socket
/// and a server; and in an agent beside a VNI that EVPN gives and takes away a thousand times a second.
/// Prints lines as bench-Scale does: axis, where on it, picture, subject, value, unit.

#include <poll.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>

#include "Harness.h"
#include "VxlanController/QorEvpnRxSm.h"
#include "VxlanController/QorEvpnTxSm.h"
#include "peers/RedisStore.h"

namespace Bench {
namespace {

constexpr uint64_t microsecond = 1'000, millisecond = 1'000'000;
/// A writer's changes are so far apart that readers sleep.
constexpr uint64_t period = 500 * microsecond;
constexpr uint32_t keys = 1'000;

uint64_t clockNow() {
  timespec time{};
  ::clock_gettime(CLOCK_MONOTONIC, &time);
  return static_cast<uint64_t>(time.tv_sec) * 1'000'000'000 + static_cast<uint64_t>(time.tv_nsec);
}
void sleepUntil(uint64_t at) {
  timespec const time{static_cast<time_t>(at / 1'000'000'000), static_cast<long>(at % 1'000'000'000)};
  ::clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &time, nullptr);
}

/// A row that carries the time at which it was written.
QorEvpn::Host stamped(uint32_t number, uint32_t vni) {
  uint64_t const time = clockNow();
  QorEvpn::Host host(QorEvpn::MacVniPair(Wirix::EthAddr::ofValue(0x020000000000U + number), Vxlan::Vni(vni)));
  host.vtepAddrIs(Wirix::IpAddr(static_cast<uint32_t>(time >> 32)));
  host.seqNoIs(Seqno32(static_cast<uint32_t>(time)));
  return host;
}
uint64_t stampOf(Wirix::IpAddr vtep, Seqno32 seqNo) { return uint64_t{vtep.value()} << 32 | seqNo.value(); }

uint64_t stampOf(Value const& row) { return uint64_t{row.vtepAddr} << 32 | row.seqNo; }

/// Latencies of one reader, taken one by one.
class Latencies {
 public:
  explicit Latencies(size_t count) : count_(count) { values_.reserve(count); }
  bool isFull() const { return values_.size() == count_; }
  void add(uint64_t since) {
    if (!isFull()) values_.push_back(static_cast<double>(clockNow() - since) / microsecond);
  }
  /// Lines "percentile, microseconds" to the parent.
  void tell() {
    std::sort(values_.begin(), values_.end());
    for (double const percent : {50.0, 90.0, 99.0, 99.9, 100.0}) {
      auto const rank = static_cast<size_t>(std::ceil(percent / 100 * static_cast<double>(values_.size())));
      char text[64];
      std::snprintf(text, sizeof text, "%g\t%.4g", percent, values_[std::max<size_t>(rank, 1) - 1]);
      say(text);
    }
    say("end");
  }

 private:
  size_t count_;
  std::vector<double> values_;
};

void print(std::string const& picture, std::string const& subject, Child& child) {
  for (std::string line = child.line(); line != "end"; line = child.line()) {
    size_t const tab = line.find('\t');
    std::printf("percentile\t%s\t%s\t%s\t%s\tus\n", line.substr(0, tab).c_str(), picture.c_str(),
                subject.c_str(), line.substr(tab + 1).c_str());
  }
  std::fflush(stdout);
}

template <class TablePtr>
void mount(TablePtr const& table, std::string const& directory, Brine::Mode mode, bool turns) {
  Brine::MountOptions options;
  options.directory = directory;
  options.name = table->name().text();
  options.mode = mode;
  options.turns = turns;
  if (table->mount(options) != Brine::MountStatus::mounted) fail("mount: " + table->mountDetail());
}

// ---- Readers ----

void readTable(std::string const& directory, bool spins, Latencies latencies) {
  Brine::Table<QorEvpn::Host> table;
  Brine::MountOptions options;
  options.directory = directory;
  options.name = "host";
  options.mode = Brine::Mode::keyshadow;
  bool isReady = false;
  table.onChanged = [&](QorEvpn::MacVniPair const& key) {
    auto const row = table.find(key);
    if (isReady && row) latencies.add(stampOf(row->vtepAddr(), row->seqNo()));
  };
  if (table.mount(options) != Brine::MountStatus::mounted) fail("mount: " + table.mountDetail());
  table.deliver();
  isReady = true;
  say("ready");
  while (!latencies.isFull()) {
    pollfd entry{table.fd(), POLLIN, 0};
    if (!spins) ::poll(&entry, 1, 10'000);
    table.deliver();
  }
  latencies.tell();
}

sockaddr_un addressOf(std::string const& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  return address;
}

void readSocket(std::string const& path, Latencies latencies) {
  int const fd = ::socket(AF_UNIX, SOCK_SEQPACKET, 0);
  sockaddr_un const address = addressOf(path);
  if (::connect(fd, reinterpret_cast<sockaddr const*>(&address), sizeof address) != 0) fail("cannot connect");
  say("ready");
  for (Bytes row{QorEvpn::Host()}; !latencies.isFull() && ::read(fd, &row, sizeof row) == sizeof row;) {
    latencies.add(stampOf(Bytes::valueOf(row.value)));
  }
  latencies.tell();
}

// ---- The agent beside a VNI that flaps ----

constexpr uint32_t flappingVni = 1, otherVni = 2, vnis = 4'000;

/// Tells of EVPN's rows and of switches' events of another VNI: how late each was handled. The VNI that flaps
/// has `macs` MAC addresses of the site's own, the other ones 250 each.
void beAgent(std::string const& directory, uint32_t macs, size_t count) {
  using VxlanController::MacVtepV2;
  auto const exported = QorEvpn::hostTableFactory(Orb::Name("exported"));
  auto const exportedFloods = QorEvpn::floodTableFactory(Orb::Name("exportedFlood"));
  auto const learned = QorEvpn::hostTableFactory(Orb::Name("host"));
  auto const learnedFloods = QorEvpn::floodTableFactory(Orb::Name("flood"));
  mount(exported, directory, Brine::Mode::writer, true);
  mount(exportedFloods, directory, Brine::Mode::writer, true);
  mount(learned, directory, Brine::Mode::keyshadow, true);
  auto const evpn = Orb::makePtr<VxlanController::VniStatusDirV2>(Orb::Name("evpn"));
  auto const dir = Orb::makePtr<Orb::Dir>(Orb::Name("vnis"));
  Orb::Ptr<VxlanController::VniFdbStatusV2> other;
  uint32_t number = 0;
  for (uint32_t vni = 1; vni <= vnis; ++vni) {
    auto const status =
        Orb::makePtr<VxlanController::VniFdbStatusV2>(Orb::Name(std::to_string(vni)), Vxlan::Vni(vni));
    for (uint32_t left = vni == flappingVni ? macs : 250; left != 0; --left) {
      status->macVtepTableIs(MacVtepV2(Wirix::EthAddr::ofValue(0x060000000000U + number++),
                                       Wirix::IpAddr(0x0A630001U), Seqno32(1)));
    }
    dir->entryIs(status);
    if (vni == otherVni) other = status;
  }
  auto const receive = VxlanController::qorEvpnRxSmFactory(learned, learnedFloods, evpn);
  auto const transmit = QorEvpn::qorEvpnTxSmFactory(
      dir, evpn, Orb::makePtr<QorEvpn::QorBrIdList>(Orb::Name("bridges")), exported, exportedFloods);
  exported->endTurn();

  int const timer = ::timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK);
  uint64_t due = clockNow() + 10 * millisecond;
  itimerspec setting{};
  setting.it_value = {static_cast<time_t>(due / 1'000'000'000), static_cast<long>(due % 1'000'000'000)};
  setting.it_interval.tv_nsec = static_cast<long>(millisecond);
  ::timerfd_settime(timer, TFD_TIMER_ABSTIME, &setting, nullptr);
  Latencies rows(count), events(count);
  uint64_t lastStamp = 0;
  say("ready");
  while (!rows.isFull() || !events.isFull()) {
    pollfd entries[] = {{learned->fd(), POLLIN, 0}, {timer, POLLIN, 0}};
    ::poll(entries, 2, 10'000);
    if (entries[0].revents != 0) {
      learned->deliver();
      if (auto const& status = evpn->vniStatusV2(Vxlan::Vni(otherVni))) {
        MacVtepV2 const& entry = status->macVtepTable(Wirix::EthAddr::ofValue(0x020000000000U));
        uint64_t const stamp = stampOf(entry.vtepAddr(), entry.seqNo());
        // One comes a millisecond; those that it overtook have waited as well.
        uint64_t const overtaken = lastStamp == 0 ? 0 : (stamp - lastStamp + millisecond / 2) / millisecond;
        for (uint64_t i = overtaken; i > 1; --i) rows.add(stamp - (i - 1) * millisecond);
        if (std::exchange(lastStamp, stamp) != stamp) rows.add(stamp);
      }
    }
    // Each expiry stands for an event that a switch has sent.
    if (uint64_t expiries = 0; ::read(timer, &expiries, sizeof expiries) == sizeof expiries) {
      for (; expiries != 0; --expiries, due += millisecond) {
        other->macVtepTableIs(MacVtepV2(Wirix::EthAddr::ofValue(0x070000000000U), Wirix::IpAddr(0x0A630001U),
                                        Seqno32(static_cast<uint32_t>(due / millisecond))));
        events.add(due);
      }
    }
    exported->endTurn();
  }
  rows.tell();
  events.tell();
}

void runRole(std::vector<std::string> const& role) {
  size_t const count = std::stoul(role.at(2));
  if (role[0] == "sleep" || role[0] == "spin") readTable(role[1], role[0] == "spin", Latencies(count));
  if (role[0] == "socket") readSocket(role[1], Latencies(count));
#if QOREVPN_PEER_REDIS
  if (role[0] == "redis") {
    Latencies latencies(count);
    RedisStore store(role[1]);
    store.subscribe(
        count, [] { say("ready"); }, [&](Value const& row) { latencies.add(stampOf(row)); });
    latencies.tell();
  }
#endif
  if (role[0] == "agent") beAgent(role[1], static_cast<uint32_t>(std::stoul(role.at(3))), count);
}

// ---- The writer ----

class Tails {
 public:
  explicit Tails(Options const& options) : count_(options.quick ? 2'000 : 10'000) {}

  void run() {
    for (unsigned const others : {0U, 15U}) {
      std::string const beside = others == 0 ? ", alone" : ", one of 16";
      table("sleep", "sleeping reader" + beside, others);
      table("spin", "spinning reader" + beside, others);
      socket("Unix socket" + beside, others);
      redis("Redis" + beside, others);
    }
    flap("nothing flaps", 250, false);
    for (uint32_t const macs : {250U, 25'000U}) {
      flap("a VNI of " + std::to_string(macs) + " MACs flaps", macs, true);
    }
  }

 private:
  using Children = std::vector<std::unique_ptr<Child>>;

  /// The first one is measured; the others do as much work.
  Children start(std::vector<std::string> role, unsigned others, std::string const& othersRole) {
    role.push_back(std::to_string(count_));
    Children children;
    for (unsigned i = 0; i <= others; ++i) {
      children.push_back(std::make_unique<Child>(role));
      role[0] = othersRole;
    }
    return children;
  }
  void write(Children& children, std::string const& subject, std::function<void(uint32_t)> const& send) {
    std::fprintf(stderr, "%s ...\n", subject.c_str());
    for (auto const& child : children) {
      if (child->line() != "ready") fail("a reader is not ready");
    }
    uint64_t next = clockNow() + 100 * millisecond;
    for (uint32_t i = 0; i < count_; ++i, next += period) {
      sleepUntil(next);
      send(i % keys);
    }
    print("latency", subject, *children.front());
    children.front()->wait();
  }

  void table(std::string const& role, std::string const& subject, unsigned others) {
    Place const place;
    auto const hosts = QorEvpn::hostTableFactory(Orb::Name("host"));
    mount(hosts, place.path(), Brine::Mode::writer, false);
    Children children = start({role, place.path()}, others, "sleep");
    write(children, subject, [&](uint32_t i) { hosts->hostIs(stamped(i, 1)); });
  }

  void socket(std::string const& subject, unsigned others) {
    Place const place;
    std::string const path = place.path() + "/socket";
    int const listener = ::socket(AF_UNIX, SOCK_SEQPACKET, 0);
    sockaddr_un const address = addressOf(path);
    if (::bind(listener, reinterpret_cast<sockaddr const*>(&address), sizeof address) != 0 ||
        ::listen(listener, 64) != 0) {
      fail("cannot listen");
    }
    Children children = start({"socket", path}, others, "socket");
    std::vector<int> fds;
    for (size_t i = 0; i < children.size(); ++i) fds.push_back(::accept(listener, nullptr, nullptr));
    write(children, subject, [&](uint32_t i) {
      Bytes const row(stamped(i, 1));
      for (int const fd : fds) {
        if (::write(fd, &row, sizeof row) != sizeof row) fail("a reader does not listen");
      }
    });
    for (int const fd : fds) ::close(fd);
    ::close(listener);
  }

  void redis(std::string const& subject, unsigned others) {
#if QOREVPN_PEER_REDIS
    Place const place;
    RedisServer const server(place);
    if (!server.isRunning()) return Report::skipped("Redis", "redis-server does not run");
    Children children = start({"redis", server.socket()}, others, "redis");
    RedisStore store(server.socket());
    write(children, subject, [&](uint32_t i) {
      QorEvpn::Host const row = stamped(i, 1);
      store.publish({&row, 1});
    });
#else
    static_cast<void>(subject), static_cast<void>(others);
#endif
  }

  /// EVPN's side: every millisecond the VNI's first row comes, half a millisecond later it goes; and in
  /// between a row of another VNI changes.
  void flap(std::string const& subject, uint32_t macs, bool flaps) {
    std::fprintf(stderr, "%s ...\n", subject.c_str());
    Place const place;
    auto const hosts = QorEvpn::hostTableFactory(Orb::Name("host"));
    auto const floods = QorEvpn::floodTableFactory(Orb::Name("flood"));
    mount(hosts, place.path(), Brine::Mode::writer, false);
    mount(floods, place.path(), Brine::Mode::writer, false);
    Child agent({"agent", place.path(), std::to_string(count_), std::to_string(macs)});
    if (agent.line() != "ready") fail("the agent is not ready");
    QorEvpn::Host const row = stamped(1, flappingVni);
    uint64_t next = clockNow() + 100 * millisecond;
    // Rows that merge are told once, so some more are written than are told.
    for (pollfd entry{agent.out(), POLLIN, 0}; ::poll(&entry, 1, 0) == 0; next += millisecond) {
      sleepUntil(next);
      if (flaps) hosts->hostIs(row);
      sleepUntil(next + millisecond / 4);
      hosts->hostIs(stamped(0, otherVni));
      sleepUntil(next + millisecond / 2);
      if (flaps) hosts->hostDel(row.key());
    }
    print("flap", "EVPN's row, " + subject, agent);
    print("flap", "switch's event, " + subject, agent);
    agent.wait();
  }

  uint32_t count_;
};

void run(Options const& options) { Tails(options).run(); }

}  // namespace
}  // namespace Bench

int main(int argc, char** argv) { return Bench::main(argc, argv, Bench::run, Bench::runRole); }
