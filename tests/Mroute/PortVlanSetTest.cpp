// Replication lists: which differences each comparison sees, the cached hash, texts and log.
#include "Mroute/PortVlanSet.h"
#include "Vomo/NboAttrLog.h"
#include "Vomo/SerDes.h"

namespace {

using namespace MrouteLib;
using enum PvSetChange;
using Bridging::VlanIdOrNone;

PortVlan portVlan(U32 lif, char const* port = "Ethernet1") {
    PortVlan pv;
    pv.portIs(Kelpie::IntfId(Vomo::String(port)));
    pv.outLifIs(OutLif(lif));
    return pv;
}
PortVlan withProperty(U32 bits) {
    PortVlan pv = portVlan(7);
    pv.portPropertyIs(PortProperty(bits));
    return pv;
}

TEST(PortVlanSet, EachComparisonSeesItsOwnDifferences) {
    using Set = PortVlanSet;
    using Act = std::function<void(Set&)>;
    Act const none = [](Set&) {};
    auto const member = [](U32 bits, bool value = true) -> Act {
        return [=](Set& s) { s.portVlanIs(withProperty(bits), value); };
    };
    auto const frr = [](U32 lif, U16 overlay, bool value) -> Act {
        return [=](Set& s) {
            PortVlan pv = portVlan(lif);
            pv.overlayVlanIdIs(VlanIdOrNone(overlay));
            s.portVlanFrrIs(pv, value);
        };
    };
    auto const nat = [](U16 vlan, bool value) -> Act {
        return [=](Set& s) { s.natVlanIs(VlanIdOrNone(vlan), value); };
    };
    auto const typed = [](bool ignore, auto type) -> Act {
        return [=](Set& s) { s.ignoreTypeIs(ignore), s.typeIs(type); };
    };
    using enum Routing::Multicast::Fib::RouteKeyType;
    U32 const df = 4, mlag = 1; // bits of a port's property
    struct {
        char const* what;
        Act a, b;
        PvSetChange change;
        bool equal, sameHash;
        int less; // a before b: 1, b before a: -1, neither: 0
    } const rows[] = {
        {"default", none, none, noChange, true, true, 0},
        {"designated forwarder", member(0), member(df), dfChanged, false, true, 1},
        {"another property", member(0), member(mlag), changed, false, true, 1},
        {"both", member(0), member(df | mlag), changed, false, true, 1},
        {"member", none, member(0), changed, false, false, 1},
        {"value", member(0, false), member(0), noChange, false, true, 1},
        {"type", typed(false, mroute), typed(false, ethGroup), changed, false, true, -1},
        {"ignored type", typed(true, mroute), typed(true, ethGroup), noChange, true, true, -1},
        {"ignored on one", typed(true, mroute), typed(false, mroute), changed, false, true, -1},
        {"hint", none, [](Set& s) { s.optUnknownMcastFloodsetIs(true); }, noChange, true, true, 1},
        {"purpose", none, [](Set& s) { s.toCpuIs(true); }, changed, false, true, 1},
        {"feature", none, [](Set& s) { s.featureFlagIs(1); }, changed, false, true, 1},
        {"fastdrop", none, [](Set& s) { s.fastdropIs(true); }, changed, false, true, 1},
        {"bidir", none, [](Set& s) { s.bidirIs(true); }, changed, false, true, 1},
        {"vlan", none, [](Set& s) { s.acceptingVlanIdIs(VlanIdOrNone(1)); }, changed, false, false,
         1},
        {"iif", none, [](Set& s) { s.currentIifIs(Kelpie::IntfId(U64{1})); }, changed, false, false,
         1},
        {"nat", nat(9, true), nat(8, true), changed, false, false, -1},
        {"fewer nats first", nat(9, true), [&](Set& s) { nat(1, true)(s), nat(2, true)(s); },
         changed, false, false, 1},
        {"value of nat", nat(9, false), nat(9, true), changed, false, true, 1},
        {"frr", frr(1, 0, true), frr(2, 0, true), changed, false, false, 1},
        {"overlay of frr", frr(1, 0, true), frr(1, 5, true), changed, false, true, 1},
        {"value of frr", frr(1, 0, false), frr(1, 0, true), changed, false, true, 1},
        {"cached hash alone", none, [](Set& s) { s.cachedHashIs(5); }, changed, false, false, 0},
    };
    for (auto const& row : rows) {
        SCOPED_TRACE(row.what);
        Set a, b;
        row.a(a), row.b(b);
        EXPECT_EQ(a.cmpPortVlanSet(b), row.change);
        EXPECT_EQ(b.cmpPortVlanSet(a), row.change);
        EXPECT_EQ(a == b, row.equal);
        EXPECT_EQ(b == a, row.equal);
        EXPECT_EQ(a.hash() == b.hash(), row.sameHash);
        EXPECT_EQ(a<b, row.less> 0);
        EXPECT_EQ(b < a, row.less < 0);
        EXPECT_EQ(a.cmpPortVlanSet(a), noChange);
        EXPECT_TRUE(b == b);
    }
}

TEST(PortVlanSet, ComparesByAStaleHashUntilItIsSaved) {
    PortVlanSet set, fresh;
    set.portVlanIs(portVlan(5), true);
    set.saveHash();
    U32 const old = set.hash();
    set.portVlanIs(portVlan(6), true);
    EXPECT_EQ(set.hash(), old);
    for (U32 lif : {6U, 5U}) fresh.portVlanIs(portVlan(lif), true);
    EXPECT_NE(set, fresh);
    EXPECT_EQ(set.cmpPortVlanSet(fresh), changed);
    EXPECT_EQ(set.cmpPortVlan(fresh), noChange); // of the copies alone
    set.saveHash();
    EXPECT_EQ(set, fresh);
    // A copy has its own members.
    PortVlanSet copy(set);
    copy.portVlanDel(portVlan(6));
    EXPECT_TRUE(set.portVlan().has(portVlan(6)));
}

TEST(PortVlanSet, MergeAndDiscardTakeCopiesAndMergePurposes) {
    PortVlanSet a, b;
    a.portVlanIs(portVlan(1), false);
    a.toCpuIs(true);
    b.portVlanIs(portVlan(1), false);
    b.portVlanIs(portVlan(2), false);
    b.natVlanIs(VlanIdOrNone(3), true);
    b.featureFlagIs(8);
    b.toCpuPurposeIs(ToCpuPurpose::toCpuVxlan_);
    b.toCpuIs(false);
    EXPECT_TRUE(b.toCpu()); // the write clears one purpose of two
    a.merge(b);
    EXPECT_EQ(a.toCpuPurpose(), ToCpuPurpose(3));
    EXPECT_TRUE(a.portVlan(portVlan(1)) && a.portVlan(portVlan(2)));
    EXPECT_EQ(a.natVlan().members() + a.featureFlag(), 0U);
    b.merge(b);
    EXPECT_TRUE(b.portVlan(portVlan(1)) && b.portVlan(portVlan(2)));
    a.portVlanIs(portVlan(9), true);
    b.portVlanIs(portVlan(8), true); // absent in a
    a.discard(b);
    EXPECT_EQ(a.toCpuPurpose(), ToCpuPurpose(3));
    EXPECT_EQ(a.portVlan().members(), 1U);
    EXPECT_TRUE(a.portVlan(portVlan(9)));
    b.discard(b);
    EXPECT_EQ(b.portVlan().members(), 0U);
    EXPECT_EQ(b.natVlan().members(), 1U);
    EXPECT_THROW(ToCpuPurpose(4), Vomo::RangeException);
}

TEST(PortVlanSet, PrettyStaysHexadecimalBehindAFeatureFlag) {
    PortVlanSet set;
    EXPECT_EQ(set.pretty(),
              fmt::format("0 PVs - acceptingVlanId: 0 bidir: 0 hash: {}", set.hash()));
    set.portVlanIs(portVlan(100), true);
    set.portVlanIs(portVlan(65537, "Ethernet2"), true);
    set.acceptingVlanIdIs(VlanIdOrNone(30));
    set.toCpuIs(true);
    set.cachedHashIs(255);
    char const* const members = " vlan 100:Ethernet1 outLif 65537:Ethernet2";
    EXPECT_EQ(set.pretty(),
              std::string("2 PVs - (Cpu ) acceptingVlanId: 30 bidir: 0 hash: 255") + members);
    set.featureFlagIs(255);
    set.portVlanFrrIs(portVlan(4), false);
    set.currentIifIs(portVlan(1).port());
    EXPECT_EQ(set.pretty(),
              std::string("2 PVs - (Cpu 0xff) acceptingVlanId: 1e bidir: 0 hash: ff") + members +
                  " currentIif: Ethernet1 vlan 4:Ethernet1");
}

TEST(PortVlanSet, LogEndsEachMapWithADefaultKey) {
    PortVlanSet set;
    EXPECT_EQ(attrLogSize(&set), 68U);
    set.natVlanIs(VlanIdOrNone(7), true);
    set.portVlanIs(portVlan(3), false);
    set.portVlanFrrIs(portVlan(4), true);
    Vomo::NboAttrLog::Out out;
    out << set;
    EXPECT_EQ(out.size(), 68U + 2 * 19 + 3);
    EXPECT_EQ(attrLogSize(&set), out.size());
    // A member that cannot be told from the end mark ends its map.
    set.natVlanIs(VlanIdOrNone(0), true);
    Vomo::NboAttrLog::Out cut;
    cut << set;
    Vomo::NboAttrLog::In in(cut.bytes());
    EXPECT_EQ(PortVlanSet(&in, Vomo::StreamBogon{}).natVlan().members(), 0U);
}

TEST(PortVlanSet, NoTextIsReadBack) {
    PortVlanSet set;
    EXPECT_EQ(valueToStrep(set).substr(0, 52),
              "Value('MrouteLib::PortVlanSet', ** {'portVlan': None");
    Vomo::String const text = valueToStrep(set), tunnel = valueToStrep(TunnelPortVlanSet());
    char const* const why = "No String constructor for PortVlanSet - has collection";
    EXPECT_DEATH(
        {
            Vomo::CharRange range(text);
            PortVlanSet{range};
        },
        why);
    EXPECT_DEATH(
        {
            Vomo::CharRange range(tunnel);
            TunnelPortVlanSet{range};
        },
        why);
    EXPECT_THROW(
        {
            Vomo::CharRange range(text);
            TunnelPortVlanSet{range};
        },
        Vomo::ParseException);
}

TEST(TunnelPortVlanSet, ComparesVersionThenValidityThenSet) {
    auto const make = [](U64 version, bool valid, U32 feature) {
        TunnelPortVlanSet v;
        v.versionIs(version), v.versionValidIs(valid);
        PortVlanSet set;
        set.featureFlagIs(feature);
        v.pvSetIs(set);
        return v;
    };
    TunnelPortVlanSet const inOrder[] = {make(1, false, 9), make(1, true, 1), make(1, true, 2),
                                         make(2, false, 0)};
    for (auto const& a : inOrder)
        for (auto const& b : inOrder) {
            EXPECT_EQ(a < b, &a < &b);
            EXPECT_EQ(a == b, &a == &b);
        }
    EXPECT_EQ(attrLogSize(&inOrder[0]), 77U);
}

} // namespace
