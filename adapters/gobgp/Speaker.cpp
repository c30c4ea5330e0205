#include "adapters/gobgp/Speaker.h"

#include <algorithm>

#include "Orb/Text.h"

namespace Gobgp {

using Agent::SourceState;
using namespace std::chrono_literals;

namespace {

constexpr std::size_t batchLimit = 256;   // the speaker answers no other client meanwhile
constexpr std::size_t drainLimit = 1000;  // a turn
constexpr auto patience = 6;              // factor of `answer` for later answers: the speaker may be busy
constexpr auto pollPause = 10s;
constexpr auto settlePause = 250ms;
constexpr std::uint32_t established = 6;
constexpr std::uint32_t endOfInit = 2;

bool carriesEvpn(apipb::Peer const& peer) {
  auto const& capabilities = peer.state().remote_cap();
  return std::any_of(capabilities.begin(), capabilities.end(), [](apipb::Any const& any) {
    apipb::MultiProtocolCapability capability;
    return any.type_url().ends_with("MultiProtocolCapability") && capability.ParseFromString(any.value()) &&
           isEvpn(capability.family());
  });
}

bool isForEvpn(apipb::Peer const& peer) {
  auto const& families = peer.afi_safis();
  return std::any_of(families.begin(), families.end(), [](apipb::AfiSafi const& each) {
    return each.config().enabled() && isEvpn(each.config().family());
  });
}

std::chrono::nanoseconds ageOf(apipb::Timestamp const& time) {
  auto const now = std::chrono::system_clock::now().time_since_epoch();
  return std::max<std::chrono::nanoseconds>(now - std::chrono::seconds(time.seconds()), 0s);
}

RowKey keyOf(QorEvpn::MacVniPair const& key) { return {key.vni(), key.macAddr()}; }
RowKey keyOf(QorEvpn::VniVtepPair const& key) { return {key.vni(), key.vtepAddr()}; }

std::string textOf(RowKey const& key) {
  return "VNI " + Orb::toText(key.vni()) +
         (key.isHost() ? " MAC " + Orb::toText(key.mac()) : " flood VTEP " + Orb::toText(key.vtep()));
}

}  // namespace

Speaker::Speaker(Agent::Loop& loop, Options options, Agent::SourceHandlers handlers)
    : loop_(loop),
      options_(std::move(options)),
      address_(options_.endpoint),
      handlers_(std::move(handlers)),
      retry_(loop, [this] { connect(); }),
      poll_(loop, [this] { listPeers(); }),
      rest_(loop, [this] { rest(); }),
      fall_(loop, [this] { capabilityIs(false); }),
      pause_(options_.retryMin),
      own_(options_.identity) {
  retry_.start(0s);
}

// ---- The connection ---------------------------------------------------------------------------------------

void Speaker::connect() {
  channel_ = std::make_unique<Channel>(loop_, address_, [this](std::string const& cause) { fail(cause); });
  askBgp();
}

void Speaker::fail(std::string const& cause) {
  channel_.reset();
  poll_.cancel();
  rest_.cancel();
  fall_.cancel();
  isWatching_ = isListed_ = peersKnown_ = listsPeers_ = peersChanged_ = wasAwaited_ = false;
  sessions_.clear();
  batch_.clear();
  auto const pause = pause_;
  pause_ = std::min(2 * pause_, options_.retryMax);
  retry_.start(pause);
  lastError_ = cause;
  bool const wasThere = state_ == SourceState::syncing || state_ == SourceState::synced;
  auto const seconds = std::chrono::ceil<std::chrono::seconds>(pause).count();
  stateIs(wasThere ? SourceState::lost : state_,
          options_.endpoint + ": " + cause + "; tries again in " + std::to_string(seconds) + " s");
}

void Speaker::stateIs(SourceState state, std::string const& cause) {
  if (state != state_) since_ = std::chrono::system_clock::now();
  state_ = state;
  handlers_.state(state, cause);
}

template <class Answer>
void Speaker::call(char const* method, google::protobuf::MessageLite const& request,
                   std::function<void(Answer const&)> take, std::function<void()> end,
                   std::chrono::milliseconds limit) {
  auto const message = [this, method, take = std::move(take)](std::string_view octets) {
    Answer answer;
    if (!answer.ParseFromArray(octets.data(), static_cast<int>(octets.size()))) {
      return fail(std::string("the answer to ") + method + " cannot be read");
    }
    take(answer);
  };
  auto const ended = [this, method, end = std::move(end)](Status const& status) {
    if (status.isOk()) return end();
    std::string const what = status.code == Status::unimplemented
                                 ? "the speaker does not have this interface (GoBGP 3): "
                                 : std::string(method) + ": ";
    fail(what + status.message);
  };
  channel_->call(std::string("/apipb.GobgpApi/") + method, request.SerializeAsString(), {message, ended},
                 limit);
}

void Speaker::askBgp() {
  call<apipb::GetBgpResponse>(
      "GetBgp", apipb::Empty(),
      [this](apipb::GetBgpResponse const& answer) {
        if (answer.global().asn() == 0) return fail("the speaker runs no BGP yet");
        former_.push_back(std::exchange(learnedRoutes_, {}));
        rest_.start(0s);
        own_.forgetPresent();
        connected_ = lastRoute_ = Clock::now();
        stateIs(SourceState::syncing, {});
        watchEvents();
      },
      [] {}, options_.answer);
}

// ---- Routes of neighbours ---------------------------------------------------------------------------------

void Speaker::watchEvents() {
  apipb::WatchEventRequest request;
  request.mutable_peer();
  request.mutable_table()->add_filters();
  watched_.clear();
  call<apipb::WatchEventResponse>(
      "WatchEvent", request, [this](auto const& event) { takeEvent(event); },
      [this] { fail("the speaker ended the watch"); }, 0ms);
}

void Speaker::takeEvent(apipb::WatchEventResponse const& event) {
  for (apipb::Path const& path : event.table().paths()) {
    if (!isEvpn(path.family())) continue;
    if (!isListed_) watched_.insert(routeKeyOf(path));
    if (path.is_withdraw() && !isLearned(path)) own_.presentDel(path);
    takePath(path, path.is_withdraw() || !isLearned(path));
  }
  if (event.has_peer()) {
    if (event.peer().type() == endOfInit && !std::exchange(isWatching_, true)) listPaths();
    listPeers();
  }
  if (isListed_) {
    drain();
    announce();
  }
}

void Speaker::listPaths() {
  apipb::ListPathRequest request;
  setEvpn(*request.mutable_family());
  request.set_enable_attribute_binary(true);
  call<apipb::ListPathResponse>(
      "ListPath", request,
      [this](apipb::ListPathResponse const& answer) {
        for (apipb::Path const& path : answer.destination().paths()) {
          if (!isLearned(path)) own_.presentIs(path);
          bool const isKnownBetter = watched_.contains(routeKeyOf(path));
          if (path.best() && isLearned(path) && !isKnownBetter) takePath(path, false);
        }
      },
      [this] {
        isListed_ = true;
        watched_.clear();
        own_.compare();
        drain();
        announce();
      },
      patience * options_.answer);
}

void Speaker::takePath(apipb::Path const& path, bool isGone) {
  lastRoute_ = Clock::now();
  if (auto const cause = learnedRoutes_.take(path, isGone)) {
    handlers_.report(options_.endpoint + ": a route " + *cause + " from " + path.neighbor_ip() +
                     " is left out, and further ones like it");
  }
}

/// Tells differences, at most `drainLimit` a turn.
void Speaker::drain() {
  bool const isMore = learnedRoutes_.drain(drainLimit, handlers_.event);
  if (isMore && !rest_.isRunning()) rest_.start(0s);
  settleSessions();
}

/// Does what earlier turns left undone.
void Speaker::rest() {
  if (!former_.empty() && !former_.front().shrink(drainLimit)) former_.pop_front();
  if (!former_.empty()) rest_.start(0s);
  if (isListed_) drain();
}

// ---- Sessions ---------------------------------------------------------------------------------------------

void Speaker::listPeers() {
  peersChanged_ = true;
  if (!isWatching_ || listsPeers_) return;
  listsPeers_ = true;
  peersChanged_ = false;
  listing_.clear();
  call<apipb::ListPeerResponse>(
      "ListPeer", apipb::Empty(), [this](auto const& answer) { takePeer(answer.peer()); },
      [this] { peersListed(); }, patience * options_.answer);
}

void Speaker::takePeer(apipb::Peer const& peer) {
  if (!isForEvpn(peer) || peer.state().admin_state() != 0) return;
  Session session{.address = peer.conf().neighbor_address()};
  auto const& timers = peer.timers().state();
  session.isUp = peer.state().session_state() == established && carriesEvpn(peer);
  if (session.isUp) {
    session.isAwaited = ageOf(timers.uptime()) < options_.quiet;
  } else {
    session.isAwaited = timers.downtime().seconds() == 0 || ageOf(timers.downtime()) < options_.settle;
  }
  listing_.push_back(session);
}

void Speaker::peersListed() {
  listsPeers_ = false;
  peersKnown_ = true;
  sessions_.swap(listing_);
  bool const isAnyUp =
      std::any_of(sessions_.begin(), sessions_.end(), [](auto const& each) { return each.isUp; });
  if (isAnyUp) {
    fall_.cancel();
    capabilityIs(true);
  } else if (capability_ != false && !fall_.isRunning()) {
    fall_.start(options_.settle);
  }
  settleSessions();
  if (peersChanged_) return listPeers();
  if (state_ == SourceState::synced) {
    poll_.start(pollPause);
  } else {
    poll_.start(settlePause);
  }
}

void Speaker::settleSessions() {
  if (state_ != SourceState::syncing || !isListed_ || !peersKnown_ || !learnedRoutes_.isDrained()) return;
  auto const now = Clock::now();
  bool const isAwaited =
      std::any_of(sessions_.begin(), sessions_.end(), [](auto const& each) { return each.isAwaited; });
  bool const isMoving = isAwaited || now - lastRoute_ < options_.quiet;
  bool const isFresh = isAwaited || wasAwaited_;
  wasAwaited_ = isFresh;
  if (isFresh && isMoving && now - *connected_ < options_.settle) return;
  pause_ = options_.retryMin;
  stateIs(SourceState::synced, {});
}

void Speaker::capabilityIs(bool capability) {
  if (capability_ == capability) return;
  capability_ = capability;
  Agent::Event event;
  event.from = Agent::Origin::evpn;
  event.op = Agent::Op::capability;
  event.value = capability;
  handlers_.event(event);
}

// ---- Routes of this site ----------------------------------------------------------------------------------

void Speaker::hostIs(QorEvpn::Host const& row) {
  own_.wantedIs(keyOf(row.key()), RowValue{row.vtepAddr(), row.seqNo()});
  announce();
}

void Speaker::hostDel(QorEvpn::MacVniPair const& key) {
  own_.wantedIs(keyOf(key), std::nullopt);
  announce();
}

void Speaker::floodIs(QorEvpn::VniVtepPair const& key) {
  own_.wantedIs(keyOf(key), RowValue{key.vtepAddr(), Seqno32()});
  announce();
}

void Speaker::floodDel(QorEvpn::VniVtepPair const& key) {
  own_.wantedIs(keyOf(key), std::nullopt);
  announce();
}

void Speaker::beginSending() {
  isSending_ = true;
  announce();
}

void Speaker::announce() {
  if (!isSending_ || !isListed_ || !batch_.empty()) return;
  apipb::AddPathStreamRequest request;
  batch_ = own_.takeBatch(oneByOne_ != 0 ? 1 : batchLimit, request);
  if (batch_.empty()) return;
  sent_ += batch_.size();
  channel_->call("/apipb.GobgpApi/AddPathStream", request.SerializeAsString(),
                 {[](std::string_view) {}, [this](Status const& status) { batchEnded(status); }},
                 patience * options_.answer);
}

void Speaker::batchEnded(Status const& status) {
  auto const batch = std::exchange(batch_, {});
  if (oneByOne_ != 0) --oneByOne_;
  if (!status.isOk() && batch.size() > 1) {
    oneByOne_ = batch.size();
    own_.giveBack(batch);
  } else if (!status.isOk()) {
    ++refused_;
    lastError_ = "the route of " + textOf(batch[0]) + " is refused: " + status.message;
    handlers_.report(options_.endpoint + ": " + lastError_);
  }
  announce();
}

// ---- For people -------------------------------------------------------------------------------------------

nlohmann::ordered_json Speaker::route(RowKey const& key) const {
  auto const textOf = [](std::optional<RowValue> const& value) -> nlohmann::ordered_json {
    if (!value) return nullptr;
    return {{"vtep", Orb::toText(value->vtep)}, {"seq", value->seq.value()}};
  };
  OwnRoutes::State const state = own_.stateOf(key);
  bool const isUnderWay = std::find(batch_.begin(), batch_.end(), key) != batch_.end();
  return {{"wanted", textOf(state.wanted)},
          {"announced", textOf(state.present)},
          {"waiting", state.isQueued || isUnderWay}};
}

nlohmann::ordered_json Speaker::show() const {
  constexpr std::string_view names[] = {"connecting", "syncing", "synced", "lost"};
  auto sessions = nlohmann::ordered_json::array();
  for (Session const& each : sessions_) {
    sessions.push_back({{"neighbour", each.address}, {"up", each.isUp}});
  }
  return {{"endpoint", options_.endpoint},
          {"state", names[static_cast<std::size_t>(state_)]},
          {"since", std::chrono::duration_cast<std::chrono::seconds>(since_.time_since_epoch()).count()},
          {"capability", capability_ == true},
          {"sessions", sessions},
          {"learned", {{"hosts", learnedRoutes_.hosts()}, {"floods", learnedRoutes_.floods()}}},
          {"unusable", learnedRoutes_.unusable()},
          {"as", options_.identity.as},
          {"routerId", Orb::toText(options_.identity.routerId)},
          {"announced", own_.wanted()},
          {"waiting", own_.queued() + batch_.size()},
          {"sent", sent_},
          {"refusedRoutes", refused_},
          {"lastError", lastError_}};
}

}  // namespace Gobgp
