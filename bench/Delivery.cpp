/// Changes told to other processes: how many a second to one and to four of them, and what readers cost the
/// writer.

#include <poll.h>

#include <vector>

#include "Harness.h"
#include "peers/BrineStore.h"
#include "peers/QueueStore.h"
#include "peers/RedisStore.h"

namespace Bench {
namespace {

/// Changes in one turn of the writer's loop: as many as Redis has commands in flight. The writer knows them
/// when the turn begins, as a publisher knows its messages, so it announces their keys.
constexpr size_t turn = 500;

void writeInTurns(BrineStore& store, std::span<QorEvpn::Host const> hosts) {
  while (!hosts.empty()) {
    auto const some = hosts.first(std::min(turn, hosts.size()));
    hosts = hosts.subspan(some.size());
    store.overwriteStaged(some);
  }
}

class Delivery {
 public:
  Delivery(Options const& options, Report& report)
      : report_(report),
        rows_(options.rows),
        messages_(options.rows / 5),
        hosts_(hosts(rows_, 1)),
        changed_(hosts(rows_, 2)) {
    for (QorEvpn::Host& host : changed_) host.seqNoIs(Seqno32(host.seqNo().value() + 1));
  }

  void round() {
    for (unsigned const readers : {1U, 4U}) {
      std::string const row = readers == 1 ? "delivery-1" : "delivery-4";
      brine(row, readers);
      redis(row, readers);
      queue(row, readers);
    }
    spinning();
  }

 private:
  using Children = std::vector<std::unique_ptr<Child>>;

  Children start(unsigned count, std::vector<std::string> const& role) {
    Children children;
    for (unsigned i = 0; i < count; ++i) {
      children.push_back(std::make_unique<Child>(role));
      if (children.back()->line() != "ready") fail("a reader is not ready");
    }
    return children;
  }

  /// All readers' deliveries a second, from the first write to the last reader's end.
  void measure(std::string const& row, std::string const& subject, Children& children, uint32_t count,
               std::function<void()> const& work) {
    double const start = now(Clock::wall);
    work();
    for (auto& child : children) {
      if (child->line() != "done") fail("a reader did not get all changes");
    }
    double const time = now(Clock::wall) - start;
    report_.add(row, subject, static_cast<double>(count) * static_cast<double>(children.size()) / time / 1e6);
    for (auto& child : children) child->wait();
  }

  void brine(std::string const& row, unsigned readers) {
    Place const place;
    BrineStore store(place);
    store.insert(hosts_);
    Children children = start(readers, {"brine", place.path(), std::to_string(rows_)});
    measure(row, "Brine", children, rows_, [&] { writeInTurns(store, changed_); });
  }

  void redis(std::string const& row, unsigned readers) {
#if QOREVPN_PEER_REDIS
    Place const place;
    RedisServer const server(place);
    if (!server.isRunning()) return Report::skipped("Redis", "redis-server does not run");
    Children children = start(readers, {"redis", server.socket(), std::to_string(messages_)});
    RedisStore store(server.socket());
    measure(row, "Redis publish and subscribe", children, messages_,
            [&] { store.publish(std::span(changed_).first(messages_)); });
#else
    static_cast<void>(row), static_cast<void>(readers);
#endif
  }

  void queue(std::string const& row, unsigned readers) {
#if QOREVPN_PEER_BOOST
    std::vector<std::unique_ptr<QueueStore>> queues;
    Children children;
    for (unsigned i = 0; i < readers; ++i) {
      queues.push_back(std::make_unique<QueueStore>(i));
      auto one = start(1, {"queue", queues.back()->name(), std::to_string(messages_)});
      children.push_back(std::move(one.front()));
    }
    measure(row, "Boost message queue", children, messages_, [&] {
      for (QorEvpn::Host const& host : std::span(changed_).first(messages_)) {
        for (auto& one : queues) one->send(host);
      }
    });
#else
    static_cast<void>(row), static_cast<void>(readers);
#endif
  }

  /// The writer's processor time for its overwrites without readers and with four that poll without pause.
  void spinning() {
    Place const place;
    BrineStore store(place);
    store.insert(hosts_);
    auto const overwrite = [&] { return seconds(Clock::cpu, [&] { writeInTurns(store, changed_); }); };
    double const before = overwrite();
    Children children = start(4, {"spin", place.path()});
    double const watched = overwrite();
    children.clear();
    double const after = overwrite();
    report_.add("spinning-readers", "Brine", watched / ((before + after) / 2));
  }

  Report& report_;
  uint32_t rows_, messages_;
  std::vector<QorEvpn::Host> hosts_, changed_;
};

/// Prints "ready" when it has caught up, "done" when it was told of `count` changes.
void readBrine(std::string const& directory, uint64_t count) {
  Brine::Table<QorEvpn::Host> table;
  std::vector<bool> changed;
  uint64_t told = 0, sum = 0;
  table.onChanged = [&](QorEvpn::MacVniPair const& key) {
    ++told;
    if (auto const row = table.find(key)) sum += sumOf(*row);
  };
  Brine::MountOptions options;
  options.directory = directory;
  options.name = "host";
  options.mode = Brine::Mode::keyshadow;
  if (table.mount(options) != Brine::MountStatus::mounted) fail("mount: " + table.mountDetail());
  table.deliver();
  told = 0;
  say("ready");
  while (told < count) {
    pollfd entry{table.fd(), POLLIN, 0};
    ::poll(&entry, 1, 10'000);
    table.deliver();
  }
  use(sum);
  say("done");
}

void runRole(std::vector<std::string> const& role) {
  if (role[0] == "brine") {
    readBrine(role[1], std::stoull(role[2]));
  } else if (role[0] == "spin") {
    BrineStore reader(role[1], Brine::Mode::reader);
    reader.table.deliver();
    say("ready");
    for (;;) reader.table.deliver();
  }
#if QOREVPN_PEER_REDIS
  if (role[0] == "redis") {
    RedisStore store(role[1]);
    uint64_t sum = 0;
    store.subscribe(
        std::stoull(role[2]), [] { say("ready"); }, [&](Value const& row) { sum += row.sum(); });
    use(sum);
    say("done");
  }
#endif
#if QOREVPN_PEER_BOOST
  if (role[0] == "queue") {
    QueueStore queue(role[1]);
    say("ready");
    uint64_t sum = 0;
    for (uint64_t left = std::stoull(role[2]); left != 0; --left) sum += queue.receive();
    use(sum);
    say("done");
  }
#endif
}

void run(Options const& options) {
  Report report(options, {{"delivery-1", "Changes to one reader", "million a second", true},
                          {"delivery-4", "Changes to four readers", "million a second", true},
                          {"spinning-readers", "Writer, four spinning readers", "times that without"}});
  for (char const* const row : {"delivery-1", "delivery-4"})
    report.goal(row, "Redis publish and subscribe", 12, 40);
  report.goal("delivery-1", "Boost message queue", 1.8, 1.8);
  report.goal("delivery-4", "Boost message queue", 1.8, 4);
  report.goal("spinning-readers", "Brine", 1.3, 1.1);
  Delivery delivery(options, report);
  for (unsigned i = 0; i < options.rounds; ++i) delivery.round();
  report.print();
}

}  // namespace
}  // namespace Bench

int main(int argc, char** argv) { return Bench::main(argc, argv, Bench::run, Bench::runRole); }
