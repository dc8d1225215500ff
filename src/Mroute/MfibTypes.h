// The multicast FIB's keys and small values: route keys and their kinds, flag sets, route priority,
// rendezvous-point index.
#pragma once

#include "Bridging/VlanId.h"
#include "Kelpie/IpPrefix.h"
#include "Mroute/BitMapperTypes.h"
#include "Mroute/McastGroup.h"
#include "Mroute/Wang.h"
#include "Vomo/FlagSet.h"

namespace Routing::Multicast::Fib {
class IifFlags;
class IntfFlags;
class IpGenRouteKey;
class RouteFlags;
class RouteKey;
enum class RouteKeyType : U32;
class RoutePriority;
class RpaIndex;
} // namespace Routing::Multicast::Fib

namespace Vomo {
extern "C" VomoModule const _MfibTypes_bf6f8d1799ee26b7_vomoModule;
struct MfibTypesModule
    : TypeList<Routing::Multicast::Fib::IifFlags, Routing::Multicast::Fib::IntfFlags,
               Routing::Multicast::Fib::IpGenRouteKey, Routing::Multicast::Fib::RouteFlags,
               Routing::Multicast::Fib::RouteKey, Routing::Multicast::Fib::RouteKeyType,
               Routing::Multicast::Fib::RoutePriority, Routing::Multicast::Fib::RpaIndex> {
    static constexpr VomoModule const* record = &_MfibTypes_bf6f8d1799ee26b7_vomoModule;
    static ValueFrames<size> const frames;
};
template <TypeOf<MfibTypesModule> T>
struct IdOf<T> : PlaceIn<T, MfibTypesModule> {};
} // namespace Vomo

namespace Routing::Multicast::Fib {

using ::Multicast::Group::GroupKey;
using Vomo::operator<<;
using Vomo::sequenceToValue;
using Vomo::stringValue;
using Vomo::valueToStrep;

// The kind of a route key: the top four bits of its group's address. A key made by hand may have a
// kind of 9 to 13, which is not declared here.
enum class RouteKeyType : U32 {
    unknownRouteKeyType = 0,
    vlanFloodset = 1,          // flood set of a VLAN
    multicastFloodset = 2,     // multicast flood set of a VLAN
    ethGroup = 3,              // one multicast MAC address in a VLAN
    mcastGroup = 4,            // a multicast group number
    vxlanCoreSideFloodset = 5, // VXLAN core-side flood set of a VLAN
    evpnMultihomeFloodset = 6, // EVPN multihoming flood set of a VLAN towards a tunnel endpoint
    multicastV6Floodset = 7,   // IPv6 multicast flood set of a VLAN
    mroute = 8,                // a real multicast route
};
inline RouteKeyType RouteKeyTypeInstance(unsigned int number) {
    return Vomo::enumInstance<RouteKeyType>(number);
}
inline RouteKeyType RouteKeyTypeInstance(Vomo::String const& name) {
    return Vomo::enumInstance<RouteKeyType>(name);
}

// The hash of one prefix of a key; 0 of a family other than IPv4 and IPv6. The table's readers hash a
// key with each step, so it stands here.
constexpr U32 prefixHash(Kelpie::IpGenPrefix const& p) {
    auto const len = static_cast<U32>(p.len());
    if (p.af() == Kelpie::ipv4()) return ::Mroute::wang(p.v4Addr().word() ^ len);
    if (p.af() == Kelpie::ipv6()) return ::Mroute::wang(p.v6Addr().hash() ^ len);
    return 0;
}

// The key of everything the multicast FIB holds: (S,G) routes, and flood entries that are packed
// into address space no group can occupy. An IPv4 group word is `kind`:4, `vlan`:12, 16 bits for the
// first two bytes of a MAC address. Asking a key for a part that its kind does not hold ends the
// process. Text: "s,g".
class IpGenRouteKey {
public:
    constexpr IpGenRouteKey() = default;
    constexpr IpGenRouteKey(Kelpie::IpGenPrefix const& s, Kelpie::IpGenPrefix const& g)
        : s_(s), g_(g) {}
    IpGenRouteKey(RouteKey const& key);
    explicit IpGenRouteKey(Vomo::CharRange& range);
    IpGenRouteKey(Vomo::NboAttrLog::In* in, Vomo::StreamBogon) { Vomo::read(*this, in); }

