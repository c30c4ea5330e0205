/// Agent::Exchange: carries the rows that each site exports to the other sites, in place of BGP EVPN.
///
///   input                              handler                 output
///   exported host table of a site      handleHost(key)         events to the EVPN sides of all other sites
///   exported flood table of a site     handleFloodEntry(key)   events to the EVPN sides of all other sites
///   exported state of a site           assess()                the state of the site as their source
///
/// Each site is a source of the EVPN side of every other site. It tells a host row that it exports if the row
/// is better than the row of the same key that the learning site exports: the higher sequence number is
/// better, then the lower VTEP address. It tells every flood row that it exports. No row returns to the site
/// that it came from. Rows of all VNIs are told, also of VNIs that the learning site does not serve: its
/// controller leaves those out, and a VNI that it does not publish yet must be able to learn its first entry.
///
///   exported tables of the site                    state of the source
///   missing or not readable                        connecting; lost if they were readable before
///   readable                                       syncing
///   readable, and exported/state says whole        synced; also if the site has no such table
///
/// When an agent ends, its rows stay in its tables and in force until it runs again.
#pragma once

#include <memory>
#include <vector>

#include "Orb/StateMachine.h"
#include "agent/base/Loop.h"
#include "agent/evpn/EvpnSide.h"

namespace Agent {

class Exchange;

/// One site of an exchange: reads the tables that it exports.
class ExchangeSite : public Orb::StateMachine<ExchangeSite> {
 public:
  ExchangeSite(Exchange& exchange, std::size_t number, Site const& site);
  ~ExchangeSite() override { teardown(); }
  static Orb::TypeDescriptor const& type();

  TablePair& exported() { return exported_; }

  /// Visits every row that is exported now.
  void readAll();
  void handleHost(QorEvpn::MacVniPair const& key);
  void handleFloodEntry(QorEvpn::VniVtepPair const& key);

  class OrbHostTable
      : public Reactor<QorEvpn::HostTable, On<QorEvpn::HostTable::hostAttr, &ExchangeSite::handleHost>> {
    using Reactor::Reactor;
  };
  class OrbFloodTable
      : public Reactor<QorEvpn::FloodTable,
                       On<QorEvpn::FloodTable::floodEntryAttr, &ExchangeSite::handleFloodEntry>> {
    using Reactor::Reactor;
  };

 private:
  friend StateMachine;
  auto inputs() { return std::tie(hostTable_, floodTable_); }

  Exchange& exchange_;
  std::size_t number_;
  TablePair exported_;
  Orb::Input<OrbHostTable> hostTable_;
  Orb::Input<OrbFloodTable> floodTable_;
};

class Exchange {
 public:
  /// A site and its EVPN side, which outlives the exchange.
  struct Member {
    Site site;
    EvpnSide& side;
  };
  /// Two members or more; makes each a source of all others.
  Exchange(Loop& loop, std::vector<Member> const& members);
  Exchange(Exchange const&) = delete;
  Exchange& operator=(Exchange const&) = delete;

  /// The row of a key that a site exports was added, changed or removed.
  void hostChanged(std::size_t site, QorEvpn::MacVniPair const& key);
  void floodChanged(std::size_t site, QorEvpn::VniVtepPair const& key);

 private:
  struct Record {
    Orb::Ptr<ExchangeSite> reader;
    std::unique_ptr<Follower> follower;
    std::unique_ptr<EvpnStateReader> exportedState;
    SourceState state = SourceState::connecting;
    std::vector<SourceHandlers> learners;  ///< By site; empty handlers for the site itself.

    bool isTelling() const { return state == SourceState::syncing || state == SourceState::synced; }
  };

  void assess(std::size_t site);
  void stateIs(Record& record, SourceState state, std::string const& cause);
  void tellHost(std::size_t site, std::size_t learner, QorEvpn::MacVniPair const& key) const;

  std::vector<Record> records_;
};

}  // namespace Agent
