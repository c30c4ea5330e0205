/// Ovsdb::RemoteWriter: writes what the controller knows from elsewhere (Agent::RemoteRows) into
/// Ucast_Macs_Remote and Mcast_Macs_Remote of one switch's database.
///
///   input                                     handler                    output
///   Agent::RemoteRows: vni, mac, flood        the key is noted           a transaction that writes the
///   differences
///   Agent::RemoteRows: settled                -                          rows that nobody asked for are
///   removed
///   the switch comes to serve a VNI           vniServed(vni)             all keys of the VNI are noted
///   a remote row of the database              remoteChanged(key)         the key is noted, after a pause, so
///   that
///                                                                        two writers do not chase each other
///   answer to a transaction                   answered(refusal)          the next one, or a pause
///
/// One transaction is under way at a time, since two would insert the same locator twice; the database tells
/// its changes before it answers, so that the next one is worked out from what the last one did. Until the
/// controller is settled, only rows that were wanted in this run, and no longer are, are removed.
///
/// What the database refuses is tried again after a growing pause, key by key until one is accepted; a key
/// that is refused by itself waits apart, and the others go on.
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
  /// `rows` outlives it.
  RemoteWriter(Agent::Loop& loop, Agent::RemoteRows& rows, Pauses const& pauses, Handlers handlers);
  ~RemoteWriter() { rows_.handlersIs({}); }
  RemoteWriter(RemoteWriter const&) = delete;
  RemoteWriter& operator=(RemoteWriter const&) = delete;

  void remoteChanged(Key const& key);
  void vniServed(Vxlan::Vni vni) { vnis_.insert(vni); }
  /// The replica is whole: from now on differences are written.
  void ready();
  /// The session is gone, what was under way with it, and what the replica knew.
  void sessionLost();
  /// Does a part of what there is to do. False where it must wait: for something to do, an answer, or a
  /// pause.
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
  std::vector<Key> noted_;     ///< To be compared, some more than once.
  std::set<Vxlan::Vni> vnis_;  ///< All of whose keys are to be compared.
  std::set<Key> dirty_;        ///< To be compared.
  std::set<Key> putOff_;       ///< Has rows that may go once the controller is settled.
  std::set<Key> wanted_;       ///< Was wanted in this run, before the controller was settled.
  std::set<Key> corrected_;    ///< Changed by the database; to be compared after a pause.
  std::set<Key> apart_;        ///< Refused by itself; to be tried again, one by one, after a pause.
  std::vector<Key> underWay_;
  std::size_t limit_;
  bool isTrial_ = false;   ///< What is under way is a key of those apart.
  bool trialDue_ = false;  ///< The next one to try is one of them.
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
