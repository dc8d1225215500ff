// What is particular to the entities of FIB configuration and status: resets, paths, owners, hashes.
#include "Mroute/MfibConfig.h"
#include "Mroute/MfibHardware.h"
#include "Mroute/MfibStatus.h"
#include "Mroute/PimEnabled.h"
#include "Mroute/PimIntf.h"
#include "Vomo/EntityFrame.h"
#include "Vomo/SerDes.h"
#include "support/Watcher.h"

namespace {

using namespace Routing::Multicast;
using namespace Routing::Multicast::Fib;
using Support::Heard, Support::Watcher;
using Vomo::String;

template <class T>
T read(char const* text) {
    return Vomo::strepToValue(String(text), static_cast<T*>(nullptr));
}
IpGenRouteKey routeKey(char const* group) {
    auto const g = read<Kelpie::IpGenPrefix>(group);
    return {Kelpie::IpGenPrefix(), g};
}
Kelpie::IntfId const eth1{String("Ethernet1")};
L3::VrfName const red("red");

void changeAll(Config& config) {
    config.routingIs(true);
    config.multipathControlIs(Config::MultipathControl::multipathRouterId);
    config.multipathColorIs(7);
    config.fastdropIs(false);
    config.maxFastdropsIs(3);
    config.counterRouteIs(routeKey("239.1.1.1/32"), true);
    config.counterRouteIs(routeKey("239.1.1.2/32"), false);
    config.useUribAsFallbackIs(false);
    config.clearCounterRouteIs(routeKey("239.1.1.1/32"), true);
    config.clearFastdropIs(1.5);
    config.clearMfibCountIs(9);
}

TEST(FibConfig, ResetTellsInItsOrderAndSparesTheCommands) {
    auto const watched = configFactory("red"), alone = configFactory("red");
    for (auto const& config : {watched, alone}) {
        Watcher watcher;
        changeAll(*config);
        if (config == watched) watcher.notifierIs(config.ptr());
        EXPECT_FALSE(config->isDefault());
        config->reset();
        EXPECT_EQ(watcher.take(),
                  config == watched ? (Heard{258, 261, 262, 264, 266, 268, 268, 259}) : Heard{});
        config->reset();
        EXPECT_EQ(watcher.take(), Heard{});
        EXPECT_TRUE(config->isDefault());
        EXPECT_EQ(config->counterRoute().members(), 0U);
        EXPECT_EQ(config->clearCounterRoute().members(), 1U);
        EXPECT_EQ(config->clearFastdrop(), 1.5);
        EXPECT_EQ(config->clearMfibCount(), 9);
    }
}

TEST(FibConfig, EachAttributeThatIsConfigurationCountsForTheDefault) {
    std::function<void(Config&)> const acts[] = {
        [](Config& c) { c.routingIs(true); },
        [](Config& c) { c.multipathControlIs(Config::MultipathControl::multipathNone); },
        [](Config& c) { c.multipathColorIs(1); },
        [](Config& c) { c.fastdropIs(false); },
        [](Config& c) { c.maxFastdropsIs(1023); },
        [](Config& c) { c.counterRouteIs(routeKey("239.1.1.1/32"), false); },
        [](Config& c) { c.useUribAsFallbackIs(false); }};
    for (auto const& act : acts) {
        SCOPED_TRACE(&act - acts);
        auto const config = configFactory("red");
        EXPECT_TRUE(config->isDefault());
        act(*config);
        EXPECT_FALSE(config->isDefault());
    }
}

TEST(VrfConfig, DefaultAndResetLookAtDifferentAttributes) {
    struct {
        char const* what;
        std::function<void(VrfConfig&)> act;
        bool isDefault;
        Heard reset;
        bool isDefaultThen;
    } const rows[] = {
        {"nothing", [](VrfConfig&) {}, true, {}, true},
        {"routing", [](VrfConfig& v) { v.routingIs(true); }, false, {258}, true},
        {"mode", [](VrfConfig& v) { v.counterModeIs(CounterMode::None); }, false, {259}, true},
        {"seconds",
         [](VrfConfig& v) {
             v.loadIntervalIs({1, 5});
         },
         false,
         {261},
         true},
        {"kind of interval",
         [](VrfConfig& v) {
             v.loadIntervalIs({2, 300});
         },
         true,
         {261},
         true},
        {"allCounter", [](VrfConfig& v) { v.allCounterIs(true); }, false, {}, false},
        {"polling", [](VrfConfig& v) { v.activityPollingIntervalInc(200); }, false, {264}, true},
        {"collections",
         [](VrfConfig& v) { v.intfConfigIs("Ethernet1"), v.configIs("red"); },
         true,
         {},
         true},
        {"all",
         [](VrfConfig& v) {
             v.activityPollingIntervalIs(0), v.loadIntervalIs({}), v.loadIntervalIs({3, 3});
             v.counterModeIs(CounterMode::packetMode), v.routingIs(true);
         },
         false,
         {258, 259, 261, 264},
         true},
    };
    for (auto const& row : rows) {
        SCOPED_TRACE(row.what);
        auto const config = vrfConfigFactory("v");
        row.act(*config);
        EXPECT_EQ(config->isDefault(), row.isDefault);
        Watcher watcher;
        watcher.notifierIs(config.ptr());
        config->reset();
        EXPECT_EQ(watcher.take(), row.reset);
        EXPECT_EQ(config->isDefault(), row.isDefaultThen);
    }
}

TEST(VrfConfig, HoldsTheDefaultVrfUntilItIsDeleted) {
    auto const config = vrfConfigFactory("v");
    ASSERT_EQ(config->config().members(), 1U);
    auto const vrf = config->config("default");
    ASSERT_TRUE(vrf);
    EXPECT_EQ(vrf->parent(), config.ptr());
    EXPECT_TRUE(vrf->isDefault());
    config->reset();
    EXPECT_EQ(config->configDel("default"), vrf);
    EXPECT_EQ(config->config().members(), 0U);
    VrfConfig::VrfConfigIs("goes at once"); // its count is whole again
}

TEST(FibEntities, TellOnceOrNotAtAll) {
    auto const config = configFactory("red");
    auto const ctl = counterStatusCtlFactory("c");
    auto const sparse = sparseModeStatusFactory("s");
    auto const pim = MrouteLib::pimEnabledFactory("p");
    auto const hardware = Hardware::statusFactory("h");
    auto const route = Hardware::routeStatusFactory(routeKey("239.1.1.1/32"));
    auto const legacy = multicastLegacyConfigFactory("l");
    auto const prefixes = PimIntf::statusFactory("x");
    Bridging::VlanId const ten(10);
    PimIntf::PrefixKey const key(read<Kelpie::IpGenPrefix>("10.0.0.0/8"), red);
    struct {
        Vomo::Entity* of;
        std::function<void()> act;
        Heard heard;
    } const rows[] = {
        {config.ptr(), [&] { EXPECT_EQ(config->clearMfibCountInc(static_cast<U8>(256)), 0); }, {}},
        {config.ptr(), [&] { EXPECT_EQ(config->clearMfibCountInc(255), 255); }, {271}},
        {config.ptr(), [&] { EXPECT_EQ(config->clearMfibCountInc(1), 0); }, {271}},
        {ctl.ptr(), [&] { EXPECT_EQ(ctl->currSizeDec(1), 4294967295U); }, {260}},
        {ctl.ptr(), [&] { ctl->currSizeInc(0); }, {}},
        {ctl.ptr(), [&] { EXPECT_EQ(ctl->currActiveInc(2), 2U); }, {261}},
        {ctl.ptr(), [&] { ctl->modeIs(CounterMode::byteMode), ctl->maxCountersIs(1); }, {258, 259}},
        {sparse.ptr(),
         [&] {
             EXPECT_TRUE(sparse->fastFailoverIntfIs(eth1) && !sparse->fastFailoverIntfIs(eth1));
         },
         {258}},
        {pim.ptr(),
         [&] { pim->pimVlanEnabledIs(ten, false), pim->pimVlanEnabledIs(ten, false); },
         {258}},
        {pim.ptr(), [&] { EXPECT_EQ(pim->pimVlanEnabled().members(), 1U); }, {}},
        {pim.ptr(),
         [&] { pim->igmpVlanEnabledIs(ten, true), pim->igmpVlanEnabledDelAll(); },
         {259, 259}},
        {hardware.ptr(), [&] { EXPECT_EQ(hardware->waitForRoutingDisabledCntDec(1), ~0U); }, {268}},
        {hardware.ptr(),
         [&] { hardware->dirtyLagIs(eth1, 0), hardware->dirtyLagIs(eth1, 0); },
         {273}},
        {route.ptr(), [&] { route->noIntfsIs(true), route->noRouteIs(false); }, {260}},
        {route.ptr(), [&] { EXPECT_EQ(route->hwFlags(), Hardware::RouteStatus::HwFlags(2)); }, {}},
        {legacy.ptr(), [&] { legacy->legacyIs(true), legacy->versionIs(1); }, {}},
        {prefixes.ptr(),
         [&] { prefixes->srcToIntfMapIs(key, eth1), prefixes->srcToIntfMapIs(key, eth1); },
         {259}},
    };
    Watcher watcher;
    for (auto const& row : rows) {
        SCOPED_TRACE(&row - rows);
        watcher.notifierIs(row.of);
        row.act();
        EXPECT_EQ(watcher.take(), row.heard);
    }
}

TEST(MountPaths, OfBothFamiliesAndOfNoOther) {
    struct {
        std::function<String(Kelpie::AddressFamily)> of;
        char const *v4, *v6;
    } const rows[] = {
        {VrfConfig::mountPath, "routing/multicast/vrf/config", "routing6/multicast/vrf/config"},
        {Pim::Status::mountPath, "routing/multicast/pim/global/status",
         "routing6/multicast/pim/global/status"},
        {Vxlan::Status::mountPath, "routing/multicast/vxlan/status",
         "routing6/multicast/vxlan/status"},
        {Status::mountPath, "routing/multicast/status", "routing6/multicast/status"},
        {VrfEnabledStatus::mountPath, "routing/multicast/fibenabled/status",
         "routing6/multicast/fibenabled/status"},
        {SparseModeStatus::mountPath, "routing/multicast/sparsemode/status",
         "routing6/multicast/sparsemode/status"},
        {MbrIntf::mountPath, "routing/multicast/mbrinterface", "routing6/multicast/mbrinterface"},
        {Hardware::Status::mountPath, "routing/hardware/multicast/status",
         "routing6/hardware/multicast/status"},
        {PimIntf::Status::mountPath, "routing/multicast/pimintf/status",
         "routing6/multicast/pimintf/status"},
        {[](auto af) { return ReadyStatus::mountPath(af, "sparsemode"); },
         "cell/0/routing/multicast/fibready/status", "cell/0/routing6/multicast/fibready/status"},
        {[](auto af) { return ReadyStatus::mountPath(af, "x"); },
         "cell/0/routing/multicast/fibready/x/status",
         "cell/0/routing6/multicast/fibready/x/status"},
    };
    for (auto const& row : rows) {
        EXPECT_EQ(row.of(Kelpie::ipv4()), row.v4);
        EXPECT_EQ(row.of(Kelpie::ipv6()), row.v6);
        EXPECT_DEATH(row.of(Kelpie::AddressFamily()), "false && \"Unsupported address family\"")
            << row.v4;
    }
}

// Whether a collection hashes a key by the process's seed and the constant; 0 is without a seed.
template <class Node, U32 constant, class Key>
bool hashesBy(Key const& key) {
    using namespace Vomo::HashHelper;
    auto const record = Node::record(key);
    if constexpr (constant == 0 && requires { key.hash(0U); })
        return std::is_same_v<decltype(record), KeyAndRhashLegacy const> &&
               record.hash == key.hash(0U);
    else if constexpr (constant == 0)
        return std::is_same_v<decltype(record), KeyStringLegacy const> ||
               record.rhash() == KeyAndRhashLegacy{&key, key.hash()}.rhash();
    else if constexpr (requires { record.seed; })
        return record.seed == constant;
    else
        return record.hash == key.hash(hashSeed32() ^ constant);
}

TEST(FibEntities, HashTheirKeysByTheirOwnSeeds) {
    namespace HW = Hardware;
    String const name("Ethernet1");
    auto const prefix = read<Kelpie::IpGenPrefix>("10.0.0.0/8");
    Bridging::VlanId const vlan(10);
    auto const key = routeKey("239.1.1.1/32");
    EXPECT_TRUE((hashesBy<Config::VomoCounterRoute, 0xFE96E5AB>(key)));
    EXPECT_TRUE((hashesBy<VrfConfig::VomoConfig, 0xC6152FA1>(name)));
    EXPECT_TRUE((hashesBy<VrfConfig::VomoIntfConfig, 0x5F556F3B>(name)));
    EXPECT_TRUE((hashesBy<Pim::Status::VomoPimEnabledSparseModeVrf, 0>(red)));
    EXPECT_TRUE((hashesBy<Pim::Status::VomoPimEnabledBidirVrf, 0>(red)));
    EXPECT_TRUE((hashesBy<Vxlan::Status::VomoVxlanIntf, 0x0A9ED309>(eth1)));
    EXPECT_TRUE((hashesBy<Status::VomoVxlanIntf, 0x28C4FDDC>(eth1)));
    EXPECT_TRUE((hashesBy<VrfEnabledStatus::VomoVrf, 0x82278128>(red)));
    EXPECT_TRUE((hashesBy<BidirStatus::VomoBidirEnabledVrf, 0x18ADC565>(red)));
    EXPECT_TRUE((hashesBy<ReadyStatus::VomoVrfReady, 0xB93003F7>(red)));
    EXPECT_TRUE((hashesBy<MbrIntf::VomoIntf, 0x27605067>(eth1)));
    EXPECT_TRUE((hashesBy<SparseModeStatus::VomoFastFailoverIntf, 0>(eth1)));
    EXPECT_TRUE((hashesBy<HW::Status::VomoDirtyLag, 0xE9B19151>(eth1)));
    EXPECT_TRUE((hashesBy<HW::Status::VomoVrfStatus, 0x89FD2106>(red)));
    EXPECT_TRUE((hashesBy<HW::VrfStatus::VomoRoute, 0x81A480F6>(key)));
    EXPECT_TRUE((hashesBy<PimIntf::IntfStatus::VomoRoute, 0x546D396D>(prefix)));
    EXPECT_TRUE((hashesBy<PimIntf::Status::VomoIntfStatus, 0x1AAE3D1F>(eth1)));
    EXPECT_TRUE((hashesBy<PimIntf::PrefixMrouteStatus::VomoRoute, 0x00C57633>(
        PimIntf::PrefixMroute(prefix, eth1))));
    EXPECT_TRUE((hashesBy<PimIntf::Status::VomoSrcToIntfMap, 0>(PimIntf::PrefixKey(prefix, red))));
    EXPECT_TRUE((hashesBy<MrouteLib::PimEnabled::VomoPimVlanEnabled, 0>(vlan)));
    EXPECT_TRUE((hashesBy<MrouteLib::PimEnabled::VomoIgmpVlanEnabled, 0xA76B7368>(vlan)));
    using namespace Vomo::HashHelper;
    EXPECT_TRUE(
        (std::is_same_v<decltype(Status::VomoNotifyLocalSources::record(name)), KeyStringLegacy>));
    EXPECT_TRUE(
        (std::is_same_v<decltype(Status::VomoIntfBoundaryStatus::record(name)), KeyStringLegacy>));
    EXPECT_TRUE((std::is_same_v<decltype(HW::RouteStatus::VomoFastdropLastPollTime::record(name)),
                                KeyStringLegacy>));
}

TEST(HardwareStatus, DefaultsAndTheSumOfRoutes) {
    auto const status = Hardware::statusFactory("h");
    EXPECT_TRUE(status->hwRouting() && status->deleteL2RouteOnFailure() &&
                status->mcastFlexCounterSupport());
    EXPECT_FALSE(status->hwResourceFull() || status->needIifInOifSet() || status->batchEnabled() ||
                 status->routeCounterSupported() || status->routingEnabled() ||
                 status->avoidDuplicates() || status->anyDirtyLag());
    EXPECT_EQ(status->pollingInterval(), 60);
    EXPECT_EQ(status->pollingMinInterval(), 1);
    EXPECT_EQ(status->routes(), 0U);
    auto const first = status->vrfStatusIs(L3::VrfName("default")),
               second = status->vrfStatusIs(red);
    for (char const* g : {"239.1.1.1/32", "239.1.1.2/32", "239.1.1.3/32"}) {
        first->routeIs(routeKey(g));
        second->routeIs(routeKey(g));
    }
    second->routeIs(routeKey("239.1.1.4/32"));
    EXPECT_EQ(status->routes(), 7U);
    EXPECT_TRUE(second->routeDel(routeKey("239.1.1.1/32")));
    EXPECT_EQ(status->routes(), 6U);
    EXPECT_THROW(Hardware::RouteStatus::HwFlags(4), Vomo::RangeException);
}

TEST(HardwareStatus, OnlyTheEntityItselfSetsItsTimeOfCreation) {
    auto const before = Vomo::System::currentTime();
    auto const one = Hardware::routeStatusFactory(IpGenRouteKey());
    while (Vomo::System::currentTime() == one->creationTime()) {
    }
    auto const other = Hardware::routeStatusFactory(IpGenRouteKey());
    EXPECT_LE(before, one->creationTime());
    EXPECT_LT(one->creationTime(), other->creationTime());
    Vomo::VomoType const type = one->fwkType();
    double time = 1;
    EXPECT_EQ(type.module->genericTable[type.index].attributeOp(
                  nullptr, one.ptr(), attrByName(type, "creationTime"), Vomo::AttributeOp::set,
                  &time, nullptr),
              1U);
}

TEST(PrefixRouteInfo, KnowsTheGroupOfEachFamily) {
    struct {
        char const* prefix;
        bool isGroup;
    } const rows[] = {{"224.0.0.0/4", true}, {"224.0.0.0/8", false}, {"ff00::/8", true},
                      {"ff00::/16", false},  {"none/0", false},      {"0.0.0.0/4", false}};
    for (auto const& row : rows)
        EXPECT_EQ(PimIntf::PrefixRouteInfo::isPrefixGroup(read<Kelpie::IpGenPrefix>(row.prefix)),
                  row.isGroup)
            << row.prefix;
    using Info = PimIntf::PrefixRouteInfo;
    EXPECT_EQ(valueToStrep(Info::prefixGroup(Kelpie::ipv4())), "224.0.0.0/4");
    EXPECT_EQ(valueToStrep(Info::prefixGroup(Kelpie::ipv6())), "ff00::/8");
    EXPECT_EQ(Info::ip6PrefixGroup(), Info::prefixGroup(Kelpie::ipv6()));
    EXPECT_DEATH(Info::prefixGroup(Kelpie::AddressFamily()), "Unsupported address family");
}

TEST(PimIntf, ChildrenKnowTheirOwnersWhileTheyAreChildren) {
    auto const status = PimIntf::statusFactory("pim");
    auto const intf = status->intfStatusIs(eth1, status);
    auto const prefix = read<Kelpie::IpGenPrefix>("10.0.0.0/8");
    auto const route = intf->routeIs(prefix, intf);
    EXPECT_EQ(status->intfStatusIs(eth1, status), intf);
    EXPECT_EQ(intf->pimIntfStatus(), status);
    EXPECT_EQ(route->intfStatus(), intf);
    U32 const references = status->references();
    EXPECT_EQ(intf->routeDel(prefix), route);
    EXPECT_FALSE(route->intfStatus());
    EXPECT_EQ(status->intfStatusDel(eth1), intf);
    EXPECT_FALSE(intf->pimIntfStatus());
    EXPECT_EQ(status->references(), references); // a child does not hold its owner
    EXPECT_THROW(status->intfStatusIs(eth1, nullptr), Vomo::ArgumentException);
    EXPECT_THROW(PimIntf::prefixRouteInfoFactory(prefix, nullptr), Vomo::ArgumentException);
    EXPECT_EQ(status->intfStatus().members(), 0U);
}

TEST(VrfOrder, TheDefaultVrfComesFirst) {
    auto const prefix = read<Kelpie::IpGenPrefix>("10.0.0.0/8");
    L3::VrfName const standard("default"), a("a");
    PimIntf::PrefixKey const first(prefix, standard), second(prefix, a);
    EXPECT_TRUE(first < second && !(second < first));
    MrouteLib::RouteKeyInfo const one({}, {}, standard), two({}, {}, a),
        three({}, Bridging::VlanIdOrNone(1), standard);
    EXPECT_TRUE(one < two && !(two < one) && two < three);
    EXPECT_EQ(PimIntf::PrefixKey({}, a).hash(), a.hash(0));
    EXPECT_EQ(first.hash(), second.hash() ^ a.hash(0) ^ standard.hash(0));
}

} // namespace
