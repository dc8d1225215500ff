// The engine of all hash collections: knows no key and no value. It touches nodes only through the
// six functions of a collection's table.
//
// A power-of-two table of buckets, by the upper bits of the hash, so that the buckets stand in
// order of hash. A bucket is one allocation: a word for each slot, the header, the nodes. A slot's
// word is the hash with its lowest bit replaced by the member's mark. Within a bucket the nodes
// stand in order of that word, members of equal hash in order of arrival.
//
// The slots of a bucket are 7, 15, 23, ...: with the header the words fill whole groups of eight, and
// a lookup compares a group by a few instructions. Only a collection of up to three members has a
// bucket of just so many. What is asked for often, lookup and walks, stands in this header, for the
// typed front to inline with its own comparison; all else is in the source.
//
// A bucket is counted: by the table and by each iterator that stands in it. What changes a bucket
// that is held elsewhere changes a copy; so the nodes under an iterator never move, a removed one
// stays readable, and a walk goes on at the next greater hash whatever happened meanwhile.
#pragma once

#include "Vomo/AllocTrack.h"
#include "Vomo/Hash.h"
#include "Vomo/String.h"

#include <algorithm>
#include <bit>
#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace Vomo {

struct HashMap2018VTable;

enum class MoveOrCopy : U32 { move = 0, copy = 1 };

// 4 bits: how many hold the bucket; 14 bits: slots; 14 bits: nodes in use.
struct HashMap2018BucketHdr {
    static constexpr U32 maxHolders = 15;
    static constexpr U32 maxSlots = 0x3FFF;
    U32 word;

    U32 holders() const { return word & 15; }
    U32 slots() const { return word >> 4 & maxSlots; }
    U32 used() const { return word >> 18; }
    void usedIs(U32 n) { word = (word & 0x3FFFF) | n << 18; }
    // Drops one reference; returns how many remain.
    U32 bktHdrRefDecHelper() { return --word & 15; }
    U8* nodes() { return reinterpret_cast<U8*>(this + 1); }
    // The word of slot `i`; they stand in front of the header, the first nearest.
    U32& hashWord(U32 i) { return (&word)[-1 - static_cast<S64>(i)]; }
    // Which of the slots 8 * n - 1 to 8 * n + 6 have the word `wanted`, marks apart: two bits for
    // each, the highest for the first. Slot -1 is the header. A slot not in use may be among them.
    U32 equalWords(U32 n, U32 wanted) const;
    // The slot of the lowest bit of `equalWords(n)`.
    static U32 slotOf(U32 n, U32 equal) {
        return 8 * n + 6 - static_cast<U32>(std::countr_zero(equal)) / 2;
    }
    // Where the allocation begins.
    void* allocation(U32 nodeAlign) {
        std::size_t const front =
            (4 * (std::size_t{slots()} + 1) + nodeAlign - 1) & ~std::size_t{nodeAlign - 1};
        return nodes() - front;
    }
};
static_assert(sizeof(HashMap2018BucketHdr) == 4);

inline U32 HashMap2018BucketHdr::equalWords(U32 n, U32 wanted) const {
    U32 const* const first = &word - 8 * std::size_t{n} - 7;
#ifdef __SSE2__
    auto const same = [mark = _mm_set1_epi32(1),
                       sought = _mm_set1_epi32(static_cast<int>(wanted | 1))](U32 const* four) {
        __m128i const words = _mm_loadu_si128(reinterpret_cast<__m128i const*>(four));
        return _mm_cmpeq_epi32(_mm_or_si128(words, mark), sought);
    };
    return static_cast<U32>(_mm_movemask_epi8(_mm_packs_epi32(same(first), same(first + 4))));
#else
    U32 equal = 0;
    for (U32 i = 0; i < 8; ++i) equal |= ((first[i] | 1) == (wanted | 1) ? 3U : 0U) << 2 * i;
    return equal;
#endif
}

// Runs of nodes that a new bucket is filled from.
struct HashMap2018NodeSourceColl {
    struct Run {
        MoveOrCopy moveOrCopy;
        U32 count;
        void* nodes;
    };
    Run runs[3];
    U32 numRuns = 0;
    void add(MoveOrCopy moveOrCopy, U32 count, void* nodes) {
        if (count != 0) runs[numRuns++] = {moveOrCopy, count, nodes};
    }
};

