#include "Mroute/MfibHardware.h"

#include "Mroute/MountPath.h"

namespace Routing::Multicast::Fib::Hardware {

RouteStatus::RouteStatus(IpGenRouteKey const& key)
    : KeyedEntity(key), creationTime_(Vomo::System::currentTime()) {}
void RouteStatus::noRouteIs(bool v) {
    HwFlags flags = hwFlags_;
    flags.noRouteIs(v);
    hwFlagsIs(flags);
}
void RouteStatus::noIntfsIs(bool v) {
    HwFlags flags = hwFlags_;
    flags.noIntfsIs(v);
    hwFlagsIs(flags);
}
Vomo::Ptr<RouteStatus> routeStatusFactory(IpGenRouteKey const& key) {
    return Vomo::newEntity<RouteStatus>(key);
}

Vomo::Ptr<VrfStatus> vrfStatusFactory(L3::VrfName const& vrf) {
    return Vomo::newEntity<VrfStatus>(vrf);
}

// Unlike in all other paths, the kind of agent is in front of "multicast".
Vomo::String Status::mountPath(Kelpie::AddressFamily af) {
    return pathOf(af, "hardware/multicast/status");
}
U32 Status::routes() const {
    U32 count = 0;
    for (VomoVrfStatus const& node : vrfStatus_) count += node.value()->route().members();
    return count;
}
Vomo::Ptr<Status> statusFactory(Vomo::String const& name) {
    return Vomo::newEntity<Status>(name);
}

} // namespace Routing::Multicast::Fib::Hardware
