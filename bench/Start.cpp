/// Beginnings: a table mounted again after its writer was killed, and what 4,000 VNIs do to a table when they
/// start.

#include <signal.h>

#include "Harness.h"
#include "peers/BrineStore.h"
#include "peers/MapStore.h"

namespace Bench {
namespace {

/// The flat map is walked for this many VNIs; it takes seconds for all.
constexpr uint32_t mapVnis = 100;

void round(Options const& options, Report& report, std::vector<QorEvpn::Host> const& hosts) {
  double const rows = options.rows;
  Place const place;
  {
    // The writer dies in the middle of a turn.
    Child writer({"writer", place.path(), std::to_string(options.rows)});
    if (writer.line() != "written") fail("the writer did not write");
    writer.kill(SIGKILL);
    writer.wait();
  }
  Brine::Table<QorEvpn::Host> table;
  Brine::MountOptions mount;
  mount.directory = place.path();
  mount.name = "host";
  mount.mode = Brine::Mode::writer;
  mount.turns = true;
  Brine::MountStatus status{};
  report.add("remount", "Brine", seconds(Clock::cpu, [&] { status = table.mount(mount); }) * 1e3);
  if (status != Brine::MountStatus::mounted || table.statistics().rows != options.rows)
    fail(table.mountDetail());

  uint64_t sum = 0, found = 0;
  double const walks = seconds(Clock::cpu, [&] {
    for (uint32_t vni = 1; vni <= vniCount; ++vni) {
      for (auto cursor = table.walk(vni); auto const* const row = cursor.next(); ++found) sum += sumOf(*row);
    }
  });
  if (static_cast<double>(found) != rows) fail("the walks did not find every row");
  report.add("start-vnis", "Brine", walks * 1e3);

  FlatMapStore map(place);
  map.insert(hosts);
  double const mapWalks = seconds(Clock::cpu, [&] {
    for (uint32_t vni = 1; vni <= mapVnis; ++vni) sum += map.walk(vni);
  });
  use(sum);
  report.add("start-vnis", "flat map walked for each", mapWalks * 1e3 * vniCount / mapVnis);
}

void runRole(std::vector<std::string> const& role) {
  BrineStore store(role.at(1), Brine::Mode::writer);
  auto const all = hosts(static_cast<uint32_t>(std::stoul(role.at(2))));
  for (QorEvpn::Host const& host : all) store.table.write(host);
  say("written");
  for (;;) {
    for (QorEvpn::Host const& host : all) store.table.write(host);
  }
}

void run(Options const& options) {
  Report report(options, {{"remount", "Mount after `kill -9`, 1 M rows", "ms"},
                          {"start-vnis", "4,000 VNIs seek their rows in 1 M", "ms"}});
  report.goal("remount", "Brine", 40, 15);
  report.goal("start-vnis", "flat map walked for each", 38, 38);
  auto const all = hosts(options.rows);
  for (unsigned i = 0; i < options.rounds; ++i) round(options, report, all);
  report.print();
}

}  // namespace
}  // namespace Bench

int main(int argc, char** argv) { return Bench::main(argc, argv, Bench::run, Bench::runRole); }
