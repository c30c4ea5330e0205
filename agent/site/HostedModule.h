/// Agent::HostedModule: hosts the module for a site. It owns the entities that the machines work on, the
/// tables, and the machines, which it builds through their factories.
///
///   sources: enabled, capability ─► QorEvpnIntegrationModeSm ─► on: receive machine, then transmit root
///   learned/state: capability    ─┘                            off: both are cleaned up and dropped
///   sources: switches, feeds ─► Controller ─► transmit machines ─► exported tables, QorBrIdList ─► brId
///   table
///   learned tables ─► receive machine ─► VniStatusDirV2 ─► Controller, then transmit machines
///
/// Start: the list of bridge identifiers is seeded with what the last run left in its table and with the VNI
/// of every exported row, so that the transmit root sweeps whatever belongs to a VNI that is gone, at
/// whatever instruction the last run died. The rows themselves are the Controller's to keep until every
/// source has told its state or was given up, so none that still holds is ever withdrawn.
///
/// The learned tables are mounted while the integration is on only, by objects made for the purpose: a
/// machine that is built must be told of removals of what it was shown, and of no others.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "DataModel/EvpnCapability.h"
#include "DataModel/QorBrIdList.h"
#include "DataModel/QorEvpnConfig.h"
#include "DataModel/Status.h"
#include "VxlanController/QorBrIdTable.h"
#include "VxlanController/QorEvpnModeSm.h"
#include "VxlanController/QorEvpnRxSm.h"
#include "VxlanController/QorEvpnTxSm.h"
#include "agent/base/Loop.h"
#include "agent/controller/Controller.h"
#include "agent/explain/Why.h"
#include "agent/feed/Sources.h"
#include "agent/record/LearnedTap.h"
#include "agent/site/EvpnState.h"
#include "agent/site/Mount.h"
#include "agent/site/Site.h"

namespace Agent {

class HostedModule : public Orb::StateMachine<HostedModule>, public SourceLedgers {
 public:
  /// `hold`: how long what a lost source told is kept; 0 is for ever. Raises MountError where another agent
  /// has the site.
  HostedModule(Loop& loop, Site const& site, bool repair, std::chrono::seconds hold, Logs const& logs);
  ~HostedModule() override;
  static Orb::TypeDescriptor const& type();

  /// Which MACs count as duplicates; none until this is said.
  void duplicatesIs(Duplicates::Rule const& rule);

  /// Writes down from now on, before the first source is added, what the module takes in: what its sources
  /// tell, and what the EVPN side's tables do. The recorder outlives this.
  void recorderIs(Recorder& recorder);
  /// For who replays it: until what was learned at the start is whole, nothing is exported.
  void transmitWaitsIs(bool waits) { transmitWaits_ = waits; }

  /// Where the controller's sources are added: its switches and feeds.
  Sources& sources() { return sources_; }
  Controller& controller() { return *controller_; }
  /// The controller's database is on, or not. Saying that it is off also removes what an earlier run left.
  void enabledIs(bool enabled);

  // Ledgers of the controller's sources, called by sources().
  void sourceIs(SourceId source, bool isNumbered) override { controller_->sourceIs(source, isNumbered); }
  void begin(SourceId source) override { controller_->begin(source); }
  void apply(SourceId source, Event const& event) override { controller_->apply(source, event); }
  void flag(SourceId source, Event const& event) override;
  bool whole(SourceId source) override { return controller_->whole(source); }
  bool withdraw(SourceId source) override { return controller_->withdraw(source); }
  bool settled() override { return controller_->earlierDel(); }
  std::size_t entries(SourceId source) const override { return controller_->entries(source); }
  void tellState(Tell const& tell) const override;

  bool integrationIsOn() const { return tx_ != nullptr; }
  std::uint64_t rowsFound() const { return rowsFound_; }

  /// Removes everything that was written, as switching the integration off does.
  void cleanup();
  /// Takes what the EVPN side changed, without waiting for the loop.
  void deliver();
  /// At the end of each turn of the loop.
  void endTurn();

