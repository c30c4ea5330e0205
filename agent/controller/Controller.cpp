#include "agent/controller/Controller.h"

#include <algorithm>

#include "Orb/Text.h"
#include "Orb/Type.h"

namespace Agent {

using Wirix::EthAddr;
using Wirix::IpAddr;

class Controller::Remote : public RemoteRows {
 public:
  explicit Remote(Controller const& controller) : controller_(controller) {}

  Handlers const& handlers() const { return handlers_; }
  void handlersIs(Handlers handlers) override { handlers_ = std::move(handlers); }
  void ownVtepsIs(std::set<IpAddr> vteps) override { own_ = std::move(vteps); }

  std::optional<IpAddr> mac(Vxlan::Vni vni, EthAddr mac) const override {
    auto const* const status = controller_.vniFdbStatus(vni);
    auto const* const entry = status ? status->macVtepTable().find(mac) : nullptr;
    if (!entry || own_.contains(entry->vtepAddr())) return std::nullopt;
    return entry->vtepAddr();
  }

  Vteps flood(Vxlan::Vni vni, EthAddr mac) const override {
    auto const* const status = controller_.vniFdbStatus(vni);
    auto const list = status ? status->macVtepFloodListTable(mac) : nullptr;
    return list ? vtepsOf(*list) : Vteps();
  }

  void forEachMac(Vxlan::Vni vni, std::function<void(EthAddr, IpAddr)> const& visit) const override {
    auto const* const status = controller_.vniFdbStatus(vni);
    if (!status) return;
    for (auto const& entry : status->macVtepTable()) {
      if (!own_.contains(entry.value.vtepAddr())) visit(entry.key, entry.value.vtepAddr());
    }
  }

  void forEachFlood(Vxlan::Vni vni, std::function<void(EthAddr, Vteps const&)> const& visit) const override {
    auto const* const status = controller_.vniFdbStatus(vni);
    if (!status) return;
    for (auto const& entry : status->macVtepFloodListTable()) {
      if (Vteps const vteps = vtepsOf(*entry.value); !vteps.empty()) visit(entry.key, vteps);
    }
  }

  bool isSettled() const override { return controller_.isSettled(); }

 private:
  Vteps vtepsOf(VxlanController::MacVtepFloodListV2 const& list) const {
    Vteps vteps;
    for (auto const& entry : list.vtepIpFloodList()) {
      if (entry.value && !own_.contains(entry.key)) vteps.push_back(entry.key);
    }
    std::sort(vteps.begin(), vteps.end());
    return vteps;
  }