    constexpr Kelpie::IpGenPrefix const& s() const { return s_; }
    constexpr void sIs(Kelpie::IpGenPrefix const& v) { s_ = v; }
    constexpr Kelpie::IpGenPrefix const& g() const { return g_; }
    constexpr void gIs(Kelpie::IpGenPrefix const& v) { g_ = v; }
    // Stands in shared tables. Swapped prefixes collide, and s equal to g gives 0.
    constexpr U32 hash() const { return prefixHash(s_) ^ prefixHash(g_); }
    // For people: "(10.1.1.0/24,239.1.1.1)", "vlan7 Floodset".
    Vomo::String pretty() const;
    // The group must be IPv4, multicast or default.
    RouteKeyType kind() const;
    // Of a flood set or MAC address; raises RangeException for bits that are no VLAN.
    Bridging::VlanId vlanId() const;
    // Of a MAC address or a route (the MAC that the group maps to); all zero for other kinds.
    Kelpie::EthAddr ethAddr() const;
    GroupKey mcastGroup() const;
    // IPv4 only.
    Kelpie::IpGenAddr evpnTepIp() const;

    static IpGenRouteKey makeRouteKeyVlanFloodset(Bridging::VlanId vlan);
    static IpGenRouteKey makeRouteKeyMulticastFloodset(Bridging::VlanId vlan);
    static IpGenRouteKey makeRouteKeyEthGroup(Bridging::VlanId vlan, Kelpie::EthAddr const& mac);
    static IpGenRouteKey makeRouteKeyMcastGroup(GroupKey group);
    static IpGenRouteKey makeRouteKeyVxlanCoreSideFloodset(Bridging::VlanId vlan);
    static IpGenRouteKey makeRouteKeyEvpnMultihomeFloodset(Bridging::VlanId vlan,
                                                           Kelpie::IpGenAddr const& endpoint);
    static IpGenRouteKey makeRouteKeyMulticastV6Floodset(Bridging::VlanId vlan);
    // IPv4; an IPv6 key is made of its two prefixes.
    static IpGenRouteKey makeRouteKeyMroute(Kelpie::Prefix const& s, Kelpie::Prefix const& g);

    constexpr explicit operator bool() const { return !(*this == IpGenRouteKey()); }
    friend constexpr bool operator==(IpGenRouteKey const&, IpGenRouteKey const&) = default;
    // The group decides first, the source second.
    friend bool operator<(IpGenRouteKey const& a, IpGenRouteKey const& b) {
        return a.g_ == b.g_ ? a.s_ < b.s_ : a.g_ < b.g_;
    }

private:
    friend Vomo::Describe<IpGenRouteKey>;
    Kelpie::IpGenPrefix s_;
    Kelpie::IpGenPrefix g_;
};
static_assert(sizeof(IpGenRouteKey) == 48 && alignof(IpGenRouteKey) == 4);

// The compact IPv4 form of the same keys. Differs from the general form where said.
class RouteKey {
public:
    constexpr RouteKey() = default;
    constexpr RouteKey(Kelpie::Prefix s, Kelpie::Prefix g) : s_(s), g_(g) {}
    RouteKey(IpGenRouteKey const& key) : s_(key.s().v4Prefix()), g_(key.g().v4Prefix()) {}
    explicit RouteKey(Vomo::CharRange& range);
    RouteKey(Vomo::NboAttrLog::In* in, Vomo::StreamBogon) { Vomo::read(*this, in); }

    constexpr Kelpie::Prefix s() const { return s_; }
    constexpr void sIs(Kelpie::Prefix v) { s_ = v; }
    constexpr Kelpie::Prefix g() const { return g_; }
    constexpr void gIs(Kelpie::Prefix v) { g_ = v; }
    // That of the general form.
    U32 hash() const;
    Vomo::String pretty() const;
    // By the top four bits of the group alone.
    RouteKeyType kind() const;
    // Of any kind but a route; raises RangeException for bits that are no VLAN.
    Bridging::VlanId vlanId() const;
    // Of any kind but a route; all zero unless it is a MAC address.
    Kelpie::EthAddr ethAddr() const;
    GroupKey mcastGroup() const;
    Kelpie::IpGenAddr evpnTepIp() const;

