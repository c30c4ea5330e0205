/// Mounts a site's tables for the agent and the EVPN side, with errors for people.
#pragma once

#include <chrono>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>

#include "Brine/TableBase.h"
#include "VxlanController/QorEvpnBrine.h"
#include "VxlanController/QorEvpnWalk.h"
#include "agent/base/Loop.h"
#include "agent/tables/Tables.h"

namespace Agent {

/// A table cannot be mounted for writing. The message names the table, the status and the remedy.
class MountError : public std::runtime_error {
 public:
  MountError(Brine::MountOptions const& options, Brine::MountStatus status, std::string const& detail);
};

/// Mounts a table for writing or raises MountError. A writer that was killed holds the table until the kernel
/// has ended its process; therefore a busy table is tried again for one second. `repair`: damaged rows are
/// dropped (Brine::MountOptions).
template <class Table>
void mountAsWriter(Table& table, std::string const& folder, std::string_view name, bool repair) {
  Brine::MountOptions const options{.directory = folder,
                                    .name = std::string(name),
                                    .mode = Brine::Mode::writer,
                                    .repair = repair,
                                    .turns = true};
  using Clock = std::chrono::steady_clock;
  auto const deadline = Clock::now() + std::chrono::seconds(1);
  Brine::MountStatus status = table.mount(options);
  while (status == Brine::MountStatus::busy && Clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    status = table.mount(options);
  }
  if (status != Brine::MountStatus::mounted) throw MountError(options, status, table.mountDetail());
}

/// The host table and the flood table of one folder of a site. `name` ("exported") precedes the names of the
/// tables.
struct TablePair {
  TablePair(std::string const& name, std::string folder);

  /// Raises MountError.
  void mountAsWriter(bool repair);
  /// A table that does not exist yet is mounted by a later delivery.
  void mountAsReader();
  void unmount();
  /// Reader: notifies observers of changes, of about `limit` changes in each table. Raises what an observer
  /// raises. True if no change is left for another delivery.
  bool deliver(std::uint64_t limit = UINT64_MAX);
  /// Writer: publishes the turn's changes and wakes readers. Call it at the end of each turn of the loop.
  void endTurn();
  /// The number of rows in both tables.
  std::uint64_t rows() const;
  /// Reader: the number of deliveries that compared a whole table because the change ring had been lapped.
  std::uint64_t laps() const;

  std::string folder;
  Orb::Ptr<QorEvpn::HostTable> host;
  Orb::Ptr<QorEvpn::FloodTable> flood;
};

/// Whether a reader with that status must try again after `lookAgainDelay`: it lacks memory, descriptors or
/// permission, whose return no event announces.
bool mustLookAgain(Brine::MountStatus status);
inline constexpr std::chrono::seconds lookAgainDelay{1};

/// How many changes of a table are delivered in a turn if other events wait for the loop: one or two
/// milliseconds with all observers.
inline constexpr std::uint64_t deliveryLimit = 1024;

/// Delivers a reader's two tables from the loop: whenever one of them has changes, and once a second while
/// one of them must try again.
class Follower {
 public:
  /// Mounts the tables as keyshadow readers; they must outlive the follower. `told` is called after each
  /// delivery. The loop delivers about `limit` changes a turn.
  Follower(Loop& loop, TablePair& tables, Loop::Handler told, std::uint64_t limit = UINT64_MAX);
  ~Follower();
  Follower(Follower const&) = delete;
  Follower& operator=(Follower const&) = delete;

  /// Notifies the tables' observers now, without waiting for the loop.
  void deliver() { deliver(UINT64_MAX); }
  /// The same for about `limit` changes, as the loop does.
  void deliverSome() { deliver(limit_); }
  /// Whether the last delivery left no change for another one.
  bool isUpToDate() const { return isUpToDate_; }

 private:
  void deliver(std::uint64_t limit);
  void mount();
  void unwatch();
  void lookAgain();

  Loop& loop_;
  TablePair& tables_;
  Loop::Handler told_;
  std::uint64_t limit_;
  bool isUpToDate_ = false;
  Timer again_;
};

/// Calls `visit` for each row of a walk. At a damaged row the walk ends, as the machines' walks do.
template <class Table, class Walk, class Visit>
void forEachRow(Table const& table, Walk&& walk, Visit&& visit) {
  while (auto const* const row = QorEvpn::nextRow(table, walk)) visit(*row);
}

}  // namespace Agent
