// What the two forms of a route key share: the packing of kind, VLAN, MAC address and group number
// into two IPv4 words, the hash of a prefix, the text of a flood entry. Internal.
#pragma once

#include "Mroute/MfibTypes.h"
#include "Mroute/Wang.h"
#include "Vomo/Exception.h"

#include <sstream>

namespace Routing::Multicast::Fib::RouteKeyBits {

inline Kelpie::IpAddr groupAddress(RouteKeyType type, U16 vlan) {
    return Kelpie::IpAddr::fromWord(static_cast<U32>(type) << 28 | U32{vlan} << 16);
}

// 14 and 15 are the address space of real groups and what is reserved behind it.
inline RouteKeyType kindOf(Kelpie::IpAddr group) {
    U32 const nibble = group.word() >> 28;
    return nibble >= 14 ? RouteKeyType::mroute : static_cast<RouteKeyType>(nibble);
}

inline U16 vlanBits(Kelpie::IpAddr group) {
    return group.word() >> 16 & 0xfff;
}

inline Kelpie::EthAddr macOf(Kelpie::IpAddr source, Kelpie::IpAddr group) {
    auto const byte = [](U32 word, unsigned shift) { return static_cast<U8>(word >> shift); };
    U32 const s = source.word(), g = group.word();
    return Kelpie::EthAddr(
        {byte(g, 8), byte(g, 0), byte(s, 24), byte(s, 16), byte(s, 8), byte(s, 0)});
}

inline GroupKey groupOf(Kelpie::IpAddr source) {
    return {static_cast<U16>(source.word() >> 16), static_cast<U16>(source.word())};
}

// The text for people of any kind but a route.
template <class Key>
Vomo::String prettyFlood(Key const& key, RouteKeyType type) {
    std::ostringstream text;
    switch (type) {
    case RouteKeyType::unknownRouteKeyType:
        text << "Unknown Type";
        break;
    case RouteKeyType::vlanFloodset:
        text << "vlan" << key.vlanId() << " Floodset";
        break;
    case RouteKeyType::multicastFloodset:
        text << "vlan" << key.vlanId() << " Multicast Floodset";
        break;
    case RouteKeyType::ethGroup:
        text << "vlan" << key.vlanId() << " " << key.ethAddr();
        break;
    case RouteKeyType::mcastGroup:
        text << "Mcast Group Kind " << key.mcastGroup().kind() << " Index "
             << key.mcastGroup().index();
        break;
    case RouteKeyType::vxlanCoreSideFloodset:
        text << "vlan" << key.vlanId() << " Vxlan CoreSide Floodset";
        break;
    case RouteKeyType::evpnMultihomeFloodset:
        text << "vlan" << key.vlanId() << " " << key.evpnTepIp() << " EvpnMultihomeFloodset";
        break;
    case RouteKeyType::multicastV6Floodset:
        text << "vlan" << key.vlanId() << " IPv6 Multicast Floodset";
        break;
    default: // a route
        break;
    }
    return text.str();
}

} // namespace Routing::Multicast::Fib::RouteKeyBits
