/// Agent::Exchange: carries what sites export to one another, as BGP EVPN between them would.
///
///   input                              handler                 output
///   exported host table of a site      handleHost(key)         learned host tables of all other sites
///   exported flood table of a site     handleFloodEntry(key)   learned flood tables of all other sites
///
/// A site learns of a key the best row that another site exports, if it is better than the row that the site
/// itself exports: the higher sequence number is better, then the lower VTEP address. It learns every flood
/// row that another site exports. No row returns to the site that it came from. Rows are taken whatever VNIs
/// the learning site serves: its controller leaves out those that it does not, and a VNI of which it knows
/// nothing yet, and which it therefore does not publish, must be able to learn its first entry.
#pragma once

#include <memory>
#include <vector>

#include "Orb/FlatMap.h"
#include "Orb/StateMachine.h"
#include "agent/base/Loop.h"
#include "agent/evpn/Learned.h"

namespace Agent {

class Exchange;

/// One site of an exchange: reads what it exports, writes what it learns.
class ExchangeSite : public Orb::StateMachine<ExchangeSite> {
 public:
  ExchangeSite(Exchange& exchange, std::size_t number, Site const& site, bool repair);
  ~ExchangeSite() override { teardown(); }
  static Orb::TypeDescriptor const& type();

  Site const& site() const { return site_; }
  Learned& learned() { return learned_; }
  TablePair& exported() { return exported_; }

  /// Takes every row that is exported now.
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
  Site site_;
  Learned learned_;
  TablePair exported_;
  Orb::Input<OrbHostTable> hostTable_;
  Orb::Input<OrbFloodTable> floodTable_;
};

class Exchange {
 public:
  /// Two sites or more. Rows that were learned in an earlier run and that nobody exports any more are
  /// withdrawn before this returns. `log` takes lines for people. Raises MountError.
  Exchange(Loop& loop, std::vector<Site> const& sites, bool repair,
           std::function<void(std::string const&)> log);
  Exchange(Exchange const&) = delete;
  Exchange& operator=(Exchange const&) = delete;

  void endTurn();

  /// A site exports another row, or none.
  void hostIs(std::size_t site, QorEvpn::MacVniPair const& key, std::optional<QorEvpn::Host> const& row);
  void floodIs(std::size_t site, QorEvpn::VniVtepPair const& key, bool present);

 private:
  /// What each site exports under a key, by the site's number.
  using Hosts = std::vector<std::optional<QorEvpn::Host>>;
  using Floods = std::vector<bool>;

  void settleHost(QorEvpn::MacVniPair const& key, Hosts const& rows);
  void settleFlood(QorEvpn::VniVtepPair const& key, Floods const& exporters);
  void sweep(Learned& learned) const;
  void report();

  std::function<void(std::string const&)> log_;
  std::vector<Orb::Ptr<ExchangeSite>> sites_;
  std::vector<std::unique_ptr<Follower>> followers_;
  std::vector<std::string> reports_;
  Orb::FlatMap<QorEvpn::MacVniPair, Hosts> hosts_;
  Orb::FlatMap<QorEvpn::VniVtepPair, Floods> floods_;
  bool areAllRead_ = false;
};

}  // namespace Agent
