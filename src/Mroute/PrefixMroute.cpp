#include "Mroute/PrefixMroute.h"

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

namespace Vomo {
constinit decltype(PrefixMrouteModule::frames) PrefixMrouteModule::frames =
    ModuleRecord<PrefixMrouteModule>::frames;
constinit VomoModule const _PrefixMroute_11d6cdb3e6c20fbe_vomoModule =
    ModuleRecord<PrefixMrouteModule>::value;
static ModuleRegistration const registration(PrefixMrouteModule::record);
} // namespace Vomo
