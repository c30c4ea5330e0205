/// QorEvpnIntegrationModeSm decides whether the integration of the controller with EVPN is on: exactly when
/// the controller database is enabled and EVPN is enabled.
///
///   input                                 handler                       output
///   Controllerdb::Status.enabled          setQorEvpnIntegrationMode()   QorEvpnConfig.qorEvpnIntegrationMode
///   EvpnCapability.evpnEnabled            setQorEvpnIntegrationMode()   "
///   either input replaced by another one  setQorEvpnIntegrationMode()   "
///
/// Invariants: the flag is written on every run, also when its value stays; suppressing unchanged writes is
/// left to the configuration entity. EVPN's capability is looked at only while the database is enabled.
/// Disconnecting an input and destruction leave the flag as it is. An input that is missing when it is read
/// is a fatal fault.
///
/// Ownership: created by the agent through qorEvpnIntegrationModeSmFactory; counts references to its inputs
/// and output.
#pragma once

#include "DataModel/EvpnCapability.h"
#include "DataModel/QorEvpnConfig.h"
#include "DataModel/Status.h"
#include "Orb/StateMachine.h"

namespace QorEvpn {

class QorEvpnIntegrationModeSm : public Orb::StateMachine<QorEvpnIntegrationModeSm> {
 public:
  using StatusPtr = Orb::Ptr<Controllerdb::Status const>;
  using CapabilityPtr = Orb::Ptr<EvpnCapability const>;
  using ConfigPtr = Orb::Ptr<QorEvpnConfig>;

  static Orb::Ptr<QorEvpnIntegrationModeSm> QorEvpnIntegrationModeSmIs(StatusPtr controllerdbStatus,
                                                                       CapabilityPtr evpnCapability,
                                                                       ConfigPtr qorEvpnConfig);
  QorEvpnIntegrationModeSm(StatusPtr const& controllerdbStatus, CapabilityPtr const& evpnCapability,
                           ConfigPtr const& qorEvpnConfig);
  ~QorEvpnIntegrationModeSm() override { teardown(); }
  static Orb::TypeDescriptor const& type();

  StatusPtr const& controllerdbStatus() const { return controllerdbStatus_.notifier(); }
  StatusPtr controllerdbStatusDel() { return controllerdbStatus_.del(); }
  CapabilityPtr const& evpnCapability() const { return evpnCapability_.notifier(); }
  CapabilityPtr evpnCapabilityDel() { return evpnCapability_.del(); }
  ConfigPtr const& qorEvpnConfig() const { return qorEvpnConfig_; }

  void setQorEvpnIntegrationMode();

  /// Stored for the generic interface; nothing in this machine reads it.
  bool initialized() const { return initialized_; }
  void initializedIs(bool initialized) { initialized_ = initialized; }
  void handleInitialized();

  class OrbControllerdbStatus
      : public Reactor<
            Controllerdb::Status,
            On<Controllerdb::Status::enabledAttr, &QorEvpnIntegrationModeSm::setQorEvpnIntegrationMode>,
            OnNotifier<&QorEvpnIntegrationModeSm::setQorEvpnIntegrationMode>> {
    using Reactor::Reactor;
  };
  class OrbEvpnCapability
      : public Reactor<
            EvpnCapability,
            On<EvpnCapability::evpnEnabledAttr, &QorEvpnIntegrationModeSm::setQorEvpnIntegrationMode>,
            OnNotifier<&QorEvpnIntegrationModeSm::setQorEvpnIntegrationMode>> {
    using Reactor::Reactor;
  };
  Orb::Ptr<OrbControllerdbStatus> const& orbControllerdbStatus() const {
    return controllerdbStatus_.reactor();
  }
  Orb::Ptr<OrbEvpnCapability> const& orbEvpnCapability() const { return evpnCapability_.reactor(); }

 private:
  friend StateMachine;
  auto inputs() { return std::tie(controllerdbStatus_, evpnCapability_); }

  Orb::Input<OrbControllerdbStatus> controllerdbStatus_;
  Orb::Input<OrbEvpnCapability> evpnCapability_;
  ConfigPtr qorEvpnConfig_;
  bool initialized_ = false;
};

/// Creates the machine; its first pass, which writes the flag, runs before this returns.
Orb::Ptr<QorEvpnIntegrationModeSm> qorEvpnIntegrationModeSmFactory(
    QorEvpnIntegrationModeSm::StatusPtr controllerdbStatus,
    QorEvpnIntegrationModeSm::CapabilityPtr evpnCapability,
    QorEvpnIntegrationModeSm::ConfigPtr qorEvpnConfig);

}  // namespace QorEvpn
