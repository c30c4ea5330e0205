/// What HostedModule says of its machines' inputs and outputs to those who ask why a row is there, or whether
/// all are right.
#include "agent/audit/BothSides.h"
#include "agent/explain/Why.h"
#include "agent/site/HostedModule.h"

namespace Agent {

namespace {

using VxlanController::MacVtepV2;
using Json = nlohmann::ordered_json;

Json entryJson(MacVtepV2 const& entry) {
  return {{"vtep", Orb::toText(entry.vtepAddr())},
          {"seq", entry.seqNo().value()},
          {"preference", entry.preference()}};
}

}  // namespace

Json HostedModule::whyHost(QorEvpn::MacVniPair const& key) const {
  HostFacts facts = hostFacts(key, controller_->vniFdbStatus(key.vni()),
                              vniStatusDir_->vniStatusV2(key.vni()).get(), exportState());
  if (auto const row = exported_.host->host(key); row != QorEvpn::Host()) facts.row = row;
  auto const verdict = controller_->verdict(key.vni(), key.macAddr());
  facts.isEarlier = verdict && verdict->source == earlierRun;

  Json result{{"vni", key.vni().value()}, {"mac", Orb::toText(key.macAddr())}};
  if (facts.controller) {
    result["controller"] = entryJson(*facts.controller);
    result["controller"]["from"] = !verdict || !verdict->source     ? "evpn"
                                   : *verdict->source == earlierRun ? "earlier run"
                                                                    : sources_.name(*verdict->source);
    if (verdict) result["controller"]["why"] = verdict->why;
  }
  if (facts.evpn) result["evpn"] = entryJson(*facts.evpn);
  if (facts.row) {
    result["row"] = entryJson(
        MacVtepV2(key.macAddr(), facts.row->vtepAddr(), facts.row->seqNo(), facts.row->preference()));
  }
  result.update(toJson(explain(facts)));
  return result;
}

Json HostedModule::whyFlood(QorEvpn::VniVtepPair const& key) const {
  FloodFacts facts = floodFacts(key, controller_->vniFdbStatus(key.vni()),
                                vniStatusDir_->vniStatusV2(key.vni()).get(), exportState());
  facts.isRow = exported_.flood->floodEntry(key) != QorEvpn::FloodEntry();

  Json result{{"vni", key.vni().value()}, {"vtep", Orb::toText(key.vtepAddr())}};
  if (facts.controller) result["controller"] = {{"on", *facts.controller}};
  result["evpn"] = facts.isEvpns;
  result["row"] = facts.isRow;
  result.update(toJson(explain(facts)));
  return result;
}

ExportState HostedModule::exportState() const {
  return {.isEnabled = status_->enabled(),
          .isCapable = capability_->evpnEnabled(),
          .isKeeping = sources_.isKeeping()};
}

Json HostedModule::why(std::string_view argument) const {
  auto const blank = argument.find(' ');
  std::string const subject(argument.substr(0, blank));
  std::optional<Vxlan::Vni> vni;
  if (blank != std::string_view::npos)
    vni = Orb::parseWhole<Vxlan::Vni>(std::string(argument.substr(blank + 1)));
  auto result = Json::array();
  if (subject.find(':') == std::string::npos) {
    if (!vni) throw std::runtime_error("a VTEP is in the flood list of a VNI: which one?");
    result.push_back(whyFlood({*vni, Orb::parseWhole<Wirix::IpAddr>(subject)}));
    return result;
  }
  auto const mac = Orb::parseWhole<Wirix::EthAddr>(subject);
  if (vni) {
    result.push_back(whyHost({mac, *vni}));
    return result;
  }
  std::set<Vxlan::Vni> knowing;
  controller_->forEachVni([&](Vxlan::Vni each) {
    auto const* const status = controller_->vniFdbStatus(each);
    if (status->macVtepTable().contains(mac) || status->macVtepMultiPathTable().contains(mac))
      knowing.insert(each);
  });
  for (auto const& each : vniStatusDir_->vniStatusV2()) {
    if (each.value->macVtepTable().contains(mac)) knowing.insert(each.key);
  }
  for (Vxlan::Vni const each : knowing) result.push_back(whyHost({mac, each}));
  return result;
}

Json HostedModule::bothSides(std::string_view argument) const {
  if (!argument.empty()) {
    auto const vni = Orb::parseWhole<Vxlan::Vni>(std::string(argument));
    return bothSidesJson(controller_->vniFdbStatus(vni), vniStatusDir_->vniStatusV2(vni).get());
  }
  std::set<Vxlan::Vni> known;
  controller_->forEachVni([&](Vxlan::Vni vni) { known.insert(vni); });
  for (auto const& each : vniStatusDir_->vniStatusV2()) known.insert(each.key);
  auto vnis = Json::array();
  for (Vxlan::Vni const vni : known) vnis.push_back(vni.value());
  ExportState const state = exportState();
  return {{"enabled", state.isEnabled},
          {"capability", state.isCapable},
          {"kept", !tx_ && !toldOff_},
          {"vnis", std::move(vnis)}};
}

}  // namespace Agent
