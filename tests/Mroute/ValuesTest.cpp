// The small values: wrapped integers, flag sets, table records.
#include "Mroute/Mfib.h"
#include "Mroute/MfibBriskTypes.h"
#include "Vomo/NboAttrLog.h"
#include "Vomo/SerDes.h"

#include <cmath>
#include <sstream>

namespace {

using namespace Routing::Multicast::Fib;
namespace Tables = Brisk::Multicast::Fib;

template <class T>
T read(Vomo::String const& text) {
    return Vomo::strepToValue(text, static_cast<T*>(nullptr));
}
Kelpie::IntfId const eth0{Vomo::String("eth0")};

TEST(BitIndex, PredicatesAreAsymmetric) {
    struct {
        U16 value;
        bool valid, null, truth;
    } const rows[] = {
        {0, true, false, true}, {65534, false, false, true}, {65535, true, true, false}};
    for (auto const& r : rows) {
        SCOPED_TRACE(r.value);
        BitMapper::BitIndex const b(r.value);
        EXPECT_EQ(b.isValid(), r.valid);
        EXPECT_EQ(b.isNull(), r.null);
        EXPECT_EQ(bool(b), r.truth);
        EXPECT_EQ(read<BitMapper::BitIndex>(valueToStrep(b)), b);
    }
    EXPECT_EQ(RpaIndex(), RpaIndex(0));
    EXPECT_FALSE(bool(RpaIndex()));
    EXPECT_TRUE(bool(RpaIndex(65535)) && RpaIndex(65535).isNull());
}

TEST(WrappedIntegers, KeepTheirRange) {
    EXPECT_EQ(read<Tables::OifIndex>("512"), Tables::OifIndex());
    EXPECT_THROW(read<Tables::OifIndex>("513"), Vomo::RangeException);
    EXPECT_THROW(Tables::OifIndex(513), Vomo::RangeException);
    EXPECT_THROW(read<RoutePriority>("256"), Vomo::RangeException);
    EXPECT_THROW(read<Bridging::VlanId>("0"), Vomo::RangeException);
    EXPECT_THROW(read<Bridging::VlanId>("4095"), Vomo::RangeException);
    EXPECT_TRUE(bool(RoutePriority(0)));
    EXPECT_FALSE(bool(RoutePriority(1)));
    EXPECT_EQ(read<RpaIndex>("7"), RpaIndex(7));
    // An index streams as a number, the FIB's small values as their text.
    std::ostringstream text;
    text << std::hex << Tables::OifIndex(254) << ' ' << RpaIndex(254) << ' ' << RoutePriority(254);
    EXPECT_EQ(text.str(), "fe 254 254");
}

TEST(FlagSets, BitsTextsAndOperators) {
    EXPECT_THROW(IntfFlags(64), Vomo::RangeException);
    EXPECT_THROW(IifFlags(3), Vomo::RangeException);
    EXPECT_EQ((~RouteFlags(255)).value(), 0);
    EXPECT_EQ((~IntfFlags()).value(), 63);
    EXPECT_EQ((~IifFlags()).value(), 1);
    EXPECT_EQ((IntfFlags(7) - IntfFlags::accept_).value(), 5);
    EXPECT_EQ((RouteFlags::valid_ | RouteFlags::virtualRoute_).value(), 129);
    EXPECT_EQ(valueToStrep(IifFlags(1)), "True");
    EXPECT_EQ(read<IifFlags>("True"), IifFlags::noRpf_);
    for (unsigned bits = 0; bits < 256; ++bits) {
        RouteFlags const flags(static_cast<U8>(bits));
        EXPECT_EQ(read<RouteFlags>(valueToStrep(flags)), flags);
    }
    struct {
        U8 bits;
        char const* text;
    } const rows[] = {
        {0, "Flags: None"}, {1 | 8, "Flags: FR"}, {32, "Flags: "}, {63, "Flags: FANR"}};
    for (auto const& row : rows) {
        std::ostringstream text;
        IntfFlags const flags(row.bits);
        text << &flags;
        EXPECT_EQ(text.str(), row.text);
    }
}

TEST(Intf, LogDropsUndeclaredFlags) {
    Vomo::NboAttrLog::Out out;
    out << eth0 << U32{255};
    Vomo::NboAttrLog::In in(out.bytes());
    Intf const intf(&in, Vomo::StreamBogon{});
    EXPECT_EQ(intf.intfFlags().value(), 63);
    EXPECT_EQ(intf.intfId(), eth0);
    EXPECT_EQ(read<Intf>(valueToStrep(intf)), intf);
    EXPECT_FALSE(bool(Intf()));
}

TEST(Enums, NamesAndNumbers) {
    EXPECT_EQ(valueToStrep(RouteKeyType::vlanFloodset), "'vlanFloodset'");
    EXPECT_EQ(stringValue(RouteKeyType::mroute), "mroute");
    EXPECT_EQ(RouteKeyTypeInstance(Vomo::String("ethGroup")), RouteKeyType::ethGroup);
    EXPECT_EQ(RouteKeyTypeInstance(8), RouteKeyType::mroute);
    EXPECT_THROW(RouteKeyTypeInstance(9), Vomo::RangeException);
    EXPECT_THROW(RouteKeyTypeInstance(Vomo::String("vlan")), Vomo::RangeException);
    using namespace Multicast::Group;
    EXPECT_EQ(stringValue(McastGroupKind::mcastGroupKindNexthopGroup),
              "mcastGroupKindNexthopGroup");
    EXPECT_EQ(read<RouteKeyTypeConverter>("'mroute'").intValue(), 8U);
    EXPECT_THROW(read<RouteKeyTypeConverter>("'mrout'"), Vomo::RangeException);
}

TEST(GroupKey, TextIsStrict) {
    Multicast::Group::GroupKey const key(19, 7);
    Vomo::String const text = valueToStrep(key);
    EXPECT_EQ(text, "Value('Multicast::Group::GroupKey', ** {'kind': 19, 'index': 7})");
    EXPECT_EQ(read<Multicast::Group::GroupKey>(text), key);
    EXPECT_THROW(read<Multicast::Group::GroupKey>(text + " "), Vomo::ParseException);
    Vomo::String const longer = text + " ";
    Vomo::CharRange range(longer);
    EXPECT_EQ(Multicast::Group::GroupKey(range), key); // the constructor leaves the rest
    EXPECT_EQ(key.hash(0), 1022456193U);
    EXPECT_NE(key.hash(0), key.hash(1));
}

TEST(TableRecords, DefaultsTextAndLogSizes) {
    BitMapper::BitIndexMap map;
    EXPECT_TRUE(map.isNewMapping());
    EXPECT_FALSE(bool(map));
    EXPECT_EQ(map.refCountDec(1), 4294967295U);
    EXPECT_TRUE(bool(map));
    Tables::OifIndexIntf oif;
    EXPECT_EQ(oif.key().value(), 512);
    EXPECT_EQ(oif.refCountDec(1), 4294967295U);

    auto const check = []<class T>(T const& v, std::size_t logSize, char const* text) {
        EXPECT_EQ(valueToStrep(v), text);
        EXPECT_EQ(read<T>(text), v);
        Vomo::NboAttrLog::Out out;
        out << v;
        EXPECT_EQ(out.size(), logSize) << text;
        Vomo::NboAttrLog::In in(out.bytes());
        EXPECT_EQ(T(&in, Vomo::StreamBogon{}), v);
    };
    BitMapper::BitMapperKey const key(eth0, Kelpie::IpAddr::fromWord(0x0a000001));
    check(key, 28,
          "Value('BitMapper::BitMapperKey', ** {'intfId': 'eth0', 'ipGenAddr': 10.0.0.1})");
    check(BitMapper::BitIndexMap(BitMapper::BitIndex(3), key), 35,
          "Value('BitMapper::BitIndexMap', ** {'key': 3, 'bitMapperKey': "
          "Value('BitMapper::BitMapperKey', ** "
          "{'intfId': 'eth0', 'ipGenAddr': 10.0.0.1}), 'refCount': 0, 'isNewMapping': True})");
    check(BitMapper::WaitlistMap(key), 32,
          "Value('BitMapper::WaitlistMap', ** {'key': Value('BitMapper::BitMapperKey', ** "
          "{'intfId': 'eth0', "
          "'ipGenAddr': 10.0.0.1}), 'refCount': 0})");
    check(Tables::OifIndexIntf(Tables::OifIndex(7), eth0), 14,
          "Value('Brisk::Multicast::Fib::OifIndexIntf', ** {'key': 7, 'intf': 'eth0', 'refCount': "
          "0})");
    check(Tables::IntfOifIndex(eth0, Tables::OifIndex(7)), 10,
          "Value('Brisk::Multicast::Fib::IntfOifIndex', ** {'key': 'eth0', 'oifIndex': 7})");
    check(Tables::DfProfile(eth0), 16,
          "Value('Brisk::Multicast::Fib::DfProfile', ** {'key': 'eth0', 'dfBitmap': 0})");
    check(Tables::BidirGroup(read<Kelpie::IpGenPrefix>("239.0.0.0/8")), 26,
          "Value('Brisk::Multicast::Fib::BidirGroup', ** {'key': 239.0.0.0/8, 'rpa': 0})");
    Counter counter(read<IpGenRouteKey>("10.0.0.1/32,239.1.1.1/32"));
    counter.lastRefreshTimeIs(1.5);
    check(counter, 65,
          "Value('Routing::Multicast::Fib::Counter', ** {'key': 10.0.0.1/32,239.1.1.1/32, 'value': "
          "0, "
          "'lastRefreshTime': 1.5, 'active': False})");
    check(BitMapper::TableInfo(), 0, "");
    check(Tables::TableInfo(), 0, "");
    EXPECT_EQ(key.hash(), 290799813U);
    EXPECT_EQ(Tables::OifIndexIntf(Tables::OifIndex(7), eth0).briskString(), "[7] eth0 RC: 0");
    EXPECT_EQ(counter.briskString(), "[239.1.1.1/32,10.0.0.1/32] 0");
}

TEST(Counter, OrderIsForListing) {
    auto const make = [](char const* key, bool active, Vomo::Seconds time, U64 value) {
        Counter c(read<IpGenRouteKey>(key));
        c.activeIs(active);
        c.lastRefreshTimeIs(time);
        c.valueIs(value);
        return c;
    };
    Counter const inOrder[] = {
        make("10.0.0.2/32,239.1.1.2/32", false, 9, 5), make("10.0.0.2/32,239.1.1.2/32", true, 1, 5),
        make("10.0.0.1/32,239.1.1.1/32", true, 2, 9),  make("10.0.0.2/32,239.1.1.1/32", true, 2, 3),
        make("10.0.0.2/32,239.1.1.1/32", true, 2, 4),  make("10.0.0.1/32,239.1.1.2/32", true, 2, 1),
    };
    for (std::size_t i = 0; i < std::size(inOrder); ++i)
        for (std::size_t k = 0; k < std::size(inOrder); ++k)
            EXPECT_EQ(inOrder[i] < inOrder[k], i < k) << i << " " << k;
    Counter const odd = make("10.0.0.1/32,239.1.1.1/32", true, std::nan(""), 0);
    EXPECT_FALSE(odd == odd);
}

} // namespace
