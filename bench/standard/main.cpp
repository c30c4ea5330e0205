/// The machines on standard maps: prints the figures of one round for bench-Events.

#include "events/MacEvents.h"

int main(int argc, char** argv) {
  Bench::Options const options = Bench::parseOptions(argc, argv);
  auto const rows = static_cast<uint32_t>(std::stoul(options.role.at(0)));
  auto const figures = Bench::measureEvents(rows, [](uint32_t vnis) {
    return std::make_unique<Bench::MacEvents>(Orb::makePtr<QorEvpn::HostTable>(Orb::Name("host")),
                                              Orb::makePtr<QorEvpn::FloodTable>(Orb::Name("flood")), vnis,
                                              [] {});
  });
  for (double const figure : {figures.cached, figures.traced, figures.startUp, figures.again})
    Bench::say(figure);
  return 0;
}
