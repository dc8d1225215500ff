// Tunnels: identifiers of all kinds, the two levels of their directories, and the walk over one.
#include "Lumenlog/Ring.h"
#include "Mroute/TunnelConfigIteratorConst.h"
#include "Vomo/CharRange.h"
#include "support/Ear.h"

namespace {

using namespace Multicast::Tunnel;
using namespace Multicast::Vxlan;
using namespace MrouteLib;
using Bridging::VlanId, Kelpie::IntfId, Kelpie::IpGenAddr;
using TunnelTable::FecIndex, TunnelTable::McastTunnelEncapInfo;
using TunnelTable::McastTunnelConfigDir, TunnelTable::McastTunnelStatusDir;
using MplsId = TunnelId::MplsId;

template <class T>
T parsed(char const* text) {
    Vomo::String const whole(text);
    Vomo::CharRange range(whole);
    return T(range);
}
IpGenAddr const group = parsed<IpGenAddr>("239.1.2.3"), peer = parsed<IpGenAddr>("10.1.2.3"),
                group6 = parsed<IpGenAddr>("ff0e::5"), peer6 = parsed<IpGenAddr>("2001:db8::7");
TunnelId vpls(char const* intf) {
    return TunnelId::fromVpls(IntfId(Vomo::String(intf)));
}
TunnelId ofKind(unsigned kind, U64 word = 0) {
    TunnelId id;
    id.tunnelTypeIs(static_cast<TunnelType>(kind));
    id.storage0Is(word);
    return id;
}
template <class Exception, class Act>
std::string raised(Act act) {
    try {
        act();
    } catch (Exception const& e) {
        return e.what();
    }
    return "nothing raised";
}
#define RAISES(Exception, text, ...)                                                               \
    EXPECT_EQ(raised<Exception>([&] { static_cast<void>(__VA_ARGS__); }), text)
constexpr char const* tooLarge =
    "Tunnel::TunnelTable::TunnelId::value < Tunnel::TunnelTable::TunnelId::minValue or > "
    "Tunnel::TunnelTable::TunnelId::maxValue not allowed";

TEST(TunnelId, EachKindStoresItsOwnAndAnswersForNoOther) {
    struct {
        TunnelId id;
        TunnelType type;
        U64 words[2];
        U32 family;
        char const *data, *answers;
    } const rows[] = {
        {{}, TunnelType::invalid, {}, 0, "Invalid tunnel", ""},
        {TunnelId::fromVxlanMcast(group),
         TunnelType::vxlanMcast,
         {0xEF010203},
         1,
         "239.1.2.3",
         "x"},
        {TunnelId::fromVxlanIR(peer6),
         TunnelType::vxlanIR,
         {0x20010DB8ULL << 32, 7},
         2,
         "2001:db8::7",
         "x"},
        {TunnelId::fromVxlanIR(group), TunnelType::vxlanIR, {0xEF010203}, 1, "239.1.2.3", "x"},
        {TunnelId::fromVxlanBum(peer), TunnelType::vxlanBum, {0x0A010203}, 1, "10.1.2.3", "x"},
        {vpls("Vlan7"), TunnelType::vpls, {IntfId(Vomo::String("Vlan7")).word()}, 0, "Vlan7", "v"},
        {TunnelId::fromMpls(MplsId(99)), TunnelType::mpls, {99}, 0, "99", "m"},
        {ofKind(6), TunnelType{6}, {}, 0, "", ""},
    };
    for (auto const& row : rows) {
        SCOPED_TRACE(row.data);
        EXPECT_EQ(row.id.tunnelType(), row.type);
        EXPECT_EQ(row.id.storage0(), row.words[0]);
        EXPECT_EQ(row.id.storage1(), row.words[1]);
        EXPECT_EQ(row.id.storage2(), row.family);
        std::string const type(valueToStrep(row.type));
        EXPECT_EQ(row.id.stringValue(), Vomo::String(type + " data: " + row.data));
        EXPECT_EQ(row.id.str(), Vomo::String(type + "(" + row.data + ")"));
        std::string answers;
        auto const ask = [&](char kind, char const* name, auto lookup) {
            std::string const text = raised<Vomo::TypeException>(lookup);
            if (text == "nothing raised")
                answers += kind;
            else
                EXPECT_EQ(text, std::string("Wrong lookup. Encap type is ") + name);
        };
        ask('x', "vxlan", [&] { row.id.vxlan(); });
        ask('v', "vpls", [&] { row.id.vpls(); });
        ask('m', "mpls", [&] { row.id.mpls(); });
        EXPECT_EQ(answers, row.answers);
        TunnelId cleared = row.id;
        cleared.clearStorage();
        EXPECT_EQ(valueToStrep(cleared), valueToStrep(ofKind(static_cast<unsigned>(row.type))));
    }
    EXPECT_EQ(rows[2].id.vxlan(), peer6);
    EXPECT_EQ(rows[4].id.vxlan(), peer);
}

TEST(TunnelId, MutatorsKeepOrSetTheKind) {
    auto const after = [](TunnelId id, auto change) {
        change(id);
        return id;
    };
    auto const vxlan = [](IpGenAddr const& v) { return [v](TunnelId& id) { id.vxlanIs(v); }; };
    EXPECT_EQ(after({}, vxlan(group6)), TunnelId::fromVxlanMcast(group6));
    EXPECT_EQ(after({}, vxlan(peer)), TunnelId::fromVxlanIR(peer));
    EXPECT_EQ(after(TunnelId::fromVxlanBum(peer6), vxlan(group)), TunnelId::fromVxlanBum(group));
    EXPECT_EQ(after(TunnelId::fromVxlanBum(peer6), vxlan(group)).storage1(), 0U);
    EXPECT_EQ(valueToStrep(
                  after(TunnelId::fromVxlanIR(peer6), [](TunnelId& id) { id.vplsIs(IntfId(5)); })),
              valueToStrep(TunnelId::fromVpls(IntfId(5))));
    EXPECT_DEATH(after(vpls("Vlan7"), vxlan(peer)), "tunnelType\\(\\) == vxlanMcast_ ");
    EXPECT_DEATH(after({}, vxlan(IpGenAddr())), "0 && \"Addressfamily unknown\"");
    EXPECT_DEATH(TunnelId::fromVxlanMcast(peer), "vxlan.isMulticast\\(\\)");
}

TEST(TunnelId, ComparesByWhatItsKindStores) {
    auto const leftover = [](TunnelId id) {
        id.storage0Is(id.storage0() | U64{1} << 40);
        id.storage1Is(9);
        return id;
    };
    TunnelId const v4 = TunnelId::fromVxlanIR(peer), mpls = TunnelId::fromMpls(MplsId(3));
    EXPECT_EQ(leftover(v4), v4);
    EXPECT_EQ(leftover(v4).hash(), v4.hash());
    EXPECT_FALSE(leftover(v4) < v4 || v4 < leftover(v4));
    EXPECT_EQ(v4.hash(), v4.vxlan().v6Addr().hash());
    EXPECT_EQ(vpls("Vlan7").hash(), vpls("Vlan7").vpls().hash());
    EXPECT_FALSE(TunnelId::fromVxlanBum(peer) == v4);
    // The kind first, then what is stored.
    std::vector<TunnelId> const ascending{
        TunnelId::fromVxlanMcast(group), TunnelId::fromVxlanMcast(group6), v4,
        TunnelId::fromVpls(IntfId(1)),   TunnelId::fromVpls(IntfId(2)),    mpls,
        TunnelId::fromMpls(MplsId(4)),   TunnelId::fromVxlanBum(peer)};
    for (std::size_t i = 0; i < ascending.size(); ++i)
        for (std::size_t j = 0; j < ascending.size(); ++j)
            EXPECT_EQ(ascending[i] < ascending[j], i < j) << i << " " << j;
    TunnelId const a = ofKind(0, 1), b = ofKind(0, 2);
    EXPECT_EQ(a < b, a.hash() < b.hash());
    EXPECT_NE(a, b);
    // A number that is no kind.
    EXPECT_TRUE(ofKind(6, 1) < ofKind(6, 2) && ofKind(6, 2) < ofKind(6, 1));
    EXPECT_FALSE(ofKind(6) == ofKind(6));
    EXPECT_EQ(ofKind(6, 1).hash(), 0U);
    Support::Ear ear;
    EXPECT_TRUE(v4 < mpls);
    EXPECT_TRUE(ear.heard("TunnelId.* for 'vxlanIR'\\(10.1.2.3\\) and 'mpls'\\(3\\)"));
}

TEST(TunnelId, RefusesAnMplsNumberOutOfRange) {
    TunnelId const bad = ofKind(4, U64{1} << 49), unknown = ofKind(200, 5);
    RAISES(Vomo::RangeException, tooLarge, bad.mpls());
    RAISES(Vomo::RangeException, tooLarge, parsed<TunnelId>(valueToStrep(bad).c_str()));
    auto const readBack = [](TunnelId const& id) {
        Vomo::NboAttrLog::Out out;
        out << id;
        EXPECT_EQ(out.size(), 24U);
        Vomo::NboAttrLog::In in(out.bytes());
        return TunnelId(&in, Vomo::StreamBogon{});
    };
    EXPECT_THROW(readBack(bad), Vomo::AttrLogRecordException);
    EXPECT_EQ(valueToStrep(readBack(unknown)), valueToStrep(unknown));
}

TEST(EncapInfoColl, ReplacesRemovesAndEndsAtTheEndMark) {
    TunnelTable::McastTunnelEncapInfoColl coll;
    McastTunnelEncapInfo info(FecIndex(5));
    auto const logged = [&coll] {
        Vomo::NboAttrLog::Out out;
        out << coll;
        return std::vector<U8>(out.bytes().begin(), out.bytes().end());
    };
    EXPECT_EQ(logged(), std::vector<U8>(4, 0xFF));
    coll.encapInfoIs(FecIndex(5), McastTunnelEncapInfo());
    coll.encapInfoIs(FecIndex(5), info);
    EXPECT_EQ(coll.encapInfo().members(), 1U);
    EXPECT_EQ(logged().size(), 24U);
    EXPECT_EQ(coll.encapInfoDel(FecIndex(6)), McastTunnelEncapInfo());
    EXPECT_TRUE(coll);
    EXPECT_EQ(coll.encapInfoDel(FecIndex(5)), info);
    EXPECT_FALSE(coll);
    coll.encapInfoIs(FecIndex(), info); // the key is the end mark
    Support::Ear ear;
    EXPECT_EQ(logged().size(), 4U);
    EXPECT_TRUE(ear.heard("end mark"));
    EXPECT_EQ(valueToStrep(coll), "None");
    EXPECT_DEATH(parsed<TunnelTable::McastTunnelEncapInfoColl>("None"),
                 "\"No String constructor for McastTunnelEncapInfoColl - has collection\" == "
                 "nullptr");
}

struct Watcher : Vomo::PtrInterface::NotifieeConst {
    std::vector<U32> heard;
    std::function<void()> act;
    void onAttribute(U32 attrId, void const*) override {
        heard.push_back(attrId);
        if (act) act();
    }
    std::vector<U32> take() { return std::exchange(heard, {}); }
};
using Heard = std::vector<U32>;

// The five kinds, with the directories of four on the status side.
template <class Visit>
void everyConfigDir(Visit&& visit) {
    visit(vxlanMcastTunnelConfigDirFactory("d"), TunnelId::fromVxlanMcast(group));
    visit(vxlanMcastHerTunnelConfigDirFactory("d"), TunnelId::fromVxlanIR(peer));
    visit(vxlanBumTunnelConfigDirFactory("d"), TunnelId::fromVxlanBum(peer));
    visit(TunnelTable::mcastTunnelConfigDirFactory("d"), TunnelId::fromMpls(MplsId(4)));
    visit(vplsPwEncapConfigDirFactory("d"), vpls("Vlan7"));
}

TEST(ConfigDir, BothLevelsChangeBeforeTheBaseIsNotified) {
    everyConfigDir([](auto const& dir, TunnelId const& id) {
        SCOPED_TRACE(id.str());
        EXPECT_EQ(dir->tunnelType(), id.tunnelType());
        Watcher watcher;
        watcher.notifierIs(dir.ptr());
        U32 members = 1;
        watcher.act = [&] {
            EXPECT_EQ(dir->typed().members(), members);
            EXPECT_EQ(dir->tunnelConfigs(), members);
        };
        auto const config = dir->tunnelConfigIs(id);
        EXPECT_EQ(watcher.take(), (Heard{259, 386}));
        EXPECT_EQ(dir->tunnelConfigIs(id), config); // there already
        EXPECT_EQ(config->parent(), dir.ptr());
        EXPECT_EQ(dir->tunnelConfig(id), config);
        EXPECT_TRUE(dir->tunnelConfigHas(id));
        config->activeVersionIs(2); // not heard here
        EXPECT_EQ(watcher.take(), Heard{});
        members = 0;
        dir->tunnelConfigDel(id);
        EXPECT_EQ(watcher.take(), (Heard{259, 386}));
        EXPECT_EQ(config->parent(), nullptr);
        dir->tunnelConfigDel(id); // absent
        watcher.act = nullptr;
        dir->tunnelConfigIs(id);
        watcher.take();
        dir->tunnelConfigDelAll();
        EXPECT_EQ(watcher.take(), (Heard{259, 386}));
        EXPECT_EQ(dir->tunnelConfigs(), 0U);
    });
}

TEST(StatusDir, OnlyItsOwnFunctionsChangeBothLevels) {
    auto const check = [](auto const& dir, TunnelId const& id, auto typedIs, auto typedDel) {
        SCOPED_TRACE(id.str());
        EXPECT_EQ(dir->tunnelType(), id.tunnelType());
        Watcher watcher;
        watcher.notifierIs(dir.ptr());
        auto const status = typedIs();
        EXPECT_EQ(watcher.take(), Heard{386});
        EXPECT_FALSE(dir->tunnelStatusHas(id));
        EXPECT_EQ(dir->tunnelStatusIs(id).ptr(), status.ptr()); // the one that is there
        EXPECT_EQ(watcher.take(), Heard{259});
        EXPECT_EQ(dir->tunnelStatus(id).ptr(), status.ptr());
        typedDel();
        EXPECT_EQ(watcher.take(), Heard{386});
        EXPECT_TRUE(dir->tunnelStatusHas(id));
        EXPECT_EQ(status->parent(), nullptr);
        EXPECT_NE(dir->tunnelStatusIs(id).ptr(),
                  status.ptr()); // another, in the place of the entry
        EXPECT_EQ(watcher.take(), (Heard{259, 386}));
        dir->tunnelStatusDel(id);
        EXPECT_EQ(watcher.take(), (Heard{259, 386}));
        EXPECT_EQ(dir->tunnelStatuss(), 0U);
        dir->tunnelStatusIs(id);
        watcher.take();
        dir->tunnelStatusDelAll();
        EXPECT_EQ(watcher.take(), (Heard{259, 386}));
        RAISES(Vomo::NoImplementationException,
               "tunnelStatusIs must be implemented by a derived class",
               dir->tunnelStatusIs(vpls("Vlan7")));
        EXPECT_DEATH(dir->tunnelStatusIs(TunnelId()), "0 && \"Unknown tunnel type\"");
    };
    TunnelId const mcast = TunnelId::fromVxlanMcast(group), her = TunnelId::fromVxlanIR(peer),
                   bum = TunnelId::fromVxlanBum(peer), mpls = TunnelId::fromMpls(MplsId(4));
    auto const a = vxlanMcastTunnelStatusDirFactory("d");
    check(
        a, mcast, [&] { return a->vxlanMcastTunnelStatusIs(mcast); },
        [&] { a->vxlanMcastTunnelStatusDel(mcast); });
    auto const b = vxlanMcastHerTunnelStatusDirFactory("d");
    check(
        b, her, [&] { return b->vxlanMcastHerTunnelStatusIs(her); },
        [&] { b->vxlanMcastHerTunnelStatusDel(her); });
    auto const c = vxlanBumTunnelStatusDirFactory("d");
    check(
        c, bum, [&] { return c->vxlanBumTunnelStatusIs(bum); },
        [&] { c->vxlanBumTunnelStatusDel(bum); });
    auto const d = TunnelTable::mcastTunnelStatusDirFactory("d");
    check(
        d, mpls, [&] { return d->setMcastTunnelStatus(mpls); },
        [&] { d->unsetMcastTunnelStatus(mpls); });
    EXPECT_THROW(d->tunnelStatusIs(bum), std::bad_cast); // a directory of another kind
    EXPECT_EQ(d->tunnelStatuss(), 0U);
}

TEST(StatusDir, OfPseudowiresRaisesWhereTheOthersDispatch) {
    auto const dir = vplsPwEncapStatusDirFactory("d");
    TunnelId const id = vpls("Vlan7");
    auto const status = dir->encapStatusIs(id);
    Watcher watcher;
    watcher.notifierIs(dir.ptr());
    RAISES(Vomo::NoImplementationException, "tunnelStatusIs must be implemented by a derived class",
           dir->tunnelStatusIs(id));
    dir->tunnelStatusGenIs(status);
    RAISES(Vomo::NoImplementationException,
           "tunnelStatusDel must be implemented by a derived class", dir->tunnelStatusDel(id));
    EXPECT_FALSE(dir->tunnelStatusHas(id)); // went first
    dir->tunnelStatusGenIs(status);
    RAISES(Vomo::NoImplementationException,
           "tunnelStatusDelAll must be implemented by a derived class", dir->tunnelStatusDelAll());
    EXPECT_EQ(watcher.take(), (Heard{259, 259, 259, 259}));
    EXPECT_EQ(dir->encapStatus(id), status);
    EXPECT_THROW(dir->tunnelStatusGenIs(nullptr), Vomo::ArgumentException);
    auto const plain = configDirFactory("d", TunnelType::mpls);
    RAISES(Vomo::NoImplementationException, "tunnelConfigIs must be implemented by a derived class",
           plain->tunnelConfigIs(id));
    EXPECT_THROW(plain->configIs(nullptr), Vomo::ArgumentException);
}

TEST(VplsPwEncapConfigDir, TracesAndRefusesOtherKindsFirst) {
    auto const dir = vplsPwEncapConfigDirFactory("d");
    EXPECT_THROW(dir->tunnelConfigIs(TunnelId::fromVxlanIR(peer)), Vomo::TypeException);
    EXPECT_EQ(dir->tunnelConfigs(), 0U);
    Support::Ear ear;
    dir->tunnelConfigIs(vpls("Vlan7"));
    dir->tunnelConfigDel(vpls("Vlan8"));
    auto const lines = Lumenlog::lines();
    std::vector<std::string> const wanted{"tunnelConfigIs create encapConfig for Vlan7",
                                          "tunnelConfigDel delete encapConfig for Vlan8"};
    ASSERT_GE(lines.size(), wanted.size());
    EXPECT_TRUE(std::equal(wanted.begin(), wanted.end(), lines.end() - 2));
    for (std::string const& line : wanted) EXPECT_TRUE(ear.heard(line));
}

TEST(TunnelEntities, ChangesAreToldOnceOrNotAtAll) {
    TunnelId const id = TunnelId::fromVxlanBum(peer);
    auto const mcast = vxlanMcastTunnelConfigFactory(id);
    auto const bum = vxlanBumTunnelStatusFactory(id);
    auto const encaps = TunnelTable::mcastTunnelStatusFactory(id);
    auto const sets = vxlanMcastTunnelStatusFactory(id);
    Watcher watchers[4];
    watchers[0].notifierIs(mcast.ptr());
    watchers[1].notifierIs(bum.ptr());
    watchers[2].notifierIs(encaps.ptr());
    watchers[3].notifierIs(sets.ptr());
    PortVlanSet pvs;
    pvs.natVlanIs(Bridging::VlanIdOrNone(4), true);
    TunnelTable::McastTunnelEncapInfoColl coll;
    coll.encapInfoIs(FecIndex(3), McastTunnelEncapInfo(FecIndex(3)));
    struct {
        char const* what;
        std::function<void()> act;
        Heard heard;
    } const rows[] = {
        {"a VLAN twice",
         [&] {
             mcast->vlanListIs(VlanId(7));
             mcast->vlanListIs(VlanId(7));
         },
         {387}},
        {"an absent VLAN", [&] { EXPECT_FALSE(bum->vlanListDel(VlanId(7))); }, {}},
        {"a present VLAN", [&] { EXPECT_TRUE(mcast->vlanListDel(VlanId(7))); }, {387}},
        {"an equal set of copies",
         [&] {
             mcast->underlayPvSetIs(pvs);
             mcast->underlayPvSetIs(PortVlanSet(pvs));
         },
         {388}},
        {"an equal collection",
         [&] {
             encaps->tunnelEncapInfoIs(coll);
             encaps->tunnelEncapInfoIs(TunnelTable::McastTunnelEncapInfoColl(coll));
             encaps->tunnelEncapInfoIs(encaps->tunnelEncapInfo());
         },
         {386}},
        {"attributes of the base",
         [&] { bum->versionInc(~U64{0}), bum->versionInc(1); },
         {259, 259}},
        {"a set and a scalar of one name",
         [&] {
             sets->tunnelEncapInfoIs(7), sets->tunnelEncapInfoIs(7);
             bum->tunnelEncapInfoIs(7), bum->tunnelEncapInfoIs(7);
         },
         {386, 386}},
    };
    for (auto const& row : rows) {
        SCOPED_TRACE(row.what);
        row.act();
        Heard all;
        for (Watcher& w : watchers)
            for (U32 const attr : w.take()) all.push_back(attr);
        EXPECT_EQ(all, row.heard);
    }
    // Alike as they are, two kinds hash their VLANs without a seed, and the third with one.
    using Legacy = Vomo::HashHelper::KeyAndRhashLegacy;
    VlanId const vlan(7);
    static_assert(
        std::is_same_v<decltype(VxlanMcastTunnelConfig::VomoVlanList::record(vlan)), Legacy>);
    static_assert(
        std::is_same_v<decltype(VxlanMcastHerTunnelConfig::VomoVlanList::record(vlan)), Legacy>);
    static_assert(
        std::is_same_v<decltype(VxlanMcastHerTunnelStatus::VomoVlanList::record(vlan)), Legacy>);
    static_assert(
        !std::is_same_v<decltype(VxlanBumTunnelConfig::VomoVlanList::record(vlan)), Legacy>);
    static_assert(
        !std::is_same_v<decltype(VxlanBumTunnelStatus::VomoVlanList::record(vlan)), Legacy>);
}

TEST(TunnelConfigIterator, MeetsEveryMemberAndBeginsAgainBehindTheLast) {
    everyConfigDir([](auto const& dir, TunnelId const& id) {
        SCOPED_TRACE(id.str());
        TunnelConfigIteratorConst at(dir, dir->tunnelType());
        at.updateConfigIterator();
        EXPECT_FALSE(at);
        EXPECT_TRUE(at.walkDone());
        dir->tunnelConfigIs(id);
        at.updateConfigIterator(); // from the first again
        ASSERT_TRUE(at);
        EXPECT_EQ(at.config()->tunnelId(), id);
        EXPECT_TRUE(at.walkDone()); // for good
        dir->tunnelConfigDel(id);
        EXPECT_EQ(at.config()->tunnelId(), id); // still readable
        Support::Ear ear;
        at.updateConfigIterator();
        EXPECT_FALSE(at);
        EXPECT_TRUE(ear.heard(id.tunnelType() == TunnelType::vpls ? "^Done Vpls$" : "^Done$"));
    });
    auto const dir = TunnelTable::mcastTunnelConfigDirFactory("d");
    std::set<U64> met, all;
    for (U64 i = 0; i < 50; ++i) {
        dir->tunnelConfigIs(TunnelId::fromMpls(MplsId(i)));
        all.insert(i);
    }
    TunnelConfigIteratorConst at(dir, TunnelType::mpls);
    for (at.updateConfigIterator(); !at.walkDone(); at.updateConfigIterator()) {
        met.insert(at.config()->tunnelId().mpls().value());
        dir->tunnelConfigDel(at.config()->tunnelId());
    }
    EXPECT_EQ(met, all);
    EXPECT_EQ(dir->tunnelConfigs(), 0U);
}

TEST(TunnelConfigIterator, RefusesWhatItCannotWalk) {
    auto const dir = TunnelTable::mcastTunnelConfigDirFactory("d");
    TunnelConfigIteratorConst invalid(dir, TunnelType::invalid), other(dir, TunnelType::vpls);
    RAISES(Vomo::NoImplementationException, "Case not Implemented", invalid.updateConfigIterator());
    EXPECT_THROW(other.updateConfigIterator(), std::bad_cast);
    EXPECT_THROW(TunnelConfigIteratorConst(dir, TunnelType{6}), Vomo::RangeException);
}

} // namespace
