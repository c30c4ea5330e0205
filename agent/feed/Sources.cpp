#include "agent/feed/Sources.h"

#include <algorithm>

#include "agent/views/Format.h"

namespace Agent {

namespace {

/// How many refusals for one reason are logged; further ones are only counted.
constexpr std::uint64_t namedRefusals = 5;

std::string_view refusalOf(Wirix::IpAddr vtep) {
  if (vtep == Wirix::IpAddr()) return "VTEP 0.0.0.0";
  if (vtep.value() == 0xFFFFFFFF) return "broadcast VTEP";
  if (vtep.value() >> 28 == 0xE) return "multicast VTEP";
  return {};
}

bool isGroup(Wirix::EthAddr mac) { return (mac.word(0) & 0x0100) != 0; }

std::string entriesText(std::size_t count) { return count == 1 ? "1 entry" : countText(count, "entrie"); }

std::string described(Event const& event) {
  std::string text = "vni ";
  appendText(text, event.vni);
  text += " mac ";
  appendText(text, event.mac);
  for (Wirix::IpAddr const& vtep : event.op == Op::multipath ? event.vteps : std::vector{event.vtep}) {
    text += " vtep ";
    appendText(text, vtep);
  }
  return text;
}

}  // namespace

std::string_view refusalOf(Event const& event) {
  if (event.op == Op::mac || event.op == Op::multipath) {
    if (isGroup(event.mac)) return "group MAC";
    if (event.op == Op::mac && event.mac == Wirix::EthAddr()) return "zero MAC";
  }
  if (event.op == Op::mac || event.op == Op::flood) return refusalOf(event.vtep);
  if (event.op == Op::multipath) {
    for (Wirix::IpAddr const& vtep : event.vteps) {
      if (auto const reason = refusalOf(vtep); !reason.empty()) return reason;
    }
  }
  return {};
}

std::string_view toText(SourceState state) {
  switch (state) {
    case SourceState::connecting: return "connecting";
    case SourceState::syncing: return "syncing";
    case SourceState::synced: return "synced";
    case SourceState::lost: return "lost";
  }
  return {};
}

Sources::Sources(Loop& loop, SourceLedgers& ledgers, std::chrono::seconds hold, Logs logs)
    : loop_(loop), ledgers_(&ledgers), hold_(hold), logs_(std::move(logs)), sweep_(loop, [this] {
        sweep();
      }) {}

SourceHandlers Sources::add(About about) {
  SourceId const id = records_.size();
  Record& record = records_.emplace_back();
  record.about = std::move(about);
  ledgers_->sourceIs(id, record.about.isNumbered);
  if (hold_.count() != 0) {
    record.timer = std::make_unique<Timer>(loop_, [this, id] { holdEnds(id); });
    record.timer->start(hold_);
  }
  return {[this, id](Event const& each) { event(id, each); },
          [this, id](SourceState next, std::string const& cause) { state(id, next, cause); }, logs_.warning};
}

void Sources::event(SourceId source, Event const& event) {
  ++records_[source].events[static_cast<std::size_t>(event.op)];
  if (event.op == Op::enabled || event.op == Op::capability) {
    flag(source, event);
  } else if (!refuse(records_[source], event)) {
    forgetRefusal(records_[source], event);
    ledgers_->apply(source, event);
  }
}

bool Sources::refuse(Record& record, Event const& event) {
  std::string_view const reason = refusalOf(event);
  if (reason.empty()) return false;
  bool const isMacs = event.op == Op::mac || event.op == Op::multipath;
  if (isMacs && record.refusedMacs.size() < refusalsKept)
    record.refusedMacs.insert_or_assign({event.mac, event.vni}, reason);
  std::uint64_t const count = ++record.refused[std::string(reason)];
  if (count <= namedRefusals) {
    logs_.warning(record.about.name + ": refused: " + described(event) + ": " + std::string(reason) +
                  (count == namedRefusals ? " (more of them are counted, not named)" : ""));
  }
  return true;
}

/// The source has said something else of it.
void Sources::forgetRefusal(Record& record, Event const& event) {
  if (record.refusedMacs.empty()) return;
  if (event.op == Op::vniDel) {
    std::erase_if(record.refusedMacs, [&](auto const& each) { return each.first.second == event.vni; });
  } else if (event.op != Op::flood && event.op != Op::floodDel) {
    record.refusedMacs.erase({event.mac, event.vni});
  }
}

void Sources::forEachRefusal(
    Wirix::EthAddr mac,
    std::function<void(SourceId, Vxlan::Vni, std::string_view reason)> const& visit) const {
  for (SourceId source = 0; source < records_.size(); ++source) {
    auto const& refused = records_[source].refusedMacs;
    for (auto each = refused.lower_bound({mac, {}}); each != refused.end() && each->first.first == mac;
         ++each)
      visit(source, each->first.second, each->second);
  }
}

void Sources::state(SourceId source, SourceState next, std::string const& cause) {
  Record& record = records_[source];
  bool const isAnother = record.state != next;
  bool const isWorthALine =
      cause.empty() ? isAnother && next != SourceState::syncing : isAnother || cause != record.error;
  if (isAnother) {
    record.state = next;
    record.since = std::chrono::system_clock::now();
  }
  if (!cause.empty()) record.error = cause;
  std::string line = record.about.name + ": " + std::string(toText(next));
  if (next == SourceState::syncing && cause.empty()) {
    record.flags.clear();
    record.refusedMacs.clear();
    if (record.givenUp) record.givenUp = record.isOverdue = false;
    record.sweep = Sweep::none;
    record.isAgain = record.hasTold;
    if (record.isAgain) ledgers_->begin(source);
    record.hasTold = true;
  } else if (next == SourceState::syncing) {
    applyFlags(source);  // its state is complete
  } else if (next == SourceState::synced && isAnother) {
    record.givenUp = record.isOverdue = false;
    if (record.timer) record.timer->cancel();
    record.sweep = Sweep::whole;
  } else if (next != SourceState::synced && isAnother) {
    if (record.isOverdue) {
      giveUp(source);
    } else if (record.timer && !record.timer->isRunning()) {
      record.timer->start(hold_);
    }
  }
  sweep();
  if (!isWorthALine) return;
  if (next == SourceState::synced) line += ", " + entriesText(ledgers_->entries(source));
  (next == SourceState::synced ? logs_.info : logs_.warning)(cause.empty() ? line : line + ": " + cause);
}

void Sources::flag(SourceId source, Event const& event) {
  Record& record = records_[source];
  bool const isTelling = record.state == SourceState::syncing || record.sweep == Sweep::whole;
  bool const waits =
      isTelling && (isKeeping() || record.isAgain) && (record.about.isRecording || !event.value);
  if (waits) {
    record.flags.insert_or_assign(event.op, event).first->second.written = {};
  } else {
    record.flags.erase(event.op);
    ledgers_->flag(source, event);
  }
}

void Sources::applyFlags(SourceId source) {
  for (auto const& [op, event] : std::exchange(records_[source].flags, {})) ledgers_->flag(source, event);
}

void Sources::holdEnds(SourceId source) {
  Record& record = records_[source];
  record.isOverdue = true;
  if (record.state != SourceState::syncing) return giveUp(source);
  if (isKeeping())
    logs_.warning(record.about.name + ": not synced yet: what an earlier run left stays until it is");
}

void Sources::giveUp(SourceId source) {
  Record& record = records_[source];
  if (record.givenUp) return;
  record.givenUp = true;
  logs_.warning(record.about.name + ": given up after " + std::to_string(hold_.count()) +
                " s: " + entriesText(ledgers_->entries(source)) + " withdrawn");
  record.flags.clear();
  record.refusedMacs.clear();
  record.sweep = Sweep::withdraw;
  sweep();
}

void Sources::sweep() {
  if (!sweepSome() && !sweep_.isRunning()) sweep_.start({});
}

void Sources::finish() {
  while (!sweepSome()) continue;
}

/// Withdraws a part of the entries; false if more are left.
bool Sources::sweepSome() {
  for (SourceId source = 0; source < records_.size(); ++source) {
    Sweep const sweep = records_[source].sweep;
    if (sweep == Sweep::none) continue;
    if (!(sweep == Sweep::whole ? ledgers_->whole(source) : ledgers_->withdraw(source))) return false;
    sweepEnds(source);
  }
  if (isSettled_ || !canSettle()) return true;
  return settle();
}

void Sources::sweepEnds(SourceId source) {
  Record& record = records_[source];
  if (std::exchange(record.sweep, Sweep::none) == Sweep::withdraw) {
    record.hasTold = false;
  } else {
    applyFlags(source);
  }
}

bool Sources::canSettle() const {
  return std::all_of(records_.begin(), records_.end(), [](Record const& record) {
    return record.state == SourceState::synced || record.givenUp;
  });
}

nlohmann::ordered_json Sources::state() const {
  auto result = nlohmann::ordered_json::array();
  for (SourceId id = 0; id < records_.size(); ++id) {
    Record const& record = records_[id];
    auto events = nlohmann::ordered_json::object();
    for (std::size_t op = 0; op < opCount; ++op) {
      if (record.events[op] != 0) events[std::string(toText(static_cast<Op>(op)))] = record.events[op];
    }
    auto const since = std::chrono::duration_cast<std::chrono::seconds>(record.since.time_since_epoch());
    result.push_back({{"name", record.about.name},
                      {"kind", record.about.kind},
                      {"endpoint", record.about.endpoint},
                      {"state", toText(record.state)},
                      {"since", since.count()},
                      {"entries", ledgers_->entries(id)},
                      {"events", std::move(events)},
                      {"refused", record.refused},
                      {"givenUp", record.givenUp},
                      {"lastError", record.error}});
  }
  return result;
}

}  // namespace Agent
