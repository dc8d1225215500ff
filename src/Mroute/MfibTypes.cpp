#include "Mroute/MfibTypes.h"

#include "Mroute/RouteKeyBits.h"
#include "Vomo/PlacedRangeException.h"
#include "Vomo/Record.h"

#include <ostream>
#include <sstream>

template <>
struct Vomo::Describe<Routing::Multicast::Fib::IifFlags> {
    using T = Routing::Multicast::Fib::IifFlags;
    static constexpr auto type = flagSet("Routing::Multicast::Fib::IifFlags");
    static constexpr auto attributes = flags({
        {"noRpf", "noRpf_", T::noRpf_},
    });
};
template <>
struct Vomo::Describe<Routing::Multicast::Fib::IntfFlags> {
    using T = Routing::Multicast::Fib::IntfFlags;
    static constexpr auto type = flagSet("Routing::Multicast::Fib::IntfFlags");
    static constexpr auto attributes = flags({
        {"forward", "forward_", T::forward_},
        {"accept", "accept_", T::accept_},
        {"notify", "notify_", T::notify_},
        {"noRpf", "noRpf_", T::noRpf_},
        {"fastdrop", "fastdrop_", T::fastdrop_},
        {"frr", "frr_", T::frr_},
    });
};
template <>
struct Vomo::Describe<Routing::Multicast::Fib::IpGenRouteKey> {
    using T = Routing::Multicast::Fib::IpGenRouteKey;
    static constexpr auto type = value("Routing::Multicast::Fib::IpGenRouteKey", wide);
    static constexpr auto attributes = rows({
        mutates<&T::s_>(2, "s"),
        mutates<&T::g_>(3, "g"),
        derived<&T::hash>(4, "hash"),
        function<&T::pretty>(5, "pretty"),
        function<&T::kind>(6, "kind"),
        function<&T::vlanId>(7, "vlanId"),
        function<&T::ethAddr>(8, "ethAddr"),
        function<&T::mcastGroup>(9, "mcastGroup"),
        function<&T::evpnTepIp>(10, "evpnTepIp"),
        statics<&T::makeRouteKeyVlanFloodset>(11, "makeRouteKeyVlanFloodset", {"vlanId"}),
        statics<&T::makeRouteKeyMulticastFloodset>(12, "makeRouteKeyMulticastFloodset", {"vlanId"}),
        statics<&T::makeRouteKeyEthGroup>(13, "makeRouteKeyEthGroup", {"vlanId", "ethAddr"}),
        statics<&T::makeRouteKeyMcastGroup>(14, "makeRouteKeyMcastGroup", {"mcastGroup"}),
        statics<&T::makeRouteKeyVxlanCoreSideFloodset>(15, "makeRouteKeyVxlanCoreSideFloodset",
                                                       {"vlanId"}),
        statics<&T::makeRouteKeyEvpnMultihomeFloodset>(16, "makeRouteKeyEvpnMultihomeFloodset",
                                                       {"vlanId", "evpnTepIp"}),
        statics<&T::makeRouteKeyMulticastV6Floodset>(17, "makeRouteKeyMulticastV6Floodset",
                                                     {"vlanId"}),
        statics<&T::makeRouteKeyMroute>(18, "makeRouteKeyMroute", {"s", "g"}),
    });
};
template <>
struct Vomo::Describe<Routing::Multicast::Fib::RouteKey> {
    using T = Routing::Multicast::Fib::RouteKey;
    static constexpr auto type = value("Routing::Multicast::Fib::RouteKey");
    static constexpr auto attributes = rows({
        mutates<&T::s_>(2, "s"),
        mutates<&T::g_>(3, "g"),
        function<&T::hash>(4, "hash"),
        function<&T::pretty>(5, "pretty"),
        function<&T::kind>(6, "kind"),
        function<&T::vlanId>(7, "vlanId"),
        function<&T::ethAddr>(8, "ethAddr"),
        function<&T::mcastGroup>(9, "mcastGroup"),
        function<&T::evpnTepIp>(10, "evpnTepIp"),
    });
};
template <>
struct Vomo::Describe<Routing::Multicast::Fib::RouteFlags> {
    using T = Routing::Multicast::Fib::RouteFlags;
    static constexpr auto type = flagSet("Routing::Multicast::Fib::RouteFlags");
    static constexpr auto attributes = flags({
        {"valid", "valid_", T::valid_},
        {"toCpu", "toCpu_", T::toCpu_},
        {"iifRegister", "iifRegister_", T::iifRegister_},
        {"oifRegister", "oifRegister_", T::oifRegister_},
        {"programmable", "programmable_", T::programmable_},
        {"skipSoftwareProgramming", "skipSoftwareProgramming_", T::skipSoftwareProgramming_},
        {"iifPmsi", "iifPmsi_", T::iifPmsi_},
        {"virtualRoute", "virtualRoute_", T::virtualRoute_},
    });
};
template <>
struct Vomo::Describe<Routing::Multicast::Fib::RouteKeyType> {
    using T = Routing::Multicast::Fib::RouteKeyType;
    static constexpr auto type = enumeration<U32>("Routing::Multicast::Fib::RouteKeyType");
    static constexpr auto attributes = rows({
        literal(2, "unknownRouteKeyType", T::unknownRouteKeyType),
        literal(3, "vlanFloodset", T::vlanFloodset),
        literal(4, "multicastFloodset", T::multicastFloodset),
        literal(5, "ethGroup", T::ethGroup),
        literal(6, "mcastGroup", T::mcastGroup),
        literal(7, "vxlanCoreSideFloodset", T::vxlanCoreSideFloodset),
        literal(8, "evpnMultihomeFloodset", T::evpnMultihomeFloodset),
        literal(9, "multicastV6Floodset", T::multicastV6Floodset),
        literal(10, "mroute", T::mroute),
    });
};
template <>
struct Vomo::Describe<Routing::Multicast::Fib::RoutePriority> {
    using T = Routing::Multicast::Fib::RoutePriority;
    static constexpr auto type = value("Routing::Multicast::Fib::RoutePriority", wrapper);
    static constexpr auto attributes = rows({
        ctor<&T::value_>(2, "value"),
        derived<&T::hash>(3, "hash"),
        constant<&T::null>(4, "null"),
        constant<&T::min>(5, "min"),
        constant<&T::max>(6, "max"),
        constant<&T::pimPriority>(7, "pimPriority"),
        constant<&T::staticPriority>(8, "staticPriority"),
        constant<&T::mcsPriority>(9, "mcsPriority"),
    });
};
template <>
struct Vomo::Describe<Routing::Multicast::Fib::RpaIndex> {
    using T = Routing::Multicast::Fib::RpaIndex;
    using Base = BitMapper::BitIndex;
    static constexpr auto type = derivedValue<Base>("Routing::Multicast::Fib::RpaIndex", wrapper,
                                                    {"value", &fieldType<U16>});
    static constexpr auto attributes = rows({constant<&T::rpaDefault>(130, "rpaDefault")});
};

