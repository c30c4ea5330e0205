#include "agent/live/SpeakerSide.h"

#include <optional>

#include "Orb/StateMachine.h"
#include "Orb/Type.h"
#include "adapters/gobgp/OwnRouteList.h"
#include "adapters/gobgp/Speaker.h"
#include "agent/base/Ranges.h"
#include "agent/base/UsageError.h"
#include "agent/site/EvpnState.h"
#include "agent/site/Mount.h"

namespace Agent {

using namespace QorEvpn;

namespace {

Gobgp::Speaker::Options speakerOf(SpeakerOptions const& options) {
  if (options.as == 0 || options.routerId.empty()) throw UsageError("--speaker needs --as and --router-id");
  Gobgp::Speaker::Options result{.endpoint = options.endpoint, .identity = {options.as, {}}};
  try {
    result.identity.routerId = Wirix::IpAddr(options.routerId);
  } catch (std::exception const& error) {
    throw UsageError("--router-id " + options.routerId + ": " + error.what());
  }
  if (result.identity.routerId == Wirix::IpAddr())
    throw UsageError("--router-id " + options.routerId +
                     ": it identifies no speaker; give the speaker's own");
  try {
    HostPort const address(options.endpoint);
  } catch (std::invalid_argument const& error) {
    throw UsageError(std::string("--speaker ") + error.what());
  }
  return result;
}

}  // namespace

void SpeakerOptions::addTo(CLI::App& command) {
  CLI::Option* const speaker =
      command.add_option("--speaker", endpoint, "The BGP speaker (GoBGP 3), whose gRPC is at HOST:PORT");
  command.add_option("--as", as, "The speaker's AS: of the route targets AS:VNI")
      ->check(numberFrom("1", "4294967295"))
      ->needs(speaker);
  command.add_option("--router-id", routerId, "The speaker's router identifier: of the route distinguishers")
      ->needs(speaker);
}

void SpeakerOptions::check() const { speakerOf(*this); }

/// Has the speaker announce what the tables hold.
class SpeakerSide::Machine : public Orb::StateMachine<SpeakerSide::Machine> {
 public:
  Machine(TablePair const& exported, Gobgp::Speaker& speaker)
      : speaker_(speaker), host_(exported.host), flood_(exported.flood) {
    hostTable_.connect(this, host_);
    floodTable_.connect(this, flood_);
  }
  ~Machine() override { teardown(); }
  static Orb::TypeDescriptor const& type() {
    using A = Orb::Attributes<Machine>;
    static Orb::TypeDescriptor const descriptor(
        "Agent::SpeakerSide::Machine",
        {A::handlerWithArgument("handleHost"), A::handlerWithArgument("handleFloodEntry")});
    return descriptor;
  }

  void handleHost(MacVniPair const& key) {
    Host const row = host_->host(key);
    if (row == Host()) return speaker_.hostDel(key);
    speaker_.hostIs(row);
  }

  void handleFloodEntry(VniVtepPair const& key) {
    if (flood_->floodEntry(key) == FloodEntry()) return speaker_.floodDel(key);
    speaker_.floodIs(key);
  }

 private:
  friend StateMachine;
  auto inputs() { return std::tie(hostTable_, floodTable_); }

  Gobgp::Speaker& speaker_;
  Orb::Ptr<HostTable> host_;
  Orb::Ptr<FloodTable> flood_;
  Orb::Input<Reactor<HostTable, On<HostTable::hostAttr, &Machine::handleHost>>> hostTable_;
  Orb::Input<Reactor<FloodTable, On<FloodTable::floodEntryAttr, &Machine::handleFloodEntry>>> floodTable_;
};

struct SpeakerSide::Parts {
  Parts(Loop& loop, Site const& site, SpeakerOptions const& options, Sources& sources, Logs const& logs)
      : log(logs.info),
        speaker(loop, speakerOf(options),
                sources.add({.name = "speaker", .kind = "speaker", .endpoint = options.endpoint})),
        exported("exported", site.exported()),
        machine(Orb::create<Machine>(exported, speaker)),
        follower(
            loop, exported, [this] { beginSending(); }, deliveryLimit),
        state(loop, site.exported(), [this] { follower.deliverSome(); }) {}

  /// The tables are written before the state that says so, and delivered after it was read.
  void beginSending() {
    if (isSending || !follower.isUpToDate() || !state.state().value_or(EvpnState()).isWhole) return;
    isSending = true;
    speaker.beginSending();
    log("speaker: the exported tables are whole, and announced from now on");
  }

  Log log;
  Gobgp::Speaker speaker;
  TablePair exported;
  Orb::Ptr<Machine> machine;
  Follower follower;
  EvpnStateReader state;
  bool isSending = false;
};

SpeakerSide::SpeakerSide(Loop& loop, Site const& site, SpeakerOptions const& options, Sources& sources,
                         Logs const& logs)
    : parts_(std::make_unique<Parts>(loop, site, options, sources, logs)) {}

SpeakerSide::~SpeakerSide() = default;

void SpeakerSide::describe(nlohmann::ordered_json& sources) const {
  for (auto& each : sources) {
    if (each["kind"] != "speaker") continue;
    each.update(parts_->speaker.show());
    each["sending"] = parts_->isSending;
  }
}

nlohmann::ordered_json SpeakerSide::route(MacVniPair const& key) const {
  return parts_->speaker.route({key.vni(), key.macAddr()});
}

nlohmann::ordered_json SpeakerSide::route(VniVtepPair const& key) const {
  return parts_->speaker.route({key.vni(), key.vtepAddr()});
}

SiteRows announcedBy(nlohmann::ordered_json const& source) {
  Gobgp::Identity const identity{source.at("as"), Wirix::IpAddr(source.at("routerId").get<std::string>())};
  SiteRows rows;
  for (auto const& [key, value] :
       Gobgp::listOwnRoutes(source.at("endpoint"), identity, std::chrono::seconds(60))) {
    if (key.isHost()) {
      Host row(MacVniPair(key.mac(), key.vni()));
      row.vtepAddrIs(value.vtep);
      row.seqNoIs(value.seq);
      rows.add(row);
    } else {
      rows.add(FloodEntry(VniVtepPair(key.vni(), key.vtep())));
    }
  }
  rows.sort();
  return rows;
}

}  // namespace Agent
