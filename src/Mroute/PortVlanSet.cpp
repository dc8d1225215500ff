#include "Mroute/PortVlanSet.h"

#include "Vomo/Record.h"

template <>
struct Vomo::Describe<MrouteLib::PvSetChange> {
    static constexpr auto type = enumeration<U8>("MrouteLib::PvSetChange");
    static constexpr auto attributes = rows({
        literal(5, "changed", 0),
        literal(6, "dfChanged", 1),
        literal(7, "noChange", 2),
    });
};
template <>
struct Vomo::Describe<MrouteLib::ToCpuPurpose> {
    using T = MrouteLib::ToCpuPurpose;
    static constexpr auto type = flagSet("MrouteLib::ToCpuPurpose");
    static constexpr auto attributes = rows({
        flag(2, "toCpuMcast"),
        flag(3, "toCpuVxlan"),
        raw(4, "value"),
        constant<&T::toCpuMcast_>(5, "toCpuMcast_"),
        constant<&T::toCpuVxlan_>(6, "toCpuVxlan_"),
    });
};

namespace {
// In order of name.
constexpr Vomo::TypeFrame types[] = {
    Vomo::frameOf<MrouteLib::PvSetChange>,
    Vomo::frameOf<MrouteLib::ToCpuPurpose>,
};
} // namespace
constinit Vomo::VomoModule const Vomo::_PortVlanSet_a48c9f8d500e2295_vomoModule =
    Vomo::ModuleRecord<types>::value;
constinit Vomo::ValueFrames<2> const Vomo::PortVlanSetFrames = Vomo::ModuleRecord<types>::frames;
static Vomo::ModuleRegistration const registration(&Vomo::_PortVlanSet_a48c9f8d500e2295_vomoModule);
