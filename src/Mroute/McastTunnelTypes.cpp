#include "Mroute/McastTunnelTypes.h"

#include "Vomo/Record.h"

template <>
struct Vomo::Describe<Multicast::Tunnel::TunnelTable::FecIndex> {
    using T = Multicast::Tunnel::TunnelTable::FecIndex;
    static constexpr auto type = value("Multicast::Tunnel::TunnelTable::FecIndex", wrapper);
    static constexpr auto attributes = rows({
        ctor<&T::value_>(2, "value"),
        constant<&T::null>(3, "null"),
        derived<&T::hash>(4, "hash"),
    });
};
template <>
struct Vomo::Describe<Multicast::Tunnel::TunnelTable::McastTunnelEncapInfo> {
    using T = Multicast::Tunnel::TunnelTable::McastTunnelEncapInfo;
    static constexpr auto type = value("Multicast::Tunnel::TunnelTable::McastTunnelEncapInfo");
    static constexpr auto attributes = rows({
        ctor<&T::fecIndex_>(2, "fecIndex"),
        mutates<&T::outlifId_>(3, "outlifId"),
        mutates<&T::l2IntfId_>(4, "l2IntfId"),
    });
};
template <>
struct Vomo::Describe<Multicast::Tunnel::TunnelType> {
    using T = Multicast::Tunnel::TunnelType;
    static constexpr auto type = enumeration<U8>("Multicast::Tunnel::TunnelType");
    static constexpr auto attributes = rows({
        literal(2, "invalid", T::invalid),
        literal(3, "vxlanMcast", T::vxlanMcast),
        literal(4, "vxlanIR", T::vxlanIR),
        literal(5, "vpls", T::vpls),
        literal(6, "mpls", T::mpls),
        literal(7, "vxlanBum", T::vxlanBum),
    });
};

namespace Multicast::Tunnel::TunnelTable {

std::ostream& operator<<(std::ostream& stream, FecIndex v) {
    return stream << v.value();
}

} // namespace Multicast::Tunnel::TunnelTable

namespace Vomo {
constinit decltype(McastTunnelTypesModule::frames) McastTunnelTypesModule::frames =
    ModuleRecord<McastTunnelTypesModule>::frames;
constinit VomoModule const _McastTunnelTypes_30f62c28a09469df_vomoModule =
    ModuleRecord<McastTunnelTypesModule>::value;
static ModuleRegistration const registration(McastTunnelTypesModule::record);
} // namespace Vomo
