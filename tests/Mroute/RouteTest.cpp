// The route record: bitmap, walks, differences, text, log.
#include "Mroute/MfibBriskTypes.h"
#include "Vomo/NboAttrLog.h"
#include "Vomo/SerDes.h"

#include <random>

namespace {

using namespace Brisk::Multicast::Fib;

IpGenRouteKey key(char const* text) {
    return Vomo::strepToValue(Vomo::String(text), static_cast<IpGenRouteKey*>(nullptr));
}
OifIndex oif(unsigned i) {
    return OifIndex(static_cast<U16>(i));
}
Kelpie::IntfId intf(char const* name) {
    return Kelpie::IntfId(Vomo::String(name));
}
std::vector<U16> walk(Route const& route) {
    std::vector<U16> found;
    for (auto i = route.oifIteratorConst(); i; ++i) found.push_back((*i).value());
    return found;
}

TEST(Route, BitmapAndWalk) {
    struct {
        std::vector<unsigned> set;
        unsigned max;
        std::vector<U16> walked;
    } const rows[] = {
        {{}, 512, {}},          {{5}, 512, {}},    // nobody has set the maximum
        {{5}, 5, {5}},          {{5, 70}, 5, {5}}, // another word than the maximum's
        {{5, 63}, 5, {5, 63}},                     // the same word
        {{5, 70}, 64, {5, 70}}, {{63, 64}, 64, {63, 64}}, {{0, 511}, 511, {0, 511}},
    };
    for (auto const& row : rows) {
        Route route;
        for (unsigned const i : row.set) route.oifIs(oif(i), true);
        route.maxOifIndexIs(oif(row.max));
        SCOPED_TRACE(valueToStrep(route));
        EXPECT_EQ(route.oifs(), row.set.size());
        EXPECT_EQ(walk(route), row.walked);
    }
    Route route;
    route.oifIs(oif(7), false); // the second argument says nothing
    EXPECT_TRUE(route.oif(oif(7)));
    EXPECT_TRUE(route.oifDel(oif(7)));
    EXPECT_FALSE(route.oifDel(oif(7)));
    for (unsigned i = 0; i < 512; ++i) route.oifIs(oif(i), true);
    EXPECT_EQ(route.oifs(), 0); // counts modulo 256
    route.maxOifIndexIs(oif(511));
    EXPECT_EQ(walk(route).size(), 512U);
    EXPECT_EQ(route.oifBitmapDel(3), ~U64{0});
    EXPECT_EQ(walk(route).size(), 448U);
}

TEST(Route, IteratorWalksACopyFromAnyIndex) {
    Route route;
    for (unsigned const i : {3U, 9U, 200U}) route.oifIs(oif(i), true);
    route.maxOifIndexIs(oif(200));
    auto at = route.oifIteratorConst(oif(9));
    auto behind = route.oifIteratorConst(oif(4));
    for (unsigned const i : {3U, 9U, 200U}) route.oifDel(oif(i));
    EXPECT_EQ((*at).value(), 9);
    EXPECT_EQ((*behind).value(), 9);
    EXPECT_EQ((*++at).value(), 200);
    EXPECT_TRUE((++at).done());
}

TEST(Route, StarG) {
    EXPECT_FALSE(Route().isStarG());
    Route route(key("0.0.0.0/0,239.1.1.1/32"));
    route.iifIs(intf("eth0"));
    EXPECT_TRUE(route.isStarG());
    route.rpaIdIs(RpaIndex(3));
    EXPECT_FALSE(route.isStarG());
    EXPECT_FALSE(Route(key("10.0.0.0/8,239.1.1.1/32")).isStarG());
}

TEST(Route, DifferenceSelectsWhatChanged) {
    Route old(key("10.0.0.1/32,239.1.1.1/32")), now = old;
    old.iifIs(intf("eth0"));
    old.fastdropIs(intf("eth9"));
    old.oifIs(oif(3), true);
    old.versionIs(4);
    now.iifIs(intf("eth1"));
    now.notifyIs(intf("eth2"));
    now.oifIs(oif(3), true);
    now.oifIs(oif(400), true);
    now.noRpfIs(true);
    now.validIs(true);
    now.versionIs(5);
    Route const changed = now ^ old;
    EXPECT_EQ(changed.key(), now.key());
    EXPECT_EQ(changed.iif(), intf("eth1"));
    EXPECT_EQ(changed.notify(), intf("eth2"));
    EXPECT_EQ(changed.fastdrop(), intf("eth9"));
    EXPECT_TRUE(changed.iifFrr().isEmpty());
    EXPECT_EQ(walk(changed), std::vector<U16>{400});
    EXPECT_EQ(changed.routeFlags(), RouteFlags::valid_);
    EXPECT_EQ(changed.maxOifIndex().value(), 511);
    EXPECT_EQ(changed.version(), 0U);
    Route const part = changed & now;
    EXPECT_EQ(part.iif(), intf("eth1"));
    EXPECT_TRUE(part.noRpf());
    EXPECT_TRUE(part.fastdrop().isEmpty());
    EXPECT_EQ(part.version(), 5U);
    EXPECT_EQ(walk(part), std::vector<U16>{400});
    Route const none = now ^ now;
    EXPECT_FALSE(none == Route(now.key()));
    EXPECT_EQ((none & now).iif(), Kelpie::IntfId());
    EXPECT_FALSE((none & now).noRpf());
}

TEST(Route, TextAndLogReadBack) {
    std::mt19937_64 random(11);
    for (int i = 0; i < 200; ++i) {
        Route route(key(i % 2 != 0 ? "10.0.0.1/32,239.1.1.1/32" : "2001:db8::/32,ff0e::1/128"));
        route.iifIs(intf("Ethernet1/1"));
        route.iifFrrIs(Kelpie::IntfId(random() & 0xff));
        route.routeFlagsIs(RouteFlags(static_cast<U8>(random())));
        route.noRpfIs(random() & 1);
        route.notifyProgrammableIs(random() & 1);
        route.rpaIdIs(RpaIndex(static_cast<U16>(random())));
        route.maxOifIndexIs(oif(static_cast<unsigned>(random() % 513)));
        route.routePriorityIs(Routing::Multicast::Fib::RoutePriority(static_cast<U8>(random())));
        route.versionIs(static_cast<U32>(random()));
        for (U8 w = 0; w < 8; ++w) route.oifBitmapIs(w, random());
        EXPECT_EQ(Vomo::strepToValue(valueToStrep(route), &route), route);
        Vomo::NboAttrLog::Out out;
        out << route;
        EXPECT_EQ(out.size(), 162U);
        Vomo::NboAttrLog::In in(out.bytes());
        EXPECT_EQ(Route(&in, Vomo::StreamBogon{}), route);
    }
}

TEST(Route, TextIsPinned) {
    Route route(key("10.0.0.1/32,239.1.1.1/32"));
    route.iifIs(intf("eth0"));
    route.validIs(true);
    EXPECT_EQ(
        valueToStrep(route),
        "Value('Brisk::Multicast::Fib::Route', ** {'key': 10.0.0.1/32,239.1.1.1/32, 'iif': 'eth0', "
        "'iifFrr': '', 'notify': '', 'fastdrop': '', 'notifyProgrammable': False, 'routeFlags': "
        "Value('Routing::Multicast::Fib::RouteFlags', ** {'valid': True, 'toCpu': False, "
        "'iifRegister': False, 'oifRegister': False, 'programmable': False, "
        "'skipSoftwareProgramming': False, 'iifPmsi': False, 'virtualRoute': False}), 'iifFlags': "
        "False, 'rpaId': 0, 'maxOifIndex': 512, 'routePriority': 1, 'version': 0, 'oifBitmap1': 0, "
        "'oifBitmap2': 0, 'oifBitmap3': 0, 'oifBitmap4': 0, 'oifBitmap5': 0, 'oifBitmap6': 0, "
        "'oifBitmap7': 0, 'oifBitmap8': 0})");
    route.oifBitmapIs(0, 0x1f);
    route.versionIs(10);
    route.maxOifIndexIs(oif(10));
    route.routeFlagsIs(RouteFlags('A'));
    using namespace std::string_literals;
    EXPECT_EQ(route.briskString(),
              "[(10.0.0.1,239.1.1.1)] F 0xA 0x\0 I eth0 N  S  F  O 0x0 0x0 0x0 "
              "0x0 0x0 0x0 0x0 0x1f max 10 ver 10 priority 1"s);
}

TEST(Route, BadFieldIsNamed) {
    Vomo::String text = valueToStrep(Route());
    std::size_t const at = text.find("'maxOifIndex': 512");
    try {
        Vomo::strepToValue(Vomo::String(text.replace(at, 18, "'maxOifIndex': 513")),
                           static_cast<Route*>(nullptr));
        FAIL();
    } catch (Vomo::RangeException const& e) {
        EXPECT_EQ(e.message(), "maxOifIndex: Brisk::Multicast::Fib::OifIndex::value < "
                               "Brisk::Multicast::Fib::OifIndex::min or > "
                               "Brisk::Multicast::Fib::OifIndex::null not allowed");
    }
}

} // namespace
