#include "agent/controller/Controller.h"

#include "Orb/Type.h"

namespace Agent {

namespace {

/// The MAC whose flood list is the one for all BUM traffic.
constexpr Wirix::EthAddr allBum;

}  // namespace

ServedVni::ServedVni(Vxlan::Vni vni)
    : vniFdbStatus_(
          Orb::makePtr<VxlanController::VniFdbStatusV2>(Orb::Name(std::to_string(vni.value())), vni)) {}

void ServedVni::learnedIs(VxlanController::MacVtepV2 const& entry) {
  learned_.put(entry.macAddr(), entry);
  handleMac(entry.macAddr());
}

void ServedVni::learnedDel(Wirix::EthAddr mac) {
  learned_.erase(mac);
  handleMac(mac);
}

void ServedVni::floodIs(Wirix::EthAddr mac, Wirix::IpAddr vtep, bool on) {
  floods_[mac][vtep] = on;
  mergeFlood(mac, vtep);
}

void ServedVni::floodDel(Wirix::EthAddr mac, Wirix::IpAddr vtep) {
  auto const list = floods_.find(mac);
  if (list == floods_.end() || list->second.erase(vtep) == 0) return;
  if (list->second.empty()) floods_.erase(list);
  mergeFlood(mac, vtep);
}

/// Everything that was merged, perhaps from a status that is no longer there, and what EVPN has now. What the
/// switches know is always among the former.
void ServedVni::handleInitialized() {
  for (auto const& entry : vniFdbStatus_->macVtepTable()) handleMac(Wirix::EthAddr(entry.key));
  if (EvpnStatusPtr const status = vniStatusFromEvpn()) {
    for (auto const& entry : status->macVtepTable()) handleMac(Wirix::EthAddr(entry.key));
  }
  handleFloodList(allBum);
}

void ServedVni::handleMac(Wirix::EthAddr const& mac) {
  VxlanController::MacVtepV2 const* winner = learned_.find(mac);
  if (EvpnStatusPtr const& status = vniStatusFromEvpn()) {
    VxlanController::MacVtepV2 const* const evpns = status->macVtepTable().find(mac);
    if (evpns && (!winner || evpns->seqNo() > winner->seqNo())) winner = evpns;
  }
  if (winner) {
    vniFdbStatus_->macVtepTableIs(VxlanController::MacVtepV2(*winner));
  } else {
    vniFdbStatus_->macVtepTableDel(mac);
  }
}

void ServedVni::handleFloodList(Wirix::EthAddr const& mac) {
  if (mac != allBum) return;  // EVPN has no others
  Orb::Ptr<VxlanController::MacVtepFloodListV2 const> list;
  if (EvpnStatusPtr const& status = vniStatusFromEvpn()) list = status->macVtepFloodListTable(allBum);
  if (list != floodListFromEvpn_.notifier()) {
    floodListFromEvpn_.del();
    floodListFromEvpn_.connect(this, list);
  }
  if (auto const merged = vniFdbStatus_->macVtepFloodListTable(allBum)) {
    for (auto const& entry : merged->vtepIpFloodList()) handleFloodVtep(Wirix::IpAddr(entry.key));
  }
  if (!list) return;
  for (auto const& entry : list->vtepIpFloodList()) handleFloodVtep(Wirix::IpAddr(entry.key));
}

void ServedVni::handleFloodVtep(Wirix::IpAddr const& vtep) { mergeFlood(allBum, vtep); }

/// Whether either side has the VTEP in the list; if so, `on` is whether one of them has it on.
bool ServedVni::isOn(Wirix::EthAddr mac, Wirix::IpAddr vtep, bool& on) const {
  bool found = false;
  on = false;
  if (auto const list = floods_.find(mac); list != floods_.end()) {
    if (auto const entry = list->second.find(vtep); entry != list->second.end()) {
      found = true;
      on = entry->second;
    }
  }
  if (mac == allBum && floodListFromEvpn_.notifier()) {
    if (bool const* const evpns = floodListFromEvpn_.notifier()->vtepIpFloodList().find(vtep)) {
      found = true;
      on = on || *evpns;
    }
  }
  return found;
}

void ServedVni::mergeFlood(Wirix::EthAddr mac, Wirix::IpAddr vtep) {
  Orb::Ptr<VxlanController::MacVtepFloodListV2> const list = vniFdbStatus_->macVtepFloodListTable(mac);
  if (bool on; isOn(mac, vtep, on)) {
    if (list) {
      list->vtepIpFloodListIs(vtep, on);
    } else {
      auto const made = Orb::makePtr<VxlanController::MacVtepFloodListV2>(mac);
      made->vtepIpFloodListIs(vtep, on);
      vniFdbStatus_->macVtepFloodListTableIs(made);
    }
    return;
  }
  if (!list || !list->vtepIpFloodList().contains(vtep)) return;
  if (list->vtepIpFloodList().size() == 1) {
    vniFdbStatus_->macVtepFloodListTableDel(mac);
  } else {
    list->vtepIpFloodListDel(vtep);
  }
}

Orb::TypeDescriptor const& ServedVni::type() {
  using A = Orb::Attributes<ServedVni>;
  static Orb::TypeDescriptor const descriptor(
      "Agent::ServedVni", {A::value<&ServedVni::vniFdbStatus>("vniFdbStatus"),
                           A::value<&ServedVni::vniStatusFromEvpn>("vniStatusFromEvpn"),
                           A::handler<&ServedVni::handleInitialized>("handleInitialized")});
  return descriptor;
}

Orb::Ptr<Controller> Controller::ControllerIs(VniStatusDirPtr const& vniStatusDirFromEvpn) {
  return Orb::create<Controller>(vniStatusDirFromEvpn);
}

Controller::Controller(VniStatusDirPtr const& vniStatusDirFromEvpn)
    : vniDir_(Orb::makePtr<Orb::Dir>(Orb::Name("vniDir"))) {
  vniStatusDirFromEvpn_.connect(this, vniStatusDirFromEvpn);
}

void Controller::apply(Event const& event) {
  ServedVni* known = nullptr;
  if (Orb::Ptr<ServedVni> const* const found = served_.find(event.vni)) known = found->get();
  switch (event.op) {
    case Op::vni: serve(event.vni); break;
    case Op::vniDel: unserve(event.vni); break;
    case Op::mac:
      serve(event.vni).learnedIs(
          VxlanController::MacVtepV2(event.mac, event.vtep, event.seq, event.preference));
      break;
    case Op::macDel:
      if (known) known->learnedDel(event.mac);
      break;
    case Op::flood: serve(event.vni).floodIs(event.mac, event.vtep, event.on); break;
    case Op::floodDel:
      if (known) known->floodDel(event.mac, event.vtep);
      break;
    case Op::multipath:
      serve(event.vni).vniFdbStatus()->macVtepMultiPathTableIs({event.mac, event.vteps});
      break;
    case Op::multipathDel:
      if (known) known->vniFdbStatus()->macVtepMultiPathTableDel(event.mac);
      break;
    case Op::enabled:
    case Op::capability: break;  // the integration's
  }
}

void Controller::handleVniStatus(Vxlan::Vni const& vni) {
  if (Orb::Ptr<ServedVni> const* const found = served_.find(vni)) {
    Orb::Ptr<ServedVni> const served = *found;
    served->vniStatusFromEvpnIs(vniStatusDirFromEvpn_.notifier()->vniStatusV2(vni));
  }
}

ServedVni& Controller::serve(Vxlan::Vni vni) {
  if (Orb::Ptr<ServedVni> const* const found = served_.find(vni)) return **found;
  auto const served = Orb::create<ServedVni>(vni);
  served_.put(vni, served);
  handleVniStatus(vni);
  vniDir_->entryIs(served->vniFdbStatus());
  return *served;
}

void Controller::unserve(Vxlan::Vni vni) {
  Orb::Ptr<ServedVni> removed;
  if (served_.take(vni, removed)) vniDir_->entryDel(removed->vniFdbStatus()->name());
}

Orb::TypeDescriptor const& Controller::type() {
  using A = Orb::Attributes<Controller>;
  static Orb::TypeDescriptor const descriptor(
      "Agent::Controller",
      {A::value<&Controller::vniDir>("vniDir"), A::handlerWithArgument("handleVniStatus")});
  return descriptor;
}

}  // namespace Agent
