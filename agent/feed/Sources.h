/// Agent::Sources: listens to the sources of one side of a site, the controller's or EVPN's, and enters what
/// each one tells into the ledgers of that side.
///
///   a source says           call of the ledgers
///   syncing                 begin(): what it told before is kept beside what it tells now
///   an entry                apply(); an invalid entry is refused, reported and counted instead
///   synced                  whole(): entries that were kept are withdrawn
///   lost, for `hold`        withdraw(): all its entries are withdrawn, with a line in the log
///
/// Entries are withdrawn a part a turn, so that the loop handles other events in between. An entry that the
/// source tells meanwhile is in force at once. If the source begins to tell its state again meanwhile, the
/// entries that are not withdrawn yet are kept.
///
/// settled() is called once every source is synced or given up: nothing of an earlier run is kept any longer.
/// A source is given up when it has been connecting or lost for `hold`. A source that stays syncing is not
/// given up, nor is a feed with bad lines: it may still tell any entry.
///
/// `enabled` and `capability` are in force at once, with two exceptions while entries of an earlier run are
/// kept: those of a recording count when the recording has been read, and `false` from a stream counts when
/// the stream is synced, since it may be history that is repeated.
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

/// Takes a line for people.
using Log = std::function<void(std::string const&)>;
struct Logs {
  Log info, warning;
};

/// The time of the event that is replayed now (agent/record/Replay.h), in seconds of Unix time; 0 without a
/// replay.
inline std::uint32_t replayedTime = 0;
/// The time at which an entry is told, in seconds of Unix time: the replayed time or the clock's.
inline std::uint32_t nowInSeconds() {
  return replayedTime != 0 ? replayedTime : static_cast<std::uint32_t>(std::time(nullptr));
}

/// How many entries are withdrawn in a turn: some milliseconds with all their observers.
inline constexpr std::size_t sweepLimit = 4096;
/// How many MACs that were refused are kept in mind of a source, for those who ask why.
inline constexpr std::size_t refusalsKept = 4096;

/// The entries that the sources of one side hold: one ledger a source, merged by the side's rule. Sources
/// calls it, from the loop.
class SourceLedgers {
 public:
  virtual ~SourceLedgers() = default;
  /// A source is added. `isNumbered`: its entries have sequence numbers of their own.
  virtual void sourceIs(SourceId source, bool isNumbered) = 0;
  virtual void begin(SourceId source) = 0;
  virtual void apply(SourceId source, Event const& event) = 0;
  /// `enabled` or `capability`.
  virtual void flag(SourceId source, Event const& event) = 0;
  // Each withdraws about `sweepLimit` entries, and is called again until it returns true: none is left.
  virtual bool whole(SourceId source) = 0;
  virtual bool withdraw(SourceId source) = 0;
  virtual bool settled() = 0;
  /// How many entries the source's ledger holds.
  virtual std::size_t entries(SourceId source) const = 0;
  /// Calls `tell` with events of a recording that describe everything that is held, `earlierRun`'s first:
  /// ledgers to which these events are applied hold the same.
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

  /// `hold`: how long the entries of a lost source are kept; 0 is for ever.
  Sources(Loop& loop, SourceLedgers& ledgers, std::chrono::seconds hold, Logs logs);
  Sources(Sources const&) = delete;
  Sources& operator=(Sources const&) = delete;

  /// Adds a source, before the loop runs. The source calls the handlers that are returned.
  SourceHandlers add(About about);

  /// Calls `ledgers` in place of the present ledgers, to which it passes every call on. Call it before add().
  void ledgersAre(SourceLedgers& ledgers) { ledgers_ = &ledgers; }

  /// Withdraws a part of what an earlier run left, as if every source were synced. True if none is left.
  bool settle() { return isSettled_ = ledgers_->settled(); }
  /// Does at once what is left for later turns. Call it when the loop has ended.
  void finish();

  /// How many were added.
  std::size_t size() const { return records_.size(); }
  /// The source's name for people, "earlier run" for `earlierRun`.
  std::string name(SourceId source) const {
    return source == earlierRun ? "earlier run" : records_[source].about.name;
  }
  bool isNumbered(SourceId source) const { return records_[source].about.isNumbered; }
  bool isSettled() const { return isSettled_; }
  /// Whether entries of an earlier run are kept now.
  bool isKeeping() const { return keepsEarlier_ && !isSettled_; }
  /// Whether an earlier run left entries.
  void keepsEarlierIs(bool keepsEarlier) { keepsEarlier_ = keepsEarlier; }
  /// Calls `visit` with the reason for which each source's last word of a host's MAC was refused, in whatever
  /// VNI. Of a source that was refused thousands of MACs those beyond `refusalsKept` are counted only.
  void forEachRefusal(Wirix::EthAddr mac,
                      std::function<void(SourceId, Vxlan::Vni, std::string_view reason)> const& visit) const;
  /// [{"name": "leaf1", "kind": "switch", "endpoint": "unix:/run/db.sock", "state": "synced",
  ///   "since": 1763796324, "entries": 12, "events": {"mac": 14, "mac-del": 1}, "refused": {"group MAC": 1},
  ///   "givenUp": false, "lastError": ""}, ..]
  /// `since` is in seconds of Unix time; `lastError` stays when the error is over.
  nlohmann::ordered_json state() const;

 private:
  /// Which of a source's entries are being withdrawn: none, those that were kept, or all.
  enum class Sweep : std::uint8_t { none, whole, withdraw };
  struct Record {
    About about;
    SourceState state = SourceState::connecting;
    std::chrono::system_clock::time_point since = std::chrono::system_clock::now();
    std::string error;
    std::map<std::string, std::uint64_t, std::less<>> refused;
    std::map<std::pair<Wirix::EthAddr, Vxlan::Vni>, std::string_view> refusedMacs;
    std::array<std::uint64_t, opCount> events{};  ///< How many it told, by op, refused ones too.
    std::map<Op, Event> flags;                    ///< Not in force yet.
    bool hasTold = false;                         ///< In this run, and not withdrawn.
    bool isAgain = false;                         ///< It tells its state again.
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
  static void forgetRefusal(Record& record, Event const& event);
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
  Timer sweep_;  ///< Until the next turn, while entries are being withdrawn.
};

/// "connecting", "syncing", "synced", "lost".
std::string_view toText(SourceState state);

/// Why an entry is invalid ("group MAC"), or an empty text. The MAC of a host must not be a group address,
/// nor 00:00:00:00:00:00, which stands for all BUM traffic in flood lists and multipath entries. A VTEP must
/// not be
/// 0.0.0.0, multicast or broadcast. An event that removes an entry is always valid.
std::string_view refusalOf(Event const& event);

}  // namespace Agent