  /// EVPN's status of one VNI, or of all: {"5000": {"floods": [..], "hosts": [..]}}, sorted.
  nlohmann::ordered_json evpnStatus(std::string_view vni) const;
  /// Why a row is exported or not, "MAC", "MAC VNI" or "VTEP VNI": an array with a document a VNI, of what
  /// both sides have, the row, and what explain() says (agent/explain/Why.h). Empty where nobody knows the
  /// MAC. Raises Orb::Error or std::runtime_error for another argument.
  nlohmann::ordered_json why(std::string_view argument) const;
  /// What both sides know (agent/audit/BothSides.h): of one VNI, or which VNIs there are.
  nlohmann::ordered_json bothSides(std::string_view vni) const;
  /// What the module is doing, for people and for tests.
  nlohmann::ordered_json state() const;

  void handleMode();
  void handleBrId(Bridging::BridgeId const& brId);

  class OrbQorEvpnConfig
      : public Reactor<QorEvpn::QorEvpnConfig,
                       On<QorEvpn::QorEvpnConfig::qorEvpnIntegrationModeAttr, &HostedModule::handleMode>> {
    using Reactor::Reactor;
  };
  class OrbQorBrIdList : public Reactor<QorEvpn::QorBrIdList,
                                        On<QorEvpn::QorBrIdList::brIdListAttr, &HostedModule::handleBrId>> {
    using Reactor::Reactor;
  };

 private:
  friend StateMachine;
  auto inputs() { return std::tie(qorEvpnConfig_, qorBrIdList_); }

  nlohmann::ordered_json whyHost(QorEvpn::MacVniPair const& key) const;
  nlohmann::ordered_json whyFlood(QorEvpn::VniVtepPair const& key) const;
  template <class Row>
  nlohmann::ordered_json importJson(typename Brine::Codec<Row>::Key const& key, Row const& row,
                                    bool isReadable) const;
  bool isListed(Vxlan::Vni vni) const;
  ExportState exportState() const;
  void handleFlag(bool on);
  void record(Op flag, bool value);
  void capabilityIs();
  void seedController();
  void forgetEarlier();
  void settleRemotes();
  void start();
  void startTransmit();
  void stop();
  void seedBrIdList();
  void clearExported();
  void withdrawLearned();
  void handleLearned();
  void reportLearned();

  Loop& loop_;
  Site site_;
  Log log_, warn_;

  TablePair exported_;
  Brine::Table<Bridging::BridgeId> brIdTable_;
  std::optional<EvpnStateWriter> exportedState_;
  std::optional<TablePair> learned_;
  std::optional<Follower> follower_;
  std::string learnedReport_;
  std::uint64_t resynchronisations_ = 0;  ///< Of learned tables that are mounted no longer.

  Orb::Ptr<Controllerdb::Status> status_;
  Orb::Ptr<QorEvpn::EvpnCapability> capability_;
  Orb::Ptr<QorEvpn::QorEvpnConfig> config_;
  Orb::Ptr<QorEvpn::QorBrIdList> brIdList_;
  Orb::Ptr<VxlanController::VniStatusDirV2> vniStatusDir_;
  Orb::Input<OrbQorEvpnConfig> qorEvpnConfig_;
  Orb::Input<OrbQorBrIdList> qorBrIdList_;

  std::optional<Duplicates> duplicates_;
  Orb::Ptr<Controller> controller_;
  Orb::Ptr<QorEvpn::QorEvpnIntegrationModeSm> mode_;
  Orb::Ptr<QorEvpn::QorEvpnTxSm> tx_;
  Orb::Ptr<VxlanController::QorEvpnRxSm> rx_;
  Recorder* recorder_ = nullptr;
  Orb::Ptr<LearnedTap> tap_;
  bool transmitWaits_ = false;
  std::uint64_t rowsFound_ = 0;
  EvpnStateReader evpnState_;
  std::optional<bool> feedsCapability_;
  std::optional<bool> saidCapability_;  ///< Of both together, as it was last.
  Sources sources_;
  Timer evpnHold_;  ///< Until EVPN's side is given up, as a source is.
  bool evpnIsOverdue_ = false;
  bool toldOff_ = false;  ///< By either flag, in this run.
};

}  // namespace Agent
