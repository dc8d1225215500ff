#include "Vomo/HashMap2018Generic.h"

#include "Dunlin/Exception.h"

#include <cstdlib>

namespace Vomo {
namespace {

using Bucket = HashMap2018BucketHdr;

// A table grows at this many members for each bucket, and shrinks at one.
constexpr U32 nodesPerBucket = 8;

U32 withoutMark(U32 word) {
    return word & ~1U;
}

void* nodeAt(HashMap2018VTable const* vt, Bucket* bucket, U32 slot) {
    return bucket->nodes() + std::size_t{slot} * vt->nodeSize;
}

// A bucket without nodes, held once.
Bucket* newBucket(HashMap2018VTable const* vt, U32 slots) {
    if (slots > Bucket::maxSlots)
        Dunlin::fmthrow<Dunlin::RuntimeException>(
            "hash collection: more than {} members of nearly equal hash", Bucket::maxSlots);
    Bucket shape{slots << 4 | 1};
    std::size_t const front =
        (4 * (std::size_t{slots} + 1) + vt->nodeAlign - 1) & ~std::size_t{vt->nodeAlign - 1};
    auto* const start = static_cast<U8*>(std::malloc(front + std::size_t{slots} * vt->nodeSize));
    if (start == nullptr) throw std::bad_alloc();
    auto* const bucket = reinterpret_cast<Bucket*>(start + front) - 1;
    *bucket = shape;
    return bucket;
}

// Slots for n members and, in large buckets, some more; few only where there is but one bucket. More
// members than a bucket can hold are for newBucket to refuse.
U32 roomFor(U32 n, U32 tableBits) {
    if (n > Bucket::maxSlots) return n;
    if (n <= 3 && tableBits == 0) return n;
    return std::min((n < 16 ? n : n + n / 4) | 7, Bucket::maxSlots);
}

// The table has some words of null behind its end, for walks that look ahead.
Bucket** newTable(U32 tableBits, std::size_t tail) {
    return static_cast<Bucket**>(
        std::calloc((std::size_t{1} << tableBits) + tail, sizeof(Bucket*)));
}

// The first slot whose word is not less than `word`, which has no mark.
U32 lowerBound(Bucket* bucket, U32 word) {
    U32 low = 0, n = bucket->used();
    for (; n > 16;) {
        U32 const half = n / 2;
        if (withoutMark(bucket->hashWord(low + half - 1)) < word) {
            low += half;
            n -= half;
        } else {
            n = half;
        }
    }
    U32 const end = low + n;
    while (low < end && withoutMark(bucket->hashWord(low)) < word) ++low;
    return low;
}

void hashWordsFrom(Bucket* to, U32 at, Bucket* from, U32 first, U32 count) {
    for (U32 i = 0; i < count; ++i) to->hashWord(at + i) = from->hashWord(first + i);
}

// A new bucket of `slots` slots with the members [first, first + count) of `from`. They are moved
// if nobody else holds `from`, which then is empty.
Bucket* copyRange(HashMap2018VTable const* vt, U32 slots, Bucket* from, U32 first, U32 count,
                  MoveOrCopy mode) {
    Bucket* const to = newBucket(vt, slots);
    HashMap2018NodeSourceColl sources;
    sources.add(mode, count, nodeAt(vt, from, first));
    vt->newBucketAssemble(vt, slots, to->nodes(), sources);
    hashWordsFrom(to, 0, from, first, count);
    to->usedIs(count);
    return to;
}

MoveOrCopy modeFor(Bucket* from) {
    return from->holders() == 1 ? MoveOrCopy::move : MoveOrCopy::copy;
}

} // namespace

AllocTrackTypeInfo* HashMap2018Generic::bucketHeaderTypeInfo_ = nullptr;
constinit HashMap2018BucketHdr* HashMap2018Generic::noTable[] = {};

void HashMap2018VTable::trivialPlace(HashMap2018VTable const* vt, void* dst, void* src,
                                     MoveOrCopy) noexcept {
    std::memcpy(dst, src, vt->nodeSize);
}

void HashMap2018VTable::trivialShift(HashMap2018VTable const* vt, void* nodes, void*, U32 used,
                                     U32 slot, S32 slotsToShift) noexcept {
    std::size_t const size = vt->nodeSize;
    U8* const at = static_cast<U8*>(nodes) + slot * size;
    if (slotsToShift < 0) {
        auto const gap = static_cast<std::size_t>(-slotsToShift);
        std::memmove(at, at + gap * size, (used - slot - gap) * size);
    } else {
        PLAINASSERT(slotsToShift == 1, "slotsToShift == 1");
        std::memmove(at + size, at, (used - slot) * size);
    }
}

void HashMap2018VTable::trivialNewBucketAssemble(
    HashMap2018VTable const* vt, U32, void* dst,
    HashMap2018NodeSourceColl const& sources) noexcept {
    auto* to = static_cast<U8*>(dst);
    for (U32 i = 0; i < sources.numRuns; ++i) {
        std::size_t const bytes = std::size_t{sources.runs[i].count} * vt->nodeSize;
        std::memcpy(to, sources.runs[i].nodes, bytes);
        to += bytes;
    }
}

HashMap2018Generic::HashMap2018Generic(HashMap2018VTable const* vt,
                                       HashMap2018Generic const& other) {
    assignOp(vt, other);
}

HashMap2018Generic::~HashMap2018Generic() {
    PLAINASSERT(members_ == 0, "members_ == 0");
    if (hasTable()) std::free(table_);
}

void HashMap2018Generic::assignOp(HashMap2018VTable const* vt, HashMap2018Generic const& other) {
    if (this == &other) return;
    emptyAllBuckets(vt, true);
    if (!other.hasTable()) return;
    Bucket** const table = newTable(other.tableBits(), tableTail);
    if (table == nullptr) throw std::bad_alloc();
    table_ = table;
    tableBitsIs(other.tableBits());
    for (U32 i = 0; i < other.numBuckets(); ++i)
        if (Bucket* const from = other.table_[i]) {
            table_[i] = copyRange(vt, roomFor(from->used(), tableBits()), from, 0, from->used(),
                                  MoveOrCopy::copy);
            members_ += from->used();
        }
    structureChanged();
}

void HashMap2018Generic::emptyAllBuckets(HashMap2018VTable const* vt, bool) {
    if (!hasTable()) return;
    if (members_ != 0) structureChanged();
    members_ = 0;
    Bucket** const table = table_;
    U32 const n = numBuckets();
    table_ = noTable; // what a member releases may come back and look
    tableBitsIs(0);
    for (U32 i = 0; i < n; ++i)
        if (table[i] != nullptr) vt->bktHdrRefDec(table[i]);
    std::free(table);
}

HashMap2018Generic::Place HashMap2018Generic::find(HashMap2018VTable const* vt, void const* key,
                                                   U32 rhash) const {
    return findIf(rhash, vt->nodeSize,
                  [&](void const* node) { return vt->keyEqualsNode(key, node); });
}

HashMap2018Generic::Place HashMap2018Generic::findOrNext(HashMap2018VTable const* vt,
                                                         void const* key, U32 rhash) const {
    Place const place = find(vt, key, rhash);
    if (place.bucket != nullptr) return place;
    // Members of equal hash come again rather than not at all.
    U32 const index = bucketIndex(rhash);
    if (Bucket* const bucket = table_[index])
        if (U32 const slot = lowerBound(bucket, withoutMark(rhash)); slot < bucket->used())
            return {bucket, slot};
    return firstFrom(index + 1);
}

HashMap2018Generic::Place HashMap2018Generic::findSame(HashMap2018VTable const* vt,
                                                       void const* node, U32 hashWord) const {
    return findIf(hashWord, vt->nodeSize, [&](void const* present) {
        return vt->compareOrLruUnlink(nullptr, node, present) == 0;
    });
}

void* HashMap2018Generic::insert(HashMap2018VTable const* vt, U32 rhash, void* node) {
    if (!hasTable()) {
        Bucket** const table = newTable(0, tableTail);
        if (table == nullptr) throw std::bad_alloc();
        table_ = table;
    } else if (members_ >= numBuckets() * nodesPerBucket && tableBits() < 28) {
        resizeTable(vt, tableBits() + 1);
    }
    U32 const word = withoutMark(rhash);
    Bucket*& place = table_[bucketIndex(rhash)];
    Bucket* const old = place;
    U32 const used = old == nullptr ? 0 : old->used();
    // Behind the members of equal hash.
    U32 slot = old == nullptr ? 0 : lowerBound(old, word);
    while (slot < used && withoutMark(old->hashWord(slot)) == word) ++slot;
    if (old != nullptr && old->holders() == 1 && used < old->slots()) {
        vt->shift(vt, old->nodes(), node, used, slot, 1);
        vt->place(vt, nodeAt(vt, old, slot), node, MoveOrCopy::move);
        for (U32 i = used; i > slot; --i) old->hashWord(i) = old->hashWord(i - 1);
        old->hashWord(slot) = word;
        old->usedIs(used + 1);
    } else {
        Bucket* const grown = newBucket(vt, roomFor(used + 1, tableBits()));
        HashMap2018NodeSourceColl sources;
        if (old != nullptr) sources.add(modeFor(old), slot, old->nodes());
        sources.add(MoveOrCopy::move, 1, node);
        if (old != nullptr) sources.add(modeFor(old), used - slot, nodeAt(vt, old, slot));
        vt->newBucketAssemble(vt, grown->slots(), grown->nodes(), sources);
        grown->usedIs(used + 1);
        grown->hashWord(slot) = word;
        if (old != nullptr) {
            hashWordsFrom(grown, 0, old, 0, slot);
            hashWordsFrom(grown, slot + 1, old, slot, used - slot);
            vt->bktHdrRefDec(old);
        }
        place = grown;
    }
    ++members_;
    structureChanged();
    return nodeAt(vt, place, slot);
}

bool HashMap2018Generic::removeAt(HashMap2018VTable const* vt, Place at, U32 rhash, void* out) {
    if (at.bucket == nullptr) return false;
    Bucket*& place = table_[bucketIndex(rhash)];
    Bucket* bucket = at.bucket;
    U32 const used = bucket->used();
    if (bucket->holders() > 1) {
        // The iterators keep the bucket as it was.
        place = copyRange(vt, bucket->slots(), bucket, 0, used, MoveOrCopy::copy);
        vt->bktHdrRefDec(bucket);
        bucket = place;
    }
    --members_;
    structureChanged();
    if (out != nullptr) vt->place(vt, out, nodeAt(vt, bucket, at.slot), MoveOrCopy::move);
    if (used == 1) {
        place = nullptr;
        vt->bktHdrRefDec(bucket);
    } else {
        vt->shift(vt, bucket->nodes(), nullptr, used, at.slot, -1);
        for (U32 i = at.slot; i + 1 < used; ++i) bucket->hashWord(i) = bucket->hashWord(i + 1);
        bucket->usedIs(used - 1);
    }
    if (tableBits() > 0 && members_ < numBuckets()) resizeTable(vt, tableBits() - 1);
    return true;
}

bool HashMap2018Generic::markIs(HashMap2018VTable const* vt, void const* key, U32 rhash,
                                bool marked) {
    Place const at = find(vt, key, rhash);
    if (at.bucket == nullptr) return false;
    U32& word = at.bucket->hashWord(at.slot);
    word = withoutMark(word) | U32{marked};
    return true;
}

void HashMap2018Generic::vomoMarkAllForDeletion() {
    for (U32 b = 0; b < numBuckets(); ++b)
        if (Bucket* const bucket = table_[b])
            for (U32 i = 0; i < bucket->used(); ++i) bucket->hashWord(i) |= 1;
}

// Doubles or halves the table: each bucket is split at a hash, or two neighbours become one. It keeps
// its size where two neighbours have more members than one bucket can hold.
void HashMap2018Generic::resizeTable(HashMap2018VTable const* vt, U32 bits) {
    U32 const oldBits = tableBits(), n = numBuckets();
    auto const used = [&](U32 b) { return table_[b] == nullptr ? 0 : table_[b]->used(); };
    if (bits < oldBits)
        for (U32 b = 0; b < n; b += 2)
            if (used(b) + used(b + 1) > Bucket::maxSlots) return;
    Bucket** const table = newTable(bits, tableTail);
    if (table == nullptr) return; // the old size serves as well
    for (U32 b = 0; b < n; ++b) {
        Bucket* const from = table_[b];
        if (from == nullptr) continue;
        if (bits > oldBits) {
            U32 const border = static_cast<U32>((U64{b} * 2 + 1) << (32 - bits));
            U32 const count = from->used(), split = lowerBound(from, border);
            if (split == count || split == 0) {
                table[2 * b + (split == 0)] = from; // all on one side
                continue;
            }
            MoveOrCopy const mode = modeFor(from);
            table[2 * b] = copyRange(vt, roomFor(split, bits), from, 0, split, mode);
            table[2 * b + 1] =
                copyRange(vt, roomFor(count - split, bits), from, split, count - split, mode);
            vt->bktHdrRefDec(from);
        } else {
            Bucket*& place = table[b / 2];
            if (place == nullptr) {
                place = from;
                continue;
            }
            Bucket* const lower = place;
            U32 const first = lower->used(), second = from->used();
            Bucket* const merged = newBucket(vt, roomFor(first + second, bits));
            HashMap2018NodeSourceColl sources;
            sources.add(modeFor(lower), first, lower->nodes());
            sources.add(modeFor(from), second, from->nodes());
            vt->newBucketAssemble(vt, merged->slots(), merged->nodes(), sources);
            merged->usedIs(first + second);
            hashWordsFrom(merged, 0, lower, 0, first);
            hashWordsFrom(merged, first, from, 0, second);
            vt->bktHdrRefDec(lower);
            vt->bktHdrRefDec(from);
            place = merged;
        }
    }
    std::free(table_);
    table_ = table;
    tableBitsIs(bits);
    structureChanged();
}

HashMap2018Generic::Place HashMap2018Generic::firstFrom(U32 index) const {
    for (U32 const n = numBuckets(); index < n; ++index) {
        auto const later = reinterpret_cast<U64>(table_[index + tableTail]);
        __builtin_prefetch(reinterpret_cast<void const*>(later));
        __builtin_prefetch(reinterpret_cast<void const*>(later + 64));
        if (table_[index] != nullptr) return {table_[index], 0};
    }
    return {};
}

// The place behind `at`, in a bucket of the table; `hashWord` is that of the member at `at`.
HashMap2018Generic::Place HashMap2018Generic::next(Place at, U32 hashWord) const {
    if (at.slot + 1 < at.bucket->used()) return {at.bucket, at.slot + 1};
    return firstFrom(bucketIndex(hashWord) + 1);
}

HashMap2018IteratorGeneric::HashMap2018IteratorGeneric(HashMap2018Generic const* map,
                                                       HashMap2018VTable const* vt)
    : HashMap2018IteratorGeneric(map, vt, map->firstFrom(0)) {}
HashMap2018IteratorGeneric::HashMap2018IteratorGeneric(HashMap2018Generic const* map,
                                                       HashMap2018VTable const* vt,
                                                       HashMap2018Generic::Place place)
    : map_(map), vt_(vt) {
    hold(place);
}
HashMap2018IteratorGeneric::HashMap2018IteratorGeneric(HashMap2018IteratorGeneric const& other)
    : map_(other.map_), vt_(other.vt_) {
    if (other.bucket_ != nullptr) hold({other.bucket_, other.slot()});
}

void HashMap2018IteratorGeneric::hold(HashMap2018Generic::Place place) {
    Bucket* bucket = place.bucket;
    bool const full = bucket != nullptr && bucket->holders() == Bucket::maxHolders;
    if (full) { // the header cannot count another holder
        U32 const used = bucket->used();
        bucket = copyRange(vt_, roomFor(used, 0), bucket, 0, used, MoveOrCopy::copy);
    } else if (bucket != nullptr) {
        ++bucket->word;
    }
    bucket_ = bucket;
    private_ = full;
    node_ = nullptr;
    if (bucket == nullptr) return;
    anyWord_ = bucket->hashWord(place.slot);
    node_ = bucket->nodes() + std::size_t{place.slot} * vt_->nodeSize;
    nodesEnd_ = bucket->nodes() + std::size_t{bucket->used()} * vt_->nodeSize;
}

void HashMap2018IteratorGeneric::release() {
    if (bucket_ != nullptr) vt_->bktHdrRefDec(bucket_);
    bucket_ = nullptr;
    node_ = nullptr;
}

// Where the current member stands in the collection now.
HashMap2018Generic::Place HashMap2018IteratorGeneric::current() const {
    if (bucket_ == nullptr) return {};
    if (isInPlace()) return {bucket_, slot()};
    return map_->findSame(vt_, node_, hashWord());
}

void* HashMap2018IteratorGeneric::nodeElsewhere() const {
    auto const place = current();
    return place.bucket == nullptr ? nullptr : nodeAt(vt_, place.bucket, place.slot);
}

bool HashMap2018IteratorGeneric::markedForDeletion() const {
    auto const place = current();
    return place.bucket != nullptr && (place.bucket->hashWord(place.slot) & 1) != 0;
}

void HashMap2018IteratorGeneric::leaveBucket() {
    if (bucket_ == nullptr) return;
    if (!isInPlace()) return leaveStaleBucket();
    // At the end of a bucket that the collection holds, too.
    Bucket* const old = bucket_;
    hold(map_->firstFrom(map_->bucketIndex(anyWord_) + 1));
    --old->word;
}

// From a bucket that the collection has replaced, or from a copy of our own.
void HashMap2018IteratorGeneric::leaveStaleBucket() {
    HashMap2018Generic::Place to;
    U32 const word = hashWord();
    // Those that stood behind the member with the same hash, in the bucket as we keep it, come first.
    // They have kept their order, but for one that left and came back: it stands at the end now, and
    // so may the member itself.
    for (U32 i = slot() + 1; i < bucket_->used(); ++i) {
        if (withoutMark(bucket_->hashWord(i)) != word) break;
        auto const at = map_->findSame(vt_, nodeAt(vt_, bucket_, i), word);
        if (at.bucket != nullptr && (to.bucket == nullptr || at.slot < to.slot)) to = at;
    }
    if (to.bucket == nullptr) {
        auto const at = map_->findSame(vt_, node_, word);
        if (at.bucket != nullptr) {
            to = map_->next(at, word);
        } else {
            // The member has left: the next greater hash.
            U32 const index = map_->bucketIndex(word);
            Bucket* const bucket = map_->table_[index];
            U32 slot = 0;
            if (bucket != nullptr) {
                slot = lowerBound(bucket, word);
                while (slot < bucket->used() && withoutMark(bucket->hashWord(slot)) == word) ++slot;
            }
            to = bucket != nullptr && slot < bucket->used()
                     ? HashMap2018Generic::Place{bucket, slot}
                     : map_->firstFrom(index + 1);
        }
    }
    Bucket* const old = bucket_;
    hold(to);
    vt_->bktHdrRefDec(old);
}

void HashMap2018UnsafeIteratorConstGeneric::versionMismatch() {
    PLAINASSERT(false, "version_ == hashMap_->version()");
    __builtin_unreachable();
}

} // namespace Vomo
