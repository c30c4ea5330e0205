/// Agent::LearnedSources: the ledgers of the sources of EVPN events (speakers, feeds, other sites), one a
/// source, and their merge into the tables that the agent reads.
///
/// Rule: of several entries of a MAC the one with the highest sequence number wins, then the one with the
/// lowest VTEP. A flood row exists if any source has it. The capability is on if any source says so, off if
/// sources say only that, and not said if no source says anything.
///
/// Rows that an earlier run left are kept until every source is synced or given up. Until then such a row
/// stays in force if its sequence number is higher than that of every source's entry, since a recording tells
/// past entries first. The same holds for entries that a source told before it began to tell its state again.
#pragma once

#include <map>

#include "Orb/FlatMap.h"
#include "agent/evpn/Learned.h"
#include "agent/feed/Sources.h"

namespace Agent {

/// Whether the left one of two rows of a MAC wins.
bool outranks(QorEvpn::Host const& left, QorEvpn::Host const& right);

/// Converts a row to the event that tells it, and back.
Event eventOf(QorEvpn::Host const& row);
Event eventOf(QorEvpn::VniVtepPair const& flood);
QorEvpn::Host hostOf(Event const& event);

class LearnedSources : public SourceLedgers {
 public:
  /// Takes the rows that the tables hold now for those of an earlier run.
  explicit LearnedSources(Learned& learned);

  /// The capability is `assumed` unless a source says that it is on.
  void assumeCapability();

  void sourceIs(SourceId source, bool isNumbered) override;
  void begin(SourceId source) override;
  /// Takes `mac`, `mac-del`, `flood` and `flood-del`.
  void apply(SourceId source, Event const& event) override;
  void flag(SourceId source, Event const& event) override;
  bool whole(SourceId source) override;
  bool withdraw(SourceId source) override;
  bool settled() override;
  std::size_t entries(SourceId source) const override;
  void tellState(Tell const& tell) const override;

  /// Calls `visit` with each source's entry of a key; the earlier run comes last.
  void forEachClaim(
      QorEvpn::MacVniPair const& key,
      std::function<void(SourceId, QorEvpn::Host const&, std::uint32_t since)> const& visit) const;
  void forEachClaim(QorEvpn::VniVtepPair const& key,
                    std::function<void(SourceId, std::uint32_t since)> const& visit) const;

 private:
  struct HostClaim {
    QorEvpn::Host row;
    std::uint32_t since = 0;  ///< When the source told it, in seconds of Unix time; 0: in an earlier run.
    friend bool operator==(HostClaim const&, HostClaim const&) = default;
  };
  struct Ledger {
    Orb::FlatMap<QorEvpn::MacVniPair, HostClaim> hosts;
    std::map<QorEvpn::VniVtepPair, std::uint32_t> floods;  ///< Since when.
  };
  struct Record {
    Ledger told, kept;
    std::optional<bool> capability;
  };

  /// Which of a source's entries counts: the one that it told before, or the one that it tells now.
  static HostClaim const* newer(HostClaim const* before, HostClaim const* now);
  HostClaim const* best(QorEvpn::MacVniPair const& key) const;
  bool hasFlood(QorEvpn::VniVtepPair const& key) const;
  void mergeHost(QorEvpn::MacVniPair const& key);
  void mergeFlood(QorEvpn::VniVtepPair const& key);
  bool drop(Ledger& ledger, std::size_t& limit);
  void mergeState();

  Learned& learned_;
  Ledger earlier_;
  std::vector<Record> records_;
  bool isAssumed_ = false;
  bool isSettled_ = false;
};

}  // namespace Agent
