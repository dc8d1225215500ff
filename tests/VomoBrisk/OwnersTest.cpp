// The four entities that own the seven tables, as their records show them to those who know no types.
#include "Owners.h"

#include "Mroute/CounterStatus.h"
#include "Mroute/FibTables.h"
#include "Mroute/MfibDir.h"
#include "Vomo/GenericIf.h"
#include "Vomo/RowFacts.h"
#include "support/Ear.h"

#include <gmock/gmock.h>

namespace {

using namespace Support;
using Brisk::Multicast::Fib::BidirStatus, Brisk::Multicast::Fib::Status;
using Routing::Multicast::Fib::CounterStatus;
using VomoBrisk::Mount;
using VomoBrisk::MountInfo;
using VomoBrisk::VomoBriskType;
using Op = Vomo::GenericIf::AttributeOp;

template <class Table>
struct Place;
template <>
struct Place<Mroute::RouteTable> {
    using Owner = Status;
    static constexpr U32 number = 258;
};
template <>
struct Place<Mroute::OifIndexIntfTable> {
    using Owner = Status;
    static constexpr U32 number = 260;
};
template <>
struct Place<Mroute::BidirGroupTable> {
    using Owner = BidirStatus;
    static constexpr U32 number = 258;
};
template <>
struct Place<Mroute::DfProfileTable> {
    using Owner = BidirStatus;
    static constexpr U32 number = 260;
};
template <>
struct Place<Mroute::CounterTable> {
    using Owner = CounterStatus;
    static constexpr U32 number = 258;
};
template <>
struct Place<Mroute::BitIndexMapTable> {
    using Owner = BitMapper::BriskStatus;
    static constexpr U32 number = 258;
};
template <>
struct Place<Mroute::WaitlistMapTable> {
    using Owner = BitMapper::BriskStatus;
    static constexpr U32 number = 260;
};

// An entity by the name of its type, and what its notifiees hear.
class ByName : public Vomo::PtrInterface::NotifieeConst {
public:
    explicit ByName(std::string_view typeName)
        : type(Vomo::typeByName(typeName)), generic(type.module->genericTable[type.index]),
          entity(static_cast<Vomo::Entity*>(generic.newEntityForDir("agent", nullptr))) {
        entity->referencesDec(); // the factory's
        notifierIs(entity.ptr());
    }
    Vomo::VomoAttr attr(std::string_view name) const { return Vomo::attrByName(type, name); }
    U32 op(Vomo::VomoAttr at, Op operation, void* out, void const* a, void const* b = nullptr) {
        return generic.attributeOp(out, entity.ptr(), at, operation, const_cast<void*>(a),
                                   const_cast<void*>(b));
    }
    void onAttribute(Vomo::AttributeId id, void const*) override { heard.push_back(id); }

