#include "agent/explain/WhyLearned.h"

#include <set>

#include "agent/explain/Why.h"

namespace Agent {

using Json = nlohmann::ordered_json;

Json whyLearned(EvpnSide const& side, SpeakerSide const* speaker, std::string_view argument) {
  Subject const subject = Subject::parse(argument);
  if (!subject.vni) {
    std::set<std::uint32_t> vnis;
    side.sources().forEachRefusal(
        *subject.mac, [&](SourceId, Vxlan::Vni vni, std::string_view) { vnis.insert(vni.value()); });
    return vnis;
  }
  Json sources = Json::array();
  auto const add = [&](SourceId source, std::uint32_t since, Json entry) {
    Json& told = sources.emplace_back(Json{{"name", side.sources().name(source)}});
    told.update(entry);
    if (source != earlierRun) told["since"] = since;
  };
  Json route;
  if (subject.mac) {
    QorEvpn::MacVniPair const key(*subject.mac, *subject.vni);
    side.ledgers().forEachClaim(key, [&](SourceId source, QorEvpn::Host const& row, std::uint32_t since) {
      add(source, since,
          {{"vtep", Orb::toText(row.vtepAddr())},
           {"seq", row.seqNo().value()},
           {"preference", row.preference()}});
    });
    side.sources().forEachRefusal(
        *subject.mac, [&](SourceId source, Vxlan::Vni vni, std::string_view reason) {
          if (vni == key.vni())
            sources.push_back({{"name", side.sources().name(source)}, {"refused", reason}});
        });
    if (speaker) route = speaker->route(key);
  } else {
    QorEvpn::VniVtepPair const key(*subject.vni, subject.vtep);
    side.ledgers().forEachClaim(
        key, [&](SourceId source, std::uint32_t since) { add(source, since, Json::object()); });
    if (speaker) route = speaker->route(key);
  }
  Json result = {{"sources", std::move(sources)}};
  if (speaker) result["route"] = std::move(route);
  return result;
}

}  // namespace Agent
