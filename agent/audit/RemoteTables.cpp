#include "agent/audit/RemoteTables.h"

#include <array>
#include <sstream>

namespace Agent {

using Wirix::EthAddr;
using Wirix::IpAddr;

namespace {

constexpr auto vtepsOf = [](RemoteRow const& row) {
  std::string text;
  for (IpAddr const vtep : row.vteps) Orb::appendTexts(text, text.empty() ? "" : " ", vtep);
  return text;
};
constexpr std::array remoteFields = {field<RemoteRow, vtepsOf, asItself>("VTEPS", "vteps", false)};

RemoteRow rowOf(Vxlan::Vni vni, std::string const& text) {
  std::istringstream words(text);
  std::string word;
  words >> word;
  RemoteRow row{vni, Orb::parseWhole<EthAddr>(word), {}};
  while (words >> word) row.vteps.push_back(Orb::parseWhole<IpAddr>(word));
  return row;
}

}  // namespace

bool shownBefore(RemoteRow const& left, RemoteRow const& right) {
  return std::tuple(left.vni, left.mac) < std::tuple(right.vni, right.mac);
}

std::span<Field<RemoteRow> const> TableKind<RemoteRow>::fields() { return remoteFields; }

std::vector<RemoteTable> RemoteTable::ofJson(Vxlan::Vni vni, nlohmann::ordered_json const& switches) {
  std::vector<RemoteTable> result;
  for (auto const& each : switches) {
    for (auto const& table : each.at("tables")) {
      std::string const name = table.at("name");
      RemoteTable& made = result.emplace_back();
      made.name = each.at("name").get<std::string>() + '/' + name;
      made.isFlood = name.starts_with('M');
      made.vni = vni;
      for (std::string const vtep : each.at("own")) made.own.insert(Orb::parseWhole<IpAddr>(vtep));
      for (std::string const text : each.at("told")) {
        RemoteRow const row = rowOf(vni, text);
        for (IpAddr const vtep : row.vteps) made.told.emplace(row.mac, vtep);
      }
      for (std::string const text : table.at("rows")) made.rows.push_back(rowOf(vni, text));
      std::stable_sort(made.rows.begin(), made.rows.end(), [](RemoteRow const& left, RemoteRow const& right) {
        return shownBefore(left, right);
      });
    }
  }
  return result;
}

void RemoteTable::audit(Findings& findings, VxlanController::VniFdbStatusV2 const* status,
                        bool isSettled) const {
  auto const isItsOwn = [this](EthAddr mac, IpAddr vtep) {
    return own.contains(vtep) || told.contains({mac, vtep});
  };
  std::vector<RemoteRow> expected;
  if (status && !isFlood) {
    for (auto const& entry : status->macVtepTable()) {
      IpAddr const vtep = entry.value.vtepAddr();
      if (!isItsOwn(entry.key, vtep)) expected.push_back({vni, entry.key, {vtep}});
    }
  } else if (status) {
    for (auto const& list : status->macVtepFloodListTable()) {
      RemoteRow row{vni, list.key, {}};
      for (auto const& vtep : list.value->vtepIpFloodList()) {
        if (vtep.value && !isItsOwn(list.key, vtep.key)) row.vteps.push_back(vtep.key);
      }
      std::ranges::sort(row.vteps);
      if (!row.vteps.empty()) expected.push_back(std::move(row));
    }
  }
  std::ranges::sort(expected,
                    [](RemoteRow const& left, RemoteRow const& right) { return shownBefore(left, right); });
  auto const isSupplied = [=](RemoteRow const& row) {
    return std::ranges::all_of(row.vteps, [&](IpAddr vtep) { return isItsOwn(row.mac, vtep); });
  };
  Judge<RemoteRow> const judge{
      .unwanted =
          [=](RemoteRow const& row) {
            if (isSupplied(row)) return Blame{Fault::echoed, "it leads to the switch itself"};
            return Blame{Fault::orphan, "the controller has no such entry from elsewhere"};
          },
      .wanted = [](RemoteRow const&) { return "the controller has it from elsewhere"; },
      .isSupplied = isSupplied};
  Findings found;
  compareRows(found, name, expected, rows, judge);
  std::ranges::copy_if(found, std::back_inserter(findings), [&](Finding const& each) {
    return isSettled || each.fault == Fault::missing || each.fault == Fault::duplicate;
  });
}

}  // namespace Agent
