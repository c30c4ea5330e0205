/// Ovsdb::Switch: one hardware VTEP switch: a source of events about the MACs that it learned, and the place
/// to which the MACs behind other VTEPs are written.
///
///   its database                            state of the source
///   not reached yet                         connecting
///   its rows are being read                 syncing
///   all its rows have been read             synced
///   not reachable any more, or not usable   lost, until its rows are read again
///
/// A big message is handled in slices, one a turn of the loop, so that other events do not wait for it. After
/// an error the state's cause names the endpoint and the error, and another attempt follows after a growing
/// pause.
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
  /// Connects in the loop's next turn. Raises std::invalid_argument for a wrong endpoint. `rows`, the entries
  /// that are written to the switch, must outlive it.
  Switch(Agent::Loop& loop, Options options, Agent::SourceHandlers handlers, Agent::RemoteRows& rows);
  Switch(Switch const&) = delete;
  Switch& operator=(Switch const&) = delete;

  std::string const& name() const { return options_.name; }
  std::string const& endpoint() const { return options_.endpoint; }
  Agent::SourceState state() const { return state_; }
  std::chrono::system_clock::time_point since() const { return since_; }
  /// The last error; empty if there was none.
  std::string const& lastError() const { return lastError_; }
  /// The entries that it has told.
  LocalEntries const& entries() const { return local_; }
  bool serves(Vxlan::Vni vni) const { return replica_->serves(vni); }
  /// The entries of a VNI that it told, and its tables of remote MACs (agent/audit/RemoteTables.h).
  nlohmann::ordered_json rowsOf(Vxlan::Vni vni) const;
  /// The VTEPs of the remote rows of a MAC, or of its flood list, in each logical switch that has the VNI.
  std::vector<VtepList> remoteRowsOf(Key const& key) const;
  /// The number of rows that no event can hold, by cause.
  std::map<std::string_view, std::size_t> const& leftOut() const { return replica_->leftOut(); }
  /// The number of rows in its tables of remote MACs.
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

  /// The data of a session that ended.
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
  std::vector<Former> former_;          ///< Freed a part a turn.
  std::deque<Message::Table> untaken_;  ///< Rows of the present message that are not handled yet.
  bool taking_ = false;
  Agent::Timer work_;
  RemoteWriter remote_;
  Session session_;
};

}  // namespace Ovsdb
