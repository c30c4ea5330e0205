/// Agent::Sources: listens to the sources of one side of a site, the controller's or EVPN's, and tells the
/// ledgers of that side what each one holds.
///
///   a source says           its ledger
///   syncing                 begin(): what it told before is kept beside what it tells now
///   an entry                apply(), unless it cannot be: then it is refused, named and counted
///   synced                  whole(): what was kept goes
///   lost, for `hold`        withdraw(): all of it goes, with a line in the log
///
/// What goes does so a part a turn, so that a full table holds up nobody else. What a source tells meanwhile
/// counts at once, and where it begins to tell its state again, what has not gone yet is kept.
///
/// settled(), once: every source is synced or given up, so nothing of an earlier run has to be kept any
/// longer. A source is given up when it has been connecting or lost for `hold`. One that tells its state
/// without an end is not, nor is one that was not understood: who knows what it would still say.
///
/// `enabled` and `capability` count at once, but for this: where entries are kept, a recording's count once
/// it has been read, and `false` from a stream once it is synced, for it may be history that is told again.
#pragma once

#include <array>
#include <chrono>
#include <ctime>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <vector>

#include "agent/base/Loop.h"
#include "agent/base/Source.h"

namespace Agent {

/// Takes lines for people.
using Log = std::function<void(std::string const&)>;
struct Logs {
  Log info, warning;
};

/// Of what is replayed now (agent/record/Replay.h), in seconds of Unix time; 0: nothing is.
inline std::uint32_t replayedTime = 0;
/// Seconds of Unix time, for when an entry was told.
inline std::uint32_t nowInSeconds() {
  return replayedTime != 0 ? replayedTime : static_cast<std::uint32_t>(std::time(nullptr));
}

/// How many entries go in a turn: some milliseconds, whatever is notified of them.
inline constexpr std::size_t sweepLimit = 4096;

/// What a side's sources hold, kept apart by source and merged by its rule.
class SourceLedgers {
 public:
  virtual ~SourceLedgers() = default;
  /// A source comes to be. `isNumbered`: its entries have sequence numbers of their own.
  virtual void sourceIs(SourceId source, bool isNumbered) = 0;
  virtual void begin(SourceId source) = 0;
  virtual void apply(SourceId source, Event const& event) = 0;
  /// `enabled` or `capability`.
  virtual void flag(SourceId source, Event const& event) = 0;
  // Each takes some `sweepLimit` entries out of force, and is called again until it returns true: none is
  // left.
  virtual bool whole(SourceId source) = 0;
  virtual bool withdraw(SourceId source) = 0;
  virtual bool settled() = 0;
  /// How many entries a source has there.
  virtual std::size_t entries(SourceId source) const = 0;
  /// Tells all that is held, `earlierRun`'s first, as lines of a recording: what comes to other ledgers in
  /// this way, or is there when they are made, makes them hold the same.
  using Tell = std::function<void(SourceId, Event const&)>;
  virtual void tellState(Tell const& tell) const = 0;
};

class Sources {
 public:
  struct About {
    std::string name;      ///< For people: "leaf1", "events.jsonl".
    std::string kind;      ///< "feed", "switch", "speaker".
    std::string endpoint;  ///< "unix:/run/db.sock".
    bool isNumbered = true;
    bool isRecording = false;  ///< Read from its beginning to its end, as fast as it goes.
  };

  /// `hold` of 0: for ever.
  Sources(Loop& loop, SourceLedgers& ledgers, std::chrono::seconds hold, Logs logs);
  Sources(Sources const&) = delete;
  Sources& operator=(Sources const&) = delete;

  /// Adds a source, before the loop turns; what is returned is for the source to call.
  SourceHandlers add(About about);

  /// Who stands before the ledgers from now on, and hands on what he is told. Call it before add().
  void ledgersAre(SourceLedgers& ledgers) { ledgers_ = &ledgers; }

  /// Takes a part of what an earlier run left out of force, as if every source was synced; true where none is
  /// left.
  bool settle() { return isSettled_ = ledgers_->settled(); }
  /// Does at once what is left to do, where no further turn comes.
  void finish();

  /// How many were added.
  std::size_t size() const { return records_.size(); }
  /// Also of `earlierRun`.
  std::string name(SourceId source) const {
    return source == earlierRun ? "earlier run" : records_[source].about.name;
  }
  bool isNumbered(SourceId source) const { return records_[source].about.isNumbered; }
  bool isSettled() const { return isSettled_; }
  /// Entries of an earlier run are being kept.
  bool isKeeping() const { return keepsEarlier_ && !isSettled_; }
  /// Whether there are any.
  void keepsEarlierIs(bool keepsEarlier) { keepsEarlier_ = keepsEarlier; }
  /// [{"name": "leaf1", "kind": "switch", "endpoint": "unix:/run/db.sock", "state": "synced",
  ///   "since": 1763796324, "entries": 12, "events": {"mac": 14, "mac-del": 1}, "refused": {"group MAC": 1},
  ///   "givenUp": false, "lastError": ""}, ..]
  /// `since` in seconds of Unix time; `lastError` also where it is over.
  nlohmann::ordered_json state() const;

 private:
  /// What of a source's entries is on its way out of force: nothing, what was kept, or all.
  enum class Sweep : std::uint8_t { none, whole, withdraw };
  struct Record {
    About about;
    SourceState state = SourceState::connecting;
    std::chrono::system_clock::time_point since = std::chrono::system_clock::now();
    std::string error;
    std::map<std::string, std::uint64_t, std::less<>> refused;
    std::array<std::uint64_t, opCount> events{};  ///< How many it told, by op, refused ones too.
    std::map<Op, Event> flags;                    ///< That wait.
    bool hasTold = false;                         ///< In this run, and not withdrawn.
    bool isAgain = false;                         ///< It tells what it told before.
    bool givenUp = false;
    bool isOverdue = false;  ///< `hold` has passed since it was last synced.
    Sweep sweep = Sweep::none;
    std::unique_ptr<Timer> timer;
  };

  void event(SourceId source, Event const& event);
  void state(SourceId source, SourceState state, std::string const& cause);
  void flag(SourceId source, Event const& event);
  void applyFlags(SourceId source);
  bool refuse(Record& record, Event const& event);
  void holdEnds(SourceId source);
  void giveUp(SourceId source);
  void sweep();
  bool sweepSome();
  void sweepEnds(SourceId source);
  bool canSettle() const;

  Loop& loop_;
  SourceLedgers* ledgers_;
  bool keepsEarlier_ = false;
  std::chrono::seconds hold_;
  Logs logs_;
  std::vector<Record> records_;
  bool isSettled_ = false;
  Timer sweep_;  ///< Until the next turn, while entries are on their way out.
};

/// "connecting", "syncing", "synced", "lost".
std::string_view toText(SourceState state);

/// Why an entry cannot be ("group MAC"), or nothing: a host's MAC is no group and not 00:00:00:00:00:00,
/// which stands for all BUM traffic in flood lists and multipath entries; a VTEP is neither 0.0.0.0 nor
/// multicast nor broadcast. What takes an entry back is never refused.
std::string_view refusalOf(Event const& event);

}  // namespace Agent
