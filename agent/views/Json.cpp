#include "agent/views/Json.h"

#include <map>
#include <set>

#include "Orb/Text.h"

namespace Agent {

nlohmann::ordered_json toJson(VxlanController::VniStatusDirV2 const& status, std::string_view vni) {
  using OrderedJson = nlohmann::ordered_json;
  std::map<Vxlan::Vni, VxlanController::VniStatusV2 const*> vnis;
  for (auto const& entry : status.vniStatusV2()) {
    if (vni.empty() || vni == Orb::toText(entry.key)) vnis[entry.key] = entry.value.get();
  }
  OrderedJson result = OrderedJson::object();
  for (auto const& [key, each] : vnis) {
    std::map<Wirix::EthAddr, VxlanController::MacVtepV2> hosts;
    for (auto const& entry : each->macVtepTable()) hosts[entry.key] = entry.value;
    std::set<Wirix::IpAddr> floods;
    for (auto const& list : each->macVtepFloodListTable()) {
      for (auto const& entry : list.value->vtepIpFloodList()) floods.insert(entry.key);
    }
    OrderedJson shown = {{"floods", OrderedJson::array()}, {"hosts", OrderedJson::array()}};
    for (Wirix::IpAddr const& vtep : floods) shown["floods"].push_back(Orb::toText(vtep));
    for (auto const& [mac, entry] : hosts) {
      shown["hosts"].push_back({{"mac", Orb::toText(mac)},
                                {"preference", entry.preference()},
                                {"seq", entry.seqNo().value()},
                                {"vtep", Orb::toText(entry.vtepAddr())}});
    }
    result[Orb::toText(key)] = std::move(shown);
  }
  return result;
}

std::string toLine(nlohmann::ordered_json const& document) {
  return document.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

}  // namespace Agent
