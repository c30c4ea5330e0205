/// The machines on standard maps: prints the figures of one round for bench-Events.

#include "events/MacEvents.h"

namespace {

static_assert(Orb::FlatMap<Vxlan::Vni, bool>::isSubstitute && QorEvpn::HostTable::isSubstitute);

void measure(std::vector<std::string> const& role) {
  auto const rows = static_cast<uint32_t>(std::stoul(role.at(0)));
  auto const figures = Bench::measureEvents(rows, [](uint32_t vnis) {
    return std::make_unique<Bench::MacEvents>(Orb::makePtr<QorEvpn::HostTable>(Orb::Name("host")),
                                              Orb::makePtr<QorEvpn::FloodTable>(Orb::Name("flood")), vnis,
                                              [] {});
  });
  Bench::sayFigures(figures);
}

}  // namespace

int main(int argc, char** argv) {
  auto const alone = [](Bench::Options const&) { Bench::fail("bench-Events starts this program"); };
  return Bench::main(argc, argv, alone, measure);
}
