/// HostedModule::why(): the facts behind one row, collected from the machines' inputs and outputs.
#include <charconv>

#include "agent/explain/Why.h"
#include "agent/site/HostedModule.h"

namespace Agent {

namespace {

using VxlanController::MacVtepFloodListV2;
using VxlanController::MacVtepV2;
using Json = nlohmann::ordered_json;

Json entryJson(MacVtepV2 const& entry) {
  return {{"vtep", Orb::toText(entry.vtepAddr())},
          {"seq", entry.seqNo().value()},
          {"preference", entry.preference()}};
}

template <class Table>
std::optional<MacVtepV2> entryOf(Table const* status, Wirix::EthAddr mac) {
  MacVtepV2 const* const entry = status ? status->macVtepTable().find(mac) : nullptr;
  return entry ? std::optional(*entry) : std::nullopt;
}

/// The VTEP's value in a list, or nothing where it is not in it.
std::optional<bool> valueIn(Orb::Ptr<MacVtepFloodListV2> const& list, Wirix::IpAddr vtep) {
  bool const* const value = list ? list->vtepIpFloodList().find(vtep) : nullptr;
  return value ? std::optional(*value) : std::nullopt;
}

}  // namespace

Json HostedModule::whyHost(QorEvpn::MacVniPair const& key) const {
  auto const* const status = controller_->vniFdbStatus(key.vni());
  HostFacts facts;
  facts.key = key;
  facts.state = exportState(status != nullptr);
  facts.controller = entryOf(status, key.macAddr());
  facts.evpn = entryOf(vniStatusDir_->vniStatusV2(key.vni()).get(), key.macAddr());
  facts.isMultipath = status && status->macVtepMultiPathTable().contains(key.macAddr());
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
  auto const* const status = controller_->vniFdbStatus(key.vni());
  auto const& evpn = vniStatusDir_->vniStatusV2(key.vni());
  FloodFacts facts;
  facts.key = key;
  facts.state = exportState(status != nullptr);
  if (status) {
    facts.controller = valueIn(status->macVtepFloodListTable(MacVtepFloodListV2::allBum), key.vtepAddr());
    for (auto const& list : status->macVtepFloodListTable()) {
      if (list.key != MacVtepFloodListV2::allBum && valueIn(list.value, key.vtepAddr())) {
        facts.isInListOfOneMac = true;
      }
    }
  }
  facts.isEvpns = evpn && valueIn(evpn->macVtepFloodListTable(MacVtepFloodListV2::allBum), key.vtepAddr());
  facts.isRow = exported_.flood->floodEntry(key) != QorEvpn::FloodEntry();

  Json result{{"vni", key.vni().value()}, {"vtep", Orb::toText(key.vtepAddr())}};
  if (facts.controller) result["controller"] = {{"on", *facts.controller}};
  result["evpn"] = facts.isEvpns;
  result["row"] = facts.isRow;
  result.update(toJson(explain(facts)));
  return result;
}

ExportState HostedModule::exportState(bool isServed) const {
  return {.isEnabled = status_->enabled(),
          .isCapable = capability_->evpnEnabled(),
          .isKeeping = sources_.isKeeping(),
          .isServed = isServed};
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

}  // namespace Agent
