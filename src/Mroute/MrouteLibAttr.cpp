#include "Mroute/MrouteLibAttr.h"

#include "Mroute/PimEnabled.h"
#include "Vomo/Record.h"

template <>
struct Vomo::Describe<MrouteLib::PimEnabled> {
    using T = MrouteLib::PimEnabled;
    static constexpr auto type = entity("MrouteLib::PimEnabled", wide);
    static constexpr auto attributes = rows({
        collection<&T::pimVlanEnabled_>("pimVlanEnabled"),
        collection<&T::igmpVlanEnabled_>("igmpVlanEnabled"),
    });
};
template <>
struct Vomo::Describe<MrouteLib::RouteKeyInfo> {
    using T = MrouteLib::RouteKeyInfo;
    static constexpr auto type = value("MrouteLib::RouteKeyInfo", wide);
    static constexpr auto attributes = rows({
        ctor<&T::key_>(2, "key"),
        ctor<&T::acceptingVlanId_>(3, "acceptingVlanId"),
        ctor<&T::vrfName_>(4, "vrfName"),
        derived<&T::hash>(5, "hash"),
    });
};

namespace MrouteLib {

U32 RouteKeyInfo::hash() const {
    return key_.hash() ^ acceptingVlanId_.hash(0) ^ vrfName_.hash(0);
}
bool operator<(RouteKeyInfo const& a, RouteKeyInfo const& b) {
    if (a.key_ != b.key_) return a.key_ < b.key_;
    if (a.acceptingVlanId_ != b.acceptingVlanId_) return a.acceptingVlanId_ < b.acceptingVlanId_;
    return a.vrfName_ < b.vrfName_;
}
U32 attrLogSize(RouteKeyInfo const* v) {
    return 50 + attrLogSize(&v->vrfName());
}
Vomo::Ptr<PimEnabled> pimEnabledFactory(Vomo::String const& name) {
    return Vomo::newEntity<PimEnabled>(name);
}

} // namespace MrouteLib

namespace Vomo {
constinit decltype(MrouteLibAttrModule::frames) MrouteLibAttrModule::frames =
    ModuleRecord<MrouteLibAttrModule>::frames;
constinit VomoModule const _MrouteLibAttr_9a81120073b9f37c_vomoModule =
    ModuleRecord<MrouteLibAttrModule>::value;
static ModuleRegistration const registration(MrouteLibAttrModule::record);
} // namespace Vomo
