/// Describes the Controller's state by events of a recording.
#include "agent/controller/Controller.h"

namespace Agent {

namespace {

using Tell = SourceLedgers::Tell;

/// The `seq` of an entry whose source does not number entries is its place in the order of hearing.
void tellLedger(Vxlan::Vni vni, VniLedger const& ledger, SourceId source, bool isNumbered, Tell const& tell) {
  Event event;
  event.vni = vni;
  tell(source, event);
  event.op = Op::mac;
  for (auto const& entry : ledger.macs) {
    event.mac = entry.key;
    event.vtep = entry.value.vtep;
    event.seq = isNumbered ? entry.value.seq : Seqno32(entry.value.order);
    event.preference = entry.value.preference;
    event.since = entry.value.since;
    tell(source, event);
  }
  event = {};
  event.vni = vni;
  event.op = Op::flood;
  for (auto const& [mac, list] : ledger.floods) {
    event.mac = mac;
    for (auto const& [vtep, claim] : list) {
      event.vtep = vtep;
      event.on = claim.on;
      event.since = claim.since;
      tell(source, event);
    }
  }
  if (source == earlierRun) return;  // its multipath entries only keep VNIs published
  event = {};
  event.vni = vni;
  event.op = Op::multipath;
  for (auto const& [mac, claim] : ledger.multipaths) {
    event.mac = mac;
    event.vteps = claim.vteps;
    event.since = claim.since;
    tell(source, event);
  }
}

}  // namespace

void ServedVni::tellEarlier(Tell const& tell) const {
  if (earlier_) tellLedger(vniFdbStatus_->vni(), *earlier_, earlierRun, true, tell);
}

void ServedVni::tellParts(VniLedger SourcePart::*ledger, Tell const& tell) const {
  for (SourcePart const& part : parts_) {
    if ((part.*ledger).serves)
      tellLedger(vniFdbStatus_->vni(), part.*ledger, part.source, part.isNumbered, tell);
  }
}

void ServedVni::tellNumbers(Tell const& tell) const {
  Event event;
  event.op = Op::number;
  event.vni = vniFdbStatus_->vni();
  for (auto const& number : numbers_) {
    event.mac = number.key;
    event.vtep = number.value.vtep;
    event.seq = number.value.seq;
    tell(earlierRun, event);
  }
}

void ServedVni::numberIs(Wirix::EthAddr mac, Wirix::IpAddr vtep, Seqno32 seq) {
  numbers_.put(mac, {vtep, seq});
  mergeMac(mac, false);
}

/// First the earlier run's entries, then of each source the kept entries and those that it told since.
void Controller::tellState(Tell const& tell) const {
  auto const mark = [&](Op op, SourceId source) {
    Event event;
    event.op = op;
    event.value = true;
    tell(source, event);
  };
  for (auto const& each : served_) each.value->tellEarlier(tell);
  for (SourceId source = 0; source < sources_.size(); ++source) {
    if (sources_[source].isKnown) mark(Op::whole, source);
  }
  for (auto const& each : served_) each.value->tellParts(&SourcePart::kept, tell);
  for (SourceId source = 0; source < sources_.size(); ++source) mark(Op::begin, source);
  for (auto const& each : served_) each.value->tellParts(&SourcePart::told, tell);
  for (auto const& each : served_) each.value->tellNumbers(tell);
  for (auto const& [vni, mac] : frozen_) {
    Event event;
    event.op = Op::frozen;
    event.vni = vni;
    event.mac = mac;
    event.value = true;
    tell(earlierRun, event);
  }
}

}  // namespace Agent
