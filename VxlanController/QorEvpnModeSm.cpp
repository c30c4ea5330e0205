#include "VxlanController/QorEvpnModeSm.h"

#include "Orb/Type.h"
#include "Trace/Trace.h"

namespace QorEvpn {

namespace {
Trace::Handle traceHandle("QorEvpnModeSm");
}

QorEvpnIntegrationModeSm::QorEvpnIntegrationModeSm(StatusPtr const& controllerdbStatus,
                                                   CapabilityPtr const& evpnCapability,
                                                   ConfigPtr const& qorEvpnConfig)
    : qorEvpnConfig_(qorEvpnConfig) {
  controllerdbStatus_.connect(this, controllerdbStatus);
  evpnCapability_.connect(this, evpnCapability);
  handleInitialized();
}

void QorEvpnIntegrationModeSm::setQorEvpnIntegrationMode() {
  TRACE(traceHandle, 8, "void QorEvpn::QorEvpnIntegrationModeSm::setQorEvpnIntegrationMode()");
  TRACE(traceHandle, 8, "controllerdbStatus()->enabled() ", ORB_REF(controllerdbStatus()).enabled(),
        " evpnCapability()->evpnEnabled() ", ORB_REF(evpnCapability()).evpnEnabled());
  if (ORB_REF(controllerdbStatus()).enabled() && ORB_REF(evpnCapability()).evpnEnabled()) {
    TRACE(traceHandle, 8, "Turning qorEvpnIntegrationMode ON");
    ORB_REF(qorEvpnConfig()).qorEvpnIntegrationModeIs(true);
  } else {
    TRACE(traceHandle, 8, "Turning qorEvpnIntegrationMode OFF");
    ORB_REF(qorEvpnConfig()).qorEvpnIntegrationModeIs(false);
  }
  TRACE(traceHandle, 8, "void QorEvpn::QorEvpnIntegrationModeSm::setQorEvpnIntegrationMode() return ");
}

void QorEvpnIntegrationModeSm::handleInitialized() {
  TRACE(traceHandle, 8, "void QorEvpn::QorEvpnIntegrationModeSm::handleInitialized()");
  setQorEvpnIntegrationMode();
  TRACE(traceHandle, 8, "void QorEvpn::QorEvpnIntegrationModeSm::handleInitialized() return ");
}

Orb::TypeDescriptor const& QorEvpnIntegrationModeSm::type() {
  using Sm = QorEvpnIntegrationModeSm;
  using A = Orb::Attributes<Sm>;
  static Orb::TypeDescriptor const descriptor(
      "QorEvpn::QorEvpnIntegrationModeSm",
      {A::value<&Sm::controllerdbStatus>("controllerdbStatus"),
       A::value<&Sm::evpnCapability>("evpnCapability"), A::value<&Sm::qorEvpnConfig>("qorEvpnConfig"),
       A::handler<&Sm::setQorEvpnIntegrationMode>("setQorEvpnIntegrationMode"),
       A::writable<&Sm::initialized, &Sm::initializedIs>("initialized"),
       A::handler<&Sm::handleInitialized>("handleInitialized")});
  return descriptor;
}

Orb::Ptr<QorEvpnIntegrationModeSm> QorEvpnIntegrationModeSm::QorEvpnIntegrationModeSmIs(
    StatusPtr controllerdbStatus, CapabilityPtr evpnCapability, ConfigPtr qorEvpnConfig) {
  return Orb::create<QorEvpnIntegrationModeSm>(controllerdbStatus, evpnCapability, qorEvpnConfig);
}

Orb::Ptr<QorEvpnIntegrationModeSm> qorEvpnIntegrationModeSmFactory(
    QorEvpnIntegrationModeSm::StatusPtr controllerdbStatus,
    QorEvpnIntegrationModeSm::CapabilityPtr evpnCapability,
    QorEvpnIntegrationModeSm::ConfigPtr qorEvpnConfig) {
  return QorEvpnIntegrationModeSm::QorEvpnIntegrationModeSmIs(controllerdbStatus, evpnCapability,
                                                              qorEvpnConfig);
}

}  // namespace QorEvpn
