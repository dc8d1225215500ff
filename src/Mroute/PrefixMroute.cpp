#include "Mroute/PrefixMroute.h"

#include "Vomo/Record.h"

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
