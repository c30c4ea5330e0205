#include "agent/views/EvpnStatus.h"

#include <algorithm>

#include "Orb/Text.h"
#include "VxlanController/QorEvpnRow.h"

namespace Agent {

using namespace QorEvpn;

namespace {

template <class Row>
void sort(std::vector<Row>& rows) {
  std::sort(rows.begin(), rows.end(), shownBefore<Row>);
}

}  // namespace

EvpnStatus evpnStatusOf(VxlanController::VniStatusDirV2 const& status, std::string_view vni) {
  EvpnStatus result;
  for (auto const& each : status.vniStatusV2()) {
    if (!vni.empty() && vni != Orb::toText(each.key)) continue;
    VniRows& rows = result[each.key];
    for (auto const& entry : each.value->macVtepTable()) rows.hosts.push_back(hostOf(each.key, entry.value));
    for (auto const& list : each.value->macVtepFloodListTable()) {
      for (auto const& vtep : list.value->vtepIpFloodList())
        rows.floods.emplace_back(VniVtepPair(each.key, vtep.key));
    }
    sort(rows.hosts);
    sort(rows.floods);
  }
  return result;
}

EvpnStatus evpnStatusOf(nlohmann::json const& document) {
  EvpnStatus result;
  for (auto const& [name, each] : document.items()) {
    auto const vni = Orb::parseWhole<Vxlan::Vni>(name);
    VniRows& rows = result[vni];
    for (nlohmann::json host : each.at("hosts")) {
      host["vni"] = vni.value();
      rows.hosts.push_back(TableKind<Host>::ofJson(host));
    }
    for (nlohmann::json const& vtep : each.at("floods")) {
      rows.floods.push_back(TableKind<FloodEntry>::ofJson({{"vni", vni.value()}, {"vtep", vtep}}));
    }
  }
  return result;
}

EvpnStatus filtered(EvpnStatus const& status, RowFilter const& filter) {
  if (filter.isEmpty()) return status;
  EvpnStatus result;
  for (auto const& [vni, all] : status) {
    VniRows rows;
    for (Host const& row : all.hosts) {
      if (matches(filter, row)) rows.hosts.push_back(row);
    }
    for (FloodEntry const& row : all.floods) {
      if (filter.macs.empty() && matches(filter, row)) rows.floods.push_back(row);
    }
    if (!rows.hosts.empty() || !rows.floods.empty()) result.emplace(vni, std::move(rows));
  }
  return result;
}

nlohmann::ordered_json toJson(EvpnStatus const& status) {
  using Json = nlohmann::ordered_json;
  Json result = Json::object();
  // Keys are unique already; operator[] would compare each one with all before it.
  auto& members = result.get_ref<Json::object_t&>();
  for (auto const& [vni, rows] : status) {
    Json shown = {{"floods", Json::array()}, {"hosts", Json::array()}};
    for (FloodEntry const& row : rows.floods) shown["floods"].push_back(Orb::toText(row.key().vtepAddr()));
    for (Host const& row : rows.hosts) {
      nlohmann::json host = rowJson(row);
      host.erase("vni");
      shown["hosts"].push_back(Json(std::move(host)));
    }
    members.push_back({Orb::toText(vni), std::move(shown)});
  }
  return result;
}

}  // namespace Agent
