/// Agent::Learned: the tables that the EVPN side of a site writes. A row is written only if it differs from
/// the row in the table. Rows that an earlier run left are there from the beginning.
#pragma once

#include <functional>

#include "agent/site/EvpnState.h"
#include "agent/site/Mount.h"
#include "agent/site/Site.h"

namespace Agent {

class Learned {
 public:
  /// Raises MountError where another process writes these tables.
  Learned(Site const& site, bool repair);

  void hostIs(QorEvpn::Host const& row);
  void hostDel(QorEvpn::MacVniPair const& key);
  void floodIs(QorEvpn::VniVtepPair const& key);
  void floodDel(QorEvpn::VniVtepPair const& key);

  EvpnState state() const { return state_.state(); }
  void stateIs(EvpnState const& state) { state_.stateIs(state); }

  /// Visits every row; a visit may remove it.
  void forEach(std::function<void(QorEvpn::Host const&)> const& visitHost,
               std::function<void(QorEvpn::FloodEntry const&)> const& visitFlood) const;
  /// Removes every row, and resets the state.
  void clear();

  /// Publishes the turn's changes. Call it at the end of each turn of the loop.
  void endTurn() {
    tables_.endTurn();
    state_.endTurn();
  }
  std::uint64_t rows() const { return tables_.rows(); }

 private:
  EvpnStateWriter state_;
  TablePair tables_;
};

}  // namespace Agent