// What the engine knows of a node. None of the functions raises.
struct HashMap2018VTable {
    U32 nodeAlign, nodeSize;
    // Drops one reference of a bucket; the last frees nodes and bucket.
    void (*bktHdrRefDec)(HashMap2018BucketHdr* bucket) noexcept;
    bool (*keyEqualsNode)(void const* key, void const* node) noexcept;
    // Constructs the node `dst` from `src`, which after a move holds nothing that needs release.
    void (*place)(HashMap2018VTable const* vt, void* dst, void* src,
                  MoveOrCopy moveOrCopy) noexcept;
    // A negative count closes a gap: the nodes behind move down and the freed tail is released. 1
    // opens a gap at `slot`, which is left without a node. `used` is the number of nodes before.
    void (*shift)(HashMap2018VTable const* vt, void* nodes, void* node, U32 used, U32 slot,
                  S32 slotsToShift) noexcept;
    // Constructs the nodes of a new bucket and records the allocation.
    void (*newBucketAssemble)(HashMap2018VTable const* vt, U32 slots, void* dst,
                              HashMap2018NodeSourceColl const& sources) noexcept;
    // 0: equal keys, 1: the first is less, 2: greater. The first is that of `a`, or, if `a` is
    // null, `key`; the second that of `b`.
    int (*compareOrLruUnlink)(void const* key, void const* a, void const* b) noexcept;
    U64 zero;

    // For nodes that may be copied as bytes.
    static void trivialPlace(HashMap2018VTable const* vt, void* dst, void* src,
                             MoveOrCopy moveOrCopy) noexcept;
    static void trivialShift(HashMap2018VTable const* vt, void* nodes, void* node, U32 used,
                             U32 slot, S32 slotsToShift) noexcept;
    static void trivialNewBucketAssemble(HashMap2018VTable const* vt, U32 slots, void* dst,
                                         HashMap2018NodeSourceColl const& sources) noexcept;
};
static_assert(sizeof(HashMap2018VTable) == 64);

template <class T, U32 tag>
struct TypeSafeIndex {
    constexpr explicit TypeSafeIndex(T v) : value(v) {}
    T value;
};

namespace HashHelper {

// A spread over the upper bits, which choose the bucket, of what a key's own hash gives: that may be
// a small number. No two hashes become one.
constexpr U32 spread(U32 hash) {
    return hash * 0x9E3779B1U;
}

struct KeyU32 {
    U32 key;
    U32 seed;
    void const* pointer() const { return &key; }
    U32 rhash() const { return hashSingleAttr(hashSeed32() ^ seed, key); }
};
struct KeyString {
    String const* key;
    U32 seed;
    void const* pointer() const { return key; }
    U32 rhash() const { return hashSingleAttr(hashSeed32() ^ seed, std::string_view(*key)); }
};
struct KeyStringLegacy {
    String const* key;
    void const* pointer() const { return key; }
    U32 rhash() const { return hashSingleAttr(0, std::string_view(*key)); }
};
struct KeyAndRhashSeedArg {
    void const* key;
    U32 hash;
    void const* pointer() const { return key; }
    U32 rhash() const { return spread(hash); }
};
struct KeyAndRhashNoSeedArg {
    void const* key;
    U32 hash;
    U32 seed;
    void const* pointer() const { return key; }
    U32 rhash() const { return hashSingleAttr(hashSeed32() ^ seed, hash); }
};
struct KeyAndRhashLegacy {
    void const* key;
    U32 hash;
    void const* pointer() const { return key; }
    U32 rhash() const { return spread(hash); }
};

} // namespace HashHelper

class HashMap2018Generic {
public:
    static AllocTrackTypeInfo* bucketHeaderTypeInfo_;

    HashMap2018Generic(HashMap2018VTable const*, TypeSafeIndex<U32, 355>, bool) {}
    HashMap2018Generic(HashMap2018VTable const* vt, HashMap2018Generic const& other);
    HashMap2018Generic(HashMap2018Generic const&) = delete;
    HashMap2018Generic& operator=(HashMap2018Generic const&) = delete;
    // All members must be gone: see emptyAllBuckets.
    ~HashMap2018Generic();

    void assignOp(HashMap2018VTable const* vt, HashMap2018Generic const& other);
    // Changes with each structural change, not when a value is overwritten.
    U32 version() const { return word_ >> 8 & 0x7FFFFF; }
    U32 members() const { return members_; }

