/// A program without adapters: --speaker is refused.

#include "agent/live/NoAdapters.h"
#include "agent/live/SpeakerSide.h"

namespace Agent {

struct SpeakerSide::Parts {};

void SpeakerOptions::addTo(CLI::App& command) { addRefused(command, "--speaker"); }
void SpeakerOptions::check() const {}

SpeakerSide::SpeakerSide(Loop&, Site const&, SpeakerOptions const&, Sources&, Logs const&) {}
SpeakerSide::~SpeakerSide() = default;
void SpeakerSide::describe(nlohmann::ordered_json&) const {}
nlohmann::ordered_json SpeakerSide::route(QorEvpn::MacVniPair const&) const { return nullptr; }
nlohmann::ordered_json SpeakerSide::route(QorEvpn::VniVtepPair const&) const { return nullptr; }

SiteRows announcedBy(nlohmann::ordered_json const&) {
  throw std::runtime_error("this program was built without what asks a speaker");
}

}  // namespace Agent
