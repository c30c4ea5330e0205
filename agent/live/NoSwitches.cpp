/// A program without adapters: --switch is refused.

#include "agent/live/NoAdapters.h"
#include "agent/live/SwitchSide.h"

namespace Agent {

struct SwitchSide::Parts {};

void SwitchOptions::addTo(CLI::App& command) { addRefused(command, "--switch"); }
void SwitchOptions::check() const {}

SwitchSide::SwitchSide(Loop&, SwitchOptions const&, Sources&, Controller&) {}
SwitchSide::~SwitchSide() = default;
nlohmann::ordered_json SwitchSide::rowsOf(Vxlan::Vni) const { return nlohmann::ordered_json::array(); }
nlohmann::ordered_json SwitchSide::remoteRowsOf(Vxlan::Vni, Wirix::EthAddr) const {
  return nlohmann::ordered_json::array();
}
void SwitchSide::describe(nlohmann::ordered_json&) const {}

}  // namespace Agent
