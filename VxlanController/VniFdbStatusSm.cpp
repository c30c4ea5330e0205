#include "VxlanController/VniFdbStatusSm.h"

#include <array>

#include "Orb/Type.h"
#include "VxlanController/QorEvpnTxSm.h"
#include "VxlanController/QorEvpnTxTrace.h"
#include "VxlanController/QorEvpnWalk.h"

namespace QorEvpn {

namespace {

/// The MAC that stands for all BUM destination addresses.
constexpr Wirix::EthAddr allBum;

constexpr std::string_view onlyAllBum = " QOR-EVPN only supports 'all BUM destination addresses' entries";

/// Announces to the table the keys of the next entries of a full pass, some tens at a time.
class HostStage {
 public:
  HostStage(HostTable const& table, Vxlan::Vni vni) : table_(table), vni_(vni) {}

  template <class Iterator, class End>
  void before(Iterator entry, End end) {
    if (ahead_-- > 0) return;
    std::size_t count = 0;
    for (; count < keys_.size() && entry != end; ++entry) keys_[count++] = MacVniPair(entry->key, vni_);
    table_.hostStage({keys_.data(), count});
    ahead_ = count - 1;
  }

 private:
  HostTable const& table_;
  Vxlan::Vni vni_;
  std::array<MacVniPair, 32> keys_;
  std::size_t ahead_ = 0;
};

}  // namespace

VniFdbStatusSm::VniFdbStatusSm(Vxlan::Vni vni, StatusPtr const& vniFdbStatus, QorEvpnTxSm* qorEvpnTxSm)
    : vni_(vni), qorEvpnTxSm_(qorEvpnTxSm) {
  vniFdbStatus_.connect(this, vniFdbStatus);
}

Orb::Ptr<MacVtepFloodListSm> VniFdbStatusSm::macVtepFloodListSmIs(Wirix::EthAddr const& macAddr,
                                                                  FloodListPtr const& macVtepFloodList) {
  return Orb::childIs(macVtepFloodListSm_, "macVtepFloodListSm", macAddr, macVtepFloodList,
                      &MacVtepFloodListSm::macVtepFloodList,
                      [&] { return macVtepFloodListSmFactory(macAddr, macVtepFloodList, this); });
}

void VniFdbStatusSm::initializedIs(bool initialized) {
  if (initialized == initialized_) return;
  initialized_ = initialized;
  handleInitialized();
}

void VniFdbStatusSm::handleInitialized() {
  TRACE(txTrace, 3, "VniFdbStatusSm(", vni_, ")::handleInitialized()");
  if (!initialized()) return;
  handleHost();
  handleFloodList();
  TRACE(txTrace, 4, "VniFdbStatusSm(", vni_, ")::handleInitialized() return");
}

void VniFdbStatusSm::handleHost() {
  if (!initialized()) return;
  TRACE(txTrace, 3, "VniFdbStatusSm(", vni_, ")::handleHost()");
  updateBrIdList();
  cleanupStaleHostEntries();
  if (StatusPtr const status = vniFdbStatus()) {
    HostStage stage(*qorEvpnTxSm_->hostTableOut(), vni_);
    auto const& macVtepTable = status->macVtepTable();
    for (auto entry = macVtepTable.begin(); entry != macVtepTable.end(); ++entry) {
      stage.before(entry, macVtepTable.end());
      handleHost(Wirix::EthAddr(entry->key));
    }
  }
  TRACE(txTrace, 4, "VniFdbStatusSm(", vni_, ")::handleHost() return");
}

void VniFdbStatusSm::handleHost(Wirix::EthAddr const& macAddr) {
  if (!initialized()) return;
  MacVniPair const key(macAddr, vni_);
  qorEvpnTxSm_->hostTableOut()->hostStage(key);  // first, so that the table's memory arrives meanwhile
  TRACE(txTrace, 3, "VniFdbStatusSm(", vni_, ")::handleHost(", macAddr, ")");
  updateBrIdList();
  if (!initialized()) return;  // an observer of the identifiers had the VNI removed
  VxlanController::MacVtepV2 const& entry = vniFdbStatus()->macVtepTable(macAddr);
  if (entry == VxlanController::MacVtepV2() || macEntryProvidedByEvpn(macAddr)) {
    qorEvpnTxSm_->hostTableOut()->hostDel(key);
    return;  // untraced
  }
  Host row(key);
  row.vtepAddrIs(entry.vtepAddr());
  row.seqNoIs(entry.seqNo());
  row.preferenceIs(entry.preference());
  qorEvpnTxSm_->hostTableOut()->hostIs(row);
  TRACE(txTrace, 4, "VniFdbStatusSm(", vni_, ")::handleHost(", macAddr, ") return");
}

bool VniFdbStatusSm::macEntryProvidedByEvpn(Wirix::EthAddr const& macAddr) const {
  ORB_ASSERT(initialized());
  EvpnStatusPtr const& fromEvpn = vniStatusFromEvpn();
  if (!fromEvpn) return false;
  VxlanController::MacVtepV2 const* const evpnEntry = fromEvpn->macVtepTable().find(macAddr);
  return evpnEntry && *evpnEntry == vniFdbStatus()->macVtepTable(macAddr);
}

void VniFdbStatusSm::handleMultiPath() {
  if (!initialized()) return;
  TRACE(txTrace, 3, "VniFdbStatusSm(", vni_, ")::handleMultiPath()");
  updateBrIdList();
  TRACE(txTrace, 4, "VniFdbStatusSm(", vni_, ")::handleMultiPath() return");
}

void VniFdbStatusSm::handleMultiPath(Wirix::EthAddr const& macAddr) {
  if (!initialized()) return;
  TRACE(txTrace, 3, "VniFdbStatusSm(", vni_, ")::handleMultiPath(", macAddr, ")");
  if (macAddr != allBum) {
    TRACE(txTrace, 3, "VniFdbStatusSm(", vni_, ")::handleMultiPath(", macAddr, ")", onlyAllBum);
    return;
  }
  updateBrIdList();
  TRACE(txTrace, 4, "VniFdbStatusSm(", vni_, ")::handleMultiPath(", macAddr, ") return");
}

void VniFdbStatusSm::handleFloodList() {
  if (!initialized()) return;
  TRACE(txTrace, 3, "VniFdbStatusSm(", vni_, ")::handleFloodList()");
  updateBrIdList();
  cleanupStaleFloodListEntries();
  if (StatusPtr const status = vniFdbStatus()) {
    for (auto const& entry : status->macVtepFloodListTable()) handleFloodList(Wirix::EthAddr(entry.key));
  }
  TRACE(txTrace, 4, "VniFdbStatusSm(", vni_, ")::handleFloodList() return");
}

void VniFdbStatusSm::handleFloodList(Wirix::EthAddr const& macAddr) {
  if (!initialized()) return;
  TRACE(txTrace, 3, "VniFdbStatusSm(", vni_, ")::handleFloodList(", macAddr, ")");
  if (macAddr != allBum) {
    TRACE(txTrace, 3, "VniFdbStatusSm(", vni_, ")::handleFloodList(", macAddr, ")", onlyAllBum);
    return;
  }
  updateBrIdList();
  if (!initialized()) return;  // an observer of the identifiers had the VNI removed
  if (FloodListPtr const floodList = vniFdbStatus()->macVtepFloodListTable(macAddr)) {
    Orb::Ptr<MacVtepFloodListSm> const child = macVtepFloodListSmIs(macAddr, floodList);
    FloodListPtr floodListFromEvpn;
    if (EvpnStatusPtr const& fromEvpn = vniStatusFromEvpn())
      floodListFromEvpn = fromEvpn->macVtepFloodListTable(macAddr);
    child->floodListFromEvpnIs(floodListFromEvpn);
    child->initializedIs(true);
  }
  // Asked again: an observer of the child's rows may have had its list, or the VNI, removed.
  if (!initialized() || !vniFdbStatus()->macVtepFloodListTable(macAddr)) {
    floodListGone(macAddr);
    // Or a list put back, whose rows went with those of the one that was removed.
    if (Orb::Ptr<MacVtepFloodListSm> const child = macVtepFloodListSm(macAddr)) child->handleVtepIp();
  }
  TRACE(txTrace, 4, "VniFdbStatusSm(", vni_, ")::handleFloodList(", macAddr, ") return");
}

void VniFdbStatusSm::floodListGone(Wirix::EthAddr const& macAddr) {
  Orb::Ptr<MacVtepFloodListSm> const child = macVtepFloodListSmDel(macAddr);
  if (!child) return;
  child->hasNotificationActiveIs(false);  // an observer of the rows may change the list while they go
  child->cleanup();
}

void VniFdbStatusSm::updateBrIdList() {
  TRACE(txTrace, 3, "VniFdbStatusSm(", vni_, ")::updateBrIdList()");
  ORB_ASSERT(initialized());
  auto const& status = *vniFdbStatus();
  if (status.macVtepTables() || status.macVtepMultiPathTables() || status.macVtepFloodListTables()) {
    qorEvpnTxSm_->publishBrId(Bridging::BridgeId::ofVni(vni_));
  } else {
    qorEvpnTxSm_->unpublishBrId(Bridging::BridgeId::ofVni(vni_));
  }
  TRACE(txTrace, 4, "VniFdbStatusSm(", vni_, ")::updateBrIdList() return");
}

void VniFdbStatusSm::cleanupStaleHostEntries() {
  if (!initialized()) return;
  TRACE(txTrace, 3, "VniFdbStatusSm(", vni_, ")::cleanupStaleHostEntries()");
  HostTable& hosts = *qorEvpnTxSm_->hostTableOut();
  for (auto walk = hosts.hostWalk(vni_); Host const* row = nextRow(hosts, walk);) {
    MacVniPair const key = row->key();
    if (vniFdbStatus()->macVtepTable(key.macAddr()) != VxlanController::MacVtepV2()) continue;
    TRACE(txTrace, 8, "VniFdbStatusSm(", vni_,
          ")::cleanupStaleHostEntries() Deleting stale host entry (macAddr: ", key.macAddr(),
          ", ip: ", row->vtepAddr(), ")");
    hosts.hostDel(key);
  }
  TRACE(txTrace, 4, "VniFdbStatusSm(", vni_, ")::cleanupStaleHostEntries() return");
}

void VniFdbStatusSm::cleanupStaleFloodListEntries() {
  if (!initialized()) return;
  TRACE(txTrace, 3, "VniFdbStatusSm(", vni_, ")::cleanupStaleFloodListEntries()");
  FloodTable& floods = *qorEvpnTxSm_->floodTableOut();
  auto const addresses = [this] { return addressesOf(vniFdbStatus()->macVtepFloodListTable(allBum)); };
  bool changed;
  do {
    auto const then = addresses();
    for (auto walk = floods.floodEntryWalk(vni_); FloodEntry const* row = nextRow(floods, walk);) {
      VniVtepPair const key = row->key();
      auto const& floodList = vniFdbStatus()->macVtepFloodListTable(allBum);
      if (floodList && floodList->vtepIpFloodList().contains(key.vtepAddr())) continue;
      TRACE(txTrace, 8, "VniFdbStatusSm(", vni_,
            ")::cleanupStaleFloodListEntries() Deleting stale flood list entry (ip: ", key.vtepAddr(), ")");
      floods.floodEntryDel(key);
    }
    // By whoever heard of a deletion; the list may have no child yet that would hear of it.
    changed = addresses() != then;
  } while (changed && initialized());
  TRACE(txTrace, 4, "VniFdbStatusSm(", vni_, ")::cleanupStaleFloodListEntries() return");
}

void VniFdbStatusSm::cleanup() {
  if (!initialized()) return;
  TRACE(txTrace, 3, "VniFdbStatusSm(", vni_, ")::cleanup()");
  for (Orb::Ptr<MacVtepFloodListSm> const& child : macVtepFloodListSm_) {
    floodListGone(child->macAddr());
  }
  initializedIs(false);
  TRACE(txTrace, 4, "VniFdbStatusSm(", vni_, ")::cleanup() return");
}

Orb::TypeDescriptor const& VniFdbStatusSm::type() {
  using Sm = VniFdbStatusSm;
  using A = Orb::Attributes<Sm>;
  static Orb::TypeDescriptor const descriptor(
      "QorEvpn::VniFdbStatusSm",
      {A::value<&Sm::vni>("vni"), A::value<&Sm::vniFdbStatus>("vniFdbStatus"),
       A::value<&Sm::vniStatusFromEvpn>("vniStatusFromEvpn"),
       A::collection<MacVtepFloodListSms, &Sm::macVtepFloodListSm, &MacVtepFloodListSm::macAddr>(
           "macVtepFloodListSm"),
       A::writable<&Sm::initialized, &Sm::initializedIs>("initialized"),
       A::value<&Sm::qorEvpnTxSm>("qorEvpnTxSm"), A::handler<&Sm::handleInitialized>("handleInitialized"),
       A::handler<&Sm::handleHost>("handleHost"), A::handler<&Sm::handleMultiPath>("handleMultiPath"),
       A::handlerWithArgument("macEntryProvidedByEvpn"), A::handler<&Sm::handleFloodList>("handleFloodList"),
       A::handler<&Sm::updateBrIdList>("updateBrIdList"),
       A::handler<&Sm::cleanupStaleHostEntries>("cleanupStaleHostEntries"),
       A::handler<&Sm::cleanupStaleFloodListEntries>("cleanupStaleFloodListEntries"),
       A::handler<&Sm::cleanup>("cleanup")});
  return descriptor;
}

Orb::Ptr<VniFdbStatusSm> VniFdbStatusSm::VniFdbStatusSmIs(Vxlan::Vni vni, StatusPtr const& vniFdbStatus,
                                                          QorEvpnTxSm* qorEvpnTxSm) {
  return Orb::create<VniFdbStatusSm>(vni, vniFdbStatus, qorEvpnTxSm);
}

Orb::Ptr<VniFdbStatusSm> vniFdbStatusSmFactory(Vxlan::Vni vni, VniFdbStatusSm::StatusPtr const& vniFdbStatus,
                                               QorEvpnTxSm* qorEvpnTxSm) {
  return VniFdbStatusSm::VniFdbStatusSmIs(vni, vniFdbStatus, qorEvpnTxSm);
}

}  // namespace QorEvpn
