#include "VxlanController/ExpectedExport.h"

#include <algorithm>
#include <functional>

#include "VxlanController/QorEvpnRow.h"
#include "VxlanController/QorEvpnTxSm.h"

namespace QorEvpn {

using VxlanController::MacVtepFloodListV2;
using VxlanController::MacVtepV2;
using VxlanController::VniFdbStatusV2;
using VxlanController::VniStatusDirV2;
using VxlanController::VniStatusV2;

namespace {

void addVni(VniFdbStatusV2 const& own, VniStatusV2 const* fromEvpn, Vxlan::Vni vni, ExpectedExport& into) {
  for (auto const& entry : own.macVtepTable()) {
    if (auto const host = expectedHost(own, fromEvpn, vni, entry.key)) into.hosts.push_back(*host);
  }
  if (MacVtepFloodListV2 const* const list = own.macVtepFloodListTable(MacVtepFloodListV2::allBum).get()) {
    auto const* const theirs =
        fromEvpn ? fromEvpn->macVtepFloodListTable(MacVtepFloodListV2::allBum).get() : nullptr;
    for (auto const& vtep : list->vtepIpFloodList()) {
      if (expectedFlood(list, theirs, vtep.key)) into.floods.emplace_back(VniVtepPair(vni, vtep.key));
    }
  }
  if (hasEntries(own)) into.brIds.insert(vni);
  if (!hasSupportedEntries(own)) into.brIdsOfHistory.insert(vni);
}

template <class Left, class Right, class Same>
bool sameMaps(Left const& left, Right const& right, Same const& same) {
  if (left.size() != right.size()) return false;
  for (auto const& entry : left) {
    auto const* const other = right.find(entry.key);
    if (!other || !same(entry.value, *other)) return false;
  }
  return true;
}

}  // namespace

bool hasEntries(VniFdbStatusV2 const& own) {
  return own.macVtepTables() || own.macVtepMultiPathTables() || own.macVtepFloodListTables();
}

bool hasSupportedEntries(VniFdbStatusV2 const& own) {
  return own.macVtepTables() || own.macVtepMultiPathTable().contains(MacVtepFloodListV2::allBum) ||
         own.macVtepFloodListTable().contains(MacVtepFloodListV2::allBum);
}

std::optional<Host> expectedHost(VniFdbStatusV2 const& own, VniStatusV2 const* fromEvpn, Vxlan::Vni vni,
                                 Wirix::EthAddr macAddr) {
  MacVtepV2 const& entry = own.macVtepTable(macAddr);
  MacVtepV2 const* const theirs = fromEvpn ? fromEvpn->macVtepTable().find(macAddr) : nullptr;
  if (entry == MacVtepV2() || (theirs && *theirs == entry)) return std::nullopt;
  return hostOf(vni, entry);
}

bool expectedFlood(MacVtepFloodListV2 const* own, MacVtepFloodListV2 const* fromEvpn,
                   Wirix::IpAddr vtepAddr) {
  bool const* const on = own ? own->vtepIpFloodList().find(vtepAddr) : nullptr;
  return on && *on && !(fromEvpn && fromEvpn->vtepIpFloodList().contains(vtepAddr));
}

ExpectedExport expectedExport(Orb::Dir const& vniDir, VniStatusDirV2 const& fromEvpn) {
  ExpectedExport expected;
  for (auto const& entry : vniDir.entry()) {
    auto const* const own = dynamic_cast<VniFdbStatusV2 const*>(entry.value.get());
    if (!own) continue;
    Vxlan::Vni vni;
    try {
      vni = vniOfName(entry.key);
    } catch (Orb::RangeError const&) {
      continue;
    }
    addVni(*own, fromEvpn.vniStatusV2(vni).get(), vni, expected);
  }
  std::sort(expected.hosts.begin(), expected.hosts.end(),
            [](Host const& left, Host const& right) { return left.key() < right.key(); });
  std::sort(expected.floods.begin(), expected.floods.end(),
            [](FloodEntry const& left, FloodEntry const& right) { return left.key() < right.key(); });
  return expected;
}

Orb::Ptr<VniStatusDirV2> expectedLearned(std::span<Host const> hosts, std::span<FloodEntry const> floods) {
  auto const learned = Orb::makePtr<VniStatusDirV2>(Orb::Name("learned"));
  for (Host const& host : hosts) {
    if (host == Host()) continue;
    learned->vniStatusV2Is(host.key().vni())->macVtepTableIs(entryOf(host));
  }
  for (FloodEntry const& flood : floods) {
    if (flood == FloodEntry()) continue;
    auto const list =
        learned->vniStatusV2Is(flood.key().vni())->macVtepFloodListTableIs(MacVtepFloodListV2::allBum);
    list->vtepIpFloodListIs(flood.key().vtepAddr(), true);
  }
  return learned;
}

bool sameStatus(VniStatusDirV2 const& left, VniStatusDirV2 const& right) {
  auto const sameList = [](auto const& one, auto const& other) {
    return sameMaps(one->vtepIpFloodList(), other->vtepIpFloodList(), std::equal_to<>());
  };
  return sameMaps(left.vniStatusV2(), right.vniStatusV2(), [&](auto const& one, auto const& other) {
    return sameMaps(one->macVtepTable(), other->macVtepTable(), std::equal_to<>()) &&
           sameMaps(one->macVtepFloodListTable(), other->macVtepFloodListTable(), sameList);
  });
}

}  // namespace QorEvpn
