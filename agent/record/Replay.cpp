#include "agent/record/Replay.h"

#include <filesystem>
#include <set>

#include "agent/explain/WhyLearned.h"

namespace Agent {

namespace {

Logs nowhere() {
  auto const drop = [](std::string const&) {};
  return {drop, drop};
}

/// Makes the rows of one folder of a site those that are given.
void writeRows(Site const& site, bool learned, SiteRows const& wanted) {
  forEachKind<EntryRows>([&]<class Row>(std::type_identity<Row>) {
    using Codec = Brine::Codec<Row>;
    if (learned ? !TableKind<Row>::isLearned : !TableKind<Row>::isExported) return;
    Brine::Table<Row> table;
    mountAsWriter(table, placeOf<Row>(learned).directory(site), TableKind<Row>::file, false);
    std::set<typename Codec::Key> old;
    for (auto walk = table.walk(); Row const* const row = walk.next();) old.insert(Codec::key(*row));
    for (Row const& row : wanted.of<Row>()) {
      if (table.find(Codec::key(row)) != row) table.write(row);
      old.erase(Codec::key(row));
    }
    for (auto const& key : old) table.erase(key);
  });
}

void add(SiteRows& rows, Event const& event) {
  if (event.op == Op::vni) rows.add(Bridging::BridgeId::ofVni(event.vni));
  if (event.op == Op::mac) rows.add(hostOf(event));
  if (event.op == Op::flood) rows.add(QorEvpn::FloodEntry(QorEvpn::VniVtepPair(event.vni, event.vtep)));
}

}  // namespace

ScratchDir::ScratchDir() {
  std::error_code none;
  bool const hasMemory = std::filesystem::is_directory("/dev/shm", none);
  path_ =
      (hasMemory ? "/dev/shm" : std::filesystem::temp_directory_path().string()) + "/qorevpn-replay-XXXXXX";
  if (mkdtemp(path_.data()) == nullptr) throwErrno(path_);
}

ScratchDir::~ScratchDir() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

Replay::Replay() : site_(Site::made(dir_.path())) {}

Replay::~Replay() { replayedTime = 0; }

void Replay::beginRun(Event const& event) {
  bool const isNext = event.name == run_ && event.seq.value() == part_ + 1;
  run_ = event.name;
  part_ = event.seq.value();
  isKnown_ = isNext && isBuilt();
  if (isKnown_) return;
  side_ = event.from;
  module_.reset();
  evpn_.reset();
  earlierExported_ = earlierLearned_ = {};
}

/// On the tables that the run found.
void Replay::build() {
  if (isBuilt()) return;
  writeRows(site_, true, earlierLearned_);
  evpn_.emplace(loop_, site_, false, std::chrono::seconds(0), nowhere());
  evpn_->learned().stateIs({});
  if (side_ == Origin::evpn) return;
  writeRows(site_, false, earlierExported_);
  module_.emplace(loop_, site_, false, std::chrono::seconds(0), nowhere());
}

void Replay::apply(Event const& event) {
  if (event.time) replayedTime = static_cast<std::uint32_t>(*event.time);
  if (event.op == Op::recording) return beginRun(event);
  if (event.op == Op::stateEnd && std::exchange(isKnown_, false)) return;
  if (isKnown_) return;
  bool const isEarliers = event.source == earlierRun && event.op < Op::enabled;
  bool const isEvpns = event.from == Origin::evpn;
  if (isEarliers && !isBuilt()) return add(isEvpns ? earlierLearned_ : earlierExported_, event);
  build();
  bool const isFlag = event.op == Op::enabled || event.op == Op::capability;
  if (isFlag && event.source == earlierRun) {
    if (module_) module_->flag(0, event);
  } else if (isEvpns) {
    applyTo(evpn_->sources(), evpn_->ledgers(), event);
  } else if (module_) {
    return applyTo(module_->sources(), *module_, event);
  }
  evpn_->learned().endTurn();
  if (!module_) return;
  if (event.op == Op::begin || event.op == Op::whole) module_->transmitWaitsIs(event.op == Op::begin);
  module_->deliver();
}

void Replay::applyTo(Sources& sources, SourceLedgers& ledgers, Event const& event) {
  auto const part = [&](auto const& takeSome) {
    while (!takeSome() && event.value) continue;
  };
  switch (event.op) {
    case Op::stateEnd: return;
    case Op::settled: return part([&] { return sources.settle(); });
    case Op::number:
    case Op::frozen:
    case Op::listed: return ledgers.apply(0, event);
    case Op::source:
      if (event.source == sources.size())
        sources.add({.name = event.name, .kind = {}, .endpoint = {}, .isNumbered = event.on});
      return;
    default: break;
  }
  if (event.source >= sources.size()) throw EventError("source: there is none of this number yet");
  switch (event.op) {
    case Op::begin: return ledgers.begin(event.source);
    case Op::whole: return part([&] { return ledgers.whole(event.source); });
    case Op::withdraw: return part([&] { return ledgers.withdraw(event.source); });
    case Op::capability: return ledgers.flag(event.source, event);
    default: return ledgers.apply(event.source, event);
  }
}

void Replay::endTurn() {
  if (!isBuilt()) return;
  evpn_->learned().endTurn();
  if (module_) module_->endTurn();
}

EvpnStatus Replay::evpnStatus() const {
  return module_ ? evpnStatusOf(nlohmann::json(module_->evpnStatus(""))) : EvpnStatus();
}

nlohmann::ordered_json Replay::why(std::string_view argument) const {
  if (!module_)
    throw std::runtime_error("this is the recording of an EVPN side, or of nothing: an agent can tell");
  auto answers = module_->why(argument);
  for (auto& answer : answers) {
    std::string const subject = answer.at(answer.contains("mac") ? "mac" : "vtep");
    answer["evpnSide"] = whyLearned(*evpn_, nullptr, subject + ' ' + answer.at("vni").dump());
  }
  return answers;
}

}  // namespace Agent