    // The node with the key, or null.
    template <class K>
    void* lookupNodeG(HashMap2018VTable const* vt, K const& key) const {
        Place const place = find(vt, key.pointer(), key.rhash());
        return place.bucket == nullptr
                   ? nullptr
                   : place.bucket->nodes() + std::size_t{place.slot} * vt->nodeSize;
    }
    // Moves `node`, whose key must be absent, in; returns where it stands.
    template <class K>
    void* newMemberG(HashMap2018VTable const* vt, K const& key, void* node) {
        return insert(vt, key.rhash(), node);
    }
    // Removes the member; false if there is none. The node is moved to `out`, room for a node, if
    // that is not null; else it is released at once, and must not come back to this collection.
    template <class K>
    bool deleteMemberG(HashMap2018VTable const* vt, K const& key, void* out) {
        U32 const rhash = key.rhash();
        return removeAt(vt, find(vt, key.pointer(), rhash), rhash, out);
    }
    void _memberDelAll(HashMap2018VTable const* vt) { emptyAllBuckets(vt, false); }
    // Removes all. The flag, true before destruction, changes nothing here.
    void emptyAllBuckets(HashMap2018VTable const* vt, bool);
    // Sets or clears the mark of a member; false if there is none.
    template <class K>
    bool vomoMarkedForDeletionGIs(HashMap2018VTable const* vt, K const& key, bool marked) {
        return markIs(vt, key.pointer(), key.rhash(), marked);
    }
    void vomoMarkAllForDeletion();

protected:
    using Bucket = HashMap2018BucketHdr;

    struct Place {
        Bucket* bucket = nullptr; // null: no member
        U32 slot = 0;
    };

    // The member of that hash for which `isIt(node)` holds.
    template <class IsIt>
    Place findIf(U32 rhash, std::size_t nodeSize, IsIt&& isIt) const {
        Bucket* const bucket = table_[bucketIndex(rhash)];
        if (bucket == nullptr) return {};
        // The words stand in another line of memory than most nodes: ask for both at once.
        __builtin_prefetch(bucket->nodes() + 32);
        __builtin_prefetch(bucket->nodes() + 96);
        U32 const used = bucket->used();
        if (bucket->slots() < 7) [[unlikely]] {
            for (U32 slot = 0; slot < used; ++slot)
                if ((bucket->hashWord(slot) | 1) == (rhash | 1) &&
                    isIt(bucket->nodes() + std::size_t{slot} * nodeSize))
                    return {bucket, slot};
            return {};
        }
        // In words 8 * n - 1 to 8 * n + 6; the header is no member.
        auto const search = [&](U32 n, U32 equal) -> Place {
            for (; equal != 0; equal &= equal - 1, equal &= equal - 1)
                if (U32 const slot = Bucket::slotOf(n, equal); slot < used)
                    if (isIt(bucket->nodes() + std::size_t{slot} * nodeSize)) return {bucket, slot};
            return {};
        };
        Place place = search(0, bucket->equalWords(0, rhash) & 0x3FFF);
        for (U32 n = 1; place.bucket == nullptr && used >= 8 * n; ++n)
            place = search(n, bucket->equalWords(n, rhash));
        return place;
    }
    bool removeAt(HashMap2018VTable const* vt, Place at, U32 rhash, void* out);

private:
    friend class HashMap2018IteratorGeneric;
    friend class HashMap2018UnsafeIteratorConstGeneric;

    // Words of null behind the end of the table: a walk asks for the memory of the buckets to come.
    static constexpr std::size_t tableTail = 4;

    // An empty collection has this table, of one bucket that is null.
    static Bucket* noTable[1 + tableTail];
    bool hasTable() const { return table_ != noTable; }
    U32 tableBits() const { return 32 - (word_ & 0xFF); }
    U32 numBuckets() const { return 1U << tableBits(); }
    U32 bucketIndex(U32 rhash) const { return static_cast<U32>(U64{rhash} >> (word_ & 0xFF)); }
    void tableBitsIs(U32 bits) { word_ = (word_ & ~0xFFU) | (32 - bits); }
    void structureChanged() { word_ = (word_ & 0xFF) | ((version() + 1) & 0x7FFFFF) << 8; }

    Place find(HashMap2018VTable const* vt, void const* key, U32 rhash) const;
    // The member, or, if it is absent, the first that the walk would meet behind it.
    Place findOrNext(HashMap2018VTable const* vt, void const* key, U32 rhash) const;
    // The member with the key of `node`, which may be a stale copy.
    Place findSame(HashMap2018VTable const* vt, void const* node, U32 hashWord) const;
    void* insert(HashMap2018VTable const* vt, U32 rhash, void* node);
    bool markIs(HashMap2018VTable const* vt, void const* key, U32 rhash, bool marked);
    void resizeTable(HashMap2018VTable const* vt, U32 bits);
    // The first member of bucket `index` or a later one.
    Place firstFrom(U32 index) const;
    Place next(Place at, U32 hashWord) const;

    Bucket** table_ = noTable;
    U32 word_ = 32; // low 8 bits: 32 less log2 of the table's size; above: the version
    U32 members_ = 0;
};
static_assert(sizeof(HashMap2018Generic) == 16);

