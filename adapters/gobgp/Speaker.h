/// Gobgp::Speaker: a site's BGP speaker (GoBGP 3): a source of EVPN events, and the announcer of the rows
/// that the site exports.
///
///   exported rows ─► OwnRoutes ─► routes of the speaker's own ─► neighbours
///   events        ◄─ LearnedRoutes ◄─ best routes that have a neighbour ◄─ neighbours
///
/// After connecting it makes these calls:
///
///   1  GetBgp      checks that the speaker knows this interface and runs BGP
///   2  WatchEvent  gives changes from now on
///   3  ListPath    gives all routes; a route that the watch has given already is ignored
///   4  ListPeer    gives every session; repeated at each change of a session, and regularly, to see that the
///                  speaker still answers
///
/// The source is synced when the routes are listed and the sessions have settled. A speaker that was started
/// again has no routes until its neighbours have sent theirs, and the interface has no mark for the end of
/// that. So the source waits for each session that is not up, for `settle` at most, and not for a session
/// that has been down for longer than `settle`. After a session has come up, no route must have come for
/// `quiet`.
///
/// The event `capability` is true while a session that carries EVPN is up, and false when none has been up
/// for `settle`. So a session that fails and comes up again withdraws nothing that this site exports.
///
/// This site's routes are sent after beginSending() and after ListPath: a route that the speaker has already
/// is not sent again, and a route that the speaker has but the site no longer exports is withdrawn. One batch
/// is in flight at a time. Routes of the speaker's own with an RD of another site are not touched.
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
    std::chrono::milliseconds answer{10'000};  ///< How long the first answer of a call may take.
    std::chrono::milliseconds settle{30'000};
    std::chrono::milliseconds quiet{2'000};
    std::chrono::milliseconds retryMin{1'000};
    std::chrono::milliseconds retryMax{30'000};
  };

  /// Connects in the loop's next turn. Raises std::invalid_argument for a wrong endpoint.
  Speaker(Agent::Loop& loop, Options options, Agent::SourceHandlers handlers);
  Speaker(Speaker const&) = delete;
  Speaker& operator=(Speaker const&) = delete;

  // The rows that the site exports, in any order and at any time.
  void hostIs(QorEvpn::Host const& row);
  void hostDel(QorEvpn::MacVniPair const& key);
  void floodIs(QorEvpn::VniVtepPair const& key);
  void floodDel(QorEvpn::VniVtepPair const& key);
  /// All rows that the site exports have been given. Before this call no route is announced or withdrawn.
  void beginSending();

  std::string const& endpoint() const { return options_.endpoint; }
  Agent::SourceState state() const { return state_; }
  /// The state of a row's route: {"wanted": {"vtep": .., "seq": ..}, "announced": .., "waiting": false};
  /// `wanted` and `announced` (the speaker's route) are null if there is none.
  nlohmann::ordered_json route(RowKey const& key) const;
  /// For people: endpoint, state, time of its last change, entries, sessions, last error.
  nlohmann::ordered_json show() const;

 private:
  using Clock = std::chrono::steady_clock;
  struct Session {
    std::string address;
    bool isUp = false;
    bool isAwaited = false;  ///< Some of its routes may still be missing.
  };

  void connect();
  void fail(std::string const& cause);
  void stateIs(Agent::SourceState state, std::string const& cause);
  /// Makes a call on the channel. If the call fails, the connection to the speaker fails.
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

  LearnedRoutes learnedRoutes_;
  std::deque<LearnedRoutes> former_;         ///< Routes of former connections, freed a part a turn.
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
  bool wasAwaited_ = false;  ///< A session came up during the listing; its routes may still come.
  std::optional<bool> capability_;

  OwnRoutes own_;
  std::vector<RowKey> batch_;
  std::size_t oneByOne_ = 0;  ///< How many routes are still sent one by one, to find the one that is refused.
  std::uint64_t sent_ = 0;
  std::uint64_t refused_ = 0;
  bool isSending_ = false;
};

}  // namespace Gobgp
