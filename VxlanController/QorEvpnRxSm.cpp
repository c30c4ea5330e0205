#include "VxlanController/QorEvpnRxSm.h"

#include "Orb/Type.h"
#include "VxlanController/QorEvpnRow.h"
#include "VxlanController/QorEvpnWalk.h"

namespace VxlanController {

using QorEvpn::FloodEntry;
using QorEvpn::Host;
using QorEvpn::MacVniPair;
using QorEvpn::nextRow;
using QorEvpn::VniVtepPair;

QorEvpnRxSm::QorEvpnRxSm(HostTablePtr const& hostTable, FloodTablePtr const& floodTable,
                         VniStatusDirPtr const& vniStatusDir)
    : vniStatusDir_(vniStatusDir) {
  hostTable_.connect(this, hostTable);
  floodTable_.connect(this, floodTable);
  initSm();
}

void QorEvpnRxSm::initSm() {
  handleHost();
  handleFloodEntry();
}

void QorEvpnRxSm::handleHost() {
  HostTablePtr const table = hostTable();
  for (auto walk = ORB_REF(table).hostWalk(); Host const* row = nextRow(*table, walk);)
    handleHost(MacVniPair(row->key()));
}

void QorEvpnRxSm::handleHost(MacVniPair const& key) {
  Host const row = ORB_REF(hostTable()).host(key);
  if (row == Host()) {
    deleteHostEntry(key);
    return;
  }
  Orb::Ptr<VniStatusV2> const vniStatus = ORB_REF(vniStatusDir()).vniStatusV2Is(key.vni());
  vniStatus->macVtepTableIs(QorEvpn::entryOf(row));
}

void QorEvpnRxSm::deleteHostEntry(MacVniPair const& key) {
  Orb::Ptr<VniStatusV2> const vniStatus = ORB_REF(vniStatusDir()).vniStatusV2(key.vni());
  ORB_ASSERT(vniStatus);
  vniStatus->macVtepTableDel(key.macAddr());
  maybeDeleteVniStatus(key.vni());
}

void QorEvpnRxSm::handleFloodEntry() {
  FloodTablePtr const table = floodTable();
  for (auto walk = ORB_REF(table).floodEntryWalk(); FloodEntry const* row = nextRow(*table, walk);)
    handleFloodEntry(VniVtepPair(row->key()));
}

void QorEvpnRxSm::handleFloodEntry(VniVtepPair const& key) {
  FloodEntry const row = ORB_REF(floodTable()).floodEntry(key);
  if (row == FloodEntry()) {
    deleteFloodEntry(key);
    return;
  }
  Orb::Ptr<VniStatusV2> const vniStatus = ORB_REF(vniStatusDir()).vniStatusV2Is(key.vni());
  vniStatus->macVtepFloodListTableIs(MacVtepFloodListV2::allBum)->vtepIpFloodListIs(key.vtepAddr(), true);
}

void QorEvpnRxSm::deleteFloodEntry(VniVtepPair const& key) {
  Orb::Ptr<VniStatusV2> const vniStatus = ORB_REF(vniStatusDir()).vniStatusV2(key.vni());
  ORB_ASSERT(vniStatus);
  Orb::Ptr<MacVtepFloodListV2> const floodList = vniStatus->macVtepFloodListTable(MacVtepFloodListV2::allBum);
  ORB_ASSERT(floodList);
  floodList->vtepIpFloodListDel(key.vtepAddr());
  if (floodList->vtepIpFloodList().empty()) vniStatus->macVtepFloodListTableDel(MacVtepFloodListV2::allBum);
  maybeDeleteVniStatus(key.vni());
}

void QorEvpnRxSm::maybeDeleteVniStatus(Vxlan::Vni vni) {
  Orb::Ptr<VniStatusV2> const vniStatus = ORB_REF(vniStatusDir()).vniStatusV2(vni);
  ORB_ASSERT(vniStatus);
  ORB_ASSERT(!vniStatus->macVtepMultiPathTables());
  ORB_ASSERT(!vniStatus->ipToMacTables());
  if (!vniStatus->macVtepTables() && !vniStatus->macVtepFloodListTables())
    ORB_REF(vniStatusDir()).vniStatusV2Del(vni);
}

void QorEvpnRxSm::cleanup() {
  HostTablePtr const hosts = hostTable();
  for (auto walk = ORB_REF(hosts).hostWalk(); Host const* row = nextRow(*hosts, walk);)
    deleteHostEntry(MacVniPair(row->key()));
  FloodTablePtr const floods = floodTable();
  for (auto walk = ORB_REF(floods).floodEntryWalk(); FloodEntry const* row = nextRow(*floods, walk);)
    deleteFloodEntry(VniVtepPair(row->key()));
}

Orb::TypeDescriptor const& QorEvpnRxSm::type() {
  using Sm = QorEvpnRxSm;
  using A = Orb::Attributes<Sm>;
  static Orb::TypeDescriptor const descriptor(
      "VxlanController::QorEvpnRxSm",
      {A::value<&Sm::hostTable>("hostTable"), A::value<&Sm::floodTable>("floodTable"),
       A::value<&Sm::vniStatusDir>("vniStatusDir"), A::handlerWithArgument("maybeDeleteVniStatus"),
       A::handlerWithArgument("deleteHostEntry"), A::handler<&Sm::handleHost>("handleHost"),
       A::handlerWithArgument("deleteFloodEntry"), A::handler<&Sm::handleFloodEntry>("handleFloodEntry"),
       A::handler<&Sm::cleanup>("cleanup"), A::handler<&Sm::initSm>("initSm")});
  return descriptor;
}

Orb::Ptr<QorEvpnRxSm> QorEvpnRxSm::QorEvpnRxSmIs(HostTablePtr hostTable, FloodTablePtr floodTable,
                                                 VniStatusDirPtr vniStatusDir) {
  return Orb::create<QorEvpnRxSm>(hostTable, floodTable, vniStatusDir);
}

Orb::Ptr<QorEvpnRxSm> qorEvpnRxSmFactory(QorEvpnRxSm::HostTablePtr hostTable,
                                         QorEvpnRxSm::FloodTablePtr floodTable,
                                         QorEvpnRxSm::VniStatusDirPtr vniStatusDir) {
  return QorEvpnRxSm::QorEvpnRxSmIs(hostTable, floodTable, vniStatusDir);
}

}  // namespace VxlanController
