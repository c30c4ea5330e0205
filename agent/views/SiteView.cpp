#include "agent/views/SiteView.h"

#include <filesystem>
#include <fstream>

#include "Orb/Text.h"

namespace Agent {

using namespace QorEvpn;

namespace {

using Json = nlohmann::json;

SiteRows rowsOf(Tables& tables) {
  tables.deliver();
  SiteRows rows;
  for (auto walk = tables.host->hostWalk(); Host const* const row = walk.next();) {
    rows.hosts.emplace(row->key(), *row);
  }
  for (auto walk = tables.flood->floodEntryWalk(); FloodEntry const* const row = walk.next();) {
    rows.floods.insert(row->key());
  }
  return rows;
}

Wirix::IpAddr ipAddr(Json const& value) { return Wirix::IpAddr(value.get<std::string>()); }

void addHost(SiteRows& rows, Vxlan::Vni vni, Json const& host) {
  Host row(MacVniPair(Wirix::EthAddr(host.at("mac").get<std::string>()), vni));
  row.vtepAddrIs(ipAddr(host.at("vtep")));
  row.seqNoIs(Seqno32(host.at("seq").get<std::uint32_t>()));
  row.preferenceIs(host.at("preference").get<std::uint8_t>());
  rows.hosts.emplace(row.key(), row);
}

}  // namespace

SiteView::SiteView(Site const& site)
    : site_(site), exported_(site.exported(), site.exported()), learned_(site.learned(), site.learned()) {
  exported_.mountAsReader(Brine::Mode::reader);
  learned_.mountAsReader(Brine::Mode::reader);
  brIds_.mount({.directory = site.exported(), .name = std::string(Site::brIdTable)});
}

SiteRows SiteView::exported() {
  SiteRows rows = rowsOf(exported_);
  brIds_.deliver();
  for (auto walk = brIds_.walk(); Bridging::BridgeId const* const row = walk.next();) {
    rows.bridgeIds.insert(*row);
  }
  return rows;
}

SiteRows SiteView::learned() { return rowsOf(learned_); }

std::uint64_t SiteView::exportedHosts() {
  exported_.host->deliver();
  return exported_.host->statistics().rows;
}

std::uint64_t SiteView::learnedHosts() {
  learned_.host->deliver();
  return learned_.host->statistics().rows;
}

Expectation Expectation::ofFile(std::string const& path) {
  std::ifstream file(path);
  if (!file) throw std::runtime_error(path + ": cannot be read");
  try {
    Json const document = Json::parse(file);
    Expectation result;
    for (Json const& host : document.at("hosts")) {
      addHost(result.exported, Vxlan::Vni(host.at("vni").get<std::uint32_t>()), host);
    }
    for (Json const& flood : document.at("floods")) {
      result.exported.floods.emplace(Vxlan::Vni(flood.at("vni").get<std::uint32_t>()),
                                     ipAddr(flood.at("vtep")));
    }
    for (Json const& brId : document.at("bridgeIds")) {
      result.exported.bridgeIds.emplace(brId.get<std::uint32_t>());
    }
    result.evpnStatus = document.at("evpnStatus");
    for (auto const& [name, status] : result.evpnStatus.items()) {
      auto const vni = Orb::parseWhole<Vxlan::Vni>(name);
      for (Json const& host : status.at("hosts")) addHost(result.learned, vni, host);
      for (Json const& vtep : status.at("floods")) result.learned.floods.emplace(vni, ipAddr(vtep));
    }
    return result;
  } catch (std::exception const& error) {
    throw std::runtime_error(path + ": " + error.what());
  }
}

Json evpnStatusOf(SiteRows const& rows) {
  Json result = Json::object();
  auto const statusOf = [&](Vxlan::Vni vni) -> Json& {
    Json& status = result[Orb::toText(vni)];
    if (status.is_null()) status = {{"floods", Json::array()}, {"hosts", Json::array()}};
    return status;
  };
  for (auto const& [key, row] : rows.hosts) {
    statusOf(key.vni())["hosts"].push_back({{"mac", Orb::toText(key.macAddr())},
                                            {"preference", row.preference()},
                                            {"seq", row.seqNo().value()},
                                            {"vtep", Orb::toText(row.vtepAddr())}});
  }
  for (VniVtepPair const& key : rows.floods) {
    statusOf(key.vni())["floods"].push_back(Orb::toText(key.vtepAddr()));
  }
  return result;
}

std::string dataFile(std::string const& name) {
  auto const program = std::filesystem::read_symlink("/proc/self/exe");
  auto const path = program.parent_path().parent_path() / "share" / "qorevpn" / name;
  if (!std::filesystem::exists(path)) throw std::runtime_error(path.string() + ": not found");
  return path.string();
}

}  // namespace Agent
