/// Rows one at a time: insert, overwrite, look up, walk, remove; in this process and from another one; memory
/// a row.

#include "Harness.h"
#include "peers/BoostStore.h"
#include "peers/BrineStore.h"
#include "peers/LmdbStore.h"
#include "peers/MapStore.h"
#include "peers/RedisStore.h"

namespace Bench {
namespace {

/// Filtered walks are made of this many VNIs.
constexpr uint32_t walkedVnis = 20;

class Rows {
 public:
  Rows(Options const& options, Report& report)
      : report_(report),
        rows_(options.rows),
        hosts_(hosts(rows_, 1)),
        changed_(hosts(rows_, 2)),
        lookups_(keysOf(hosts(rows_, 3))),
        removals_(keysOf(hosts(rows_, 4))) {
    for (QorEvpn::Host& host : changed_) host.seqNoIs(Seqno32(host.seqNo().value() + 1));
  }

  void round() {
    {
      Place const place;
      BrineStore store(place);
      measureWrites(store, Clock::cpu);
      report_.add("overwrite-staged", store.name,
                  perRow(Clock::cpu, [&] { store.overwriteStaged(changed_); }));
      measureReads(store);
      report_.add("look-up-staged", store.name,
                  perRow(Clock::cpu, [&] { check(store.findStaged(lookups_)); }));
      measureElsewhere(store.name, {"brine", place.path()});
      report_.add("memory", store.name, store.bytes() / rows_);
      measureRemovals(store, Clock::cpu);
      store.insert(changed_);
      report_.add("remove", "Brine, the row returned",
                  perRow(Clock::cpu, [&] { check(store.take(removals_)); }));
    }
    {
      Place const place;
      BrineStore store(place, Brine::Mode::writer, 4096);
      report_.add("insert", "Brine, grown from 4,096 slots",
                  perRow(Clock::cpu, [&] { store.insert(hosts_); }));
    }
#if QOREVPN_PEER_LMDB
    {
      Place const place;
      LmdbStore store(place);
      measureWrites(store, Clock::cpu);
      report_.add("overwrite-staged", store.name, perRow(Clock::cpu, [&] { store.overwrite(changed_); }));
      measureReads(store);
      measureElsewhere(store.name, {"lmdb", place.path()});
      report_.add("memory", store.name, store.bytes() / rows_);
      measureRemovals(store, Clock::cpu);
    }
#endif
#if QOREVPN_PEER_BOOST
    {
      Place const place;
      BoostStore store(place);
      measureWrites(store, Clock::cpu);
      measureReads(store);
      measureElsewhere(store.name, {"boost", store.segment()});
      report_.add("memory", store.name, store.bytes() / rows_);
      measureRemovals(store, Clock::cpu);
    }
#endif
    measureRedis();
    {
      Place const place;
      FlatMapStore store(place);
      measureWrites(store, Clock::cpu);
      measureReads(store);
      report_.add("look-up-staged", store.name, perRow(Clock::cpu, [&] { check(store.find(lookups_)); }));
      measureRemovals(store, Clock::cpu);
    }
    {
      Place const place;
      UnorderedMapStore store(place);
      measureWrites(store, Clock::cpu);
      measureReads(store);
      report_.add("look-up-staged", store.name, perRow(Clock::cpu, [&] { check(store.find(lookups_)); }));
      measureRemovals(store, Clock::cpu);
    }
  }

 private:
  template <class Work>
  double perRow(Clock clock, Work const& work) const {
    return seconds(clock, work) * 1e9 / rows_;
  }

  template <class Store>
  void measureWrites(Store& store, Clock clock) {
    report_.add("insert", store.name, perRow(clock, [&] { store.insert(hosts_); }));
    report_.add("overwrite", store.name, perRow(clock, [&] { store.overwrite(changed_); }));
  }

  template <class Store>
  void measureRemovals(Store& store, Clock clock) {
    report_.add("remove", store.name, perRow(clock, [&] { store.remove(removals_); }));
    if (store.find(std::span(lookups_).first(1000)) != 0)
      fail(std::string(store.name) + " did not remove its rows");
  }

  template <class Store>
  void measureReads(Store& store) {
    report_.add("look-up", store.name, perRow(Clock::cpu, [&] { check(findOneByOne(store)); }));
    report_.add("look-up-many", store.name, perRow(Clock::cpu, [&] { check(store.find(lookups_)); }));
    report_.add("walk", store.name, perRow(Clock::cpu, [&] { check(store.walk()); }));
    uint64_t sum = 0;
    uint32_t const vnis = std::is_same_v<Store, BrineStore> ? walkedVnis * 10 : walkedVnis;
    double const walked = perRow(Clock::cpu, [&] {
      for (uint32_t vni = 1; vni <= vnis; ++vni) sum += store.walk(vni);
    });
    if (sum == 0) fail(std::string(store.name) + " walked over nothing");
    report_.add("walk-filtered", store.name, walked / vnis);
  }

