// Replication targets.
#include "Mroute/PortVlan.h"
#include "Vomo/NboAttrLog.h"
#include "Vomo/SerDes.h"

namespace {

using namespace MrouteLib;

TEST(PortVlan, VlanAndLogicalInterfaceShareAWord) {
    struct {
        U32 word;
        bool isOutLif;
        int vlan; // 0: raises
    } const rows[] = {
        {100, false, 100}, {0, true, 0}, {4094, false, 4094}, {4095, true, 0}, {65637, true, 101}};
    for (auto const& row : rows) {
        SCOPED_TRACE(row.word);
        PortVlan pv;
        pv.outLifIs(OutLif(row.word));
        EXPECT_EQ(pv.isOutLif(), row.isOutLif);
        if (row.vlan == 0) {
            EXPECT_THROW(pv.vlanId(), Vomo::RangeException);
        } else {
            EXPECT_EQ(pv.vlanId().value(), row.vlan);
        }
    }
}

TEST(PortVlan, TextLogOrderAndHash) {
    PortVlan pv;
    EXPECT_FALSE(bool(pv));
    pv.portIs(Kelpie::IntfId(Vomo::String("Ethernet1/1")));
    pv.vlanIdIs(Bridging::VlanId(7));
    PortVlan other = pv;
    other.overlayVlanIdIs(Bridging::VlanIdOrNone(9));
    other.portPropertyIs(PortProperty(1));
    EXPECT_EQ(
        valueToStrep(other),
        "Value('MrouteLib::PortVlan', ** {'port': 'Ethernet1/1', 'outLif': 7, 'overlayVlanId': 9, "
        "'portProperty': 1})");
    EXPECT_EQ(Vomo::strepToValue(valueToStrep(other), &pv), other);
    EXPECT_TRUE(pv < other);
    EXPECT_NE(pv, other);
    EXPECT_NE(pv.hash(0), other.hash(0));
    EXPECT_NE(pv.hash(0), pv.hash(1));
    Vomo::NboAttrLog::Out out;
    out << other;
    EXPECT_EQ(out.size(), 18U);
    Vomo::NboAttrLog::In in(out.bytes());
    EXPECT_EQ(PortVlan(&in, Vomo::StreamBogon{}), other);
}

TEST(PortProperty, FieldsKeepToTheirBits) {
    PortProperty p(1U << 25);
    p.logicalPortIdIs(0xffff);
    EXPECT_EQ(p.value(), 1U << 25 | 0xffff0U);
    EXPECT_FALSE(p.isMacSecViaLoopback() || p.sharedPort());
    p.sharedPortIs(true);
    p.isMlagPortIs(true);
    p.logicalPortIdIs(0);
    EXPECT_EQ(p.value(), 1U << 25 | 1U << 20 | 1U);
    PortPropertyMask m;
    m.logicalPortIdIs(true);
    EXPECT_EQ(m.mask(), 16);
    EXPECT_EQ(valueToStrep(m), "16");
}

} // namespace
