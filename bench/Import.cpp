/// MAC addresses from the EVPN side's write to the controller's per-VNI status, over two processes.

#include <poll.h>

#include "Harness.h"
#include "VxlanController/QorEvpnRxSm.h"

namespace Bench {
namespace {

constexpr uint32_t macs = 132'000;

template <class TablePtr>
Brine::MountStatus mount(TablePtr const& table, std::string const& directory, Brine::Mode mode) {
  Brine::MountOptions options;
  options.directory = directory;
  options.name = table->name().text();
  options.mode = mode;
  options.turns = true;
  return table->mount(options);
}

/// Counts the MAC addresses of all statuses, and notices if they ever become fewer.
size_t countMacs(VxlanController::VniStatusDirV2 const& statuses) {
  size_t count = 0;
  for (auto const& entry : statuses.vniStatusV2()) count += entry.value->macVtepTables();
  return count;
}

void round(Report& report) {
  Place const place;
  Child writer({"writer", place.path()});
  if (writer.line() != "ready") fail("the EVPN side is not ready");
  auto const hosts = QorEvpn::hostTableFactory(Orb::Name("host"));
  auto const floods = QorEvpn::floodTableFactory(Orb::Name("flood"));
  if (mount(hosts, place.path(), Brine::Mode::keyshadow) != Brine::MountStatus::mounted ||
      mount(floods, place.path(), Brine::Mode::keyshadow) != Brine::MountStatus::mounted) {
    fail("mount: " + hosts->mountDetail() + floods->mountDetail());
  }
  auto const statuses = Orb::makePtr<VxlanController::VniStatusDirV2>(Orb::Name("evpn"));
  auto const machine = VxlanController::qorEvpnRxSmFactory(hosts, floods, statuses);
  double const start = now(Clock::wall);
  writer.tell();
  for (size_t count = 0; count < macs;) {
    pollfd entry{hosts->fd(), POLLIN, 0};
    if (::poll(&entry, 1, 10'000) != 1) fail("the MAC addresses do not arrive");
    hosts->deliver();
    size_t const before = std::exchange(count, countMacs(*statuses));
    if (count < before) fail("the number of MAC addresses dipped");
  }
  report.add("import", "Brine", (now(Clock::wall) - start) * 1e3);
}

void runRole(std::vector<std::string> const& role) {
  auto const hosts = QorEvpn::hostTableFactory(Orb::Name("host"));
  auto const floods = QorEvpn::floodTableFactory(Orb::Name("flood"));
  if (mount(hosts, role.at(1), Brine::Mode::writer) != Brine::MountStatus::mounted ||
      mount(floods, role.at(1), Brine::Mode::writer) != Brine::MountStatus::mounted) {
    fail("mount: " + hosts->mountDetail() + floods->mountDetail());
  }
  auto const all = Bench::hosts(macs);
  say("ready");
  heard();
  size_t written = 0;
  for (QorEvpn::Host const& host : all) {
    hosts->hostIs(host);
    if (++written % 1000 == 0) hosts->endTurn();
  }
  hosts->endTurn();
  for (;;) heard();
}

void run(Options const& options) {
  Report report(options, {{"import", "132,000 MACs, EVPN to controller", "ms"}});
  report.goal("import", "Brine", 200, 40);
  for (unsigned i = 0; i < options.rounds; ++i) round(report);
  report.print();
}

}  // namespace
}  // namespace Bench

int main(int argc, char** argv) { return Bench::main(argc, argv, Bench::run, Bench::runRole); }