    constexpr explicit operator bool() const { return !(*this == RouteKey()); }
    friend constexpr bool operator==(RouteKey const&, RouteKey const&) = default;
    // By group, then source. Of two prefixes the lower top bits decide, then the longer is first;
    // prefixes that differ only behind their length are neither less nor equal.
    friend bool operator<(RouteKey const& a, RouteKey const& b);

private:
    friend Vomo::Describe<RouteKey>;
    Kelpie::Prefix s_;
    Kelpie::Prefix g_;
};
static_assert(sizeof(RouteKey) == 16 && alignof(RouteKey) == 4);

// The builders of IpGenRouteKey under their own names.
IpGenRouteKey makeRouteKeyVlanFloodset(Bridging::VlanId vlan);
IpGenRouteKey makeRouteKeyMulticastFloodset(Bridging::VlanId vlan);
IpGenRouteKey makeRouteKeyEthGroup(Bridging::VlanId vlan, Kelpie::EthAddr const& mac);
IpGenRouteKey makeRouteKeyMcastGroup(GroupKey group);
IpGenRouteKey makeRouteKeyVxlanCoreSideFloodset(Bridging::VlanId vlan);
IpGenRouteKey makeRouteKeyEvpnMultihomeFloodset(Bridging::VlanId vlan,
                                                Kelpie::IpGenAddr const& endpoint);
IpGenRouteKey makeRouteKeyMulticastV6Floodset(Bridging::VlanId vlan);
IpGenRouteKey makeRouteKeyMroute(Kelpie::Prefix const& s, Kelpie::Prefix const& g);

Vomo::String valueToStrep(IpGenRouteKey const& v);
IpGenRouteKey sequenceToValue(Vomo::CharRange& range, IpGenRouteKey*);
// pretty()
std::ostream& operator<<(std::ostream& stream, IpGenRouteKey const& v);
// "(s, g)"
std::ostream& operator<<(std::ostream& stream, IpGenRouteKey const* v);

// Names the general type and the parts that the kind has: "Value('Routing::Multicast::Fib::
// IpGenRouteKey', ** {'kind': 'vlanFloodset', 'vlanId': 7})".
Vomo::String valueToStrep(RouteKey const& v);
// Reads that form, and consumes the whole range. The kinds evpnMultihomeFloodset and
// multicastV6Floodset are written in a form that is not read back: the first ends the process, the
// second raises RangeException.
RouteKey sequenceToValue(Vomo::CharRange& range, RouteKey*);
// The text form, not pretty().
std::ostream& operator<<(std::ostream& stream, RouteKey const& v);

// Flags of a route.
class RouteFlags : public Vomo::FlagSet<RouteFlags, 255> {
public:
    static RouteFlags const valid_, toCpu_, iifRegister_, oifRegister_, programmable_,
        skipSoftwareProgramming_, iifPmsi_, virtualRoute_;

    using FlagSet::FlagSet;

    constexpr bool valid() const { return has(valid_); }
    constexpr void validIs(bool v) { set(valid_, v); }
    constexpr bool toCpu() const { return has(toCpu_); }
    constexpr void toCpuIs(bool v) { set(toCpu_, v); }
    constexpr bool iifRegister() const { return has(iifRegister_); }
    constexpr void iifRegisterIs(bool v) { set(iifRegister_, v); }
    constexpr bool oifRegister() const { return has(oifRegister_); }
    constexpr void oifRegisterIs(bool v) { set(oifRegister_, v); }
    constexpr bool programmable() const { return has(programmable_); }
    constexpr void programmableIs(bool v) { set(programmable_, v); }
    constexpr bool skipSoftwareProgramming() const { return has(skipSoftwareProgramming_); }
    constexpr void skipSoftwareProgrammingIs(bool v) { set(skipSoftwareProgramming_, v); }
    constexpr bool iifPmsi() const { return has(iifPmsi_); }
    constexpr void iifPmsiIs(bool v) { set(iifPmsi_, v); }
    constexpr bool virtualRoute() const { return has(virtualRoute_); }
    constexpr void virtualRouteIs(bool v) { set(virtualRoute_, v); }
};
inline constexpr RouteFlags RouteFlags::valid_{1}, RouteFlags::toCpu_{2},
    RouteFlags::iifRegister_{4}, RouteFlags::oifRegister_{8}, RouteFlags::programmable_{16},
    RouteFlags::skipSoftwareProgramming_{32}, RouteFlags::iifPmsi_{64},
    RouteFlags::virtualRoute_{128};

// Flags of an interface of a route.
class IntfFlags : public Vomo::FlagSet<IntfFlags, 63> {
public:
    static IntfFlags const forward_, accept_, notify_, noRpf_, fastdrop_, frr_;

