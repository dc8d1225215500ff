#include "Mroute/PimIntf.h"

#include "Mroute/MountPath.h"

namespace Routing::Multicast::Fib::PimIntf {

namespace {

// Constant data, so that they are there before any code of the library runs.
constexpr Kelpie::IpGenPrefix ip4Group(Kelpie::IpAddr::fromWord(0xe0000000), 4);
constexpr Kelpie::IpGenPrefix ip6Group(Kelpie::Ip6Addr(std::array<U8, 16>{0xff}), 8);

template <class Child, class Owner>
Vomo::Ptr<Owner> const& notNull(Vomo::Ptr<Owner> const& owner, U32 attr) {
    if (!owner) Vomo::throwMutatorArgNullPointerException(Vomo::IdOf<Child>::type, attr);
    return owner;
}

} // namespace

Vomo::Ptr<PrefixMrouteStatus> prefixMrouteStatusFactory(Vomo::String const& name) {
    return Vomo::newEntity<PrefixMrouteStatus>(name);
}

PrefixRouteInfo::PrefixRouteInfo(Kelpie::IpGenPrefix const& prefix,
                                 Vomo::Ptr<IntfStatus> const& intfStatus)
    : KeyedEntity(prefix), intfStatus_(notNull<PrefixRouteInfo>(intfStatus, intfStatusAttr)) {}
Kelpie::IpGenPrefix PrefixRouteInfo::prefixGroup(Kelpie::AddressFamily af) {
    PLAINASSERT(af == Kelpie::ipv4() || af == Kelpie::ipv6(),
                "false && \"Unsupported address family\"");
    return af == Kelpie::ipv4() ? ip4Group : ip6Group;
}
Kelpie::IpGenPrefix PrefixRouteInfo::ip4PrefixGroup() {
    return ip4Group;
}
Kelpie::IpGenPrefix PrefixRouteInfo::ip6PrefixGroup() {
    return ip6Group;
}
bool PrefixRouteInfo::isPrefixGroup(Kelpie::IpGenPrefix const& prefix) {
    return prefix == ip4Group || prefix == ip6Group; // a family is part of a prefix
}
Vomo::Ptr<IntfStatus> PrefixRouteInfo::intfStatus() const {
    return Vomo::Ptr<IntfStatus>(intfStatus_.of(this));
}
Vomo::Ptr<PrefixRouteInfo> prefixRouteInfoFactory(Kelpie::IpGenPrefix const& prefix,
                                                  Vomo::Ptr<IntfStatus> const& intfStatus) {
    return Vomo::newEntity<PrefixRouteInfo>(prefix, intfStatus);
}

IntfStatus::IntfStatus(Kelpie::IntfId intf, Vomo::Ptr<Status> const& status)
    : KeyedEntity(intf), pimIntfStatus_(notNull<IntfStatus>(status, pimIntfStatusAttr)) {}
Vomo::Ptr<Status> IntfStatus::pimIntfStatus() const {
    return Vomo::Ptr<Status>(pimIntfStatus_.of(this));
}
Vomo::Ptr<IntfStatus> intfStatusFactory(Kelpie::IntfId intf, Vomo::Ptr<Status> const& status) {
    return Vomo::newEntity<IntfStatus>(intf, status);
}

Vomo::String Status::mountPath(Kelpie::AddressFamily af) {
    return pathOf(af, "multicast/pimintf/status");
}
Vomo::Ptr<Status> statusFactory(Vomo::String const& name) {
    return Vomo::newEntity<Status>(name);
}

} // namespace Routing::Multicast::Fib::PimIntf
