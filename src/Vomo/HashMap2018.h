// Hash collections, typed: the table of functions of a node class, the front over the engine.
#pragma once

#include "Dunlin/Exception.h"
#include "Vomo/Fwd.h"
#include "Vomo/HashMap2018Generic.h"
#include "Vomo/HashMap2018NodeInternalKey.h"
#include "Vomo/NboAttrLog.h"
#include "Vomo/Ptr.h"
#include "Vomo/StdIterator.h"

#include <new>
#include <type_traits>
#include <utility>

namespace Vomo {

// The functions by which the engine handles nodes of one class.
template <class Node, class Key>
struct HashMap2018NodeFunctions {
    // The account of the nodes of this class.
    static inline AllocTrackTypeInfo* vomoAllocTrackTypeInfo_ = nullptr;

    static constexpr bool trivial = std::is_trivially_copyable_v<Node>;

    static Node* at(void* nodes, std::size_t i) { return static_cast<Node*>(nodes) + i; }

    static void bktHdrRefDec(HashMap2018BucketHdr* bucket) noexcept {
        if (bucket->bktHdrRefDecHelper() != 0) return;
        AllocTrackTypeInfo::trackArrayDeallocation(&HashMap2018Generic::bucketHeaderTypeInfo_,
                                                   typeid(HashMap2018BucketHdr), sizeof(U32), 1);
        AllocTrackTypeInfo::trackArrayDeallocation(&vomoAllocTrackTypeInfo_, typeid(Node),
                                                   sizeof(Node) + 4, bucket->slots());
        if constexpr (!trivial) std::destroy_n(at(bucket->nodes(), 0), bucket->used());
        std::free(bucket->allocation(alignof(Node)));
    }
    static bool keyEqualsNode(void const* key, void const* node) noexcept {
        return static_cast<Node const*>(node)->fwkKey() == *static_cast<Key const*>(key);
    }
    static void place(HashMap2018VTable const*, void* dst, void* src, MoveOrCopy mode) noexcept {
        auto& from = *static_cast<Node*>(src);
        if (mode == MoveOrCopy::move)
            new (dst) Node(std::move(from));
        else
            new (dst) Node(std::as_const(from));
    }
    static void shift(HashMap2018VTable const*, void* nodes, void*, U32 used, U32 slot,
                      S32 slotsToShift) noexcept {
        if (slotsToShift < 0) {
            auto const gap = static_cast<U32>(-slotsToShift);
            std::move(at(nodes, slot + gap), at(nodes, used), at(nodes, slot));
            std::destroy_n(at(nodes, used - gap), gap);
            return;
        }
        PLAINASSERT(slotsToShift == 1, "slotsToShift == 1");
        if (slot == used) return;
        new (at(nodes, used)) Node(std::move(*at(nodes, used - 1)));
        std::move_backward(at(nodes, slot), at(nodes, used - 1), at(nodes, used));
        at(nodes, slot)->~Node();
    }
    static void newBucketAssemble(HashMap2018VTable const* vt, U32 slots, void* dst,
                                  HashMap2018NodeSourceColl const& sources) noexcept {
        AllocTrackTypeInfo::trackArrayAllocation(&HashMap2018Generic::bucketHeaderTypeInfo_,
                                                 typeid(HashMap2018BucketHdr), sizeof(U32), 1);
        AllocTrackTypeInfo::trackArrayAllocation(&vomoAllocTrackTypeInfo_, typeid(Node),
                                                 sizeof(Node) + 4, slots);
        if constexpr (trivial) {
            HashMap2018VTable::trivialNewBucketAssemble(vt, slots, dst, sources);
        } else {
            Node* to = at(dst, 0);
            for (U32 r = 0; r < sources.numRuns; ++r)
                for (U32 i = 0; i < sources.runs[r].count; ++i)
                    place(vt, to++, at(sources.runs[r].nodes, i), sources.runs[r].moveOrCopy);
        }
    }
    static int compareOrLruUnlink(void const* key, void const* a, void const* b) noexcept {
        Key const& first =
            a == nullptr ? *static_cast<Key const*>(key) : static_cast<Node const*>(a)->fwkKey();
        Key const& second = static_cast<Node const*>(b)->fwkKey();
        if (first == second) return 0;
        if constexpr (requires { first < second; })
            return first < second ? 1 : 2;
        else
            return 2;
    }

    static constexpr HashMap2018VTable vt_{
        alignof(Node),
        sizeof(Node),
        bktHdrRefDec,
        keyEqualsNode,
        trivial ? HashMap2018VTable::trivialPlace : place,
        trivial ? HashMap2018VTable::trivialShift : shift,
        newBucketAssemble,
        compareOrLruUnlink,
        0,
    };
};

// The typed front. Adds nothing to the engine's state. `Value` is void for a set.
template <class Node, class Key, class Value>
class HashMap2018 : public HashMap2018Generic {
public:
    using Functions = HashMap2018NodeFunctions<Node, Key>;
    static constexpr HashMap2018VTable const& vt_ = Functions::vt_;