  Controller const& controller_;
  Handlers handlers_;
  std::set<IpAddr> own_;
};

Orb::Ptr<Controller> Controller::ControllerIs(VniStatusDirPtr const& vniStatusDirFromEvpn) {
  return Orb::create<Controller>(vniStatusDirFromEvpn);
}

Controller::Controller(VniStatusDirPtr const& vniStatusDirFromEvpn)
    : vniDir_(Orb::makePtr<Orb::Dir>(Orb::Name("vniDir"))) {
  vniStatusDirFromEvpn_.connect(this, vniStatusDirFromEvpn);
}

Controller::~Controller() { teardown(); }

VxlanController::VniFdbStatusV2 const* Controller::vniFdbStatus(Vxlan::Vni vni) const {
  Orb::Ptr<ServedVni> const* const found = served_.find(vni);
  return found ? (*found)->vniFdbStatus().get() : nullptr;
}

void Controller::sourceIs(SourceId source, bool isNumbered) {
  if (sources_.size() <= source) sources_.resize(source + 1);
  sources_[source].isNumbered = isNumbered;
}

void Controller::begin(SourceId source) {
  for (auto const& each : served_) each.value->begin(source);
}

void Controller::apply(SourceId source, Event const& event) {
  if (event.op == Op::number) return serve(event.vni).numberIs(event.mac, event.vtep, event.seq);
  if (event.op == Op::frozen) return frozenIs(event.vni, event.mac, event.value);
  SourceRecord const& record = sources_[source];
  bool const isTold =
      event.op == Op::vni || event.op == Op::mac || event.op == Op::flood || event.op == Op::multipath;
  if (!isTold) return takeBack(source, event);
  ServedVni& served = serve(event.vni);
  SourcePart& part = served.part(source, record.isNumbered);
  part.told.serves = true;
  if (event.op == Op::mac) {
    bool const isNews = record.isKnown && !isFrozen(event.vni, event.mac);
    served.macIs(part, event.mac, {event.vtep, event.seq, 0, event.preference, event.since}, isNews);
  } else if (event.op == Op::flood) {
    served.floodIs(part, event.mac, event.vtep, {event.on, event.since});
  } else if (event.op == Op::multipath) {
    served.multipathIs(part, event.mac, {event.vteps, event.since});
  }
}

void Controller::takeBack(SourceId source, Event const& event) {
  Orb::Ptr<ServedVni> const* const found = served_.find(event.vni);
  if (!found) return;
  Orb::Ptr<ServedVni> const served = *found;
  SourcePart* const part = served->part(source);
  if (!part) return;
  if (event.op == Op::macDel) {
    served->macDel(*part, event.mac);
  } else if (event.op == Op::floodDel) {
    served->floodDel(*part, event.mac, event.vtep);
  } else if (event.op == Op::multipathDel) {
    served->multipathDel(*part, event.mac);
  } else if (event.op == Op::vniDel) {
    // The whole list is one event.
    VniLedger const dropped = std::exchange(part->told, {});
    retire(*served, part);
    if (served->isServed()) served->mergeAll(dropped);
  }
}

bool Controller::whole(SourceId source) {
  sources_[source].isKnown = true;
  std::size_t limit = sweepLimit;
  return drop(limit, source, &SourcePart::kept);
}

bool Controller::withdraw(SourceId source) {
  sources_[source].isKnown = false;
  std::size_t limit = sweepLimit;
  return drop(limit, source, &SourcePart::kept) && drop(limit, source, &SourcePart::told);
}

std::size_t Controller::entries(SourceId source) const {
  std::size_t count = 0;
  for (auto const& each : served_) {
    if (SourcePart const* const part = each.value->part(source)) {
      count += part->told.entries() + part->kept.entries();
    }
  }
  return count;
}

/// Withdraws at most `limit` entries of a source; true if none is left.
bool Controller::drop(std::size_t& limit, SourceId source, VniLedger SourcePart::*ledger) {
  for (auto const& each : served_) {
    Orb::Ptr<ServedVni> const served = each.value;
    SourcePart* const part = served->part(source);
    if (!part) continue;
    if (!served->drop(part->*ledger, limit)) return false;
    part->*ledger = {};
    retire(*served, part);
  }
  return true;
}

/// A source's part of a VNI, or the earlier run's, has changed: removes it if it is empty, and the VNI if it
/// is not served any more.
void Controller::retire(ServedVni& served, SourcePart* part) {
  if (part && !part->serves()) served.partDel(*part);
  if (!served.isServed()) unserve(served.vniFdbStatus()->vni());
}

bool Controller::earlierDel() {
  std::size_t limit = sweepLimit;
  for (auto const& each : served_) {
    Orb::Ptr<ServedVni> const served = each.value;
    if (!served->earlierDel(limit)) return false;
    retire(*served, nullptr);
  }
  return true;
}

nlohmann::ordered_json Controller::fdb(std::function<std::string(SourceId)> const& nameOf) const {
  auto result = nlohmann::ordered_json::array();
  for (auto const& each : served_) {
    for (auto const& entry : each.value->vniFdbStatus()->macVtepTable()) {
      auto const [source, why] = each.value->verdict(entry.key);
      std::string const from = !source ? "evpn" : *source == earlierRun ? "earlier run" : nameOf(*source);
      result.push_back({{"vni", each.key.value()},
                        {"mac", Orb::toText(entry.key)},
                        {"vtep", Orb::toText(entry.value.vtepAddr())},
                        {"seq", entry.value.seqNo().value()},
                        {"from", from},
                        {"why", why}});
    }
  }
  return result;
}

std::optional<ServedVni::Verdict> Controller::verdict(Vxlan::Vni vni, Wirix::EthAddr mac) const {
  Orb::Ptr<ServedVni> const* const served = served_.find(vni);
  if (!served) return std::nullopt;
  return (*served)->verdict(mac);
}

void Controller::frozenIs(Vxlan::Vni vni, EthAddr mac, bool isFrozen) {
  if (isFrozen) {
    frozen_.emplace(vni, mac);
  } else {
    frozen_.erase({vni, mac});
  }
  if (auto const* const served = served_.find(vni)) (*served)->handleMac(mac);
}

RemoteRows& Controller::remoteRows() { return *remotes_.emplace_back(std::make_unique<Remote>(*this)); }

void Controller::settledIs() {
  if (std::exchange(isSettled_, true)) return;
  for (auto const& remote : remotes_) {
    if (remote->handlers().settled) remote->handlers().settled();
  }
}

void Controller::vniChanged(Vxlan::Vni vni) {
  for (auto const& remote : remotes_) {
    if (remote->handlers().vni) remote->handlers().vni(vni);
  }
}

void Controller::macChanged(Vxlan::Vni vni, EthAddr mac) {
  for (auto const& remote : remotes_) {
    if (remote->handlers().mac) remote->handlers().mac(vni, mac);
  }
}

void Controller::floodChanged(Vxlan::Vni vni, EthAddr mac) {
  for (auto const& remote : remotes_) {
    if (remote->handlers().flood) remote->handlers().flood(vni, mac);
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
  auto const served = Orb::create<ServedVni>(*this, vni);
  served_.put(vni, served);
  handleVniStatus(vni);
  vniDir_->entryIs(served->vniFdbStatus());
  vniChanged(vni);
  return *served;
}

void Controller::unserve(Vxlan::Vni vni) {
  Orb::Ptr<ServedVni> removed;
  if (!served_.take(vni, removed)) return;
  vniDir_->entryDel(removed->vniFdbStatus()->name());
  vniChanged(vni);
}

Orb::TypeDescriptor const& Controller::type() {
  using A = Orb::Attributes<Controller>;
  static Orb::TypeDescriptor const descriptor(
      "Agent::Controller",
      {A::value<&Controller::vniDir>("vniDir"), A::handlerWithArgument("handleVniStatus")});
  return descriptor;
}

}  // namespace Agent
