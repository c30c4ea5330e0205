/// Agent::HostedModule: runs the module for one site. It owns the machines, which it builds through their
/// factories, the entities that they work on, and the tables.
///
///   sources: enabled, capability ─► QorEvpnIntegrationModeSm ─► on: receive machine, then transmit root
///   learned/state: capability    ─┘                            off: both are cleaned up and dropped
///   sources: switches, feeds ─► Controller ─► transmit machines ─► exported tables; QorBrIdList ─► brId
///   learned tables ─► receive machine ─► VniStatusDirV2 ─► Controller, then transmit machines
///
/// Start: the list of bridge identifiers is filled with those in the table of the last run and with the VNI
/// of every exported row. So the transmit root sweeps the rows of every VNI that has gone, at whatever
/// instruction the last run was killed. The rows of other VNIs become entries of the Controller, which keeps
/// them until every source is synced or given up; so no row that is still valid is withdrawn.
///
/// The learned tables are mounted only while the integration is on, each time as new table objects: a new
/// receive machine is to be notified of removals of rows that it was shown, and of no other removals.
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
  /// `hold`: how long the entries of a lost source are kept; 0 is for ever. Raises MountError if another
  /// agent runs for the site.
  HostedModule(Loop& loop, Site const& site, bool repair, std::chrono::seconds hold, Logs const& logs);
  ~HostedModule() override;
  static Orb::TypeDescriptor const& type();

  /// Sets which MACs count as duplicates. Before the call none does.
  void duplicatesIs(Duplicates::Rule const& rule);

  /// Records all inputs of the module: the events of its sources and the changes of the EVPN side's tables.
  /// Call it before the first source is added. The recorder must outlive this object.
  void recorderIs(Recorder& recorder);
  /// For a replay: exports nothing until the learned rows of the recording's beginning are complete.
  void transmitWaitsIs(bool waits) { transmitWaits_ = waits; }

  /// Where the controller's sources are added: its switches and feeds.
  Sources& sources() { return sources_; }
  Controller& controller() { return *controller_; }
  /// Switches the controller's database on or off. Switching it off also removes the rows of an earlier run.
  void enabledIs(bool enabled);

  // The ledgers of the controller's sources; sources() calls them.
  void sourceIs(SourceId source, bool isNumbered) override { controller_->sourceIs(source, isNumbered); }
  void begin(SourceId source) override { controller_->begin(source); }
  void apply(SourceId source, Event const& event) override;
  void flag(SourceId source, Event const& event) override;
  bool whole(SourceId source) override { return controller_->whole(source); }
  bool withdraw(SourceId source) override { return controller_->withdraw(source); }
  bool settled() override { return controller_->earlierDel(); }
  std::size_t entries(SourceId source) const override { return controller_->entries(source); }
  void tellState(Tell const& tell) const override;

  /// Whether the transmit and the receive machine exist.
  bool integrationIsOn() const { return tx_ != nullptr; }
  /// How many rows the last run had left in the exported tables.
  std::uint64_t rowsFound() const { return rowsFound_; }

  /// Removes every exported row, as switching the integration off does.
  void cleanup();
  /// Handles changes of the EVPN side's tables now, without waiting for the loop.
  void deliver();
  /// Publishes the turn's changes. Call it at the end of each turn of the loop.
  void endTurn();

  /// EVPN's status of one VNI, or of all: {"5000": {"floods": [..], "hosts": [..]}}, sorted.
  nlohmann::ordered_json evpnStatus(std::string_view vni) const;
  /// Why a row is exported or not. The argument is "MAC", "MAC VNI" or "VTEP VNI". The result is an array
  /// with one document a VNI: the entries of both sides, the row, and the explanation (agent/explain/Why.h).
  /// It is empty if no side knows the MAC. Raises Orb::Error or std::runtime_error for any other argument.
  nlohmann::ordered_json why(std::string_view argument) const;
  /// The entries of both sides (agent/audit/BothSides.h) of one VNI, or, for an empty text, the list of VNIs.
  nlohmann::ordered_json bothSides(std::string_view vni) const;
  /// The module's state, for people and for tests (the request `state`, agent/site/Control.h).
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
  void frozenIs(Vxlan::Vni vni, Wirix::EthAddr mac, bool isFrozen);
  void thaw();
  void listedIs(Vxlan::Vni vni, bool isListed);
  void tellListed(Tell const& tell) const;
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
  std::optional<TablePair> imported_;
  std::optional<Follower> follower_;
  std::string learnedReport_;
  std::uint64_t resynchronisations_ = 0;  ///< Of learned tables that were mounted earlier.

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
  std::optional<bool> saidCapability_;  ///< The last capability from feeds and learned/state together.
  Sources sources_;
  Timer thaw_;      ///< Until the next MAC is frozen no longer.
  Timer evpnHold_;  ///< Until the EVPN side is given up, as a source is.
  bool evpnIsOverdue_ = false;
  bool toldOff_ = false;  ///< `enabled` or `capability` was set to false in this run.
};

}  // namespace Agent