    using FlagSet::FlagSet;

    constexpr bool forward() const { return has(forward_); }
    constexpr void forwardIs(bool v) { set(forward_, v); }
    constexpr bool accept() const { return has(accept_); }
    constexpr void acceptIs(bool v) { set(accept_, v); }
    constexpr bool notify() const { return has(notify_); }
    constexpr void notifyIs(bool v) { set(notify_, v); }
    constexpr bool noRpf() const { return has(noRpf_); }
    constexpr void noRpfIs(bool v) { set(noRpf_, v); }
    constexpr bool fastdrop() const { return has(fastdrop_); }
    constexpr void fastdropIs(bool v) { set(fastdrop_, v); }
    constexpr bool frr() const { return has(frr_); }
    constexpr void frrIs(bool v) { set(frr_, v); }
};
inline constexpr IntfFlags IntfFlags::forward_{1}, IntfFlags::accept_{2}, IntfFlags::notify_{4},
    IntfFlags::noRpf_{8}, IntfFlags::fastdrop_{16}, IntfFlags::frr_{32};

// Flags of a route's incoming interface. Text: that of the one flag.
class IifFlags : public Vomo::FlagSet<IifFlags, 1> {
public:
    static IifFlags const noRpf_;

    using FlagSet::FlagSet;

    constexpr bool noRpf() const { return has(noRpf_); }
    constexpr void noRpfIs(bool v) { set(noRpf_, v); }
};
inline constexpr IifFlags IifFlags::noRpf_{1};

// Which source of routes wins; a higher number is preferred. 1 by default. Text: the number.
class RoutePriority {
public:
    static constexpr U8 null = 0;
    static constexpr U8 min = 1;
    static constexpr U8 max = 255;
    static constexpr U8 pimPriority = 1;
    static constexpr U8 staticPriority = 254;
    static constexpr U8 mcsPriority = 255;

    constexpr RoutePriority() = default;
    constexpr explicit RoutePriority(U8 value) : value_(value) {}
    explicit RoutePriority(Vomo::CharRange& range) { Vomo::parse(*this, range); }
    RoutePriority(Vomo::NboAttrLog::In* in, Vomo::StreamBogon) { Vomo::read(*this, in); }

    constexpr U8 value() const { return value_; }
    constexpr U32 hash() const { return value_; }
    // Differs from the default, so that `null` counts as set.
    constexpr explicit operator bool() const { return value_ != pimPriority; }

    friend constexpr bool operator==(RoutePriority, RoutePriority) = default;
    friend constexpr auto operator<=>(RoutePriority, RoutePriority) = default;

private:
    friend Vomo::Describe<RoutePriority>;
    U8 value_ = pimPriority;
};
static_assert(sizeof(RoutePriority) == 1);

// The bit index of a rendezvous-point address; 0 by default, though a BitIndex of 65535 is null.
class RpaIndex : public BitMapper::BitIndex {
public:
    static constexpr U16 rpaDefault = 0;

    constexpr RpaIndex() : BitIndex(rpaDefault) {}
    constexpr explicit RpaIndex(U16 value) : BitIndex(value) {}
    explicit RpaIndex(Vomo::CharRange& range) : BitIndex(range) {}
    RpaIndex(Vomo::NboAttrLog::In* in, Vomo::StreamBogon tag) : BitIndex(in, tag) {}
    constexpr explicit operator bool() const { return value() != rpaDefault; }
};
static_assert(sizeof(RpaIndex) == 2);

// For traces: "Flags: FAN" by letters for forward, accept, notify, noRpf (R); "Flags: None".
std::ostream& operator<<(std::ostream& stream, IntfFlags const* v);

// Where the FIB's mount tree begins: "routing/multicast/fib", "routing6/multicast/fib". Any other
// family ends the process.
Vomo::String mountPath(Kelpie::AddressFamily af);

} // namespace Routing::Multicast::Fib