// A walk that the collection may change under: insertion, removal and growth included. Every member
// that is there throughout is met exactly once.
class HashMap2018IteratorGeneric {
public:
    HashMap2018IteratorGeneric(HashMap2018Generic const* map, HashMap2018VTable const* vt);
    template <class K>
    HashMap2018IteratorGeneric(HashMap2018Generic const* map, HashMap2018VTable const* vt,
                               K const& key)
        : HashMap2018IteratorGeneric(map, vt, map->findOrNext(vt, key.pointer(), key.rhash())) {}
    HashMap2018IteratorGeneric(HashMap2018IteratorGeneric const& other);
    HashMap2018IteratorGeneric& operator=(HashMap2018IteratorGeneric const&) = delete;
    ~HashMap2018IteratorGeneric() { release(); }

    void advance() { advance(vt_->nodeSize); }
    // The current node; null at the end and once the member has left the collection.
    void* currNodeNonStale() const { return isInPlace() ? currNodeMaybeStale() : nodeElsewhere(); }
    // The current node even then; null at the end.
    void* currNodeMaybeStale() const { return node_; }
    bool markedForDeletion() const;

protected:
    // With the size of a node where the compiler knows it.
    void advance(std::size_t nodeSize) {
        if (isInPlace() && node_ + nodeSize != nodesEnd_)
            node_ += nodeSize;
        else
            leaveBucket();
    }

private:
    using Bucket = HashMap2018BucketHdr;
    HashMap2018IteratorGeneric(HashMap2018Generic const* map, HashMap2018VTable const* vt,
                               HashMap2018Generic::Place place);
    void hold(HashMap2018Generic::Place place);
    void release();
    HashMap2018Generic::Place current() const;
    // The collection still has the bucket, and so, since what is held changes only by being
    // replaced, the member. A bucket that outlives a change of the table's size stands where the
    // hash of any of its members leads.
    bool isInPlace() const {
        return bucket_ != nullptr && !private_ &&
               map_->table_[map_->bucketIndex(anyWord_)] == bucket_;
    }
    U32 slot() const { return static_cast<U32>((node_ - bucket_->nodes()) / vt_->nodeSize); }
    // The hash word of the current member, without its mark.
    U32 hashWord() const { return bucket_->hashWord(slot()) & ~1U; }
    void leaveBucket();
    void leaveStaleBucket();
    void* nodeElsewhere() const;

    HashMap2018Generic const* map_;
    HashMap2018VTable const* vt_;
    Bucket* bucket_ = nullptr;
    U8* node_ = nullptr;     // the current member, in the bucket
    U8* nodesEnd_ = nullptr; // of the bucket
    U32 anyWord_ = 0;        // hash word of the member at which the walk entered the bucket
    bool private_ = false;   // the bucket is a copy of our own
    [[maybe_unused]] U64 reserved_[2] = {}; // fills up the 64 bytes
};
static_assert(sizeof(HashMap2018IteratorGeneric) == 64);

// A walk in which nothing may change; the typed code checks the version before each step.
class HashMap2018UnsafeIteratorConstGeneric {
public:
    HashMap2018UnsafeIteratorConstGeneric(HashMap2018Generic const* map,
                                          HashMap2018VTable const* vt)
        : hashMap_(map), vt_(vt), bucket_(map->table_), end_(map->table_ + map->numBuckets()),
          version_(map->version()) {
        enterBucket(vt->nodeSize);
    }
    void advance() { advance(vt_->nodeSize); }
    void* currNode() const { return node_; }
    void checkVersion() const {
        if (version_ != hashMap_->version()) [[unlikely]]
            versionMismatch();
    }

protected:
    // With the size of a node where the compiler knows it.
    void advance(std::size_t nodeSize) {
        checkVersion();
        if (node_ == nullptr) return;
        node_ += nodeSize;
        if (node_ != nodesEnd_) return;
        ++bucket_;
        enterBucket(nodeSize);
    }

private:
    // To the first node of this bucket or a later one.
    void enterBucket(std::size_t nodeSize) {
        for (; bucket_ != end_; ++bucket_) {
            HashMap2018BucketHdr* const bucket = *bucket_;
            // Behind the end of a table stand words of null.
            auto const later = reinterpret_cast<U64>(bucket_[HashMap2018Generic::tableTail]);
            __builtin_prefetch(reinterpret_cast<void const*>(later));
            __builtin_prefetch(reinterpret_cast<void const*>(later + 64));
            if (bucket == nullptr) continue;
            node_ = bucket->nodes();
            nodesEnd_ = node_ + bucket->used() * nodeSize;
            return;
        }
        node_ = nullptr;
    }
    [[noreturn]] static void versionMismatch();

    HashMap2018Generic const* hashMap_;
    HashMap2018VTable const* vt_;
    HashMap2018BucketHdr* const* bucket_; // in the table
    HashMap2018BucketHdr* const* end_;
    U8* node_ = nullptr;
    U8* nodesEnd_ = nullptr;
    U32 version_;
};

} // namespace Vomo
