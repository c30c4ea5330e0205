#pragma once

#include "Brine/Table.h"
#include "Harness.h"
#include "VxlanController/QorEvpnBrine.h"

namespace Bench {

/// Sums over rows, so that every store can be seen to have given the same answers.
inline uint64_t sumOf(QorEvpn::Host const& host) { return host.vtepAddr().value() + host.seqNo().value(); }

/// The engine's table of host rows. Every row is committed, whole and visible to readers when its write
/// returns.
class BrineStore {
 public:
  static constexpr char const* name = "Brine";
  using Table = Brine::Table<QorEvpn::Host>;

  static constexpr uint32_t slots = 1U << 20;

  explicit BrineStore(Place const& place, Brine::Mode mode = Brine::Mode::writer,
                      uint32_t initialRows = slots) {
    Brine::MountOptions options;
    options.directory = place.path();
    options.name = "host";
    options.mode = mode;
    options.turns = true;
    options.initialRows = initialRows;
    mount(options);
  }
  BrineStore(std::string const& directory, Brine::Mode mode) {
    Brine::MountOptions options;
    options.directory = directory;
    options.name = "host";
    options.mode = mode;
    mount(options);
  }

  void insert(std::span<QorEvpn::Host const> hosts) { write(hosts); }
  void overwrite(std::span<QorEvpn::Host const> hosts) { write(hosts); }
  /// Some tens of keys are announced before their rows are written.
  void overwriteStaged(std::span<QorEvpn::Host const> hosts) {
    constexpr size_t batch = 32;
    QorEvpn::MacVniPair keys[batch];
    for (; !hosts.empty(); hosts = hosts.subspan(std::min(batch, hosts.size()))) {
      size_t const count = std::min(batch, hosts.size());
      for (size_t i = 0; i < count; ++i) keys[i] = hosts[i].key();
      table.stage({keys, count});
      for (size_t i = 0; i < count; ++i) table.write(hosts[i]);
    }
    table.endTurn();
  }
  uint64_t find(std::span<QorEvpn::MacVniPair const> keys) {
    uint64_t sum = 0;
    for (QorEvpn::MacVniPair const& key : keys) {
      if (auto const row = table.find(key)) sum += sumOf(*row);
    }
    return sum;
  }
  uint64_t findStaged(std::span<QorEvpn::MacVniPair const> keys) {
    constexpr size_t batch = 32;
    uint64_t sum = 0;
    for (; !keys.empty(); keys = keys.subspan(std::min(batch, keys.size()))) {
      auto const staged = keys.first(std::min(batch, keys.size()));
      table.stage(staged);
      sum += find(staged);
    }
    return sum;
  }
  uint64_t walk() {
    uint64_t sum = 0;
    for (auto cursor = table.walk(); auto const* const row = cursor.next();) sum += sumOf(*row);
    return sum;
  }
  uint64_t walk(uint32_t vni) {
    uint64_t sum = 0;
    for (auto cursor = table.walk(vni); auto const* const row = cursor.next();) sum += sumOf(*row);
    return sum;
  }
  /// As the peers: without a look at the row.
  void remove(std::span<QorEvpn::MacVniPair const> keys) {
    for (QorEvpn::MacVniPair const& key : keys) table.erase(key);
    table.endTurn();
  }
  /// Each row is verified and returned.
  uint64_t take(std::span<QorEvpn::MacVniPair const> keys) {
    uint64_t sum = 0;
    for (QorEvpn::MacVniPair const& key : keys) {
      if (auto const row = table.remove(key)) sum += sumOf(*row);
    }
    table.endTurn();
    return sum;
  }
  double bytes() const { return static_cast<double>(table.statistics().fileBytes); }

  Table table;

 private:
  void mount(Brine::MountOptions const& options) {
    if (table.mount(options) != Brine::MountStatus::mounted) fail("mount: " + table.mountDetail());
  }
  void write(std::span<QorEvpn::Host const> hosts) {
    for (QorEvpn::Host const& host : hosts) table.write(host);
    table.endTurn();
  }
};

}  // namespace Bench
