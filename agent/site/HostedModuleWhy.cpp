/// HostedModule's answers about the inputs and outputs of its machines: why a row exists, and for audits.
#include "VxlanController/QorEvpnRow.h"
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

Json listJson(std::vector<Wirix::IpAddr> const& vteps) {
  Json list = Json::array();
  for (Wirix::IpAddr const& vtep : vteps) list.push_back(Orb::toText(vtep));
  return list;
}

Json claimJson(std::string const& source, MultipathClaim const& claim) {
  return {{"name", source}, {"multipath", listJson(claim.vteps)}, {"since", claim.since}};
}

Json multipathJson(VxlanController::VniFdbStatusV2 const& status, Wirix::EthAddr mac) {
  return {{"multipath", listJson(status.macVtepMultiPathTable().find(mac)->vtepAddrs)}};
}

void addBridgeId(Json& result, bool isListed, std::string_view unlistedText) {
  result["bridgeId"] = isListed;
  if (!isListed) result["bridgeIdText"] = unlistedText;
}

}  // namespace

Json HostedModule::whyHost(QorEvpn::MacVniPair const& key) const {
  HostFacts facts = hostFacts(key, controller_->vniFdbStatus(key.vni()),
                              vniStatusDir_->vniStatusV2(key.vni()).get(), exportState());
  if (auto const row = exported_.host->host(key); row != QorEvpn::Host()) facts.row = row;
  auto const verdict = controller_->verdict(key.vni(), key.macAddr());
  facts.isEarlier = verdict && verdict->source == earlierRun;
  Json told = Json::array();
  if (ServedVni const* const served = controller_->served(key.vni())) {
    served->forEachClaim(key.macAddr(), [&](SourceId source, Claim const& claim) {
      told.push_back({{"name", sources_.name(source)}, {"vtep", Orb::toText(claim.vtep)}});
      if (source == earlierRun) return;
      told.back().update(
          {{"seq", claim.seq.value()}, {"preference", claim.preference}, {"since", claim.since}});
      if (sources_.isNumbered(source)) return;
      told.back().erase("seq");
      facts.isFrozen = facts.isFrozen || controller_->isFrozen(key.vni(), key.macAddr());
    });
    facts.isOvertaken = !told.empty() && !verdict->source;
    served->forEachMultipathClaim(key.macAddr(), [&](SourceId source, MultipathClaim const& claim) {
      told.push_back(claimJson(sources_.name(source), claim));
    });
  }
  sources_.forEachRefusal(key.macAddr(), [&](SourceId source, Vxlan::Vni vni, std::string_view reason) {
    if (vni != key.vni()) return;
    facts.refusal = reason;
    told.push_back({{"name", sources_.name(source)}, {"refused", reason}});
  });

  Json result{{"vni", key.vni().value()}, {"mac", Orb::toText(key.macAddr())}};
  if (facts.controller) {
    result["controller"] = entryJson(*facts.controller);
    result["controller"]["from"] = verdict && verdict->source ? sources_.name(*verdict->source) : "evpn";
    if (verdict) result["controller"]["why"] = verdict->why;
    if (facts.isFrozen) result["controller"]["frozen"] = true;
  } else if (facts.isMultipath) {
    result["controller"] = multipathJson(*controller_->vniFdbStatus(key.vni()), key.macAddr());
  }
  result["sources"] = std::move(told);
  if (facts.evpn) result["evpn"] = entryJson(*facts.evpn);
  result["import"] =
      importJson<QorEvpn::Host>(key, imported_ ? imported_->host->host(key) : QorEvpn::Host(),
                                imported_ && Brine::isReadable(imported_->host->mountStatus()));
  if (facts.row) result["row"] = entryJson(QorEvpn::entryOf(*facts.row));
  addBridgeId(result, isListed(key.vni()), unlistedText(facts.state, controller_->vniFdbStatus(key.vni())));
  result.update(toJson(explain(facts)));
  return result;
}

