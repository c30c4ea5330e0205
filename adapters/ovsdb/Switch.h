/// Ovsdb::Switch: one hardware VTEP switch, as a source of events about what it learned, and as a place where
/// what is behind other VTEPs is written.
///
///   its database                           source state
///   cannot be reached, at the start        connecting
///   tells its rows, and they are taken in  syncing
///   has told all of them                   synced
///   went away, or is of no use             lost, until it tells its rows again
///
/// Big messages are taken in slices, one a turn of the loop, so that nothing else waits for them. After an
/// error, which the state's cause tells together with the endpoint, another attempt follows after a pause
/// that grows.
#pragma once

#include <chrono>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "adapters/ovsdb/LocalEntries.h"
#include "adapters/ovsdb/RemoteWriter.h"
#include "adapters/ovsdb/Replica.h"
#include "adapters/ovsdb/Session.h"
#include "agent/base/Source.h"

namespace Ovsdb {

class Switch {
 public:
  struct Options {
    std::string name;
    std::string endpoint;  ///< As class Endpoint reads it.
    TlsFiles tls;
    Pauses pauses;
  };
  /// Connects in the loop's next turn. Raises std::invalid_argument where the endpoint cannot be read.
  /// `rows`, what the switch is to be told, outlives it.
  Switch(Agent::Loop& loop, Options options, Agent::SourceHandlers handlers, Agent::RemoteRows& rows);
  Switch(Switch const&) = delete;
  Switch& operator=(Switch const&) = delete;

  std::string const& name() const { return options_.name; }
  std::string const& endpoint() const { return options_.endpoint; }
  Agent::SourceState state() const { return state_; }
  std::chrono::system_clock::time_point since() const { return since_; }
  /// What went wrong last, empty where nothing did.
  std::string const& lastError() const { return lastError_; }
  /// What it has told so far.
  LocalEntries const& entries() const { return local_; }
  /// What it told of a VNI and what stands in its tables of remote MACs (agent/audit/RemoteTables.h).
  bool serves(Vxlan::Vni vni) const { return replica_->serves(vni); }
  nlohmann::ordered_json rowsOf(Vxlan::Vni vni) const;
  /// The remote row of a MAC in each logical switch that has the VNI, and its flood list's: their VTEPs.
  std::vector<VtepList> remoteRowsOf(Key const& key) const;
  /// Rows that no event can hold, by what is wrong with them.
  std::map<std::string_view, std::size_t> const& leftOut() const { return replica_->leftOut(); }
  /// Rows that stand in its tables of remote MACs.
  std::size_t remoteRows() const;

  RemoteWriter const& remote() const { return remote_; }

 private:
  void askSchema();
  void checkSchema(Session::Reply const& reply);
  void ownVtepsChanged();
  void takeTables(std::vector<Message::Table>&& tables);
  void work();
  bool workStep();
  void finishMessage();
  void failed(std::string const& cause, std::chrono::milliseconds pause);
  void stateIs(Agent::SourceState state, std::string const& cause);
  void report(std::string const& line);
  std::unique_ptr<Replica> newReplica();
  LocalEntries newEntries() {
    return LocalEntries([this](Agent::Event const& event) { handlers_.event(event); });
  }

  /// What was known in a session that ended.
  struct Former {
    std::unique_ptr<Replica> replica;
    LocalEntries local;
  };

  Options options_;
  Agent::SourceHandlers handlers_;
  Agent::RemoteRows& rows_;
  Agent::SourceState state_ = Agent::SourceState::connecting;
  std::chrono::system_clock::time_point since_ = std::chrono::system_clock::now();
  std::string lastError_;
  std::size_t refusalsNamed_ = 0;
  LocalEntries local_;
  std::unique_ptr<Replica> replica_;
  std::vector<Former> former_;          ///< Freed bit by bit.
  std::deque<Message::Table> untaken_;  ///< Rows of the message that is being taken in.
  bool taking_ = false;
  Agent::Timer work_;
  RemoteWriter remote_;
  Session session_;
};

}  // namespace Ovsdb