    HashMap2018() : HashMap2018Generic(&vt_, TypeSafeIndex<U32, 355>(1), false) {}
    HashMap2018(HashMap2018 const& other) : HashMap2018Generic(&vt_, other) {}
    // Members up to the end mark, which is the default key.
    HashMap2018(NboAttrLog::In* in, StreamBogon) : HashMap2018() {
        for (Key key = NboAttrLog::next<Key>(in); !(key == Key());
             key = NboAttrLog::next<Key>(in)) {
            if ((*this)[key] != nullptr) NboAttrLog::failWithAttrLogValueCollectionDuplicateKey();
            if constexpr (std::is_void_v<Value>)
                newMember(Node(key));
            else
                newMember(Node(key, NboAttrLog::next<Value>(in)));
        }
    }
    HashMap2018& operator=(HashMap2018 const& other) {
        assignOp(&vt_, other);
        return *this;
    }
    ~HashMap2018() { emptyAllBuckets(&vt_, true); }

    // The member's node, or null.
    Node* operator[](Key const& key) const {
        Place const place = placeOf(key, Node::record(key).rhash());
        return place.bucket == nullptr ? nullptr : Functions::at(place.bucket->nodes(), place.slot);
    }
    // Enters a member, whose key must be absent.
    Node* newMember(Node node) {
        auto const record = Node::record(node.fwkKey());
        return static_cast<Node*>(newMemberG(&vt_, record, &node));
    }
    // False if there was no such member. What a removed node holds is released last.
    bool deleteMember(Key const& key) {
        alignas(Node) U8 removed[sizeof(Node)];
        U32 const rhash = Node::record(key).rhash();
        if (!removeAt(&vt_, placeOf(key, rhash), rhash, removed)) return false;
        std::launder(reinterpret_cast<Node*>(removed))->~Node();
        return true;
    }
    void deleteAll() { _memberDelAll(&vt_); }
    bool markedForDeletionIs(Key const& key, bool marked) {
        return vomoMarkedForDeletionGIs(&vt_, Node::record(key), marked);
    }

    // The safe walk; see HashMap2018IteratorGeneric.
    class IteratorConst : public HashMap2018IteratorGeneric {
    public:
        explicit IteratorConst(HashMap2018 const* map)
            : HashMap2018IteratorGeneric(map, &HashMap2018::vt_) {}
        IteratorConst(HashMap2018 const* map, Key const& key)
            : HashMap2018IteratorGeneric(map, &HashMap2018::vt_, Node::record(key)) {}
        explicit operator bool() const { return currNodeMaybeStale() != nullptr; }
        // Of the current member, also when it has left.
        Key const& key() const { return static_cast<Node*>(currNodeMaybeStale())->fwkKey(); }
        // Null once the member has left.
        Node* node() const { return static_cast<Node*>(currNodeNonStale()); }
        IteratorConst& operator++() {
            advance(sizeof(Node));
            return *this;
        }
    };
    class UnsafeIteratorConst : public HashMap2018UnsafeIteratorConstGeneric {
    public:
        explicit UnsafeIteratorConst(HashMap2018 const* map)
            : HashMap2018UnsafeIteratorConstGeneric(map, &HashMap2018::vt_) {}
        using NodeType = Node;
        explicit operator bool() const { return currNode() != nullptr; }
        Node const* node() const { return static_cast<Node const*>(currNode()); }
        Node const* operator->() const { return node(); }
        Node const& operator*() const { return *static_cast<Node const*>(currNode()); }
        UnsafeIteratorConst& operator++() {
            advance(sizeof(Node));
            return *this;
        }
    };
    // The nodes, while nothing changes.
    auto begin() const { return StdIterator(UnsafeIteratorConst(this)); }
    std::default_sentinel_t end() const { return {}; }

    // Walks both in step and compares pair by pair: by position, not by key.
    friend bool operator==(HashMap2018 const& a, HashMap2018 const& b) {
        if (&a == &b) return true;
        if (a.members() != b.members()) return false;
        UnsafeIteratorConst right(&b);
        for (UnsafeIteratorConst left(&a); left; ++left, ++right) {
            if (!(left->fwkKey() == right->fwkKey())) return false;
            if constexpr (!std::is_void_v<Value>)
                if (!(left->value() == right->value())) return false;
        }
        return true;
    }

    // A member whose key is the end mark cannot be told: the collection ends in front of it.
    friend NboAttrLog::Out& operator<<(NboAttrLog::Out& out, HashMap2018 const& map) {
        for (Node const& node : map) {
            if (node.fwkKey() == Key()) {
                NboAttrLog::failWithAttrLogValueCollectionDefaultKey();
                break;
            }
            out << node.fwkKey();
            if constexpr (!std::is_void_v<Value>) out << node.value();
        }
        return out << Key();
    }

private:
    // With the comparison in line, and not through the table.
    Place placeOf(Key const& key, U32 rhash) const {
        return findIf(rhash, sizeof(Node), [&](void const* node) {
            return static_cast<Node const*>(node)->fwkKey() == key;
        });
    }
};

// A set of keys. The seed constant is 0 in all sets.
template <class Key, U32 seed>
class HSet {
public:
    struct Node : HashMap2018NodeExternKey<false, seed, Key, void, false> {
        using HashMap2018NodeExternKey<false, seed, Key, void, false>::HashMap2018NodeExternKey;
    };
    using Map = HashMap2018<Node, Key, void>;
    using IteratorConst = typename Map::IteratorConst;

    bool has(Key const& key) const { return map_[key] != nullptr; }
    // False if it was there.
    bool add(Key const& key) {
        if (has(key)) return false;
        map_.newMember(Node(key));
        return true;
    }
    bool del(Key const& key) { return map_.deleteMember(key); }
    void clear() { map_.deleteAll(); }
    U32 members() const { return map_.members(); }
    Map& map() { return map_; }
    Map const& map() const { return map_; }

private:
    Map map_;
};

} // namespace Vomo