  /// Each look-up waits for the one before, whose answer says which key is next; as where an event asks for
  /// one row and acts on it. The processor cannot work at several of them at a time.
  template <class Store>
  uint64_t findOneByOne(Store& store) const {
    uint64_t sum = 0;
    // The sum stays far below 2^62, which the processor cannot know.
    for (size_t i = 0; i < lookups_.size(); ++i) sum += store.find(std::span(&lookups_[i + (sum >> 62)], 1));
    return sum;
  }

  void measureRedis() {
#if QOREVPN_PEER_REDIS
    Place const place;
    RedisServer const server(place);
    if (!server.isRunning()) {
      Report::skipped("Redis", "redis-server does not run");
      return;
    }
    RedisStore store(server.socket());
    double const before = store.bytes();
    measureWrites(store, Clock::wall);
    report_.add("memory", store.name, (store.bytes() - before) / rows_);
    measureElsewhere(store.name, {"redis", server.socket()});
    measureRemovals(store, Clock::wall);
#endif
  }

  /// Look-ups from another process.
  void measureElsewhere(std::string const& subject, std::vector<std::string> const& role) {
    std::vector<std::string> arguments = role;
    arguments.push_back(std::to_string(rows_));
    Child child(arguments);
    for (double number = child.number(); number >= 0; number = child.number()) {
      std::string const how = child.line();
      check(static_cast<uint64_t>(child.number()));
      report_.add("look-up-elsewhere", subject + how, number * 1e9 / rows_);
    }
    child.wait();
  }

  /// All stores must have given the same rows.
  void check(uint64_t sum) {
    if (sum_ == 0) sum_ = sum;
    if (sum != sum_ || sum == 0) fail("a store gave other rows than the first one");
  }

  Report& report_;
  uint32_t rows_;
  std::vector<QorEvpn::Host> hosts_, changed_;
  std::vector<QorEvpn::MacVniPair> lookups_, removals_;
  uint64_t sum_ = 0;
};

template <class Store>
void lookUp(Store& store, std::string const& how, Clock clock, std::vector<QorEvpn::MacVniPair> const& keys) {
  uint64_t sum = 0;
  store.find(std::span(keys).first(keys.size() / 10));  // Maps the pages.
  double const time = seconds(clock, [&] { sum = store.find(keys); });
  say(time);
  say(how);
  say(static_cast<double>(sum));
}

/// The other process: prints seconds, a word on how, and the sum of the rows; at the end -1.
void runRole(std::vector<std::string> const& role) {
  auto const keys = keysOf(hosts(static_cast<uint32_t>(std::stoul(role.at(2))), 5));
  if (role[0] == "brine") {
    BrineStore store(role[1], Brine::Mode::reader);
    lookUp(store, "", Clock::cpu, keys);
  }
#if QOREVPN_PEER_LMDB
  if (role[0] == "lmdb") {
    LmdbStore store(role[1], true);
    lookUp(store, "", Clock::cpu, keys);
  }
#endif
#if QOREVPN_PEER_BOOST
  if (role[0] == "boost") {
    BoostStore store(role[1], false);
    lookUp(store, "", Clock::cpu, keys);
  }
#endif
#if QOREVPN_PEER_REDIS
  if (role[0] == "redis") {
    RedisStore store(role[1]);
    lookUp(store, "", Clock::wall, keys);
  }
#endif
  say(-1);
}

void run(Options const& options) {
  Report report(options, {{"insert", "Insert", "ns a row"},
                          {"overwrite", "Overwrite", "ns a row"},
                          {"overwrite-staged", "Overwrite, 32 keys announced", "ns a row"},
                          {"look-up", "Look-up by the writer, one by one", "ns"},
                          {"look-up-many", "the same, all keys known before", "ns"},
                          {"look-up-staged", "the same, 32 keys announced", "ns"},
                          {"look-up-elsewhere", "Look-up from another process", "ns"},
                          {"walk", "Walk over all rows", "ns a row"},
                          {"walk-filtered", "Walk over a VNI", "ns a row tested"},
                          {"remove", "Remove", "ns a row"},
                          {"memory", "Memory", "bytes a row"}});
  report.goal("insert", "LMDB", 10, 17);
  report.goal("insert", "Boost.Interprocess", 5, 10);
  report.goal("overwrite", "LMDB", 7, 10);
  report.goal("overwrite", "Boost.Interprocess", 1.8, 3);
  report.goal("overwrite-staged", "LMDB", 25, 45);
  report.goal("look-up", "flat map", 1, 1.5);
  report.goal("look-up-elsewhere", "LMDB", 4, 6);
  report.goal("look-up-elsewhere", "Redis", 10, 16);
  report.goal("walk", "LMDB", 1.5, 4);
  report.goal("walk-filtered", "LMDB", 300, 600);
  report.goal("remove", "LMDB", 6, 10);
  Rows rows(options, report);
  for (unsigned i = 0; i < options.rounds; ++i) rows.round();
  report.print();
}

}  // namespace
}  // namespace Bench

int main(int argc, char** argv) { return Bench::main(argc, argv, Bench::run, Bench::runRole); }
