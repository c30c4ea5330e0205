#include "agent/evpn/Exchange.h"

#include <algorithm>

#include "Orb/Type.h"

namespace Agent {

using namespace QorEvpn;

namespace {

bool isBetter(Host const& left, Host const& right) {
  if (left.seqNo() != right.seqNo()) return left.seqNo() > right.seqNo();
  return left.vtepAddr() < right.vtepAddr();
}

}  // namespace

ExchangeSite::ExchangeSite(Exchange& exchange, std::size_t number, Site const& site, bool repair)
    : exchange_(exchange),
      number_(number),
      site_(site),
      learned_(site, repair),
      exported_("exported by " + site.dir(), site.exported()) {
  hostTable_.connect(this, exported_.host);
  floodTable_.connect(this, exported_.flood);
}

void ExchangeSite::readAll() {
  forEachRow(*exported_.host, exported_.host->hostWalk(), [this](Host const& row) { handleHost(row.key()); });
  forEachRow(*exported_.flood, exported_.flood->floodEntryWalk(),
             [this](FloodEntry const& row) { handleFloodEntry(row.key()); });
}

void ExchangeSite::handleHost(MacVniPair const& key) {
  Host const row = exported_.host->host(key);
  exchange_.hostIs(number_, key, row == Host() ? std::nullopt : std::optional(row));
}

void ExchangeSite::handleFloodEntry(VniVtepPair const& key) {
  exchange_.floodIs(number_, key, exported_.flood->floodEntry(key) != FloodEntry());
}

Orb::TypeDescriptor const& ExchangeSite::type() {
  using A = Orb::Attributes<ExchangeSite>;
  static Orb::TypeDescriptor const descriptor("Agent::ExchangeSite",
                                              {A::handler<&ExchangeSite::readAll>("readAll")});
  return descriptor;
}

Exchange::Exchange(Loop& loop, std::vector<Site> const& sites, bool repair,
                   std::function<void(std::string const&)> log)
    : log_(std::move(log)), reports_(sites.size()) {
  for (Site const& site : sites) {
    sites_.push_back(Orb::create<ExchangeSite>(*this, sites_.size(), site, repair));
    followers_.push_back(std::make_unique<Follower>(loop, sites_.back()->exported(), [this] { report(); }));
  }
  for (auto const& site : sites_) site->readAll();
  areAllRead_ = true;
  for (auto const& entry : hosts_) settleHost(entry.key, entry.value);
  for (auto const& entry : floods_) settleFlood(entry.key, entry.value);
  for (auto const& site : sites_) sweep(site->learned());
  report();
}

void Exchange::endTurn() {
  for (auto const& site : sites_) site->learned().endTurn();
}

void Exchange::hostIs(std::size_t site, MacVniPair const& key, std::optional<Host> const& row) {
  Hosts const* const known = hosts_.find(key);
  Hosts rows = known ? *known : Hosts(sites_.size());
  rows[site] = row;
  if (std::none_of(rows.begin(), rows.end(), [](auto const& each) { return each.has_value(); })) {
    hosts_.erase(key);
  } else {
    hosts_.put(key, rows);
  }
  if (areAllRead_) settleHost(key, rows);
}

/// What a site learned in an earlier run, and nobody exports any more.
void Exchange::sweep(Learned& learned) const {
  learned.forEach(
      [&](Host const& row) {
        if (MacVniPair const key = row.key(); !hosts_.contains(key)) learned.hostDel(key);
      },
      [&](FloodEntry const& row) {
        if (VniVtepPair const key = row.key(); !floods_.contains(key)) learned.floodDel(key);
      });
  learned.stateIs({EvpnState::Capability::unsaid, true});
}

void Exchange::settleHost(MacVniPair const& key, Hosts const& rows) {
  for (std::size_t learner = 0; learner < sites_.size(); ++learner) {
    std::optional<Host> best;
    for (std::size_t other = 0; other < sites_.size(); ++other) {
      if (other != learner && rows[other] && (!best || isBetter(*rows[other], *best))) best = rows[other];
    }
    bool const hasBetter = best && rows[learner] && !isBetter(*best, *rows[learner]);
    if (best && !hasBetter) {
      sites_[learner]->learned().hostIs(*best);
    } else {
      sites_[learner]->learned().hostDel(key);
    }
  }
}

void Exchange::floodIs(std::size_t site, VniVtepPair const& key, bool present) {
  Floods const* const known = floods_.find(key);
  Floods exporters = known ? *known : Floods(sites_.size());
  exporters[site] = present;
  if (std::count(exporters.begin(), exporters.end(), true) == 0) {
    floods_.erase(key);
  } else {
    floods_.put(key, exporters);
  }
  if (areAllRead_) settleFlood(key, exporters);
}

void Exchange::settleFlood(VniVtepPair const& key, Floods const& exporters) {
  auto const count = std::count(exporters.begin(), exporters.end(), true);
  for (std::size_t learner = 0; learner < sites_.size(); ++learner) {
    if (count > (exporters[learner] ? 1 : 0)) {
      sites_[learner]->learned().floodIs(key);
    } else {
      sites_[learner]->learned().floodDel(key);
    }
  }
}

/// Says it when an agent comes or goes.
void Exchange::report() {
  for (std::size_t i = 0; i < sites_.size(); ++i) {
    std::string text(toText(sites_[i]->exported().host->mountStatus()));
    if (text == reports_[i]) continue;
    reports_[i] = text;
    log_(sites_[i]->site().dir() + ": exported tables: " + text);
  }
}

}  // namespace Agent