namespace Routing::Multicast::Fib {

using namespace RouteKeyBits;

RouteKeyType IpGenRouteKey::kind() const {
    if (g_.isMulticast()) return RouteKeyType::mroute;
    if (g_ == Kelpie::IpGenPrefix()) return RouteKeyType::unknownRouteKeyType;
    PLAINASSERT(g().af() == Kelpie::ipv4(), "g().af() == Kelpie::ipv4()");
    return kindOf(g_.v4Addr());
}

Bridging::VlanId IpGenRouteKey::vlanId() const {
    using enum RouteKeyType;
    RouteKeyType const type = kind();
    PLAINASSERT(
        type == vlanFloodset || type == multicastV6Floodset ||
            type == RouteKeyType::multicastFloodset || type == vxlanCoreSideFloodset ||
            type == ethGroup || type == evpnMultihomeFloodset,
        "type == vlanFloodset_ or type == multicastV6Floodset_ or type == multicastFloodset_ or "
        "type == vxlanCoreSideFloodset_ or type == ethGroup_ or type == evpnMultihomeFloodset_");
    return Bridging::VlanId(vlanBits(g_.v4Addr()));
}

Kelpie::EthAddr IpGenRouteKey::ethAddr() const {
    RouteKeyType const type = kind();
    if (type == RouteKeyType::mroute) return g_.address().mcastEtherAddress();
    return type == RouteKeyType::ethGroup ? macOf(s_.v4Addr(), g_.v4Addr()) : Kelpie::EthAddr();
}

GroupKey IpGenRouteKey::mcastGroup() const {
    PLAINASSERT(kind() == RouteKeyType::mcastGroup, "type == mcastGroup_");
    return groupOf(s_.v4Addr());
}

Kelpie::IpGenAddr IpGenRouteKey::evpnTepIp() const {
    PLAINASSERT(kind() == RouteKeyType::evpnMultihomeFloodset, "type == evpnMultihomeFloodset_");
    return s_.v4Prefix().address();
}

namespace {

// A flood set has the IPv4 zero prefix for a source.
IpGenRouteKey floodset(RouteKeyType type, Bridging::VlanId vlan) {
    return {Kelpie::Prefix(), Kelpie::Prefix(groupAddress(type, vlan.value()), 32)};
}

} // namespace

IpGenRouteKey IpGenRouteKey::makeRouteKeyVlanFloodset(Bridging::VlanId vlan) {
    return floodset(RouteKeyType::vlanFloodset, vlan);
}
IpGenRouteKey IpGenRouteKey::makeRouteKeyMulticastFloodset(Bridging::VlanId vlan) {
    return floodset(RouteKeyType::multicastFloodset, vlan);
}
IpGenRouteKey IpGenRouteKey::makeRouteKeyEthGroup(Bridging::VlanId vlan,
                                                  Kelpie::EthAddr const& mac) {
    U32 const source =
        U32{mac.byte(2)} << 24 | U32{mac.byte(3)} << 16 | U32{mac.byte(4)} << 8 | mac.byte(5);
    U32 const group = groupAddress(RouteKeyType::ethGroup, vlan.value()).word() |
                      U32{mac.byte(0)} << 8 | mac.byte(1);
    return {Kelpie::Prefix(Kelpie::IpAddr::fromWord(source), 32),
            Kelpie::Prefix(Kelpie::IpAddr::fromWord(group), 32)};
}
IpGenRouteKey IpGenRouteKey::makeRouteKeyMcastGroup(GroupKey group) {
    U32 const source = U32{group.kind()} << 16 | group.index();
    return {Kelpie::Prefix(Kelpie::IpAddr::fromWord(source), 32),
            Kelpie::Prefix(groupAddress(RouteKeyType::mcastGroup, 0), 32)};
}
IpGenRouteKey IpGenRouteKey::makeRouteKeyVxlanCoreSideFloodset(Bridging::VlanId vlan) {
    return floodset(RouteKeyType::vxlanCoreSideFloodset, vlan);
}
IpGenRouteKey IpGenRouteKey::makeRouteKeyEvpnMultihomeFloodset(Bridging::VlanId vlan,
                                                               Kelpie::IpGenAddr const& endpoint) {
    return {Kelpie::IpGenPrefix(endpoint, 32),
            Kelpie::Prefix(groupAddress(RouteKeyType::evpnMultihomeFloodset, vlan.value()), 32)};
}
IpGenRouteKey IpGenRouteKey::makeRouteKeyMulticastV6Floodset(Bridging::VlanId vlan) {
    return floodset(RouteKeyType::multicastV6Floodset, vlan);
}
IpGenRouteKey IpGenRouteKey::makeRouteKeyMroute(Kelpie::Prefix const& s, Kelpie::Prefix const& g) {
    return {s, g};
}

IpGenRouteKey makeRouteKeyVlanFloodset(Bridging::VlanId vlan) {
    return IpGenRouteKey::makeRouteKeyVlanFloodset(vlan);
}
IpGenRouteKey makeRouteKeyMulticastFloodset(Bridging::VlanId vlan) {
    return IpGenRouteKey::makeRouteKeyMulticastFloodset(vlan);
}
IpGenRouteKey makeRouteKeyEthGroup(Bridging::VlanId vlan, Kelpie::EthAddr const& mac) {
    return IpGenRouteKey::makeRouteKeyEthGroup(vlan, mac);
}
IpGenRouteKey makeRouteKeyMcastGroup(GroupKey group) {
    return IpGenRouteKey::makeRouteKeyMcastGroup(group);
}
IpGenRouteKey makeRouteKeyVxlanCoreSideFloodset(Bridging::VlanId vlan) {
    return IpGenRouteKey::makeRouteKeyVxlanCoreSideFloodset(vlan);
}
IpGenRouteKey makeRouteKeyEvpnMultihomeFloodset(Bridging::VlanId vlan,
                                                Kelpie::IpGenAddr const& endpoint) {
    return IpGenRouteKey::makeRouteKeyEvpnMultihomeFloodset(vlan, endpoint);
}
IpGenRouteKey makeRouteKeyMulticastV6Floodset(Bridging::VlanId vlan) {
    return IpGenRouteKey::makeRouteKeyMulticastV6Floodset(vlan);
}
IpGenRouteKey makeRouteKeyMroute(Kelpie::Prefix const& s, Kelpie::Prefix const& g) {
    return IpGenRouteKey::makeRouteKeyMroute(s, g);
}

IpGenRouteKey::IpGenRouteKey(RouteKey const& key) : s_(key.s()), g_(key.g()) {}
IpGenRouteKey::IpGenRouteKey(Vomo::CharRange& range) {
    s_ = Vomo::deserializePlacedAttr<Kelpie::IpGenPrefix>(range, "s");
    range.needString(",");
    g_ = Vomo::deserializePlacedAttr<Kelpie::IpGenPrefix>(range, "g");
}

IpGenRouteKey sequenceToValue(Vomo::CharRange& range, IpGenRouteKey*) {
    return IpGenRouteKey(range);
}
Vomo::String valueToStrep(IpGenRouteKey const& v) {
    return fmt::format("{},{}", v.s(), v.g());
}
std::ostream& operator<<(std::ostream& stream, IpGenRouteKey const& v) {
    return stream << v.pretty();
}
std::ostream& operator<<(std::ostream& stream, IpGenRouteKey const* v) {
    return stream << "(" << v->s() << ", " << v->g() << ")";
}

Vomo::String IpGenRouteKey::pretty() const {
    RouteKeyType const type = kind();
    PLAINASSERT(type <= RouteKeyType::mroute, "0 && \"Unexpected RouteKey type\"");
    if (type != RouteKeyType::mroute) return prettyFlood(*this, type);
    if (s_.len() == 0) return fmt::format("(*,{})", g_.address());
    auto const text = [](Kelpie::IpGenPrefix const& p) {
        return p.isHost() ? p.address().stringValue() : p.stringValue();
    };
    return fmt::format("({},{})", text(s_), text(g_));
}

std::ostream& operator<<(std::ostream& stream, IntfFlags const* v) {
    stream << "Flags: ";
    if (v->value() == 0) return stream << "None";
    if (v->forward()) stream << 'F';
    if (v->accept()) stream << 'A';
    if (v->notify()) stream << 'N';
    if (v->noRpf()) stream << 'R';
    return stream;
}

} // namespace Routing::Multicast::Fib

namespace Vomo {
constinit decltype(MfibTypesModule::frames) MfibTypesModule::frames =
    ModuleRecord<MfibTypesModule>::frames;
constinit VomoModule const _MfibTypes_bf6f8d1799ee26b7_vomoModule =
    ModuleRecord<MfibTypesModule>::value;
static ModuleRegistration const registration(MfibTypesModule::record);
} // namespace Vomo
