/// The tables that the EVPN side of a site writes, as the EVPN side has them.
///
/// Where an earlier run left rows, changes are collected until release(), which brings the tables to what was
/// collected: rows that still hold are never touched, and what is no longer known goes. Only what differs is
/// written, at any time.
#pragma once

#include <map>
#include <optional>
#include <set>

#include "agent/feed/Event.h"
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

  /// Takes an event from EVPN: `mac`, `flood` and what takes them back.
  void apply(Event const& event);

  /// Removes every row.
  void clear();

  bool isHeld() const { return held_.has_value(); }
  void release();

  /// At the end of each turn of the loop.
  void endTurn() { tables_.endTurn(); }
  std::uint64_t rows() const { return tables_.rows(); }

 private:
  struct Held {
    std::map<QorEvpn::MacVniPair, QorEvpn::Host> hosts;
    std::set<QorEvpn::VniVtepPair> floods;
  };

  Tables tables_;
  std::optional<Held> held_;
};

}  // namespace Agent
