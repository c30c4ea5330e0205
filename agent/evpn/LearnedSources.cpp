#include "agent/evpn/LearnedSources.h"

#include <algorithm>

#include "VxlanController/QorEvpnRow.h"

namespace Agent {

using namespace QorEvpn;

bool outranks(Host const& left, Host const& right) {
  return left.seqNo() != right.seqNo() ? left.seqNo() > right.seqNo() : left.vtepAddr() < right.vtepAddr();
}

Event eventOf(Host const& row) {
  Event event = eventOf(VniVtepPair(row.key().vni(), row.vtepAddr()));
  event.op = Op::mac;
  event.mac = row.key().macAddr();
  event.seq = row.seqNo();
  event.preference = row.preference();
  return event;
}

Event eventOf(VniVtepPair const& flood) {
  Event event;
  event.from = Origin::evpn;
  event.op = Op::flood;
  event.vni = flood.vni();
  event.vtep = flood.vtepAddr();
  return event;
}

Host hostOf(Event const& event) {
  return QorEvpn::hostOf(event.vni,
                         VxlanController::MacVtepV2(event.mac, event.vtep, event.seq, event.preference));
}

LearnedSources::LearnedSources(Learned& learned) : learned_(learned) {
  learned_.forEach([this](Host const& row) { earlier_.hosts.put(row.key(), {row}); },
                   [this](FloodEntry const& row) { earlier_.floods.emplace(row.key(), 0); });
}

void LearnedSources::assumeCapability() {
  isAssumed_ = true;
  mergeState();
}

void LearnedSources::sourceIs(SourceId source, bool) {
  records_.resize(std::max(records_.size(), source + 1));
  mergeState();
}

void LearnedSources::begin(SourceId source) {
  auto& [told, kept, capability] = records_[source];
  Ledger before = std::exchange(kept, std::exchange(told, {}));
  for (auto const& entry : before.hosts) {
    if (newer(&entry.value, kept.hosts.find(entry.key)) == &entry.value)
      kept.hosts.put(entry.key, entry.value);
  }
  kept.floods.merge(before.floods);
}

void LearnedSources::apply(SourceId source, Event const& event) {
  Ledger& told = records_[source].told;
  MacVniPair const key(event.mac, event.vni);
  VniVtepPair const flood(event.vni, event.vtep);
  std::uint32_t const since = event.since != 0 ? event.since : nowInSeconds();
  if (event.op == Op::mac) {
    Host const row = hostOf(event);
    HostClaim const* const former = told.hosts.find(key);
    if (former && former->row == row) return;
    told.hosts.put(key, {row, since});
    mergeHost(key);
  } else if (event.op == Op::macDel) {
    if (told.hosts.erase(key)) mergeHost(key);
  } else if (event.op == Op::flood) {
    if (told.floods.emplace(flood, since).second) mergeFlood(flood);
  } else if (event.op == Op::floodDel) {
    if (told.floods.erase(flood) != 0) mergeFlood(flood);
  }
}

void LearnedSources::flag(SourceId source, Event const& event) {
  if (event.op != Op::capability) return;
  records_[source].capability = event.value;
  mergeState();
}

bool LearnedSources::whole(SourceId source) {
  std::size_t limit = sweepLimit;
  return drop(records_[source].kept, limit);
}

bool LearnedSources::withdraw(SourceId source) {
  Record& record = records_[source];
  if (record.capability) {
    record.capability = false;
    mergeState();
  }
  std::size_t limit = sweepLimit;
  return drop(record.kept, limit) && drop(record.told, limit);
}

bool LearnedSources::settled() {
  std::size_t limit = sweepLimit;
  if (!drop(earlier_, limit)) return false;
  isSettled_ = true;
  mergeState();
  return true;
}

std::size_t LearnedSources::entries(SourceId source) const {
  auto const& [told, kept, capability] = records_[source];
  return told.hosts.size() + told.floods.size() + kept.hosts.size() + kept.floods.size();
}

void LearnedSources::tellState(Tell const& tell) const {
  auto const tellAll = [&](Ledger const& ledger, SourceId source) {
    for (auto const& entry : ledger.hosts) {
      Event event = eventOf(entry.value.row);
      event.since = entry.value.since;
      tell(source, event);
    }
    for (auto const& [flood, since] : ledger.floods) {
      Event event = eventOf(flood);
      event.since = since;
      tell(source, event);
    }
  };
  tellAll(earlier_, earlierRun);
  for (SourceId source = 0; source < records_.size(); ++source) {
    Record const& record = records_[source];
    tellAll(record.kept, source);
    Event event;
    event.from = Origin::evpn;
    event.op = Op::begin;
    tell(source, event);
    tellAll(record.told, source);
    event.op = Op::capability;
    event.value = record.capability.value_or(false);
    if (record.capability) tell(source, event);
  }
}

LearnedSources::HostClaim const* LearnedSources::newer(HostClaim const* before, HostClaim const* now) {
  return now && !(before && now->row.seqNo() < before->row.seqNo()) ? now : before;
}

LearnedSources::HostClaim const* LearnedSources::best(MacVniPair const& key) const {
  HostClaim const* best = nullptr;
  for (Record const& record : records_) {
    HostClaim const* const claim = newer(record.kept.hosts.find(key), record.told.hosts.find(key));
    if (claim && (!best || outranks(claim->row, best->row))) best = claim;
  }
  return newer(earlier_.hosts.find(key), best);
}

bool LearnedSources::hasFlood(VniVtepPair const& key) const {
  return earlier_.floods.contains(key) ||
         std::any_of(records_.begin(), records_.end(), [&](Record const& record) {
           return record.told.floods.contains(key) || record.kept.floods.contains(key);
         });
}

void LearnedSources::forEachClaim(
    MacVniPair const& key, std::function<void(SourceId, Host const&, std::uint32_t)> const& visit) const {
  for (SourceId source = 0; source < records_.size(); ++source) {
    Record const& record = records_[source];
    if (HostClaim const* const claim = newer(record.kept.hosts.find(key), record.told.hosts.find(key)))
      visit(source, claim->row, claim->since);
  }
  if (HostClaim const* const claim = earlier_.hosts.find(key)) visit(earlierRun, claim->row, 0);
}

void LearnedSources::forEachClaim(VniVtepPair const& key,
                                  std::function<void(SourceId, std::uint32_t)> const& visit) const {
  for (SourceId source = 0; source < records_.size(); ++source) {
    for (Ledger const* const ledger : {&records_[source].told, &records_[source].kept}) {
      auto const found = ledger->floods.find(key);
      if (found == ledger->floods.end()) continue;
      visit(source, found->second);
      break;
    }
  }
  if (earlier_.floods.contains(key)) visit(earlierRun, 0);
}

void LearnedSources::mergeHost(MacVniPair const& key) {
  if (HostClaim const* const claim = best(key)) {
    learned_.hostIs(claim->row);
  } else {
    learned_.hostDel(key);
  }
}

void LearnedSources::mergeFlood(VniVtepPair const& key) {
  if (hasFlood(key)) {
    learned_.floodIs(key);
  } else {
    learned_.floodDel(key);
  }
}

/// Removes at most `limit` entries of a ledger, and merges their keys; true if none is left.
bool LearnedSources::drop(Ledger& ledger, std::size_t& limit) {
  for (auto const& entry : ledger.hosts) {
    if (limit == 0) return false;
    --limit;
    MacVniPair const key = entry.key;
    ledger.hosts.erase(key);
    mergeHost(key);
  }
  while (!ledger.floods.empty()) {
    if (limit == 0) return false;
    --limit;
    mergeFlood(ledger.floods.extract(ledger.floods.begin()).key());
  }
  ledger = {};
  return true;
}

/// Until every source is synced or given up, the earlier run's capability stays in force if no source tells
/// one.
void LearnedSources::mergeState() {
  EvpnState state = learned_.state();
  state.isWhole = isSettled_;
  auto said = EvpnState::Capability::unsaid;
  for (Record const& record : records_) {
    if (!record.capability || said == EvpnState::Capability::on) continue;
    said = *record.capability ? EvpnState::Capability::on : EvpnState::Capability::off;
  }
  if (isAssumed_ && said != EvpnState::Capability::on) said = EvpnState::Capability::assumed;
  if (isSettled_ || said != EvpnState::Capability::unsaid) state.capability = said;
  learned_.stateIs(state);
}

}  // namespace Agent
