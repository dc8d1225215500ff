#include "Mroute/MfibConfig.h"

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

} // namespace Routing::Multicast::Fib
