#include "agent/audit/BothSides.h"

#include "Orb/Text.h"

namespace Agent {

using VxlanController::MacVtepV2;
using VxlanController::VniFdbStatusV2;
using VxlanController::VniStatusV2;
using Json = nlohmann::ordered_json;

namespace {

template <class Status>
Json sideJson(Status const* status) {
  if (!status) return nullptr;
  Json hosts = Json::array(), multipaths = Json::array(), floods = Json::object();
  std::string text;
  for (auto const& each : status->macVtepTable()) {
    MacVtepV2 const& entry = each.value;
    text.clear();
    Orb::appendTexts(text, each.key, " ", entry.vtepAddr(), " ", entry.seqNo(), " ", entry.preference());
    hosts.push_back(text);
  }
  for (auto const& each : status->macVtepMultiPathTable()) multipaths.push_back(Orb::toText(each.key));
  for (auto const& list : status->macVtepFloodListTable()) {
    Json& vteps = floods[Orb::toText(list.key)] = Json::array();
    for (auto const& each : list.value->vtepIpFloodList())
      vteps.push_back(Orb::toText(each.key) + (each.value ? " on" : " off"));
  }
  return {{"hosts", std::move(hosts)}, {"multipaths", std::move(multipaths)}, {"floods", std::move(floods)}};
}

/// Takes the next word off the front of a text.
std::string_view takeWord(std::string_view& text) {
  std::string_view const word = text.substr(0, text.find(' '));
  text.remove_prefix(std::min(text.size(), word.size() + 1));
  return word;
}

template <class Status>
void fill(Status& status, Json const& side) {
  for (Json const& each : side.at("hosts")) {
    std::string_view text = each.get_ref<std::string const&>();
    auto const mac = Orb::parseWhole<Wirix::EthAddr>(takeWord(text));
    auto const vtep = Orb::parseWhole<Wirix::IpAddr>(takeWord(text));
    auto const seq = Orb::parseWhole<Seqno32>(takeWord(text));
    status.macVtepTableIs(
        MacVtepV2(mac, vtep, seq, static_cast<std::uint8_t>(std::stoul(std::string(text)))));
  }
  for (Json const& each : side.at("multipaths"))
    status.macVtepMultiPathTableIs({Orb::parseWhole<Wirix::EthAddr>(each.get<std::string>()), {}});
  for (auto const& [mac, vteps] : side.at("floods").items()) {
    auto const list = status.macVtepFloodListTableIs(Orb::parseWhole<Wirix::EthAddr>(mac));
    for (Json const& each : vteps) {
      std::string_view text = each.get_ref<std::string const&>();
      auto const vtep = Orb::parseWhole<Wirix::IpAddr>(takeWord(text));
      list->vtepIpFloodListIs(vtep, text == "on");
    }
  }
}

}  // namespace

BothSides::BothSides()
    : controller(Orb::makePtr<Orb::Dir>(Orb::Name("controller"))),
      evpn(Orb::makePtr<VxlanController::VniStatusDirV2>(Orb::Name("evpn"))) {}

VniFdbStatusV2 const* BothSides::own(Vxlan::Vni vni) const {
  return dynamic_cast<VniFdbStatusV2 const*>(controller->entityPtr(Orb::Name(Orb::toText(vni))).get());
}

void BothSides::take(Vxlan::Vni vni, Json const& document) {
  if (Json const& side = document.at("controller"); !side.is_null()) {
    auto const status = Orb::makePtr<VniFdbStatusV2>(Orb::Name(Orb::toText(vni)), vni);
    fill(*status, side);
    controller->entryIs(status);
  }
  if (Json const& side = document.at("evpn"); !side.is_null()) fill(*evpn->vniStatusV2Is(vni), side);
}

Json bothSidesJson(VniFdbStatusV2 const* own, VniStatusV2 const* theirs) {
  return {{"controller", sideJson(own)}, {"evpn", sideJson(theirs)}};
}

}  // namespace Agent
