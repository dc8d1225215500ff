#include "Mroute/McastVplsPwTypes.h"

#include "Vomo/Record.h"

template <>
struct Vomo::Describe<MrouteLib::VplsPwEncapInfo> {
    using T = MrouteLib::VplsPwEncapInfo;
    static constexpr auto type = value("MrouteLib::VplsPwEncapInfo");
    static constexpr auto attributes = rows({
        ctor<&T::key_>(2, "key"),
        ctor<&T::hwFecId_>(3, "hwFecId"),
        ctor<&T::l2IntfId_>(4, "l2IntfId"),
    });
};

namespace Vomo {
constinit decltype(McastVplsPwTypesModule::frames) McastVplsPwTypesModule::frames =
    ModuleRecord<McastVplsPwTypesModule>::frames;
constinit VomoModule const _McastVplsPwTypes_46bcb70d7f81f4f2_vomoModule =
    ModuleRecord<McastVplsPwTypesModule>::value;
static ModuleRegistration const registration(McastVplsPwTypesModule::record);
} // namespace Vomo
