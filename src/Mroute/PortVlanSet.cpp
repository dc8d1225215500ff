#include "Mroute/PortVlanSet.h"

#include "Vomo/Record.h"

template <>
struct Vomo::Describe<MrouteLib::PvSetChange> {
    using T = MrouteLib::PvSetChange;
    static constexpr auto type = enumeration<U8>("MrouteLib::PvSetChange");
    static constexpr auto attributes = rows({
        literal(5, "changed", T::changed),
        literal(6, "dfChanged", T::dfChanged),
        literal(7, "noChange", T::noChange),
    });
};
template <>
struct Vomo::Describe<MrouteLib::ToCpuPurpose> {
    using T = MrouteLib::ToCpuPurpose;
    static constexpr auto type = flagSet("MrouteLib::ToCpuPurpose");
    static constexpr auto attributes = flags({
        {"toCpuMcast", "toCpuMcast_", T::toCpuMcast_},
        {"toCpuVxlan", "toCpuVxlan_", T::toCpuVxlan_},
    });
};

namespace Vomo {
constinit decltype(PortVlanSetModule::frames) PortVlanSetModule::frames =
    ModuleRecord<PortVlanSetModule>::frames;
constinit VomoModule const _PortVlanSet_a48c9f8d500e2295_vomoModule =
    ModuleRecord<PortVlanSetModule>::value;
static ModuleRegistration const registration(PortVlanSetModule::record);
} // namespace Vomo
