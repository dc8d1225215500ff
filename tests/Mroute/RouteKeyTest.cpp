// Route keys: packing of kinds, parts, texts in both forms, order, hash.
#include "Mroute/Mfib.h"
#include "Vomo/SerDes.h"

#include <sstream>

namespace {

using namespace Routing::Multicast::Fib;

IpGenRouteKey key(char const* text) {
    return Vomo::strepToValue(Vomo::String(text), static_cast<IpGenRouteKey*>(nullptr));
}
Bridging::VlanId vlan(U16 number) {
    return Bridging::VlanId(number);
}
Kelpie::EthAddr const mac({0x01, 0x00, 0x5e, 0x01, 0x02, 0x03});

struct Kind {
    IpGenRouteKey key;
    RouteKeyType kind;
    char const* text;
    char const* pretty;
    U32 hash;
    bool readsBack; // the compact form's text
};
std::vector<Kind> kinds() {
    using enum RouteKeyType;
    Kelpie::IpGenAddr const endpoint(Kelpie::IpAddr::fromWord(0x0a000001));
    return {
        {{}, unknownRouteKeyType, "none/0,none/0", "Unknown Type", 0, true},
        {makeRouteKeyVlanFloodset(vlan(100)), vlanFloodset, "0.0.0.0/0,16.100.0.0/32",
         "vlan100 Floodset", 1789542164U, true},
        {makeRouteKeyVlanFloodset(vlan(4094)), vlanFloodset, "0.0.0.0/0,31.254.0.0/32",
         "vlan4094 Floodset", 2178586854U, true},
        {makeRouteKeyMulticastFloodset(vlan(7)), RouteKeyType::multicastFloodset,
         "0.0.0.0/0,32.7.0.0/32", "vlan7 Multicast Floodset", 435728345U, true},
        {makeRouteKeyEthGroup(vlan(1), mac), ethGroup, "94.1.2.3/32,48.1.1.0/32",
         "vlan1 01:00:5e:01:02:03", 3209057802U, true},
        {makeRouteKeyMcastGroup({19, 7}), RouteKeyType::mcastGroup, "0.19.0.7/32,64.0.0.0/32",
         "Mcast Group Kind 19 Index 7", 3539757064U, true},
        {makeRouteKeyVxlanCoreSideFloodset(vlan(7)), vxlanCoreSideFloodset, "0.0.0.0/0,80.7.0.0/32",
         "vlan7 Vxlan CoreSide Floodset", 1907775383U, true},
        {makeRouteKeyEvpnMultihomeFloodset(vlan(7), endpoint), evpnMultihomeFloodset,
         "10.0.0.1/32,96.7.0.0/32", "vlan7 10.0.0.1 EvpnMultihomeFloodset", 3478915571U, false},
        {makeRouteKeyMulticastV6Floodset(vlan(7)), multicastV6Floodset, "0.0.0.0/0,112.7.0.0/32",
         "vlan7 IPv6 Multicast Floodset", 1598527846U, false},
        {key("10.1.1.0/24,239.1.1.1/32"), mroute, "10.1.1.0/24,239.1.1.1/32",
         "(10.1.1.0/24,239.1.1.1)", 1623473251U, true},
        {key("10.1.1.9/32,239.1.0.0/16"), mroute, "10.1.1.9/32,239.1.0.0/16",
         "(10.1.1.9,239.1.0.0/16)", 621592511U, true},
        {key("0.0.0.0/0,239.1.0.0/16"), mroute, "0.0.0.0/0,239.1.0.0/16", "(*,239.1.0.0)",
         3105057547U, true},
        {key("0.0.0.0/0,240.0.0.1/32"), mroute, "0.0.0.0/0,240.0.0.1/32", "(*,240.0.0.1)",
         1525428322U, true},
        {key("0.0.0.0/0,128.0.0.1/32"), mroute, "0.0.0.0/0,128.0.0.1/32", "(*,128.0.0.1)",
         1912261492U, true},
    };
}

TEST(RouteKey, EveryKindPrintsHashesAndReadsBack) {
    for (Kind const& row : kinds()) {
        SCOPED_TRACE(row.text);
        EXPECT_EQ(valueToStrep(row.key), row.text);
        EXPECT_EQ(key(row.text), row.key);
        EXPECT_EQ(row.key.kind(), row.kind);
        EXPECT_EQ(row.key.pretty(), row.pretty);
        if (row.kind != RouteKeyType::unknownRouteKeyType) {
            EXPECT_EQ(row.key.hash(), row.hash);
        }
        RouteKey const compact(row.key);
        EXPECT_EQ(compact.kind(), row.kind);
        EXPECT_EQ(compact.pretty(), row.pretty);
        if (row.kind == RouteKeyType::unknownRouteKeyType) {
            EXPECT_EQ(row.key.hash(), 0U);
            continue;
        }
        EXPECT_EQ(compact.hash(), row.key.hash());
        EXPECT_EQ(IpGenRouteKey(compact), row.key);
        if (row.readsBack) {
            EXPECT_EQ(Vomo::strepToValue(valueToStrep(compact), static_cast<RouteKey*>(nullptr)),
                      compact);
        }
    }
}

TEST(RouteKey, TextOfTheCompactForm) {
    struct {
        IpGenRouteKey key;
        char const* text;
    } const rows[] = {
        {{}, "'unknownRouteKeyType'})"},
        {key("1.2.3.4/32,144.0.0.1/32"), "9})"},
        {makeRouteKeyVlanFloodset(vlan(7)), "'vlanFloodset', 'vlanId': 7})"},
        {makeRouteKeyEthGroup(vlan(7), mac),
         "'ethGroup', 'vlanId': 7, 'ethGroup': 01:00:5e:01:02:03})"},
        {makeRouteKeyMcastGroup({19, 7}), "'mcastGroup', 'kind': 19, 'index': 7})"},
        {makeRouteKeyEvpnMultihomeFloodset(vlan(7), Kelpie::IpAddr::fromWord(1)),
         "'evpnMultihomeFloodset', 'vlanID': 7, 'Peer VTEP IP': 0.0.0.1})"},
        {key("10.0.0.0/8,239.1.1.1/32"), "'mroute', 's': 10.0.0.0/8, 'g': 239.1.1.1/32})"},
    };
    for (auto const& row : rows)
        EXPECT_EQ(valueToStrep(RouteKey(row.key)),
                  Vomo::String("Value('Routing::Multicast::Fib::IpGenRouteKey', ** {'kind': ") +
                      row.text);
}

RouteKey parse(Vomo::String const& parts) {
    Vomo::String const text =
        "Value('Routing::Multicast::Fib::IpGenRouteKey', ** {'kind': " + parts;
    return Vomo::strepToValue(text, static_cast<RouteKey*>(nullptr));
}

TEST(RouteKey, WhatDoesNotReadBack) {
    EXPECT_DEATH(parse("'evpnMultihomeFloodset', 'vlanID': 7, 'Peer VTEP IP': 0.0.0.1})"),
                 "matches == 2");
    EXPECT_THROW(parse("'multicastV6Floodset', 'vlanId': 7})"), Vomo::RangeException);
    EXPECT_THROW(parse("'noSuchKind', 'vlanId': 7})"), Vomo::RangeException);
    EXPECT_THROW(parse("'vlanFloodset', 'vlanId': 4095})"), Vomo::RangeException);
    EXPECT_DEATH(parse("'vlanFloodset', 'vlan': 7})"), "matches == 1");
    EXPECT_DEATH(parse("'vlanFloodset"), "v <= remainingSize\\(\\)");
    EXPECT_DEATH(Vomo::strepToValue(Vomo::String("10.0.0.0/8"), static_cast<RouteKey*>(nullptr)),
                 "matches == 1");
    // What stands behind is swallowed; the VLAN is cut to 16 bits.
    EXPECT_EQ(parse("'vlanFloodset', 'vlanId': 65543 and so on"),
              RouteKey(makeRouteKeyVlanFloodset(vlan(7))));
}

TEST(RouteKey, PartsOfTheWrongKindEndTheProcess) {
    IpGenRouteKey const route = key("10.0.0.1/32,239.1.1.1/32"), six = key("::/0,2001:db8::1/128");
    EXPECT_DEATH(route.vlanId(), "type == vlanFloodset_ or type == multicastV6Floodset_ or");
    EXPECT_DEATH(route.mcastGroup(), "type == mcastGroup_");
    EXPECT_DEATH(route.evpnTepIp(), "type == evpnMultihomeFloodset_");
    EXPECT_DEATH(six.kind(), "g\\(\\).af\\(\\) == Kelpie::ipv4\\(\\)");
    EXPECT_DEATH(RouteKey(route).vlanId(), "key.kind\\(\\) != mroute_");
    EXPECT_DEATH(RouteKey(route).ethAddr(), "type != mroute_");
    EXPECT_DEATH(key("0.0.0.0/0,144.0.0.1/32").pretty(), "0 && \"Unexpected RouteKey type\"");
    EXPECT_DEATH(mountPath(Kelpie::AddressFamily(3)), "false && \"Unsupported address family\"");
}

TEST(RouteKey, PartsOfTheRightKind) {
    EXPECT_EQ(makeRouteKeyEthGroup(vlan(1), mac).ethAddr(), mac);
    EXPECT_EQ(RouteKey(makeRouteKeyEthGroup(vlan(1), mac)).ethAddr(), mac);
    EXPECT_EQ(valueToStrep(key("10.0.0.1/32,239.129.1.1/32").ethAddr()), "01:00:5e:01:01:01");
    EXPECT_EQ(IpGenRouteKey().ethAddr(), Kelpie::EthAddr());
    EXPECT_EQ(makeRouteKeyMcastGroup({19, 7}).mcastGroup(), GroupKey(19, 7));
    EXPECT_EQ(key("::/0,ff02::1/128").kind(), RouteKeyType::mroute);
    EXPECT_EQ(RouteKey(key("0.0.0.0/0,144.7.0.1/32")).vlanId(), vlan(7)); // a kind nobody declares
    // No VLAN in the bits.
    EXPECT_THROW(key("0.0.0.0/0,16.0.0.0/32").vlanId(), Vomo::RangeException);
    EXPECT_THROW(RouteKey(key("0.0.0.0/0,16.0.0.0/32")).vlanId(), Vomo::RangeException);
    EXPECT_THROW(RouteKey().vlanId(), Vomo::RangeException);
    EXPECT_EQ(mountPath(Kelpie::ipv4()), "routing/multicast/fib");
    EXPECT_EQ(mountPath(Kelpie::ipv6()), "routing6/multicast/fib");
}

TEST(RouteKey, StreamFormsDiffer) {
    IpGenRouteKey const route = key("10.0.0.1/32,239.1.1.1/32");
    std::ostringstream text;
    text << route << " " << &route << " " << RouteKey(route);
    EXPECT_EQ(text.str(),
              "(10.0.0.1,239.1.1.1) (10.0.0.1/32, 239.1.1.1/32) " + valueToStrep(RouteKey(route)));
}

TEST(RouteKey, GroupDecidesThenSource) {
    struct {
        char const *less, *greater;
        bool general, compact;
    } const rows[] = {
        {"10.9.0.0/16,239.1.1.1/32", "10.1.0.0/16,239.1.1.2/32", true, true},
        {"10.1.0.0/16,239.1.1.1/32", "10.0.0.0/8,239.1.1.1/32", true, true},
        {"10.0.0.0/8,239.1.1.1/32", "11.0.0.0/8,239.1.1.1/32", true, true},
        {"10.0.0.0/8,239.1.1.1/32", "10.0.0.1/8,239.1.1.1/32", true,
         false}, // only the general form is total
    };
    for (auto const& row : rows) {
        SCOPED_TRACE(row.less);
        EXPECT_EQ(key(row.less) < key(row.greater), row.general);
        EXPECT_FALSE(key(row.greater) < key(row.less));
        EXPECT_EQ(RouteKey(key(row.less)) < RouteKey(key(row.greater)), row.compact);
        EXPECT_FALSE(RouteKey(key(row.greater)) < RouteKey(key(row.less)));
    }
}

TEST(RouteKey, HashCollisionsAreKept) {
    EXPECT_EQ(key("239.1.1.1/32,239.1.1.1/32").hash(), 0U);
    EXPECT_EQ(key("10.0.0.1/32,239.1.1.1/32").hash(), key("239.1.1.1/32,10.0.0.1/32").hash());
    EXPECT_EQ(key("10.0.0.0/8,239.1.1.1/32").hash(), key("10.0.0.40/32,239.1.1.1/32").hash());
    EXPECT_EQ(key("2001:db8::1/128,ff0e::1/128").hash(), 2536070321U);
}

} // namespace
