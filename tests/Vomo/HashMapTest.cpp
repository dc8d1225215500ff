// Hash collections against a model, under every change that a walk may meet.
#include "Bridging/VlanId.h"
#include "Mroute/McastGroup.h"
#include "Vomo/HashMap2018.h"

#include <list>
#include <random>
#include <set>

namespace {

using namespace Vomo;

// A key whose hash the test chooses: many members of one hash.
struct Clumsy {
    U32 number;
    U32 hash() const { return number % 97; }
    friend bool operator==(Clumsy, Clumsy) = default;
    friend auto operator<=>(Clumsy, Clumsy) = default;
};

// Values that need construction and release, and plain ones.
struct PlainNode : HashMap2018NodeExternKey<false, 0x1234U, U32, U64, false> {
    using HashMap2018NodeExternKey::HashMap2018NodeExternKey;
};
struct TextNode : HashMap2018NodeExternKey<true, 0U, Clumsy, String, false> {
    using HashMap2018NodeExternKey::HashMap2018NodeExternKey;
};
struct NameNode : HashMap2018NodeExternKey<false, 0x5678U, String, U32, false> {
    using HashMap2018NodeExternKey::HashMap2018NodeExternKey;
};
using NameMap = HashMap2018<NameNode, String, U32>;
using PlainMap = HashMap2018<PlainNode, U32, U64>;
using TextMap = HashMap2018<TextNode, Clumsy, String>;

template <class Map>
struct Make;
template <>
struct Make<PlainMap> {
    static U32 key(U32 n) { return n; }
    static U32 number(U32 k) { return k; }
    static U64 value(U32 n) { return n * 7ULL; }
    using Node = PlainNode;
};
template <>
struct Make<TextMap> {
    static Clumsy key(U32 n) { return {n}; }
    static U32 number(Clumsy k) { return k.number; }
    static String value(U32 n) {
        return "a value that does not fit the small buffer " + std::to_string(n);
    }
    using Node = TextNode;
};

template <>
struct Make<NameMap> {
    static String key(U32 n) {
        return "a name that does not fit the small buffer " + std::to_string(n);
    }
    static U32 number(String const& k) { return static_cast<U32>(std::stoul(k.substr(42))); }
    static U32 value(U32 n) { return n; }
    using Node = NameNode;
};

// What is allocated: buckets, and the slots of nodes and their bytes.
template <class Map>
std::array<S64, 3> allocated() {
    auto const* const nodes = Map::Functions::vomoAllocTrackTypeInfo_;
    return {AllocTrackTypeInfo::live(HashMap2018Generic::bucketHeaderTypeInfo_),
            AllocTrackTypeInfo::live(nodes), nodes == nullptr ? 0 : nodes->liveBytes()};
}

template <class Map>
class HashMap : public testing::Test {};
using Maps = testing::Types<PlainMap, TextMap, NameMap>;
TYPED_TEST_SUITE(HashMap, Maps);

// A safe walk with what it must and may meet.
template <class Map>
struct Walk {
    explicit Walk(Map const* map, std::map<U32, U32> const& model) : iterator(map) {
        for (auto const& [key, v] : model) throughout.insert(key);
    }
    typename Map::IteratorConst iterator;
    std::set<U32> throughout; // members since the walk began
    std::set<U32> seen;
};

TYPED_TEST(HashMap, AgreesWithAModelUnderManyWalks) {
    using M = Make<TypeParam>;
    auto const before = allocated<TypeParam>();
    std::mt19937 random(2018);
    {
        TypeParam map;
        std::map<U32, U32> model;
        std::list<Walk<TypeParam>> walks;
        U32 const range = 3000;
        int const steps = std::is_same_v<TypeParam, PlainMap> ? 1000000 : 300000;
        for (int step = 0; step < steps; ++step) {
            U32 const n = static_cast<U32>(random() % range);
            // Periods of growth and of shrinking.
            bool const growing = step / 5000 % 2 == 0;
            switch (random() % 8) {
            case 0:
            case 1:
            case 2:
                if (!growing) break;
                [[fallthrough]];
            case 3: {
                auto* const node = map[M::key(n)];
                ASSERT_EQ(node != nullptr, model.contains(n));
                if (node != nullptr)
                    node->valueIs(M::value(n + 1));
                else
                    map.newMember(typename M::Node(M::key(n), M::value(n)));
                model[n] = node != nullptr ? n + 1 : n;
                break;
            }
            case 4:
            case 5:
                if (growing) break;
                [[fallthrough]];
            case 6: {
                U32 const version = map.version();
                bool const was = model.erase(n) != 0;
                ASSERT_EQ(map.deleteMember(M::key(n)), was);
                ASSERT_EQ(map.version() != version, was);
                for (auto& walk : walks) walk.throughout.erase(n);
                break;
            }
            default:
                if (random() % 16 == 0 && walks.size() < 12) walks.emplace_back(&map, model);
                break;
            }
            if (random() % 100000 == 0) {
                map.deleteAll();
                model.clear();
                for (auto& walk : walks) walk.throughout.clear();
            }
            for (auto walk = walks.begin(); walk != walks.end();) {
                if (random() % 4 != 0) {
                    ++walk;
                    continue;
                }
                if (!walk->iterator) {
                    for (U32 const k : walk->throughout) ASSERT_TRUE(walk->seen.contains(k)) << k;
                    walk = walks.erase(walk);
                    continue;
                }
                U32 const k = M::number(walk->iterator.key());
                auto* const node = walk->iterator.node();
                ASSERT_EQ(node != nullptr, model.contains(k));
                if (node != nullptr) {
                    ASSERT_EQ(node->value(), M::value(model[k]));
                }
                bool const first = walk->seen.insert(k).second;
                ASSERT_TRUE(first || !walk->throughout.contains(k)) << k << " met twice";
                ++walk->iterator;
                ++walk;
            }
            ASSERT_EQ(map.members(), model.size());
        }
        std::set<U32> found;
        for (typename TypeParam::UnsafeIteratorConst i(&map); i; ++i) {
            U32 const k = M::number(i->fwkKey());
            EXPECT_TRUE(found.insert(k).second);
            EXPECT_EQ(i->value(), M::value(model.at(k)));
        }
        EXPECT_EQ(found.size(), model.size());
        TypeParam const copy(map);
        EXPECT_TRUE(copy == map);
    }
    EXPECT_EQ(allocated<TypeParam>(), before);
}

TEST(HashCollections, NodesAndBucketsHaveTheToldSizes) {
    using VlanSet = HSet<Bridging::VlanId, 0U>;
    EXPECT_EQ(sizeof(VlanSet::Node), 2U);
    EXPECT_EQ(sizeof(HSet<Multicast::Group::GroupKey, 0U>::Node), 4U);
    HashMap2018BucketHdr const bucket{5U << 4 | 3U << 18 | 1};
    EXPECT_EQ(bucket.slots(), 5U);
    EXPECT_EQ(bucket.used(), 3U);
    // In front of the node array: words and header, rounded up to the nodes' alignment.
    auto const front = [](U32 slots, U32 align) {
        alignas(16) static U8 room[4096];
        auto* const header = reinterpret_cast<HashMap2018BucketHdr*>(room + 2048);
        *header = {slots << 4};
        return header->nodes() - static_cast<U8*>(header->allocation(align));
    };
    EXPECT_EQ(front(5, 8), 24);
    EXPECT_EQ(front(4, 8), 24);
    EXPECT_EQ(front(5, 2), 24);
    EXPECT_EQ(front(4, 4), 20);
}

TEST(HashCollections, MarksBelongToMembers) {
    PlainMap map;
    for (U32 i = 0; i < 1000; ++i) map.newMember(PlainNode(i, i));
    map.vomoMarkAllForDeletion();
    for (U32 i = 0; i < 1000; i += 2) EXPECT_TRUE(map.markedForDeletionIs(i, false));
    EXPECT_FALSE(map.markedForDeletionIs(5000, false));
    for (U32 i = 1000; i < 3000; ++i) map.newMember(PlainNode(i, i)); // new members carry none
    for (PlainMap::IteratorConst i(&map); i; ++i)
        EXPECT_EQ(i.markedForDeletion(), i.key() < 1000 && i.key() % 2 == 1) << i.key();
    for (PlainMap::IteratorConst i(&map); i; ++i)
        if (i.markedForDeletion()) map.deleteMember(i.key());
    EXPECT_EQ(map.members(), 2500U);
}

TEST(HashCollections, ARemovedMemberStaysReadable) {
    TextMap map;
    for (U32 i = 0; i < 50; ++i) map.newMember(TextNode({i * 97}, String("v"))); // all of one hash
    TextMap::IteratorConst i(&map);
    Clumsy const key = i.key();
    map.deleteMember(key);
    EXPECT_EQ(i.node(), nullptr);
    EXPECT_EQ(i.key(), key);
    int rest = 0;
    for (++i; i; ++i) ++rest;
    EXPECT_EQ(rest, 49);
    EXPECT_FALSE(map.deleteMember(key));
}

// Members of one hash stand in order of arrival, so that one which comes back stands behind the rest.
TEST(HashCollections, AMemberThatLeftAndCameBackHidesNoOther) {
    TextMap map;
    for (U32 i = 0; i < 5; ++i) map.newMember(TextNode({i * 97}, String("v")));
    TextMap::IteratorConst i(&map);
    std::set<U32> met;
    for (U32 const back : {i.key().number, 97U}) { // where the walk stands, and a later one
        map.deleteMember({back});
        map.newMember(TextNode({back}, String("w")));
    }
    for (++i; i; ++i) met.insert(i.key().number);
    for (U32 const there : {2U, 3U, 4U}) EXPECT_TRUE(met.contains(there * 97)) << there;
}

TEST(HashCollections, ManyIteratorsInOneBucket) {
    PlainMap map;
    for (U32 i = 0; i < 5; ++i) map.newMember(PlainNode(i, i));
    std::list<PlainMap::IteratorConst> iterators;
    for (int i = 0; i < 40; ++i) iterators.emplace_back(&map); // more than a header counts
    map.deleteMember(iterators.front().key());
    for (auto& i : iterators) {
        EXPECT_EQ(i.node(), nullptr);
        ++i;
        EXPECT_NE(i.node(), nullptr);
    }
}

// A bucket counts its members in 14 bits: one more of nearly the same hash is refused, and two buckets
// that would not fit into one stay two, though the table is large for what is left.
TEST(HashCollections, MoreOfOneHashThanABucketHoldsAreRefused) {
    struct Chosen {
        U32 spread; // what the engine makes of the hash
        U32 number;
        U32 hash() const {
            return spread * 0x0E8B2F51U;
        } // times the inverse of the engine's factor
        bool operator==(Chosen const&) const = default;
    };
    using Node = HashMap2018NodeExternKey<true, 0U, Chosen, U32, false>;
    HashMap2018<Node, Chosen, U32> map;
    constexpr U32 some = 9000, max = HashMap2018BucketHdr::maxSlots;
    constexpr U32 step = 1U << 14, others = max * 9;
    for (U32 i = 0; i < others; ++i) map.newMember(Node({i * step + 7, i}, i));
    for (U32 i = 0; i < some; ++i)
        for (U32 const spread : {0U, 1U << 17}) map.newMember(Node({spread, i + others}, i));
    for (U32 i = 0; i < others; ++i) EXPECT_TRUE(map.deleteMember({i * step + 7, i}));
    for (U32 i = some; i < max; ++i) map.newMember(Node({0, i + others}, i));
    EXPECT_THROW(map.newMember(Node({0, 0}, 0)), Dunlin::RuntimeException);
    EXPECT_EQ(map.members(), max + some);
    for (U32 const i : {0U, some - 1, max - 1}) EXPECT_EQ((map[{0, i + others}]->value()), i);
    EXPECT_EQ((map[{1U << 17, others}]->value()), 0U);
}

TEST(HashCollections, AnUnsafeWalkStopsTheProcessOnChange) {
    PlainMap map;
    map.newMember(PlainNode(1, 1));
    PlainMap::UnsafeIteratorConst i(&map);
    map.newMember(PlainNode(2, 2));
    EXPECT_DEATH(++i, "version_ == hashMap_->version\\(\\)");
}

TEST(HashCollections, SeedsOfCollectionsDiffer) {
    HashHelper::hashSeed32Is(99);
    auto const a = keyRecord<false, 0x11U>(Bridging::VlanId(7));
    auto const b = keyRecord<false, 0x22U>(Bridging::VlanId(7));
    EXPECT_NE(a.rhash(), b.rhash());
    EXPECT_EQ((keyRecord<true, 0x0U>(Bridging::VlanId(7)).rhash()),
              HashHelper::spread(hashSingleAttr(0, U16{7})));
    EXPECT_EQ((keyRecord<false, 0x11U>(U32{7}).rhash()), hashSingleAttr(99 ^ 0x11, U32{7}));
}

} // namespace
