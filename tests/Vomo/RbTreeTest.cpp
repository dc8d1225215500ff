// Ordered collections against a model, with iterators that stand on removed nodes.
#include "Vomo/HashMap2018.h"
#include "Vomo/RbTreeMap.h"

#include <list>
#include <random>
#include <set>

namespace {

using namespace Vomo;

struct Node : RbTreeNode<U32, U64>, Tracked<Node> {
    using RbTreeNode::RbTreeNode;
};
using Map = RbTreeMap<Node, U32, U64>;

void enter(Map& map, U32 key, U64 value) {
    if (Node* const node = map[key])
        node->valueIs(value);
    else
        map.memberIs(Ptr<Node>(new Node(key, value)));
}
std::vector<std::pair<U32, U64>> all(Map const& map) {
    std::vector<std::pair<U32, U64>> members;
    for (auto const& node : map) members.emplace_back(node.fwkKey(), node.value());
    return members;
}

// A node's links as they lie in memory, behind its value: the parent's links with the colour in bit
// 0, and the two children.
struct Links {
    U64 parent;
    char* left;
    char* right;
    Links* up() const { return reinterpret_cast<Links*>(parent & ~U64{1}); }
    bool red() const { return (parent & 1) != 0; }
};
constexpr std::size_t valueOffset = 16, linksOffset = 24; // after table, count and key
Links const* linksOf(void const* node) {
    return reinterpret_cast<Links const*>(static_cast<char const*>(node) + linksOffset);
}

// Checks colours, parents and the number of black nodes on each way down; returns that number.
int checkTree(Links const* at, Links const* parent) {
    if (at == nullptr) return 1;
    EXPECT_EQ(at->up(), parent);
    EXPECT_FALSE(at->red() && (parent == nullptr || parent->red()));
    auto const child = [](char* node) { return node == nullptr ? nullptr : linksOf(node); };
    int const left = checkTree(child(at->left), at), right = checkTree(child(at->right), at);
    EXPECT_EQ(left, right);
    return left + !at->red();
}
void checkTree(Map const& map) {
    Map::IteratorConst const any(&map);
    if (!any) return;
    ASSERT_EQ(reinterpret_cast<char const*>(&any.value()) -
                  reinterpret_cast<char const*>(any.node()),
              valueOffset);
    Links const* root = linksOf(any.node());
    while (root->up() != nullptr) root = root->up();
    checkTree(root, nullptr);
}

TEST(OrderedMap, AgreesWithAModelUnderManyWalks) {
    std::mt19937 random(1961);
    S64 const live = AllocTrackTypeInfo::live(Node::vomoAllocTrackTypeInfo_);
    {
        Map map;
        std::map<U32, U64> model;
        std::list<Map::IteratorConst> walks;
        for (int step = 0; step < 1000000; ++step) {
            U32 const n = static_cast<U32>(random() % 700);
            bool const growing = step / 3000 % 2 == 0;
            U32 const version = map.version();
            if (random() % 4 < (growing ? 3U : 1U)) {
                bool const fresh = !model.contains(n);
                enter(map, n, static_cast<U64>(step));
                model[n] = static_cast<U64>(step);
                ASSERT_EQ(map.version() != version, fresh);
            } else if (Node* const node = map[n]) {
                ASSERT_EQ(model.erase(n), 1U);
                map.memberDel(node);
            } else {
                ASSERT_FALSE(model.contains(n));
            }
            if (step % 64 == 0 && walks.size() < 20) {
                U32 const from = static_cast<U32>(random() % 700);
                walks.emplace_back(&map, from);
                auto const expected = model.lower_bound(from);
                ASSERT_EQ(bool(walks.back()), expected != model.end());
                if (walks.back()) {
                    ASSERT_EQ(walks.back().key(), expected->first);
                }
            }
            for (auto walk = walks.begin(); walk != walks.end();) {
                if (!*walk) {
                    walk = walks.erase(walk);
                    continue;
                }
                U32 const before = walk->key();
                ++*walk;
                auto const expected = model.upper_bound(before);
                ASSERT_EQ(bool(*walk), expected != model.end());
                if (*walk) {
                    ASSERT_EQ(walk->key(), expected->first);
                }
                ++walk;
                if (random() % 4 == 0) break;
            }
            if (step % 1000 == 0) checkTree(map);
            if (step % 10000 == 0) {
                ASSERT_EQ(all(map), (std::vector<std::pair<U32, U64>>(model.begin(), model.end())));
                ASSERT_EQ(map.members(), model.size());
            }
        }
    }
    EXPECT_EQ(AllocTrackTypeInfo::live(Node::vomoAllocTrackTypeInfo_), live);
}

TEST(OrderedMap, CopiesAndComparesBySequence) {
    Map a, b, empty;
    for (U32 i = 0; i < 100; ++i) enter(a, i, i);
    for (U32 i = 100; i-- > 0;) enter(b, i, i);
    EXPECT_TRUE(a == b);
    EXPECT_FALSE(a < b);
    Map copy(a);
    enter(copy, 5, 6);
    EXPECT_EQ(a[5]->value(), 5U);
    EXPECT_TRUE(a < copy);
    EXPECT_TRUE(empty < a);
    copy.memberDel(copy[99]);
    copy = empty;
    EXPECT_TRUE(copy == empty);
    EXPECT_FALSE(Map::IteratorConst(&copy));
    EXPECT_DEATH(a.memberIs(Ptr<Node>(new Node(5, 5))), "key is not in the map");
}

TEST(OrderedMap, ARemovedNodeLivesWhileAnIteratorStandsOnIt) {
    Map map;
    for (U32 i = 0; i < 10; ++i) enter(map, i, i);
    S64 const live = AllocTrackTypeInfo::live(Node::vomoAllocTrackTypeInfo_);
    Map::IteratorConst at(&map, 4);
    map.memberDel(map[4]);
    EXPECT_EQ(at.key(), 4U);
    EXPECT_EQ(AllocTrackTypeInfo::live(Node::vomoAllocTrackTypeInfo_), live);
    ++at;
    EXPECT_EQ(at.key(), 5U);
    EXPECT_EQ(AllocTrackTypeInfo::live(Node::vomoAllocTrackTypeInfo_), live - 1);
    map.memberClearAll();
    EXPECT_EQ(at.key(), 5U);
    ++at;
    EXPECT_FALSE(at);
}

struct HashNode : HashMap2018NodeExternKey<false, 7U, U32, U64, false> {
    using HashMap2018NodeExternKey::HashMap2018NodeExternKey;
};
using Hashed = HashMap2018<HashNode, U32, U64>;
void enter(Hashed& map, U32 key, U64 value) {
    map.newMember(HashNode(key, value));
}

// In the log a collection is its members and the default key.
template <class M>
void isReadFromTheLog() {
    S64 const live = AllocTrackTypeInfo::live(Node::vomoAllocTrackTypeInfo_);
    {
        M map;
        for (U32 i = 1; i <= 5; ++i) enter(map, i, i * i);
        NboAttrLog::Out out, twice;
        out << map;
        EXPECT_EQ(out.size(), 5U * 12 + 4);
        NboAttrLog::In in(out.bytes()), cut(out.bytes().first(out.size() - 1));
        EXPECT_TRUE(M(&in, StreamBogon{}) == map);
        EXPECT_EQ(in.remaining(), 0U);
        EXPECT_THROW(M(&cut, StreamBogon{}), AttrLogRecordException);
        for (int i = 0; i < 2; ++i) twice.append(out.bytes().data(), 5 * 12);
        NboAttrLog::In again(twice.bytes());
        EXPECT_THROW(M(&again, StreamBogon{}), AttrLogRecordException);
        enter(map, 0, 1); // cannot be told: the log ends in front of it
        out.clear();
        out << map;
        NboAttrLog::In ended(out.bytes());
        EXPECT_LT(M(&ended, StreamBogon{}).members(), 6U);
        EXPECT_EQ(ended.remaining(), 0U);
    }
    EXPECT_EQ(AllocTrackTypeInfo::live(Node::vomoAllocTrackTypeInfo_), live);
}

TEST(Collections, AreReadFromTheLog) {
    isReadFromTheLog<Map>();
    isReadFromTheLog<Hashed>();
}

} // namespace
