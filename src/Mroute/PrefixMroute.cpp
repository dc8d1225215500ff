#include "Mroute/PrefixMroute.h"

#include "Mroute/MountPath.h"
#include "Mroute/PimIntf.h"
#include "Vomo/Record.h"

template <>
struct Vomo::Describe<Routing::Multicast::Fib::PimIntf::IntfStatus> {
    using T = Routing::Multicast::Fib::PimIntf::IntfStatus;
    static constexpr auto type = entity("Routing::Multicast::Fib::PimIntf::IntfStatus", wide);
    static constexpr auto attributes = rows({
        ctor<&T::key_>(T::intfIdAttr, "intfId"),
        collection<&T::route_>("route", "prefix"),
        owner<&T::pimIntfStatus_>(T::pimIntfStatusAttr, "pimIntfStatus"),
    });
};
template <>
struct Vomo::Describe<Routing::Multicast::Fib::PimIntf::PrefixKey> {
    using T = Routing::Multicast::Fib::PimIntf::PrefixKey;
    static constexpr auto type = value("Routing::Multicast::Fib::PimIntf::PrefixKey", wide);
    static constexpr auto attributes = rows({
        ctor<&T::prefix_>(2, "prefix"),
        ctor<&T::vrfName_>(3, "vrfName"),
        derived<&T::hash>(4, "hash"),
    });
};
template <>
struct Vomo::Describe<Routing::Multicast::Fib::PimIntf::PrefixMroute> {
    using T = Routing::Multicast::Fib::PimIntf::PrefixMroute;
    static constexpr auto type = value("Routing::Multicast::Fib::PimIntf::PrefixMroute", wide);
    static constexpr auto attributes = rows({
        ctor<&T::src_>(2, "src"),
        ctor<&T::intf_>(3, "intf"),
        derived<&T::hash>(4, "hash"),
    });
};
template <>
struct Vomo::Describe<Routing::Multicast::Fib::PimIntf::PrefixMrouteStatus> {
    using T = Routing::Multicast::Fib::PimIntf::PrefixMrouteStatus;
    static constexpr auto type =
        entity("Routing::Multicast::Fib::PimIntf::PrefixMrouteStatus", wide);
    static constexpr auto attributes = rows({
        collection<&T::route_>("route"),
    });
};
template <>
struct Vomo::Describe<Routing::Multicast::Fib::PimIntf::PrefixRouteInfo> {
    using T = Routing::Multicast::Fib::PimIntf::PrefixRouteInfo;
    static constexpr auto type = entity("Routing::Multicast::Fib::PimIntf::PrefixRouteInfo", wide);
    static constexpr auto attributes = rows({
        ctor<&T::key_>(T::prefixAttr, "prefix"),
        notifying<&T::programmed_>(T::programmedAttr, "programmed"),
        statics<&T::isPrefixGroup>(T::isPrefixGroupAttr, "isPrefixGroup", {"prefix"}),
        statics<&T::prefixGroup>(T::prefixGroupAttr, "prefixGroup", {"af"}),
        constant<&T::ip4PrefixGroup>(T::ip4PrefixGroupAttr, "ip4PrefixGroup"),
        constant<&T::ip6PrefixGroup>(T::ip6PrefixGroupAttr, "ip6PrefixGroup"),
        owner<&T::intfStatus_>(T::intfStatusAttr, "intfStatus"),
    });
};
template <>
struct Vomo::Describe<Routing::Multicast::Fib::PimIntf::Status> {
    using T = Routing::Multicast::Fib::PimIntf::Status;
    static constexpr auto type = entity("Routing::Multicast::Fib::PimIntf::Status", wide);
    static constexpr auto attributes = rows({
        collection<&T::intfStatus_>("intfStatus", "intfId"),
        collection<&T::srcToIntfMap_>("srcToIntfMap"),
        statics<&T::mountPath>(T::mountPathAttr, "mountPath", {"af"}),
    });
};

namespace Routing::Multicast::Fib::PimIntf {

U32 attrLogSize(PrefixKey const* v) {
    return 24 + attrLogSize(&v->vrfName());
}

} // namespace Routing::Multicast::Fib::PimIntf

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

namespace Vomo {
constinit decltype(PrefixMrouteModule::frames) PrefixMrouteModule::frames =
    ModuleRecord<PrefixMrouteModule>::frames;
constinit VomoModule const _PrefixMroute_11d6cdb3e6c20fbe_vomoModule =
    ModuleRecord<PrefixMrouteModule>::value;
static ModuleRegistration const registration(PrefixMrouteModule::record);
} // namespace Vomo