Json HostedModule::whyFlood(QorEvpn::VniVtepPair const& key) const {
  FloodFacts facts = floodFacts(key, controller_->vniFdbStatus(key.vni()),
                                vniStatusDir_->vniStatusV2(key.vni()).get(), exportState());
  facts.isRow = exported_.flood->floodEntry(key) != QorEvpn::FloodEntry();
  Json told = Json::array(), ofOneMac;
  bool isHeld = false, isTold = false, isOn = false;
  Wirix::EthAddr constexpr allBum = VxlanController::MacVtepFloodListV2::allBum;
  if (ServedVni const* const served = controller_->served(key.vni())) {
    for (auto const& list : served->vniFdbStatus()->macVtepFloodListTable()) {
      Wirix::EthAddr const mac = list.key;
      bool const isForAll = mac == allBum;
      served->forEachFloodClaim(mac, key.vtepAddr(), [&](SourceId source, FloodClaim const& claim) {
        Json& entry = told.emplace_back(Json{{"name", sources_.name(source)}});
        if (isForAll) (source == earlierRun ? isHeld : isTold) = true;
        isOn = isOn || (isForAll && source != earlierRun && claim.on);
        if (!isForAll) entry["mac"] = Orb::toText(mac);
        entry["on"] = claim.on;
        if (source != earlierRun) entry["since"] = claim.since;
      });
      bool const* const on = isForAll ? nullptr : list.value->vtepIpFloodList().find(key.vtepAddr());
      if (on) ofOneMac = {{"mac", Orb::toText(mac)}, {"on", *on}};
    }
    served->forEachMultipathClaim(allBum, [&](SourceId source, MultipathClaim const& claim) {
      if (std::ranges::find(claim.vteps, key.vtepAddr()) == claim.vteps.end()) return;
      told.push_back(claimJson(sources_.name(source), claim));
    });
  }
  facts.isEarlier = isHeld && !isTold;
  facts.isOffHere = isTold && !isOn;

  Json result{{"vni", key.vni().value()}, {"vtep", Orb::toText(key.vtepAddr())}};
  if (facts.controller) {
    result["controller"] = {{"on", *facts.controller}};
  } else if (facts.isMultipath) {
    result["controller"] = multipathJson(*controller_->vniFdbStatus(key.vni()), allBum);
  } else if (facts.isInListOfOneMac) {
    result["controller"] = std::move(ofOneMac);
  }
  result["sources"] = std::move(told);
  result["evpn"] = facts.isEvpns;
  result["import"] = importJson<QorEvpn::FloodEntry>(
      key, imported_ ? imported_->flood->floodEntry(key) : QorEvpn::FloodEntry(),
      imported_ && Brine::isReadable(imported_->flood->mountStatus()));
  result["row"] = facts.isRow;
  addBridgeId(result, isListed(key.vni()), unlistedText(facts.state, controller_->vniFdbStatus(key.vni())));
  result.update(toJson(explain(facts)));
  return result;
}

template <class Row>
Json HostedModule::importJson(typename Brine::Codec<Row>::Key const& key, Row const& row,
                              bool isReadable) const {
  ImportRule const rule = importRule<Row>(exportState(), isReadable, row, key);
  return {{"rule", toText(rule)}, {"text", reasonOf(rule)}};
}

bool HostedModule::isListed(Vxlan::Vni vni) const {
  return brIdList_->brIdList().contains(Bridging::BridgeId::ofVni(vni));
}

ExportState HostedModule::exportState() const {
  return {.isEnabled = status_->enabled(),
          .isCapable = capability_->evpnEnabled(),
          .isKeeping = sources_.isKeeping() || (!tx_ && !toldOff_)};
}

Json HostedModule::why(std::string_view argument) const {
  Subject const subject = Subject::parse(argument);
  auto result = Json::array();
  if (!subject.mac) {
    result.push_back(whyFlood({*subject.vni, subject.vtep}));
    return result;
  }
  Wirix::EthAddr const mac = *subject.mac;
  if (subject.vni) {
    result.push_back(whyHost({mac, *subject.vni}));
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
  sources_.forEachRefusal(mac, [&](SourceId, Vxlan::Vni each, std::string_view) { knowing.insert(each); });
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
          {"settled", controller_->isSettled()},
          {"vnis", std::move(vnis)}};
}

}  // namespace Agent
