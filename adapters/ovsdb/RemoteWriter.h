/// Ovsdb::RemoteWriter: writes the entries that the controller has from elsewhere (Agent::RemoteRows) into
/// Ucast_Macs_Remote and Mcast_Macs_Remote of one switch's database.
///
///   input                                handler               effect
///   Agent::RemoteRows: vni, mac, flood   -                     notes the key for a transaction
///   Agent::RemoteRows: settled           -                     rows that were never wanted are removed
///   the switch begins to serve a VNI     vniServed(vni)        notes all keys of the VNI
///   a remote row of the database         remoteChanged(key)    notes the key after a pause, so that two
///                                                              writers do not overwrite each other at once
///   answer to a transaction              answered(refusal)     the next transaction, or a pause
///
/// One transaction is in flight at a time, since two would insert the same locator twice. The database sends
/// the changes of a transaction before its answer, so the next transaction is computed from the result of the
/// last. Until the controller is settled, only rows that were wanted in this run and are no longer wanted are
/// removed.
///
/// If the database refuses a transaction, its keys are tried again after a growing pause, one by one until
/// one is accepted. A key that is refused alone waits separately; the other keys go on.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "adapters/ovsdb/LocalEntries.h"
#include "adapters/ovsdb/Session.h"
#include "agent/base/Remote.h"

namespace Ovsdb {

class RemoteWriter {
 public:
  struct Handlers {
    /// step() has something to do, in the next turn.
    std::function<void()> wake;
    std::function<void(std::string const&)> report;
  };
  /// `rows` must outlive it.
  RemoteWriter(Agent::Loop& loop, Agent::RemoteRows& rows, Pauses const& pauses, Handlers handlers);
  ~RemoteWriter() { rows_.handlersIs({}); }
  RemoteWriter(RemoteWriter const&) = delete;
  RemoteWriter& operator=(RemoteWriter const&) = delete;

  void remoteChanged(Key const& key);
  void vniServed(Vxlan::Vni vni) { vnis_.insert(vni); }
  /// The replica is complete: from now on differences are written.
  void ready();
  /// The session has ended, with the transaction in flight and the content of the replica.
  void sessionLost();
  /// Does a part of the work. False if it must wait: for changes, for an answer, or for the end of a pause.
  bool step(Session& session, Replica const& replica, LocalEntries const& own);

  std::uint64_t transactions() const { return transactions_; }
  std::uint64_t refusals() const { return refusals_; }

 private:
  struct Transaction;
  void note(Key const& key);
  void noteVni(Vxlan::Vni vni);
  void compare(Key const& key, Replica const& replica, LocalEntries const& own, Transaction& transaction);
  void compareRows(Key const& key, MacTable table, Uuid const& logicalSwitch, VtepList wanted,
                   Replica const& replica, Transaction& transaction);
  void send(Session& session, Transaction&& transaction);
  void answered(std::string const& refusal);

  Agent::RemoteRows& rows_;
  Handlers handlers_;
  bool ready_ = false;
  std::vector<Key> noted_;     ///< To be compared; a key may stand here more than once.
  std::set<Vxlan::Vni> vnis_;  ///< All of whose keys are to be compared.
  std::set<Key> dirty_;        ///< To be compared.
  std::set<Key> putOff_;       ///< Has rows that may be removed once the controller is settled.
  std::set<Key> wanted_;       ///< Was wanted in this run, before the controller was settled.
  std::set<Key> corrected_;    ///< Changed by the database; to be compared after a pause.
  std::set<Key> apart_;        ///< Refused alone; to be tried again, one by one, after a pause.
  std::vector<Key> underWay_;
  std::size_t limit_;
  bool isTrial_ = false;   ///< The transaction in flight is for a key of `apart_`.
  bool trialDue_ = false;  ///< The next transaction is for a key of `apart_`.
  std::uint64_t transactions_ = 0;
  std::uint64_t refusals_ = 0;
  std::chrono::milliseconds correctionPause_;
  GrowingPause pause_;
  GrowingPause trialPause_;
  Agent::Timer correction_;
  Agent::Timer retry_;
  Agent::Timer trial_;
};

}  // namespace Ovsdb