    Vomo::VomoType const type;
    Vomo::GenericRow const& generic;
    Vomo::Ptr<Vomo::Entity> entity;
    std::vector<U32> heard;
};

template <class Table>
class OwnerByName : public testing::Test {
public:
    using S = Sample<Table>;
    using Value = typename Table::Value::Wrapped;
    static constexpr U32 number = Place<Table>::number;
    static constexpr auto typeName() {
        return Vomo::IdOf<typename Place<Table>::Owner>::type.name();
    }
    static MountInfo info(VomoBriskType type) {
        MountInfo result(type);
        result.collectionInfoIs({Table::attribute, 64, 0});
        return result;
    }
    TempBase base_;
};
using Tables = testing::Types<Mroute::RouteTable, Mroute::OifIndexIntfTable,
                              Mroute::BidirGroupTable, Mroute::DfProfileTable, Mroute::CounterTable,
                              Mroute::BitIndexMapTable, Mroute::WaitlistMapTable>;
struct Names {
    template <class Table>
    static std::string GetName(int) {
        return Table::attribute;
    }
};
TYPED_TEST_SUITE(OwnerByName, Tables, Names);

TYPED_TEST(OwnerByName, ReadsWritesWalksAndDeletes) {
    using F = TestFixture;
    ByName writer(F::typeName()), shadow(F::typeName());
    auto const table = writer.attr(TypeParam::attribute);
    auto const control = writer.attr(std::string(TypeParam::attribute) + "Control");
    ASSERT_FALSE(table.isNull() || control.isNull());
    EXPECT_EQ(table.attributeId(), F::number);
    EXPECT_EQ(control.attributeId(), F::number + 1);
    EXPECT_TRUE(Vomo::is(table.row(), Vomo::RowKind::table));
    EXPECT_TRUE(Vomo::is(control.row(), Vomo::RowKind::control));

    Mount const mount(writer.entity, "by/name", F::info(VomoBriskType::writer));
    Mount const shadowMount(shadow.entity, "by/name", F::info(VomoBriskType::valueShadow));
    auto const state = [&](ByName& of, Vomo::VomoAttr attr) {
        Vomo::Ptr<Vomo::Entity> found;
        EXPECT_EQ(of.op(attr, Op::get, &found, nullptr), 0U);
        return dynamic_cast<VomoBrisk::CollectionControl&>(*found).mountStatus();
    };
    ASSERT_TRUE(pump([&] { return state(shadow, control) == Mem::MountStatus::synchronised; }));
    EXPECT_EQ(state(writer, control), Mem::MountStatus::mounted);
    for (auto* const other : dynamic_cast<VomoBrisk::TableOwner&>(*shadow.entity).tables()) {
        EXPECT_EQ(other->control()->mountStatus(), other->attributeId() == F::number
                                                       ? Mem::MountStatus::synchronised
                                                       : Mem::MountStatus::unmounted);
    }

    // Writes.
    typename F::Value found;
    U32 count = 0;
    bool has = false;
    for (U32 i = 0; i < 10; ++i) {
        auto const key = F::S::key(i);
        typename F::Value const value = F::S::value(i, i + 1);
        EXPECT_EQ(writer.op(table, Op::set, nullptr, &key, &value), 0U);
    }
    auto const key = F::S::key(3), other = F::S::key(4);
    typename F::Value const value = F::S::value(3, 4);
    EXPECT_THROW(writer.op(table, Op::set, nullptr, &other, &value), Vomo::ArgumentException);
    EXPECT_EQ(writer.heard, std::vector<U32>(10, F::number));
    ASSERT_TRUE(pump([&] { return shadow.heard.size() == 10; }));
    EXPECT_EQ(shadow.heard, std::vector<U32>(10, F::number));
    // Reads.
    for (ByName* const of : {&writer, &shadow}) {
        EXPECT_EQ(of->op(table, Op::get, &found, &key), 0U);
        EXPECT_EQ(found, value);
        EXPECT_EQ(of->op(table, Op::count, &count, nullptr), 0U);
        EXPECT_EQ(count, 10U);
        // Walks, from the first and from a key.
        std::map<U32, U32> met;
        auto from = key;
        for (void* start : {static_cast<void*>(nullptr), static_cast<void*>(&from)}) {
            Vomo::GenericIfRaw::Iterator::IteratorVTable const* walk = nullptr;
            void* const at = of->generic.iterator(of->entity.ptr(), &start, table, &walk);
            ASSERT_NE(at, nullptr);
            typename TypeParam::Key onKey;
            for (bool first = true; walk->iterNonnull(table, at); walk->iterInc(table, at)) {
                walk->iterKey(table, at, &onKey);
                walk->iterObj(table, at, &found);
                EXPECT_EQ(found.key(), onKey);
                EXPECT_TRUE(start == nullptr || !std::exchange(first, false) || onKey == key);
                if (start == nullptr) ++met[Listener<TypeParam>::number(onKey)];
            }
            walk->iterDel(table, at);
        }
        EXPECT_EQ(met, once(0, 10));
    }
    // Deletes.
    U32 before = 0, after = 0;
    writer.op(table, Op::version, &before, nullptr);
    EXPECT_EQ(writer.op(table, Op::del, nullptr, &key), 0U);
    EXPECT_EQ(writer.op(table, Op::version, &after, nullptr), 0U);
    EXPECT_EQ(after, before + 1);
    EXPECT_EQ(writer.op(table, Op::has, &has, &key), 0U);
    EXPECT_FALSE(has);
    EXPECT_EQ(writer.op(table, Op::get, &found, &key), 0U);
    EXPECT_EQ(found, typename F::Value());
    ASSERT_TRUE(pump([&] { return shadow.heard.size() == 11; }));
    EXPECT_THROW(shadow.op(table, Op::del, nullptr, &other), Dunlin::NoPermissionException);
    EXPECT_EQ(shadow.heard.size(), 11U);
}

TEST(Owners, AreMountedByTheirPathsAndSizes) {
    struct {
        Kelpie::AddressFamily af;
        char const *vrf, *name, *path;
    } const rows[] = {
        {Kelpie::ipv4(), "default", "kernel", "routing/multicast/routestatus/default/kernel"},
        {Kelpie::ipv6(), "default", "table1", "routing6/multicast/routestatus/default/table1"},
    };
    for (auto const& row : rows)
        EXPECT_EQ(Status::mountPath(row.af, L3::VrfName(row.vrf), row.name), row.path);
    EXPECT_DEATH(Status::mountPath(Kelpie::AddressFamily(), L3::VrfName("default"), "n"),
                 "false && \"Unsupported address family\"");

    TempBase const base;
    auto const bits = BitMapper::briskStatusFactory("bits");
    Mount const mount(bits, "bits", BitMapper::TableInfo::mountInfo(VomoBriskType::writer));
    for (auto const* const front :
         {&bits->bitIndexMap().descriptor(), &bits->waitlistMap().descriptor()})
        EXPECT_EQ(front->initialSize, 1024U);
    auto const routes = Brisk::Multicast::Fib::statusFactory("routes");
    Mount const routesMount(routes, "routes",
                            Brisk::Multicast::Fib::TableInfo::mfibMountInfo(VomoBriskType::writer));
    EXPECT_EQ(routes->route().descriptor().initialSize, 12000U);
    EXPECT_EQ(routes->oifIndexIntf().descriptor().initialSize, 1024U);
}

TEST(BitMapper, TellsNewMappingsAndWhatABitIs) {
    using namespace BitMapper;
    TempBase const base;
    auto const status = briskStatusFactory("bits");
    BitMapperKey const key = bitMapperKey(7);
    auto const looks = [&](char const* when, bool isNew, BitMapperKey const& expected) {
        SCOPED_TRACE(when);
        EXPECT_TRUE(status->isNewMapping(BitIndex(BitIndex::invalid)));
        EXPECT_TRUE(status->isNewMapping(BitIndex(4)));
        EXPECT_EQ(status->isNewMapping(BitIndex(3)), isNew);
        EXPECT_EQ(status->lookupBitIndex(BitIndex(3)), expected);
        EXPECT_EQ(status->lookupBitIndex(BitIndex(4)), BitMapperKey());
        EXPECT_EQ(status->lookupBitIndex(BitIndex(BitIndex::invalid)), BitMapperKey());
    };
    looks("not attached", true, {});
    Mount mount(status, "bits", TableInfo::mountInfo(VomoBriskType::writer));
    looks("empty", true, {});
    BitIndexMap map(BitIndex(3), key);
    status->bitIndexMapIs(map);
    looks("new", true, key);
    map.isNewMappingIs(false);
    status->bitIndexMapIs(map);
    looks("known", false, key);
    EXPECT_EQ(status->bitIndexMapDel(BitIndex(4)).key(), BitIndex(65535));
    mount.unmount();
    looks("let go", true, {});
}

TEST(RouteOrderedCollection, IsInOrderOfKeysAndHoldsWhatCarriesThem) {
    using namespace Brisk::Multicast::Fib;
    struct Ears : Vomo::PtrInterface::NotifieeConst {
        void onAttribute(Vomo::AttributeId id, void const*) override { heard.push_back(id); }
        std::vector<U32> heard;
    } ears;
    auto const view = routeOrderedCollectionFactory("view");
    ears.notifierIs(view.ptr());
    auto one = statusFactory("one");
    auto const two = statusFactory("two");
    U32 const references = two->references();
    auto const steps = [&](std::size_t expected, auto const& step) {
        step();
        EXPECT_EQ(std::exchange(ears.heard, {}), std::vector<U32>(expected, 258));
    };
    steps(3, [&] {
        for (U32 const i : {5U, 1U, 3U}) view->routeIs(routeKey(i), one.ptr());
    });
    steps(0, [&] { view->routeIs(routeKey(1), one.ptr()); });
    steps(0, [&] { view->routeIs(routeKey(9), nullptr); });
    steps(1, [&] { view->routeIs(routeKey(1), two.ptr()); });
    EXPECT_EQ(two->references(), references + 1);
    std::vector<Routing::Multicast::Fib::IpGenRouteKey> order;
    for (auto const& node : view->route()) order.push_back(node.fwkKey());
    EXPECT_THAT(order, testing::ElementsAre(routeKey(1), routeKey(3), routeKey(5)));
    one = nullptr;
    EXPECT_EQ(view->route(routeKey(3))->name(), "one");
    steps(1, [&] { view->routeIs(routeKey(1), nullptr); });
    EXPECT_EQ(two->references(), references);
    RouteOrderedCollection::RouteMap::Iterator at(&view->route());
    steps(1, [&] { EXPECT_EQ(view->routeDel(at)->name(), "one"); });
    steps(0, [&] { EXPECT_FALSE(view->routeDel(routeKey(3))); });
    steps(1, [&] { view->routeDelAll(); });
    EXPECT_FALSE(view->route(routeKey(5)));
}

TEST(Owners, LeaveNothingBehind) {
    using Vomo::AllocTrackTypeInfo, Vomo::Tracked;
    auto const live = [] {
        return AllocTrackTypeInfo::live(Tracked<Status>::vomoAllocTrackTypeInfo_) +
               AllocTrackTypeInfo::live(Tracked<BidirStatus>::vomoAllocTrackTypeInfo_) +
               AllocTrackTypeInfo::live(Tracked<CounterStatus>::vomoAllocTrackTypeInfo_) +
               AllocTrackTypeInfo::live(Tracked<BitMapper::BriskStatus>::vomoAllocTrackTypeInfo_) +
               AllocTrackTypeInfo::live(
                   Tracked<VomoBrisk::CollectionControl>::vomoAllocTrackTypeInfo_);
    };
    EXPECT_EQ(live(), 0);
    for (U32 i = 0; i < 500; ++i) {
        auto const status = Brisk::Multicast::Fib::statusFactory("s");
        status->bitMapperBriskStatusIs(BitMapper::briskStatusFactory("b"));
        auto const bidir = Brisk::Multicast::Fib::bidirStatusFactory("b");
        auto const counters = Routing::Multicast::Fib::counterStatusFactory("c");
        status->routeIs(Sample<Mroute::RouteTable>::value(i, 1));
        EXPECT_EQ(live(), 4 + 7);
    }
    EXPECT_EQ(live(), 0);
    loop().runOnce(0);
}

} // namespace
