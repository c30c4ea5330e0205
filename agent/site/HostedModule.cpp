#include "agent/site/HostedModule.h"

#include "Orb/Type.h"
#include "VxlanController/ExpectedExport.h"
#include "VxlanController/QorEvpnRow.h"
#include "agent/views/EvpnStatus.h"

namespace Agent {

namespace {

template <class Entity>
Orb::Ptr<Entity> make(char const* name) {
  return Orb::makePtr<Entity>(Orb::Name(name));
}

/// The event of a flag that came into force.
Event flagEvent(Op flag, bool value) {
  Event event;
  event.from = flag == Op::enabled ? Origin::controller : Origin::evpn;
  event.op = flag;
  event.value = value;
  return event;
}

}  // namespace

HostedModule::HostedModule(Loop& loop, Site const& site, bool repair, std::chrono::seconds hold,
                           Logs const& logs)
    : loop_(loop),
      site_(site),
      log_(logs.info),
      warn_(logs.warning),
      exported_("exported", site.exported()),
      status_(make<Controllerdb::Status>("status")),
      capability_(make<QorEvpn::EvpnCapability>("evpnCapability")),
      config_(make<QorEvpn::QorEvpnConfig>("qorEvpnConfig")),
      brIdList_(make<QorEvpn::QorBrIdList>("qorBrIdList")),
      vniStatusDir_(make<VxlanController::VniStatusDirV2>("vniStatusDir")),
      evpnState_(loop, site.learned(),
                 [this] {
                   if (follower_) follower_->deliverSome();
                   capabilityIs();
                 }),
      sources_(loop, *this, hold, logs),
      thaw_(loop, [this] { thaw(); }),
      evpnHold_(loop, [this] { evpnIsOverdue_ = true; }) {
  exportedState_.emplace(site.exported(), repair);
  exported_.mountAsWriter(repair);
  mountAsWriter(brIdTable_, site.exported(), TableKind<Bridging::BridgeId>::file, repair);
  rowsFound_ = exported_.rows() + brIdTable_.statistics().rows;

  qorBrIdList_.connect(this, brIdList_);
  seedBrIdList();
  controller_ = Controller::ControllerIs(vniStatusDir_);
  seedController();
  sources_.keepsEarlierIs(rowsFound_ != 0);
  if (hold.count() != 0) evpnHold_.start(hold);
  qorEvpnConfig_.connect(this, config_);
  mode_ = QorEvpn::qorEvpnIntegrationModeSmFactory(status_, capability_, config_);
  capabilityIs();
}

/// Rows stay; the machines and this object only stop watching.
HostedModule::~HostedModule() {
  follower_.reset();
  teardown();
}

void HostedModule::duplicatesIs(Duplicates::Rule const& rule) {
  duplicates_.emplace(rule, warn_, [this](Vxlan::Vni vni, Wirix::EthAddr mac, bool isFrozen) {
    frozenIs(vni, mac, isFrozen);
  });
  controller_->duplicatesIs(&*duplicates_);
}

/// A MAC is let go in a turn of its own, not by whoever asks, so that a recording has it in its order.
void HostedModule::frozenIs(Vxlan::Vni vni, Wirix::EthAddr mac, bool isFrozen) {
  controller_->frozenIs(vni, mac, isFrozen);
  if (isFrozen && !thaw_.isRunning()) thaw_.start({});
  if (!recorder_) return;
  Event event;
  event.op = Op::frozen;
  event.vni = vni;
  event.mac = mac;
  event.value = isFrozen;
  recorder_->write(earlierRun, event);
}

void HostedModule::thaw() {
  if (auto const next = duplicates_->thaw()) thaw_.start(*next);
}

void HostedModule::recorderIs(Recorder& recorder) {
  recorder.tap(sources_, *this);
  recorder_ = &recorder;
}

/// The flags come last: the machines that they start find the entries.
void HostedModule::tellState(Tell const& tell) const {
  controller_->tellState(tell);
  if (tap_) tap_->tellState(*vniStatusDir_, tell);
  if (status_->enabled()) tell(earlierRun, flagEvent(Op::enabled, true));
  if (saidCapability_) tell(earlierRun, flagEvent(Op::capability, *saidCapability_));
  if (tx_) tellListed(tell);
}

/// What the machines' first pass would make of the same entries is not told. They list a VNI by some events
/// only, so entries that they do not support leave it as it was.
void HostedModule::tellListed(Tell const& tell) const {
  Event event;
  event.op = Op::listed;
  controller_->forEachVni([&](Vxlan::Vni vni) {
    event.vni = vni;
    event.value = isListed(vni);
    if (event.value != QorEvpn::hasEntries(*controller_->vniFdbStatus(vni))) tell(earlierRun, event);
  });
}

void HostedModule::listedIs(Vxlan::Vni vni, bool isListed) {
  auto const brId = Bridging::BridgeId::ofVni(vni);
  if (isListed) {
    brIdList_->brIdListIs(brId, true);
  } else {
    brIdList_->brIdListDel(brId);
  }
}

void HostedModule::apply(SourceId source, Event const& event) {
  if (event.op == Op::listed) return listedIs(event.vni, event.value);
  controller_->apply(source, event);
}

/// Recorded after the flag's effects: a replay has the rows that were learned meanwhile when it reads the
/// flag.
void HostedModule::record(Op flag, bool value) {
  if (recorder_) recorder_->write(earlierRun, flagEvent(flag, value));
}

void HostedModule::enabledIs(bool enabled) {
  status_->enabledIs(enabled);
  handleFlag(enabled);
  record(Op::enabled, enabled);
}

void HostedModule::flag(SourceId, Event const& event) {
  if (event.op == Op::enabled) return enabledIs(event.value);
  feedsCapability_ = event.value;
  capabilityIs();
}

/// The EVPN side's capability counts before that of feeds. An assumed capability counts if no feed tells one.
/// If nothing has been told, nothing is switched off.
void HostedModule::capabilityIs() {
  using enum EvpnState::Capability;
  std::optional<EvpnState> const evpns = evpnState_.state();
  std::optional<bool> capability = feedsCapability_;
  EvpnState::Capability const said = evpns ? evpns->capability : unsaid;
  if (said == on || said == off) capability = said == on;
  if (said == assumed && !capability) capability = true;
  if (capability == saidCapability_) return;
  saidCapability_ = capability;
  capability_->evpnEnabledIs(capability.value_or(false));
  if (capability) handleFlag(*capability);
  record(Op::capability, capability.value_or(false));
}

/// A flag that is off also removes what an earlier run left.
void HostedModule::handleFlag(bool on) {
  toldOff_ = toldOff_ || !on;
  if (!on && !tx_) clearExported();
}

void HostedModule::forgetEarlier() {
  while (!controller_->earlierDel()) continue;
  sources_.keepsEarlierIs(false);
}

/// Switches may lose rows that were never wanted when the EVPN side is whole, too; while the integration is
/// off, the EVPN side counts as whole.
void HostedModule::settleRemotes() {
  if (!sources_.isSettled() || controller_->isSettled()) return;
  bool const isWhole = tx_ && Brine::isReadable(imported_->host->mountStatus()) && follower_->isUpToDate() &&
                       evpnState_.state().value_or(EvpnState{.isWhole = true}).isWhole;
  if (isWhole || evpnIsOverdue_ || (toldOff_ && !tx_)) controller_->settledIs();
}

void HostedModule::handleMode() {
  bool const on = config_->qorEvpnIntegrationMode();
  if (on && !rx_) start();
  if (!on && rx_) stop();
}

/// The receive machine comes first: the transmit machines' first pass then knows what EVPN supplied. It is
/// built on tables that are not mounted yet, so that deliveries tell it every row, a part a turn.
void HostedModule::start() {
  imported_.emplace("learned", site_.learned());
  if (recorder_) tap_ = Orb::create<LearnedTap>(*imported_, *recorder_);
  rx_ = VxlanController::qorEvpnRxSmFactory(imported_->host, imported_->flood, vniStatusDir_);
  follower_.emplace(
      loop_, *imported_, [this] { handleLearned(); }, deliveryLimit);
  follower_->deliverSome();
}

void HostedModule::handleLearned() {
  reportLearned();
  if (tx_ || !follower_->isUpToDate() || transmitWaits_) return;
  if (tap_) tap_->whole();
  startTransmit();
}

void HostedModule::startTransmit() {
  seedBrIdList();
  tx_ = QorEvpn::qorEvpnTxSmFactory(controller_->vniDir(), vniStatusDir_, brIdList_, exported_.host,
                                    exported_.flood);
  log_("integration on");
}

void HostedModule::stop() {
  // The transmit machines go first: they would export what the receive machine withdraws.
  if (tx_) Orb::attributeInvoke(*tx_, "cleanup");
  tx_ = nullptr;
  withdrawLearned();
  rx_ = nullptr;
  tap_ = nullptr;
  follower_.reset();
  resynchronisations_ += imported_->laps();
  imported_.reset();
  learnedReport_.clear();
  forgetEarlier();
  log_("integration off: what it wrote is removed");
}

/// The receive machine's cleanup() withdraws the rows that the tables hold now. Another process writes the
/// tables and may be ahead of the deliveries: what a row put there that has gone since would stay. So this
/// function calls the machine for each entry that it did write.
void HostedModule::withdrawLearned() {
  using namespace QorEvpn;
  std::vector<MacVniPair> hosts;
  std::vector<VniVtepPair> floods;
  for (auto const& vni : vniStatusDir_->vniStatusV2()) {
    for (auto const& mac : vni.value->macVtepTable()) hosts.emplace_back(mac.key, vni.key);
    for (auto const& list : vni.value->macVtepFloodListTable()) {
      for (auto const& vtep : list.value->vtepIpFloodList()) floods.emplace_back(vni.key, vtep.key);
    }
  }
  for (MacVniPair const& key : hosts) rx_->deleteHostEntry(key);
  for (VniVtepPair const& key : floods) rx_->deleteFloodEntry(key);
}

void HostedModule::cleanup() {
  record(Op::enabled, false);
  bool const isWritten = tx_ != nullptr;
  if (rx_) stop();
  if (!isWritten) clearExported();
}

void HostedModule::clearExported() {
  forgetEarlier();
  brIdList_->brIdListDelAll();
  exported_.host->hostDelAll();
  exported_.flood->floodEntryDelAll();
}

void HostedModule::seedBrIdList() {
  auto const add = [this](Vxlan::Vni vni) {
    Bridging::BridgeId const brId = Bridging::BridgeId::ofVni(vni);
    if (!brIdList_->brIdList().contains(brId)) brIdList_->brIdListIs(brId, true);
  };
  try {
    for (auto walk = brIdTable_.walk(); Bridging::BridgeId const* const row = walk.next();) {
      if (row->brType() == Bridging::brTypeVni()) add(row->vni());
    }
  } catch (Brine::CorruptionError const& error) {
    log_(site_.exported() + "/" + std::string(TableKind<Bridging::BridgeId>::file) + ": " + error.what());
  }
  forEachRow(*exported_.host, exported_.host->hostWalk(),
             [&](QorEvpn::Host const& row) { add(row.key().vni()); });
  forEachRow(*exported_.flood, exported_.flood->floodEntryWalk(),
             [&](QorEvpn::FloodEntry const& row) { add(row.key().vni()); });
}

/// The rows of the earlier run become entries of the controller.
void HostedModule::seedController() {
  for (auto const& entry : brIdList_->brIdList()) controller_->earlierIs(Bridging::BridgeId(entry.key).vni());
  forEachRow(*exported_.host, exported_.host->hostWalk(), [&](QorEvpn::Host const& row) {
    controller_->earlierIs(row.key().vni(), QorEvpn::entryOf(row));
  });
  forEachRow(*exported_.flood, exported_.flood->floodEntryWalk(), [&](QorEvpn::FloodEntry const& row) {
    controller_->earlierIs(row.key().vni(), row.key().vtepAddr());
  });
}

void HostedModule::handleBrId(Bridging::BridgeId const& brId) {
  if (brIdList_->brIdList().contains(brId)) {
    brIdTable_.write(brId);
  } else {
    brIdTable_.erase(brId);
  }
}

/// The state is read first, since it is written last.
void HostedModule::deliver() {
  evpnState_.deliver();
  if (follower_) follower_->deliver();
  capabilityIs();
}

/// Logs that the EVPN side's tables came or went.
void HostedModule::reportLearned() {
  std::string report;
  for (auto const& [name, status, detail] :
       {std::tuple(TableKind<QorEvpn::Host>::file, imported_->host->mountStatus(),
                   imported_->host->mountDetail()),
        std::tuple(TableKind<QorEvpn::FloodEntry>::file, imported_->flood->mountStatus(),
                   imported_->flood->mountDetail())}) {
    if (!report.empty()) report += ", ";
    report.append(name).append(": ").append(toText(status));
    // A table that does not exist yet is normal.
    bool const isPlain = isReadable(status) || status == Brine::MountStatus::noTable;
    if (!isPlain) report.append(" (").append(detail).append(")");
  }
  if (report == learnedReport_) return;
  learnedReport_ = report;
  log_("learned tables: " + report);
}

void HostedModule::endTurn() {
  settleRemotes();
  exported_.endTurn();
  brIdTable_.endTurn();
  // From now on the tables hold every valid row, also after a restart.
  if (tx_ || toldOff_) {
    EvpnState exported = exportedState_->state();
    exported.hasOwn = exported.hasOwn || sources_.isSettled();
    exported.isWhole = exported.isWhole || controller_->isSettled();
    exportedState_->stateIs(exported);
  }
  exportedState_->endTurn();
}

nlohmann::ordered_json HostedModule::evpnStatus(std::string_view vni) const {
  return toJson(evpnStatusOf(*vniStatusDir_, vni));
}

nlohmann::ordered_json HostedModule::state() const {
  nlohmann::ordered_json result;
  result["enabled"] = status_->enabled();
  result["capability"] = capability_->evpnEnabled();
  result["integration"] = integrationIsOn();
  result["held"] = sources_.isKeeping();
  result["settled"] = controller_->isSettled();
  result["servedVnis"] = controller_->vniDir()->entry().size();
  result["evpnVnis"] = vniStatusDir_->vniStatusV2().size();
  result["exportedHosts"] = exported_.host->statistics().rows;
  result["exportedFloods"] = exported_.flood->statistics().rows;
  result["bridgeIds"] = brIdList_->brIdList().size();
  result["learned"] = imported_ ? learnedReport_ : "not mounted";
  result["resynchronisations"] = resynchronisations_ + (imported_ ? imported_->laps() : 0);
  if (duplicates_) {
    result["moves"] = duplicates_->moves();
    result["duplicatesReported"] = duplicates_->reports();
    result["duplicates"] = duplicates_->state();
  }
  result["sources"] = sources_.state();
  return result;
}

Orb::TypeDescriptor const& HostedModule::type() {
  using A = Orb::Attributes<HostedModule>;
  static Orb::TypeDescriptor const descriptor("Agent::HostedModule",
                                              {A::handler<&HostedModule::handleMode>("handleMode")});
  return descriptor;
}

}  // namespace Agent
