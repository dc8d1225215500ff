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

namespace {
constexpr Vomo::TypeFrame types[] = {Vomo::frameOf<MrouteLib::VplsPwEncapInfo>};
} // namespace
constinit Vomo::VomoModule const Vomo::_McastVplsPwTypes_46bcb70d7f81f4f2_vomoModule =
    Vomo::ModuleRecord<types>::value;
constinit Vomo::ValueFrames<1> const Vomo::McastVplsPwTypesFrames =
    Vomo::ModuleRecord<types>::frames;
static Vomo::ModuleRegistration const
    registration(&Vomo::_McastVplsPwTypes_46bcb70d7f81f4f2_vomoModule);
