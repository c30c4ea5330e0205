/// A program without adapters: --switch is an unknown option.

#include "agent/live/SwitchSide.h"

namespace Agent {

struct SwitchSide::Parts {};

void SwitchOptions::addTo(CLI::App&) {}
void SwitchOptions::check() const {}

SwitchSide::SwitchSide(Loop&, SwitchOptions const&, Sources&, Controller&) {}
SwitchSide::~SwitchSide() = default;
nlohmann::ordered_json SwitchSide::rowsOf(Vxlan::Vni) const { return nlohmann::ordered_json::array(); }
nlohmann::ordered_json SwitchSide::remoteRowsOf(Vxlan::Vni, Wirix::EthAddr) const {
  return nlohmann::ordered_json::array();
}

}  // namespace Agent
