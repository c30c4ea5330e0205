# a machine is made
8 void QorEvpn::QorEvpnIntegrationModeSm::handleInitialized()
8 void QorEvpn::QorEvpnIntegrationModeSm::setQorEvpnIntegrationMode()
8 controllerdbStatus()->enabled() false evpnCapability()->evpnEnabled() false
8 Turning qorEvpnIntegrationMode OFF
8 void QorEvpn::QorEvpnIntegrationModeSm::setQorEvpnIntegrationMode() return 
8 void QorEvpn::QorEvpnIntegrationModeSm::handleInitialized() return 
# EVPN changes
8 void QorEvpn::QorEvpnIntegrationModeSm::setQorEvpnIntegrationMode()
8 controllerdbStatus()->enabled() false evpnCapability()->evpnEnabled() true
8 Turning qorEvpnIntegrationMode OFF
8 void QorEvpn::QorEvpnIntegrationModeSm::setQorEvpnIntegrationMode() return 
# the controller changes
8 void QorEvpn::QorEvpnIntegrationModeSm::setQorEvpnIntegrationMode()
8 controllerdbStatus()->enabled() true evpnCapability()->evpnEnabled() true
8 Turning qorEvpnIntegrationMode ON
8 void QorEvpn::QorEvpnIntegrationModeSm::setQorEvpnIntegrationMode() return 
# a machine is made
8 void QorEvpn::QorEvpnIntegrationModeSm::handleInitialized()
8 void QorEvpn::QorEvpnIntegrationModeSm::setQorEvpnIntegrationMode()
8 controllerdbStatus()->enabled() false evpnCapability()->evpnEnabled() true
8 Turning qorEvpnIntegrationMode OFF
8 void QorEvpn::QorEvpnIntegrationModeSm::setQorEvpnIntegrationMode() return 
8 void QorEvpn::QorEvpnIntegrationModeSm::handleInitialized() return 
# EVPN changes
8 void QorEvpn::QorEvpnIntegrationModeSm::setQorEvpnIntegrationMode()
8 controllerdbStatus()->enabled() false evpnCapability()->evpnEnabled() false
8 Turning qorEvpnIntegrationMode OFF
8 void QorEvpn::QorEvpnIntegrationModeSm::setQorEvpnIntegrationMode() return 
# the controller changes
8 void QorEvpn::QorEvpnIntegrationModeSm::setQorEvpnIntegrationMode()
8 controllerdbStatus()->enabled() true evpnCapability()->evpnEnabled() false
8 Turning qorEvpnIntegrationMode OFF
8 void QorEvpn::QorEvpnIntegrationModeSm::setQorEvpnIntegrationMode() return 
# a machine is made
8 void QorEvpn::QorEvpnIntegrationModeSm::handleInitialized()
8 void QorEvpn::QorEvpnIntegrationModeSm::setQorEvpnIntegrationMode()
8 controllerdbStatus()->enabled() true evpnCapability()->evpnEnabled() false
8 Turning qorEvpnIntegrationMode OFF
8 void QorEvpn::QorEvpnIntegrationModeSm::setQorEvpnIntegrationMode() return 
8 void QorEvpn::QorEvpnIntegrationModeSm::handleInitialized() return 
# EVPN changes
8 void QorEvpn::QorEvpnIntegrationModeSm::setQorEvpnIntegrationMode()
8 controllerdbStatus()->enabled() true evpnCapability()->evpnEnabled() true
8 Turning qorEvpnIntegrationMode ON
8 void QorEvpn::QorEvpnIntegrationModeSm::setQorEvpnIntegrationMode() return 
# the controller changes
8 void QorEvpn::QorEvpnIntegrationModeSm::setQorEvpnIntegrationMode()
8 controllerdbStatus()->enabled() false evpnCapability()->evpnEnabled() true
8 Turning qorEvpnIntegrationMode OFF
8 void QorEvpn::QorEvpnIntegrationModeSm::setQorEvpnIntegrationMode() return 
# a machine is made
8 void QorEvpn::QorEvpnIntegrationModeSm::handleInitialized()
8 void QorEvpn::QorEvpnIntegrationModeSm::setQorEvpnIntegrationMode()
8 controllerdbStatus()->enabled() true evpnCapability()->evpnEnabled() true
8 Turning qorEvpnIntegrationMode ON
8 void QorEvpn::QorEvpnIntegrationModeSm::setQorEvpnIntegrationMode() return 
8 void QorEvpn::QorEvpnIntegrationModeSm::handleInitialized() return 
# EVPN changes
8 void QorEvpn::QorEvpnIntegrationModeSm::setQorEvpnIntegrationMode()
8 controllerdbStatus()->enabled() true evpnCapability()->evpnEnabled() false
8 Turning qorEvpnIntegrationMode OFF
8 void QorEvpn::QorEvpnIntegrationModeSm::setQorEvpnIntegrationMode() return 
# the controller changes
8 void QorEvpn::QorEvpnIntegrationModeSm::setQorEvpnIntegrationMode()
8 controllerdbStatus()->enabled() false evpnCapability()->evpnEnabled() false
8 Turning qorEvpnIntegrationMode OFF
8 void QorEvpn::QorEvpnIntegrationModeSm::setQorEvpnIntegrationMode() return 
# another status is taken
8 void QorEvpn::QorEvpnIntegrationModeSm::setQorEvpnIntegrationMode()
8 controllerdbStatus()->enabled() true evpnCapability()->evpnEnabled() true
8 Turning qorEvpnIntegrationMode ON
8 void QorEvpn::QorEvpnIntegrationModeSm::setQorEvpnIntegrationMode() return 
# it changes, the former one too
8 void QorEvpn::QorEvpnIntegrationModeSm::setQorEvpnIntegrationMode()
8 controllerdbStatus()->enabled() false evpnCapability()->evpnEnabled() true
8 Turning qorEvpnIntegrationMode OFF
8 void QorEvpn::QorEvpnIntegrationModeSm::setQorEvpnIntegrationMode() return 
# another capability is taken
8 void QorEvpn::QorEvpnIntegrationModeSm::setQorEvpnIntegrationMode()
8 controllerdbStatus()->enabled() false evpnCapability()->evpnEnabled() false
8 Turning qorEvpnIntegrationMode OFF
8 void QorEvpn::QorEvpnIntegrationModeSm::setQorEvpnIntegrationMode() return 
