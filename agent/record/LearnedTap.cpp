#include "agent/record/LearnedTap.h"

#include "Orb/Type.h"
#include "agent/evpn/LearnedSources.h"
#include "agent/views/EvpnStatus.h"

namespace Agent {

using namespace QorEvpn;

namespace {

constexpr SourceId learnedSource = 0;

Event mark(Op op) {
  Event line;
  line.from = Origin::evpn;
  line.op = op;
  line.value = true;
  if (op == Op::source) line.name = "learned";
  return line;
}

}  // namespace

LearnedTap::LearnedTap(TablePair const& learned, Recorder& recorder) : recorder_(recorder) {
  hostTable_.connect(this, learned.host);
  floodTable_.connect(this, learned.flood);
  for (Op const op : {Op::source, Op::begin}) recorder_.write(learnedSource, mark(op));
}

void LearnedTap::whole() {
  isWhole_ = true;
  recorder_.write(learnedSource, mark(Op::whole));
}

void LearnedTap::tellState(VxlanController::VniStatusDirV2 const& imported,
                           SourceLedgers::Tell const& tell) const {
  for (Op const op : {Op::source, Op::begin}) tell(learnedSource, mark(op));
  for (auto const& [vni, rows] : evpnStatusOf(imported)) {
    for (Host const& row : rows.hosts) tell(learnedSource, eventOf(row));
    for (FloodEntry const& row : rows.floods) tell(learnedSource, eventOf(row.key()));
  }
  if (isWhole_) tell(learnedSource, mark(Op::whole));
}

void LearnedTap::handleHost(MacVniPair const& key) {
  Host const row = hostTable_.notifier()->host(key);
  Event event = eventOf(row == Host() ? Host(key) : row);
  if (row == Host()) event.op = Op::macDel;
  recorder_.write(learnedSource, event);
}

void LearnedTap::handleFloodEntry(VniVtepPair const& key) {
  Event event = eventOf(key);
  if (floodTable_.notifier()->floodEntry(key) == FloodEntry()) event.op = Op::floodDel;
  recorder_.write(learnedSource, event);
}

Orb::TypeDescriptor const& LearnedTap::type() {
  using A = Orb::Attributes<LearnedTap>;
  static Orb::TypeDescriptor const descriptor(
      "Agent::LearnedTap",
      {A::handlerWithArgument("handleHost"), A::handlerWithArgument("handleFloodEntry")});
  return descriptor;
}

}  // namespace Agent
