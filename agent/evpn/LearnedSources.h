/// Agent::LearnedSources: what sources of EVPN events hold - speakers, feeds, other sites - each in a ledger
/// of its own, and merged into the tables that the agent reads.
///
/// Rule: of several entries of a MAC the highest sequence number wins, then the lowest VTEP. A flood row is
/// there if any source has it. The EVPN side is capable if any source says so; it has an opinion if any has.
///
/// Rows that an earlier run left stay until every source is whole or given up; until then one with a higher
/// sequence number than what sources tell stays as it is, for a recording tells what was before what is.
/// Likewise what a source told before it begins to tell its state again.
#pragma once

#include <map>

#include "Orb/FlatMap.h"
#include "agent/evpn/Learned.h"
#include "agent/feed/Sources.h"

namespace Agent {

/// Of two rows of a MAC, whether the left one stands.
bool outranks(QorEvpn::Host const& left, QorEvpn::Host const& right);

/// A row as the event that tells it, and back.
Event eventOf(QorEvpn::Host const& row);
Event eventOf(QorEvpn::VniVtepPair const& flood);
QorEvpn::Host hostOf(Event const& event);

class LearnedSources : public SourceLedgers {
 public:
  /// What the tables hold now is an earlier run's.
  explicit LearnedSources(Learned& learned);

  /// The capability is assumed unless a source says that it is on.
  void assumeCapability();

  void sourceIs(SourceId source, bool isNumbered) override;
  void begin(SourceId source) override;
  /// Takes `mac`, `flood` and what takes them back.
  void apply(SourceId source, Event const& event) override;
  void flag(SourceId source, Event const& event) override;
  bool whole(SourceId source) override;
  bool withdraw(SourceId source) override;
  bool settled() override;
  std::size_t entries(SourceId source) const override;
  void tellState(Tell const& tell) const override;

  /// Calls `visit` with what each source, and an earlier run last, tells of a key.
  void forEachClaim(
      QorEvpn::MacVniPair const& key,
      std::function<void(SourceId, QorEvpn::Host const&, std::uint32_t since)> const& visit) const;
  void forEachClaim(QorEvpn::VniVtepPair const& key,
                    std::function<void(SourceId, std::uint32_t since)> const& visit) const;

 private:
  struct HostClaim {
    QorEvpn::Host row;
    std::uint32_t since = 0;  ///< When it was told so, in seconds of Unix time; 0: in an earlier run.
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

  /// Of what one told before and tells now, what counts.
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
