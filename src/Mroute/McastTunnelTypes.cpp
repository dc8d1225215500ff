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
    static constexpr auto type = enumeration<U8>("Multicast::Tunnel::TunnelType");
    static constexpr auto attributes = rows({
        literal(2, "invalid", 0),
        literal(3, "vxlanMcast", 1),
        literal(4, "vxlanIR", 2),
        literal(5, "vpls", 3),
        literal(6, "mpls", 4),
        literal(7, "vxlanBum", 5),
    });
};

namespace Multicast::Tunnel::TunnelTable {

std::ostream& operator<<(std::ostream& stream, FecIndex v) {
    return stream << v.value();
}

} // namespace Multicast::Tunnel::TunnelTable

namespace {
// In order of name.
constexpr Vomo::TypeFrame types[] = {
    Vomo::frameOf<Multicast::Tunnel::TunnelTable::FecIndex>,
    Vomo::frameOf<Multicast::Tunnel::TunnelTable::McastTunnelEncapInfo>,
    Vomo::frameOf<Multicast::Tunnel::TunnelType>,
};
} // namespace
constinit Vomo::VomoModule const Vomo::_McastTunnelTypes_30f62c28a09469df_vomoModule =
    Vomo::ModuleRecord<types>::value;
constinit Vomo::ValueFrames<3> const Vomo::McastTunnelTypesFrames =
    Vomo::ModuleRecord<types>::frames;
static Vomo::ModuleRegistration const
    registration(&Vomo::_McastTunnelTypes_30f62c28a09469df_vomoModule);
