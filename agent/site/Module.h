/// Agent::Module: hosts the module for a site. It owns the entities that the machines work on, the tables,
/// and the machines, which it builds through their factories.
///
///   feed: enabled, capability ─► QorEvpnIntegrationModeSm ─► on: receive machine, then transmit root
///                                                           off: both are cleaned up and dropped
///   feed: switches ─► Controller ─► transmit machines ─► exported tables, QorBrIdList ─► brId table
///   learned tables ─► receive machine ─► VniStatusDirV2 ─► Controller, then transmit machines
///
/// Start: the list of bridge identifiers is seeded with what the last run left in its table and with the VNI
/// of every exported row, so that the transmit root sweeps whatever belongs to a VNI that is gone, at
/// whatever instruction the last run died.
///
/// Where the last run left rows, the machines are held back until release(): the feed is read as far as it
/// goes first, so that rows which still hold are never withdrawn in between. Once released, the integration
/// follows its two flags at once.
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
#include "agent/site/Mount.h"
#include "agent/site/Site.h"

namespace Agent {

class Module : public Orb::StateMachine<Module> {
 public:
  /// `log` takes lines for people. Raises MountError where another agent has the site.
  Module(Loop& loop, Site const& site, bool repair, std::function<void(std::string const&)> log);
  ~Module() override;
  static Orb::TypeDescriptor const& type();

  Controller& controller() { return *controller_; }
  /// The two sides' flags. Saying that one is off also removes what an earlier run left.
  void enabledIs(bool enabled);
  void capabilityIs(bool capability);

  bool isHeld() const { return held_; }
  /// The feed has been read as far as it goes; ends the holding back.
  void release();
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
  /// What the module is doing, for people and for tests.
  nlohmann::ordered_json state() const;

  void handleMode();
  void handleBrId(Bridging::BridgeId const& brId);

  class OrbQorEvpnConfig
      : public Reactor<QorEvpn::QorEvpnConfig,
                       On<QorEvpn::QorEvpnConfig::qorEvpnIntegrationModeAttr, &Module::handleMode>> {
    using Reactor::Reactor;
  };
  class OrbQorBrIdList
      : public Reactor<QorEvpn::QorBrIdList, On<QorEvpn::QorBrIdList::brIdListAttr, &Module::handleBrId>> {
    using Reactor::Reactor;
  };

 private:
  friend StateMachine;
  auto inputs() { return std::tie(qorEvpnConfig_, qorBrIdList_); }

  void handleFlag(bool on);
  void start();
  void stop();
  void seedBrIdList();
  void clearExported();
  void withdrawLearned();
  void reportLearned();

  Loop& loop_;
  Site site_;
  std::function<void(std::string const&)> log_;

  Tables exported_;
  Brine::Table<Bridging::BridgeId> brIdTable_;
  std::optional<Tables> learned_;
  std::optional<Follower> follower_;
  std::string learnedReport_;

  Orb::Ptr<Controllerdb::Status> status_;
  Orb::Ptr<QorEvpn::EvpnCapability> capability_;
  Orb::Ptr<QorEvpn::QorEvpnConfig> config_;
  Orb::Ptr<QorEvpn::QorBrIdList> brIdList_;
  Orb::Ptr<VxlanController::VniStatusDirV2> vniStatusDir_;
  Orb::Input<OrbQorEvpnConfig> qorEvpnConfig_;
  Orb::Input<OrbQorBrIdList> qorBrIdList_;

  Orb::Ptr<Controller> controller_;
  Orb::Ptr<QorEvpn::QorEvpnIntegrationModeSm> mode_;
  Orb::Ptr<QorEvpn::QorEvpnTxSm> tx_;
  Orb::Ptr<VxlanController::QorEvpnRxSm> rx_;
  std::uint64_t rowsFound_ = 0;
  bool held_ = false;
  bool toldOff_ = false;  ///< By either flag, in this run.
};

}  // namespace Agent
