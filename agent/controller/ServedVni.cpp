#include "agent/controller/ServedVni.h"

#include <algorithm>

#include "Orb/Type.h"
#include "agent/controller/Controller.h"

namespace Agent {

using VxlanController::MacVtepV2;
using Wirix::EthAddr;
using Wirix::IpAddr;

namespace {

/// The MAC whose flood list is the one for all BUM traffic.
constexpr EthAddr allBum = VxlanController::MacVtepFloodListV2::allBum;

/// The next sequence number; the highest number has itself as the next one.
Seqno32 after(Seqno32 seq) { return seq.value() == Seqno32::max ? seq : Seqno32(seq.value() + 1); }

}  // namespace

void SourcePart::begin() {
  VniLedger before = std::exchange(kept, std::exchange(told, {}));
  for (auto const& entry : before.macs) {
    Claim const* const now = kept.macs.find(entry.key);
    bool const isOlder = now && isNumbered && now->seq < entry.value.seq;
    if (!now || isOlder) kept.macs.put(entry.key, entry.value);
  }
  for (auto& [mac, list] : before.floods) kept.floods[mac].merge(list);
  kept.multipaths.merge(before.multipaths);
  kept.serves = kept.serves || before.serves;
}

ServedVni::ServedVni(Controller& controller, Vxlan::Vni vni)
    : controller_(controller),
      vniFdbStatus_(
          Orb::makePtr<VxlanController::VniFdbStatusV2>(Orb::Name(std::to_string(vni.value())), vni)) {}

SourcePart* ServedVni::part(SourceId source) {
  auto const found = std::ranges::find(parts_, source, &SourcePart::source);
  return found == parts_.end() ? nullptr : &*found;
}

SourcePart& ServedVni::part(SourceId source, bool isNumbered) {
  if (SourcePart* const found = part(source)) return *found;
  return parts_.emplace_back(SourcePart{source, isNumbered, {}, {}});
}

void ServedVni::partDel(SourcePart const& part) {
  parts_.remove_if([&](SourcePart const& each) { return &each == &part; });
}

void ServedVni::begin(SourceId source) {
  if (SourcePart* const found = part(source)) found->begin();
}

void ServedVni::macIs(SourcePart& part, EthAddr mac, Claim claim, bool isNews) {
  Claim const* const former = part.claim(mac);
  bool const isSame = former && former->vtep == claim.vtep && former->seq == claim.seq &&
                      former->preference == claim.preference;
  bool const isRestored = claim.since != 0;
  if (!isRestored) claim.since = isSame ? former->since : nowInSeconds();
  if (!part.isNumbered) {
    if (isRestored) {
      claim.order = std::exchange(claim.seq, {}).value();
      heard_ = std::max(heard_, claim.order);
    } else if (former ? former->vtep != claim.vtep : isNews) {
      claim.order = ++heard_;
      renumber(mac, claim.vtep);
    } else if (former) {
      claim.order = former->order;
    }
  }
  part.told.macs.put(mac, claim);
  mergeMac(mac, false);
}

/// A switch has newly heard the MAC: its entry gets a number above that of the entry in force.
void ServedVni::renumber(EthAddr mac, IpAddr vtep) {
  Number number{vtep, {}};
  Number const* const former = numbers_.find(mac);
  if (former) number.seq = former->vtep == vtep ? former->seq : after(former->seq);
  if (MacVtepV2 const* const inForce = vniFdbStatus_->macVtepTable().find(mac)) {
    bool const isSwitches = former && former->vtep == inForce->vtepAddr() && former->seq == inForce->seqNo();
    if (!isSwitches) number.seq = std::max(number.seq, after(inForce->seqNo()));
  }
  numbers_.put(mac, number);
}

void ServedVni::macDel(SourcePart& part, EthAddr mac) {
  if (part.told.macs.erase(mac)) mergeMac(mac, false);
}

void ServedVni::floodIs(SourcePart& part, EthAddr mac, IpAddr vtep, FloodClaim claim) {
  FloodClaim const* const former = part.flood(mac, vtep);
  bool const isSame = former && former->on == claim.on;
  if (claim.since == 0) claim.since = isSame ? former->since : nowInSeconds();
  part.told.floods[mac][vtep] = claim;
  mergeFlood(mac, vtep);
}

void ServedVni::floodDel(SourcePart& part, EthAddr mac, IpAddr vtep) {
  auto const list = part.told.floods.find(mac);
  if (list == part.told.floods.end() || list->second.erase(vtep) == 0) return;
  if (list->second.empty()) part.told.floods.erase(list);
  mergeFlood(mac, vtep);
}

void ServedVni::multipathIs(SourcePart& part, EthAddr mac, MultipathClaim claim) {
  MultipathClaim const* const former = part.multipath(mac);
  bool const isSame = former && former->vteps == claim.vteps;
  if (claim.since == 0) claim.since = isSame ? former->since : nowInSeconds();
  part.told.multipaths.insert_or_assign(mac, std::move(claim));
  mergeMultipath(mac);
}

void ServedVni::multipathDel(SourcePart& part, EthAddr mac) {
  if (part.told.multipaths.erase(mac) != 0) mergeMultipath(mac);
}

VniLedger& ServedVni::earlier() {
  if (!earlier_) earlier_ = std::make_unique<VniLedger>();
  return *earlier_;
}

void ServedVni::earlierMacIs(MacVtepV2 const& entry) {
  EthAddr const mac = entry.macAddr();
  earlier().macs.put(mac, {entry.vtepAddr(), entry.seqNo(), 0, entry.preference()});
  numbers_.put(mac, {entry.vtepAddr(), entry.seqNo()});
  mergeMac(mac, false);
}

void ServedVni::earlierFloodIs(IpAddr vtep) {
  earlier().floods[allBum][vtep] = {true};
  mergeFlood(allBum, vtep);
}

/// A VNI is published while it has an entry; so an entry without a VTEP stands for entries that are not
/// known.
void ServedVni::earlierIsPublished() {
  earlier().multipaths[allBum];
  mergeMultipath(allBum);
}

bool ServedVni::earlierDel(std::size_t& limit) {
  if (earlier_ && !drop(*earlier_, limit)) return false;
  earlier_.reset();
  return true;
}

void ServedVni::vniStatusFromEvpnIs(EvpnStatusPtr const& status) {
  formerFromEvpn_ = vniStatusFromEvpn();
  vniStatusFromEvpn_.lateIs(this, status);
  formerFromEvpn_ = nullptr;
}

/// Merges the keys of EVPN's former and present status; no other key has changed.
void ServedVni::handleInitialized() {
  for (EvpnStatusPtr const& each : {formerFromEvpn_, vniStatusFromEvpn()}) {
    if (!each) continue;
    for (auto const& entry : each->macVtepTable()) handleMac(EthAddr(entry.key));
  }
  handleFloodList(allBum);
}

MacVtepV2 const* ServedVni::evpnsMac(EthAddr mac) const {
  EvpnStatusPtr const& status = vniStatusFromEvpn_.notifier();
  return status ? status->macVtepTable().find(mac) : nullptr;
}

/// The winner among feeds' entries: the highest sequence number, then the lowest VTEP.
ServedVni::Found ServedVni::numberedClaim(EthAddr mac) const {
  Found best;
  for (SourcePart const& part : parts_) {
    Claim const* const claim = part.isNumbered ? part.claim(mac) : nullptr;
    bool const isBetter = claim && (!best || claim->seq > best.claim->seq ||
                                    (claim->seq == best.claim->seq && claim->vtep < best.claim->vtep));
    if (isBetter) best = {claim, part.source};
  }
  return best;
}

/// The winner among the entries of switches and of the earlier run: the one that was heard last, then the one
/// in force, then the one with the lowest VTEP.
ServedVni::Found ServedVni::switchesClaim(EthAddr mac, Number const* number) const {
  Found best;
  auto const rank = [&](Claim const& claim) {
    return std::tuple(claim.order, number && claim.vtep == number->vtep, ~claim.vtep.value());
  };
  auto const add = [&](Claim const* claim, SourceId source) {
    if (claim && (!best || rank(*claim) > rank(*best.claim))) best = {claim, source};
  };
  for (SourcePart const& part : parts_) {
    if (!part.isNumbered) add(part.claim(mac), part.source);
  }
  if (earlier_) add(earlier_->macs.find(mac), earlierRun);
  return best;
}

/// The merged entry of all sources for a MAC.
std::optional<ServedVni::Own> ServedVni::ownMac(EthAddr mac) {
  Found const best = numberedClaim(mac);
  Number* number = numbers_.find(mac);
  Found const heard = switchesClaim(mac, number);
  if (!heard) {
    if (number) numbers_.erase(mac);
  } else if (!number) {
    numbers_.put(mac, {heard.claim->vtep, {}});
    number = numbers_.find(mac);
  } else if (number->vtep != heard.claim->vtep) {
    *number = {heard.claim->vtep, after(number->seq)};
  }
  if (!best && !heard) return std::nullopt;
  bool const isTie = best && heard && best.claim->seq == number->seq;
  bool const isHeard =
      heard && (!best || (isTie ? heard.source != earlierRun && heard.claim->vtep < best.claim->vtep
                                : best.claim->seq < number->seq));
  auto const& [claim, source] = isHeard ? heard : best;
  std::string_view why = isTie ? "lowest VTEP of equals" : "highest sequence number";
  if (isHeard && !best) why = claim->order != 0 ? "heard last" : "listed";
  if (source == earlierRun) why = "kept from an earlier run";
  return Own{MacVtepV2(mac, claim->vtep, isHeard ? number->seq : claim->seq, claim->preference), source, why,
             !isHeard};
}

/// Whether EVPN's entry counts before that of the sources: if its number is higher. A frozen MAC of a switch
/// is left to the other site also where the numbers are equal, but by one of the sites only: the lowest VTEP
/// has it.
bool ServedVni::isEvpnsBefore(Own const& own, MacVtepV2 const& evpns) const {
  if (evpns.seqNo() != own.entry.seqNo()) return evpns.seqNo() > own.entry.seqNo();
  return !own.isNumbered && controller_.isFrozen(vniFdbStatus_->vni(), evpns.macAddr()) &&
         evpns.vtepAddr() < own.entry.vtepAddr();
}

ServedVni::Verdict ServedVni::verdict(EthAddr mac) {
  std::optional<Own> const own = ownMac(mac);
  MacVtepV2 const* const evpns = evpnsMac(mac);
  if (!own) return {std::nullopt, "nobody else has it"};
  if (!evpns) return {own->source, own->why};
  bool const isTie = evpns->seqNo() == own->entry.seqNo();
  if (isEvpnsBefore(*own, *evpns))
    return {std::nullopt, isTie ? "frozen, lowest VTEP of equals" : "highest sequence number"};
  return {own->source, isTie ? "before EVPN's of the same number" : "higher sequence number than EVPN's"};
}

void ServedVni::forEachClaim(EthAddr mac, std::function<void(SourceId, Claim const&)> const& visit) const {
  for (SourcePart const& part : parts_) {
    if (Claim const* const claim = part.claim(mac)) visit(part.source, *claim);
  }
  Claim const* const claim = earlier_ ? earlier_->macs.find(mac) : nullptr;
  if (claim) visit(earlierRun, *claim);
}

void ServedVni::forEachFloodClaim(EthAddr mac, IpAddr vtep,
                                  std::function<void(SourceId, FloodClaim const&)> const& visit) const {
  for (SourcePart const& part : parts_) {
    if (FloodClaim const* const claim = part.flood(mac, vtep)) visit(part.source, *claim);
  }
  FloodClaim const* const claim = earlier_ ? earlier_->flood(mac, vtep) : nullptr;
  if (claim) visit(earlierRun, *claim);
}

void ServedVni::forEachMultipathClaim(
    EthAddr mac, std::function<void(SourceId, MultipathClaim const&)> const& visit) const {
  for (SourcePart const& part : parts_) {
    if (MultipathClaim const* const claim = part.multipath(mac)) visit(part.source, *claim);
  }
}

void ServedVni::mergeMac(EthAddr mac, bool isEvpns) {
  std::optional<MacVtepV2> winner;
  std::optional<Own> const own = ownMac(mac);
  if (own) winner = own->entry;
  MacVtepV2 const* const evpns = evpnsMac(mac);
  bool const evpnWins = evpns && (!own || isEvpnsBefore(*own, *evpns));
  if (evpnWins) winner = *evpns;
  std::optional<MacVtepV2> former;
  if (MacVtepV2 const* const found = vniFdbStatus_->macVtepTable().find(mac)) former = *found;
  if (winner == former) return;
  if (winner) {
    vniFdbStatus_->macVtepTableIs(*winner);
  } else {
    vniFdbStatus_->macVtepTableDel(mac);
  }
  controller_.macChanged(vniFdbStatus_->vni(), mac);
  if (!winner || !former || winner->vtepAddr() == former->vtepAddr()) return;
  // The move was counted when the MAC was heard; the other side's withdrawal is not a second move.
  bool const hasMoved = isEvpns ? evpnWins : !evpnWins && evpns && *evpns == *former;
  if (hasMoved && controller_.duplicates_) {
    controller_.duplicates_->moved(vniFdbStatus_->vni(), *former, *winner);
  }
}

void ServedVni::handleFloodList(EthAddr const& mac) {
  if (mac != allBum) return;  // EVPN has no other lists
  Orb::Ptr<VxlanController::MacVtepFloodListV2 const> list;
  if (EvpnStatusPtr const& status = vniStatusFromEvpn()) list = status->macVtepFloodListTable(allBum);
  if (list != floodListFromEvpn_.notifier()) {
    floodListFromEvpn_.del();
    floodListFromEvpn_.connect(this, list);
  }
  if (auto const merged = vniFdbStatus_->macVtepFloodListTable(allBum)) {
    for (auto const& entry : merged->vtepIpFloodList()) handleFloodVtep(IpAddr(entry.key));
  }
  if (!list) return;
  for (auto const& entry : list->vtepIpFloodList()) handleFloodVtep(IpAddr(entry.key));
}

void ServedVni::handleFloodVtep(IpAddr const& vtep) { mergeFlood(allBum, vtep); }

/// Nothing if neither a source nor EVPN has the VTEP in the list; otherwise whether one of them has it on.
std::optional<bool> ServedVni::isOn(EthAddr mac, IpAddr vtep) const {
  std::optional<bool> on;
  auto const add = [&on](bool const* entry) {
    if (entry) on = on.value_or(false) || *entry;
  };
  forEachFloodClaim(mac, vtep, [&](SourceId source, FloodClaim const& claim) {
    if (source != earlierRun || !on) add(&claim.on);
  });
  if (mac == allBum && floodListFromEvpn_.notifier()) {
    add(floodListFromEvpn_.notifier()->vtepIpFloodList().find(vtep));
  }
  return on;
}

void ServedVni::mergeFlood(EthAddr mac, IpAddr vtep) {
  Orb::Ptr<VxlanController::MacVtepFloodListV2> const list = vniFdbStatus_->macVtepFloodListTable(mac);
  bool const* const entry = list ? list->vtepIpFloodList().find(vtep) : nullptr;
  std::optional<bool> const on = isOn(mac, vtep);
  if (on ? entry && *entry == *on : !entry) return;
  if (on && list) {
    list->vtepIpFloodListIs(vtep, *on);
  } else if (on) {
    auto const made = Orb::makePtr<VxlanController::MacVtepFloodListV2>(mac);
    made->vtepIpFloodListIs(vtep, *on);
    vniFdbStatus_->macVtepFloodListTableIs(made);
  } else if (list->vtepIpFloodList().size() == 1) {
    vniFdbStatus_->macVtepFloodListTableDel(mac);
  } else {
    list->vtepIpFloodListDel(vtep);
  }
  controller_.floodChanged(vniFdbStatus_->vni(), mac);
}

void ServedVni::mergeMultipath(EthAddr mac) {
  std::optional<std::vector<IpAddr>> vteps;
  if (earlier_ && earlier_->multipath(mac)) vteps.emplace();
  forEachMultipathClaim(mac, [&](SourceId, MultipathClaim const& claim) {
    if (!vteps) vteps.emplace();
    vteps->insert(vteps->end(), claim.vteps.begin(), claim.vteps.end());
  });
  if (!vteps) return vniFdbStatus_->macVtepMultiPathTableDel(mac);
  std::sort(vteps->begin(), vteps->end());
  vteps->erase(std::unique(vteps->begin(), vteps->end()), vteps->end());
  vniFdbStatus_->macVtepMultiPathTableIs({mac, *vteps});
}

void ServedVni::mergeAll(VniLedger const& ledger) {
  for (auto const& entry : ledger.macs) mergeMac(entry.key, false);
  for (auto const& [mac, list] : ledger.floods) {
    for (auto const& each : list) mergeFlood(mac, each.first);
  }
  for (auto const& each : ledger.multipaths) mergeMultipath(each.first);
}

bool ServedVni::drop(VniLedger& ledger, std::size_t& limit) {
  for (auto const& entry : ledger.macs) {
    if (limit == 0) return false;
    --limit;
    EthAddr const mac = entry.key;
    ledger.macs.erase(mac);
    mergeMac(mac, false);
  }
  for (auto& floods = ledger.floods; !floods.empty(); floods.erase(floods.begin())) {
    auto& [mac, list] = *floods.begin();
    while (!list.empty()) {
      if (limit == 0) return false;
      --limit;
      IpAddr const vtep = list.begin()->first;
      list.erase(list.begin());
      mergeFlood(mac, vtep);
    }
  }
  while (!ledger.multipaths.empty()) {
    if (limit == 0) return false;
    --limit;
    EthAddr const mac = ledger.multipaths.begin()->first;
    ledger.multipaths.erase(mac);
    mergeMultipath(mac);
  }
  return true;
}

Orb::TypeDescriptor const& ServedVni::type() {
  using A = Orb::Attributes<ServedVni>;
  static Orb::TypeDescriptor const descriptor(
      "Agent::ServedVni", {A::value<&ServedVni::vniFdbStatus>("vniFdbStatus"),
                           A::value<&ServedVni::vniStatusFromEvpn>("vniStatusFromEvpn"),
                           A::handler<&ServedVni::handleInitialized>("handleInitialized")});
  return descriptor;
}

}  // namespace Agent
