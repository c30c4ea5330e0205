/// One MAC event on the whole path, from the controller's status through the machines to the row in shared
/// memory, beside the same machines on standard maps; and what traces cost.

#include <unistd.h>

#include "Harness.h"
#include "VxlanController/QorEvpnBrine.h"
#include "events/MacEvents.h"

namespace Bench {
namespace {

Trace::Handle traceHandle("Bench");

template <class TablePtr>
void mount(TablePtr const& table, Place const& place) {
  Brine::MountOptions options;
  options.directory = place.path();
  options.name = table->name().text();
  options.mode = Brine::Mode::writer;
  options.turns = true;
  if (table->mount(options) != Brine::MountStatus::mounted) fail("mount: " + table->mountDetail());
}

/// Prints our figures of one round.
void measure(std::vector<std::string> const& role) {
  std::vector<std::unique_ptr<Place>> places;
  sayFigures(measureEvents(static_cast<uint32_t>(std::stoul(role.at(0))), [&](uint32_t vnis) {
    places.push_back(std::make_unique<Place>());
    auto const hosts = QorEvpn::hostTableFactory(Orb::Name("host"));
    auto const floods = QorEvpn::floodTableFactory(Orb::Name("flood"));
    mount(hosts, *places.back());
    mount(floods, *places.back());
    return std::make_unique<MacEvents>(hosts, floods, vnis, [hosts] { hosts->endTurn(); });
  }));
}

/// The program of the other machines stands beside this one.
std::string standardProgram() {
  char path[4096];
  ssize_t const size = ::readlink("/proc/self/exe", path, sizeof path);
  return std::string(path, static_cast<size_t>(std::max<ssize_t>(size, 0))) + "Standard";
}

/// Each subject has a process of its own in each round, so none finds memory that an earlier one left.
EventFigures measuredBy(Child child) {
  EventFigures figures{};
  for (double* const figure : {&figures.cached, &figures.traced, &figures.startUp, &figures.again}) {
    *figure = child.number();
  }
  child.wait();
  return figures;
}

/// A trace point that is off, beside the same loop without it.
double disabledTrace() {
  constexpr uint32_t times = 50'000'000;
  auto const loop = [](auto const& body) {
    return seconds(Clock::cpu, [&] {
      for (uint32_t i = 0; i < times; ++i) {
        body(i);
        asm volatile("" : : : "memory");
      }
    });
  };
  double const with = loop([](uint32_t i) { TRACE(traceHandle, 3, "value ", i); });
  double const without = loop([](uint32_t) {});
  return std::max(0.0, with - without) * 1e9 / times;
}

void run(Options const& options) {
  Report report(options, {{"event-cached", "MAC event, 256 MACs of one VNI", "ns"},
                          {"event-start", "MAC event, 1 M MACs, all new", "ns"},
                          {"event-again", "the same MACs again", "ns"},
                          {"event-traced", "MAC event of 256, all traces on", "ns"},
                          {"trace-off", "A trace point that is off", "ns"}});
  char const* const other = "the same machines on std::map";
  report.goal("event-cached", other, 1.4, 1.4);
  report.goal("event-start", other, 1.6, 3);
  for (unsigned i = 0; i < options.rounds; ++i) {
    auto const add = [&](std::string const& subject, EventFigures const& figures) {
      report.add("event-cached", subject, figures.cached);
      report.add("event-start", subject, figures.startUp);
      report.add("event-again", subject, figures.again);
      report.add("event-traced", subject, figures.traced);
    };
    std::vector<std::string> const role = {std::to_string(options.rows)};
    add("Brine", measuredBy(Child(role)));
    add(other, measuredBy(Child(role, standardProgram())));
    report.add("trace-off", "Brine", disabledTrace());
  }
  report.print();
}

}  // namespace
}  // namespace Bench

int main(int argc, char** argv) { return Bench::main(argc, argv, Bench::run, Bench::measure); }
