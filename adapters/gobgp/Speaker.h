/// Gobgp::Speaker: a site's BGP speaker (GoBGP 3) as a source of EVPN's events, and as the announcer of what
/// the site exports.
///
///   exported rows ─► OwnRoutes ─► routes of the speaker's own ─► neighbours
///   events        ◄─ LearnedRoutes ◄─ best routes that have a neighbour ◄─ neighbours
///
/// After it is connected it goes
///
///   1  GetBgp      a speaker that knows this interface and runs BGP
///   2  WatchEvent  changes from now on; told when the watch stands
///   3  ListPath    all routes; one that the watch has told already is known better by the watch
///   4  ListPeer    every session; again at each change of one, and now and then to see that the speaker
///   answers
///
/// and is synced when the routes are listed and the sessions have settled. A speaker that was started again
/// lists nothing until its neighbours have told it all they know, and there is no mark for that: so each
/// session that is not up yet is waited for, for `settle` at most and unless it has been down for longer than
/// that, and one that is new must have been quiet for `quiet`.
///
/// The capability event is true while a session that carries EVPN is up, and false after none has been for
/// `settle`: one that falls and comes again takes back nothing that this site exports.
///
/// Own routes are sent after beginSending(), and after the list: what the speaker has already is not sent
/// again, and what it has and the site exports no more is withdrawn. A batch is in flight at a time. Routes
/// without a neighbour and with another RD than this site's are left alone.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <unordered_set>

#include "VxlanController/QorEvpnValues.h"
#include "adapters/gobgp/Channel.h"
#include "adapters/gobgp/LearnedRoutes.h"
#include "adapters/gobgp/OwnRoutes.h"
#include "agent/base/Source.h"

namespace Gobgp {

class Speaker {
 public:
  struct Options {
    std::string endpoint;  ///< HOST:PORT, as Agent::HostPort takes it.
    Identity identity;
    std::chrono::milliseconds answer{10'000};  ///< How long its first answer may take.
    std::chrono::milliseconds settle{30'000};
    std::chrono::milliseconds quiet{2'000};
    std::chrono::milliseconds retryMin{1'000};
    std::chrono::milliseconds retryMax{30'000};
  };

  /// Begins to connect in the loop's next turn. Raises std::invalid_argument for an endpoint that is none.
  Speaker(Agent::Loop& loop, Options options, Agent::SourceHandlers handlers);
  Speaker(Speaker const&) = delete;
  Speaker& operator=(Speaker const&) = delete;

  /// What the site exports, row by row, in any order and at any time.
  void hostIs(QorEvpn::Host const& row);
  void hostDel(QorEvpn::MacVniPair const& key);
  void floodIs(QorEvpn::VniVtepPair const& key);
  void floodDel(QorEvpn::VniVtepPair const& key);
  /// What the site exports is whole: only now routes of the speaker's own may be withdrawn, or announced.
  void beginSending();

  std::string const& endpoint() const { return options_.endpoint; }
  Agent::SourceState state() const { return state_; }
  /// What is known of the route of a row: {"wanted": {"vtep": .., "seq": ..}, "announced": .., "waiting":
  /// false}; null where there is none. `announced`: as the speaker has it.
  nlohmann::ordered_json route(RowKey const& key) const;
  /// For people: endpoint, state, since when, entries, sessions, last error.
  nlohmann::ordered_json show() const;

 private:
  using Clock = std::chrono::steady_clock;
  struct Session {
    std::string address;
    bool isUp = false;
    bool isAwaited = false;  ///< Its routes may not all be here yet.
  };

  void connect();
  void fail(std::string const& cause);
  void stateIs(Agent::SourceState state, std::string const& cause);
  /// The channel's call, whose failure is the speaker's.
  template <class Answer>
  void call(char const* method, google::protobuf::MessageLite const& request,
            std::function<void(Answer const&)> take, std::function<void()> end,
            std::chrono::milliseconds limit);

  void askBgp();
  void watchEvents();
  void takeEvent(apipb::WatchEventResponse const& event);
  void listPaths();
  void takePath(apipb::Path const& path, bool isGone);
  void listPeers();
  void takePeer(apipb::Peer const& peer);
  void peersListed();
  void settleSessions();
  void capabilityIs(bool capability);
  void drain();
  void rest();
  void announce();
  void batchEnded(Status const& status);

  Agent::Loop& loop_;
  Options options_;
  Agent::HostPort address_;
  Agent::SourceHandlers handlers_;
  std::unique_ptr<Channel> channel_;
  Agent::Timer retry_;
  Agent::Timer poll_;
  Agent::Timer rest_;
  Agent::Timer fall_;
  std::chrono::milliseconds pause_;

  Agent::SourceState state_ = Agent::SourceState::connecting;
  std::chrono::system_clock::time_point since_ = std::chrono::system_clock::now();
  std::string lastError_;

  LearnedRoutes learned_;
  std::deque<LearnedRoutes> former_;         ///< Of connections that failed, to be freed bit by bit.
  std::unordered_set<std::string> watched_;  ///< Routes that the watch told while they were listed.
  bool isWatching_ = false;
  bool isListed_ = false;
  std::optional<Clock::time_point> connected_;
  Clock::time_point lastRoute_;

  std::vector<Session> sessions_;
  std::vector<Session> listing_;
  bool listsPeers_ = false;
  bool peersChanged_ = false;
  bool peersKnown_ = false;
  bool wasAwaited_ = false;  ///< A session that came up while we looked: its routes may be on their way.
  std::optional<bool> capability_;

  OwnRoutes own_;
  std::vector<RowKey> batch_;
  std::size_t oneByOne_ = 0;  ///< So many routes are sent alone, to find the one that is refused.
  std::uint64_t sent_ = 0;
  std::uint64_t refused_ = 0;
  bool isSending_ = false;
};

}  // namespace Gobgp
