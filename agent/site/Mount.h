/// Mounting a site's tables, with errors for people: what the agent and the EVPN side do at their start.
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

/// A table that cannot be written. The message names the table, the status and what to do about it.
class MountError : public std::runtime_error {
 public:
  MountError(Brine::MountOptions const& options, Brine::MountStatus status, std::string const& detail);
};

/// Mounts a table for writing or raises MountError. A writer that was killed holds the table until the system
/// has ended its process, so a busy table is tried again for a second. `repair`: damaged rows are dropped.
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

/// The host and the flood table of one folder of a site. `name` ("exported") comes before the tables' own
/// names.
struct TablePair {
  TablePair(std::string const& name, std::string folder);

  /// Raises MountError.
  void mountAsWriter(bool repair);
  /// TablePair that are not there yet mount themselves at a later delivery.
  void mountAsReader();
  void unmount();
  /// Reader: notifies of what has changed, of some `limit` changes each; raises what an observer raises. True
  /// where nothing is left for another delivery.
  bool deliver(std::uint64_t limit = UINT64_MAX);
  /// Writer: wakes readers, at the end of a turn of the loop.
  void endTurn();
  /// How many there are in both.
  std::uint64_t rows() const;
  /// Reader: deliveries that compared a whole table, since changes came faster than they were taken.
  std::uint64_t laps() const;

  std::string folder;
  Orb::Ptr<QorEvpn::HostTable> host;
  Orb::Ptr<QorEvpn::FloodTable> flood;
};

/// True where a reader waits for what nobody announces: memory, descriptors, a directory that may be read. It
/// looks again after `lookAgainDelay`.
bool mustLookAgain(Brine::MountStatus status);
inline constexpr std::chrono::seconds lookAgainDelay{1};

/// How many changes a turn takes from a table where others wait for the loop: a millisecond or two, whatever
/// is notified of them.
inline constexpr std::uint64_t deliveryLimit = 1024;

/// Has a reader's two tables delivered by the loop: when one has something to tell, and now and then while
/// one must look again.
class Follower {
 public:
  /// `told` is called after each delivery. The tables outlive the follower and are mounted by it, as
  /// keyshadow readers. The loop delivers some `limit` changes a turn.
  Follower(Loop& loop, TablePair& tables, Loop::Handler told, std::uint64_t limit = UINT64_MAX);
  ~Follower();
  Follower(Follower const&) = delete;
  Follower& operator=(Follower const&) = delete;

  /// Notifies the tables' observers now, without waiting for the loop.
  void deliver() { deliver(UINT64_MAX); }
  /// The same of a part, as the loop does.
  void deliverSome() { deliver(limit_); }
  /// The last delivery left nothing for another.
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

/// Calls `visit` for each row of a walk, which ends at damage as the machines' walks do.
template <class Table, class Walk, class Visit>
void forEachRow(Table const& table, Walk&& walk, Visit&& visit) {
  while (auto const* const row = QorEvpn::nextRow(table, walk)) visit(*row);
}

}  // namespace Agent
