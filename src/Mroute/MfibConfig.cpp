#include "Mroute/MfibConfig.h"

#include "Mroute/MountPath.h"

namespace Routing::Multicast::Fib {

bool Config::isDefault() const {
    return !routing_ && multipathControl_ == MultipathControl::multipathDeterministic &&
           multipathColor_ == multipathColorDefault && fastdrop_ == fastdropDefault &&
           maxFastdrops_ == maxFastdropsDefault && counterRoute_.members() == 0 &&
           useUribAsFallback_ == useUribAsFallbackDefault;
}
void Config::reset() {
    routingIs(false);
    multipathControlIs(MultipathControl::multipathDeterministic);
    multipathColorIs(multipathColorDefault);
    fastdropIs(fastdropDefault);
    maxFastdropsIs(maxFastdropsDefault);
    if (notifiees_.empty())
        counterRoute_.deleteAll();
    else
        counterRouteDelAll();
    useUribAsFallbackIs(useUribAsFallbackDefault);
}
Vomo::Ptr<Config> configFactory(Vomo::String const& name) {
    return Vomo::newEntity<Config>(name);
}
Vomo::Ptr<IntfConfig> intfConfigFactory(Vomo::String const& name) {
    return Vomo::newEntity<IntfConfig>(name);
}

VrfConfig::VrfConfig(Vomo::String const& name) : NamedEntity(name) {
    HeldInConstruction const held(this);
    doInit();
}
Vomo::String VrfConfig::mountPath(Kelpie::AddressFamily af) {
    return pathOf(af, "multicast/vrf/config");
}
bool VrfConfig::isDefault() const {
    return !routing_ && counterMode_ == counterModeDefault &&
           loadInterval_.seconds() == Interface::LoadInterval().seconds() &&
           allCounter_ == allCounterDefault &&
           activityPollingInterval_ == activityPollingIntervalDefault;
}
void VrfConfig::reset() {
    routingIs(false);
    counterModeIs(counterModeDefault);
    loadIntervalIs(Interface::LoadInterval());
    activityPollingIntervalIs(activityPollingIntervalDefault);
}
void VrfConfig::doInit() {
    configIs("default");
}
Vomo::Ptr<VrfConfig> vrfConfigFactory(Vomo::String const& name) {
    return Vomo::newEntity<VrfConfig>(name);
}

} // namespace Routing::Multicast::Fib

namespace Routing::Multicast {

Vomo::Ptr<MulticastLegacyConfig> multicastLegacyConfigFactory(Vomo::String const& name) {
    return Vomo::newEntity<MulticastLegacyConfig>(name);
}

} // namespace Routing::Multicast
