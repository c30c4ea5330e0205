#include "agent/evpn/Exchange.h"

#include <algorithm>

#include "Orb/Type.h"

namespace Agent {

using namespace QorEvpn;

namespace {

/// Why a table cannot be read; empty where it can.
template <class Table>
std::string obstacle(Table const& table, std::string const& place) {
  if (Brine::isReadable(table.mountStatus())) return {};
  std::string const text = place + ": " + std::string(toText(table.mountStatus()));
  return table.mountDetail().empty() ? text : text + ": " + table.mountDetail();
}

std::string obstacle(TablePair const& tables) {
  std::string const text = obstacle(*tables.host, tables.folder + "/host");
  return text.empty() ? obstacle(*tables.flood, tables.folder + "/flood") : text;
}

}  // namespace

ExchangeSite::ExchangeSite(Exchange& exchange, std::size_t number, Site const& site)
    : exchange_(exchange), number_(number), exported_("exported by " + site.dir(), site.exported()) {
  hostTable_.connect(this, exported_.host);
  floodTable_.connect(this, exported_.flood);
}

void ExchangeSite::readAll() {
  forEachRow(*exported_.host, exported_.host->hostWalk(), [this](Host const& row) { handleHost(row.key()); });
  forEachRow(*exported_.flood, exported_.flood->floodEntryWalk(),
             [this](FloodEntry const& row) { handleFloodEntry(row.key()); });
}

void ExchangeSite::handleHost(MacVniPair const& key) { exchange_.hostChanged(number_, key); }
void ExchangeSite::handleFloodEntry(VniVtepPair const& key) { exchange_.floodChanged(number_, key); }

Orb::TypeDescriptor const& ExchangeSite::type() {
  using A = Orb::Attributes<ExchangeSite>;
  static Orb::TypeDescriptor const descriptor("Agent::ExchangeSite",
                                              {A::handler<&ExchangeSite::readAll>("readAll")});
  return descriptor;
}

Exchange::Exchange(Loop& loop, std::vector<Member> const& members) : records_(members.size()) {
  for (std::size_t site = 0; site < members.size(); ++site) {
    Record& record = records_[site];
    record.learners.resize(members.size());
    for (std::size_t learner = 0; learner < members.size(); ++learner) {
      if (learner == site) continue;
      Site const& of = members[site].site;
      record.learners[learner] =
          members[learner].side.sources().add({.name = of.dir(), .kind = "peer", .endpoint = of.exported()});
    }
    record.reader = Orb::create<ExchangeSite>(*this, site, members[site].site);
  }
  for (std::size_t site = 0; site < members.size(); ++site) {
    Record& record = records_[site];
    record.follower =
        std::make_unique<Follower>(loop, record.reader->exported(), [this, site] { assess(site); });
    // The state is read before the tables, since it is written after them.
    record.exportedState = std::make_unique<EvpnStateReader>(
        loop, members[site].site.exported(), [this, site] { records_[site].follower->deliver(); });
  }
  for (std::size_t site = 0; site < members.size(); ++site) {
    members[site].side.assumeCapability();
    assess(site);
  }
}

void Exchange::stateIs(Record& record, SourceState state, std::string const& cause) {
  record.state = state;
  for (SourceHandlers const& learner : record.learners) {
    if (learner.state) learner.state(state, cause);
  }
}

/// Call it after the state was read and then the tables were delivered.
void Exchange::assess(std::size_t site) {
  Record& record = records_[site];
  if (std::string const cause = obstacle(record.reader->exported()); !cause.empty()) {
    return stateIs(
        record, record.state == SourceState::connecting ? SourceState::connecting : SourceState::lost, cause);
  }
  if (!record.isTelling()) {
    stateIs(record, SourceState::syncing, {});
    record.reader->readAll();
  }
  if (!record.exportedState->state()) {
    // This program's agent writes a state before it makes its tables.
    record.exportedState->deliver();
    if (record.exportedState->state()) return record.follower->deliver();
  }
  bool const isWhole = record.exportedState->state().value_or(EvpnState{.hasOwn = true}).hasOwn;
  if (isWhole && record.state == SourceState::syncing) stateIs(record, SourceState::synced, {});
}

void Exchange::hostChanged(std::size_t site, MacVniPair const& key) {
  for (std::size_t other = 0; other < records_.size(); ++other) {
    if (other == site) continue;
    tellHost(site, other, key);
    tellHost(other, site, key);
  }
}

/// Call it again whenever a row of the key changes at either site.
void Exchange::tellHost(std::size_t site, std::size_t learner, MacVniPair const& key) const {
  if (!records_[site].isTelling()) return;
  Host const row = records_[site].reader->exported().host->host(key);
  Host const own = records_[learner].reader->exported().host->host(key);
  bool const isTold = row != Host() && (own == Host() || outranks(row, own));
  Event event = eventOf(isTold ? row : Host(key));
  if (!isTold) event.op = Op::macDel;
  records_[site].learners[learner].event(event);
}

void Exchange::floodChanged(std::size_t site, VniVtepPair const& key) {
  if (!records_[site].isTelling()) return;
  bool const isThere = records_[site].reader->exported().flood->floodEntry(key) != FloodEntry();
  Event event = eventOf(key);
  if (!isThere) event.op = Op::floodDel;
  for (SourceHandlers const& learner : records_[site].learners) {
    if (learner.event) learner.event(event);
  }
}

}  // namespace Agent
