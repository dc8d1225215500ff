// Definitions of WriterHashMap; included only where a table is instantiated.
#pragma once

#include "BriskCore/BucketOrder.h"
#include "BriskCore/CriticalTasks.h"
#include "BriskCore/WriterHashMap.h"

namespace BriskCore {

template <class W, class V>
WriterHashMap<W, V>::WriterHashMap(Dunlin::Platform::DebugHandler& handler,
                                   Mem::YokeRootPath const& rootPath,
                                   Bucket::WriterCounters& counters, bool localMem,
                                   bool shrinkBucketsEnabled, W& writer)
    : handler_(&handler), buckets(handler, rootPath, counters, localMem, 0UL), writer_(&writer),
      shrinkBucketsEnabled_(shrinkBucketsEnabled) {}

template <class W, class V>
void WriterHashMap<W, V>::limitsFromCount() {
    numBuckets_ = buckets.numBuckets();
    shrinkBuckets_ = numBuckets_ / 4;
}

template <class W, class V>
void WriterHashMap<W, V>::notOccupied(U32 index) {
    Dunlin::fmthrow<Dunlin::CorruptionDetectedException>("slotId: {} not marked as occupied",
                                                         index);
}

template <class W, class V>
void WriterHashMap<W, V>::corruptKey(U32 index) {
    Dunlin::fmthrow<Dunlin::CorruptionDetectedException>("corrupt key detected, slotId: {}", index);
}

template <class W, class V>
void WriterHashMap<W, V>::cycle(U32 slotCount) {
    Dunlin::fmthrow<Dunlin::CorruptionDetectedException>(
        "hash chain cycle detected, slotCount:{} capacity:{}", slotCount,
        writer_->slotTable().capacity());
}

template <class W, class V>
void WriterHashMap<W, V>::countStep(U32& slotCount) {
    if (++slotCount > writer_->slotTable().capacity()) [[unlikely]]
        cycle(slotCount);
}

template <class W, class V>
auto WriterHashMap<W, V>::occupiedSlot(U32 index) -> Slot& {
    Slot& slot = writer_->slotTable().slots[index];
    if ((Mem::peek(slot.slotVersion) & Brisk::occupiedBit) == 0) [[unlikely]]
        notOccupied(index);
    return slot;
}

template <class W, class V>
void WriterHashMap<W, V>::checkBucket(Slot const& slot, U32 index, U32 bucket) {
    if (bucketOf(writer_->slotTable().ops->hash(Ops::key(slot.value))) != bucket) [[unlikely]]
        corruptKey(index);
}

template <class W, class V>
bool WriterHashMap<W, V>::find(Key const& key, U32 bucket, Link*& prev, Link*& curr, U32 hash) {
    Link* entry = &buckets[bucket];
    prev = curr = entry;
    U32 const rhash = Dunlin::Util::reverse(hash);
    Link link = Mem::peek(*entry);
    U32 slotCount = 0;
    while (!link.endsChain()) {
        countStep(slotCount);
        writer_->prefetchSlot(link.next);
        Slot& slot = occupiedSlot(link.next);
        curr = &slot.link;
        U32 const slotRhash = Mem::peek(slot.rhash);
        decltype(auto) slotKey = Ops::key(slot.value);
        // The key sought stands in its own bucket; any other is looked at.
        if (slotRhash == rhash && Ops::equal(slotKey, key)) return true;
        checkBucket(slot, link.next, bucket);
        if (slotRhash > rhash || (slotRhash == rhash && Ops::less(key, slotKey))) return false;
        prev = &slot.link;
        link = Mem::peek(slot.link);
    }
    return false;
}

template <class W, class V>
auto WriterHashMap<W, V>::lookup(Key const& key, U32 bucket, U32 hash) -> Slot* {
    U32 const rhash = Dunlin::Util::reverse(hash);
    Link link = Mem::peek(buckets[bucket]);
    U32 slotCount = 0;
    while (!link.endsChain()) {
        countStep(slotCount);
        Slot& slot = occupiedSlot(link.next);
        U32 const slotRhash = Mem::peek(slot.rhash);
        decltype(auto) slotKey = Ops::key(slot.value);
        if (slotRhash == rhash && Ops::equal(slotKey, key)) return &slot;
        if (bucketOf(writer_->slotTable().ops->hash(slotKey)) != bucket) [[unlikely]]
            Dunlin::fmthrow<Dunlin::CorruptionDetectedException>("corrupt key detected, slot: {}",
                                                                 link.next);
        if (slotRhash > rhash || (slotRhash == rhash && Ops::less(key, slotKey))) return nullptr;
        link = Mem::peek(slot.link);
    }
    return nullptr;
}

template <class W, class V>
U32 WriterHashMap<W, V>::behind(U32 slot, U32 hash) {
    auto const& slots = writer_->slotTable().slots;
    if (slot > slots.maxIndex) return slot;
    Slot const& at = slots.base[slot];
    return Mem::peek(at.rhash) == Dunlin::Util::reverse(hash) ? slot : Mem::peek(at.link).next;
}

template <class W, class V>
void WriterHashMap<W, V>::verifyNextBucket(U32 bucket, U32 nextBucket) const {
    U32 const count = buckets.numBuckets();
    U32 const wanted = bucket < count / 2
                           ? bucket + count / 2
                           : successor(bucket, buckets.log2NumBuckets()) & (count - 1);
    if (nextBucket != wanted)
        Dunlin::fmthrow<Dunlin::CorruptionDetectedException>(
            "has bucket: {} with next bucket: {} and numBuckets: {}", bucket, nextBucket, count);
}

// The end of the table was reached in `bucket`, which must be the last one.
template <class W, class V>
void WriterHashMap<W, V>::verifyEndOfTable(U32 bucket) const {
    U32 const count = buckets.numBuckets();
    if (bucket != count - 1)
        Dunlin::fmthrow<Dunlin::CorruptionDetectedException>(
            "thinks we've reached the end of the table, but we're in bucket {} when there are "
            "numBuckets: {}",
            bucket, count);
}

template <class W, class V>
void WriterHashMap<W, V>::checkRhash(Slot const& slot, U32 index) {
    U32 const rhash = Dunlin::Util::reverse(writer_->slotTable().ops->hash(Ops::key(slot.value)));
    U32 const stored = Mem::peek(slot.rhash);
    if (rhash != stored)
        Dunlin::fmthrow<Dunlin::CorruptionDetectedException>(
            "corrupt rhash detected, slotId: {} slot.rhash:{:08x} rhash:{:08x}", index, stored,
            rhash);
}

// Hands a slot's value to the caller of a walk.
template <class W, class V>
void WriterHashMap<W, V>::give(Slot& slot, U32 index, U32 bucket, Value& value,
                               Brisk::IterHint& hint) {
    if (validator_) validator_->markOccupied(index);
    writer_->slotTable().recordAnchor(slot);
    Ops::copyValue(&value, &slot.value);
    hint = {Mem::peek(slot.slotVersion), index, bucket};
}

template <class W, class V>
bool WriterHashMap<W, V>::first(U32 bucket, Value& value, Brisk::IterHint& hint) {
    Link link = Mem::peek(buckets[bucket]);
    U32 bucketCount = 0;
    while (link.endsChain()) {
        if (link.endsTable()) {
            verifyEndOfTable(bucket);
            FMTRACE(*handler_, 8, "none found!");
            return false;
        }
        if (++bucketCount >= buckets.numBuckets())
            Dunlin::fmthrow<Dunlin::CorruptionDetectedException>(
                "has bucket cycle detected, bucketCount: {} numBuckets: {}", bucketCount,
                buckets.numBuckets());
        verifyNextBucket(bucket, link.bucket());
        bucket = link.bucket();
        link = Mem::peek(buckets[bucket]);
    }
    U32 const index = link.next;
    Slot& slot = writer_->slotTable().slots[index];
    if ((Mem::peek(slot.slotVersion) & Brisk::occupiedBit) == 0)
        Dunlin::fmthrow<Dunlin::CorruptionDetectedException>(
            "slotId: {} from bucket: {} not marked as occupied", index, bucket);
    checkBucket(slot, index, bucket);
    if (validator_) checkRhash(slot, index);
    give(slot, index, bucket, value, hint);
    FMTRACE(*handler_, 9, "{} found at bucket {}", Ops::key(value), bucket);
    return true;
}

template <class W, class V>
bool WriterHashMap<W, V>::next(Key const& keyIs, Value& value, Brisk::IterHint& hint) {
    // The key may lie inside `value`, which is overwritten (H-link-4).
    Key const key = keyIs;
    auto& table = writer_->slotTable();
    if (hint.slotIndex >= table.capacity() || hint.bucketIndex >= buckets.numBuckets())
        return nextSlow(key, value, hint);
    Slot& at = table.slots[hint.slotIndex];
    if (Mem::peek(at.slotVersion) != hint.version) return nextSlow(key, value, hint);

    Link const link = Mem::peek(at.link);
    // The hint's bucket may be older than a doubling; the slot's own hash is not (A44, H-link-3).
    U32 const bucket = bucketOf(Dunlin::Util::reverse(Mem::peek(at.rhash)));
    if (link.endsTable()) {
        verifyEndOfTable(bucket);
        FMTRACE(*handler_, 9, "{} failed", key);
        return false;
    }
    if (link.endsChain()) {
        verifyNextBucket(bucket, link.bucket());
        FMTRACE(*handler_, 9, "{} next bucket {} using {}", key, link.bucket(), hint.slotIndex);
        return first(link.bucket(), value, hint);
    }
    Slot& slot = occupiedSlot(link.next);
    checkBucket(slot, link.next, bucket);
    if (validator_) checkRhash(slot, link.next);
    U32 const from = hint.slotIndex;
    give(slot, link.next, hint.bucketIndex, value, hint);
    FMTRACE(*handler_, 9, "{} success {} using {}, saving new slot hint {}", key, Ops::key(value),
            from, hint.slotIndex);
    return true;
}

template <class W, class V>
bool WriterHashMap<W, V>::nextSlow(Key const& key, Value& value, Brisk::IterHint& hint) {
    auto& table = writer_->slotTable();
    ++table.counters->slowPathNexts;
    U32 const hash = table.ops->hash(key);
    U32 const rhash = Dunlin::Util::reverse(hash);
    U32 const bucket = bucketOf(hash);
    Link link = Mem::peek(buckets[bucket]);
    U32 slotCount = 0;
    while (!link.endsChain()) {
        countStep(slotCount);
        U32 const index = link.next;
        Slot& slot = occupiedSlot(index);
        checkBucket(slot, index, bucket);
        U32 const slotRhash = Mem::peek(slot.rhash);
        FMTRACE(*handler_, 9, "{} comparing slot {} {}", key, index, Ops::key(slot.value));
        if (slotRhash > rhash || (slotRhash == rhash && Ops::less(key, Ops::key(slot.value)))) {
            U32 const wanted = Dunlin::Util::reverse(table.ops->hash(Ops::key(slot.value)));
            if (wanted != slotRhash)
                Dunlin::fmthrow<Dunlin::CorruptionDetectedException>(
                    "corrupt rhash detected, slotId: {} slot.rhash:{:08x} rhash:{:0x}", index,
                    slotRhash, wanted);
            give(slot, index, bucket, value, hint);
            FMTRACE(*handler_, 9, "{} success {}", key, Ops::key(value));
            return true;
        }
        link = Mem::peek(slot.link);
        FMTRACE(*handler_, 9, "{} next slotId {} success {}", key, link.next, index);
    }
    if (link.endsTable()) {
        verifyEndOfTable(bucket);
        FMTRACE(*handler_, 9, "{} failed", key);
        return false;
    }
    verifyNextBucket(bucket, link.bucket());
    FMTRACE(*handler_, 9, "{} next bucket {}", key, link.bucket());
    return first(link.bucket(), value, hint);
}

// Slots of neighbouring buckets lie anywhere: a pass over all buckets asks for them ahead.
template <class W, class V>
void WriterHashMap<W, V>::prefetchChains(U32 bucket, U32 end) {
    constexpr U32 far = 16, near = 8;
    auto& slots = writer_->slotTable().slots;
    if (bucket + far >= end) return;
    U32 const head = Mem::peek(buckets[bucket + far]).next;
    if (head <= slots.maxIndex) Mem::prefetchToStore(slots.base + head);
    // By now the head of a nearer chain has come, and tells where its second slot is.
    U32 const nearHead = Mem::peek(buckets[bucket + near]).next;
    if (nearHead > slots.maxIndex) return;
    U32 const second = Mem::peek(slots.base[nearHead].link).next;
    if (second <= slots.maxIndex) Mem::prefetchToStore(slots.base + second);
}

// Doubles the buckets. Readers: ReaderHashMap::lookup, first, next; BucketReader::doResize.
//
//      store                        order, partner                     a reader now sees
//  D1  new entry b + n -> first     shown by D2                        nothing: beyond its count
//      slot of b + n, or the end
//  D2  (version + 1, 2n)            publish; pairs with checkResize,   2n buckets; bucket b still
//                                   doResize                           runs on through those of b+n
//  D3  last link of b -> b + n      publish; pairs with the re-check   the two chains apart; with
//                                   of a walk                          the old count it crosses over
//
// A writer that dies in between leaves the mark in runtimeFlags: its successor formats anew.
template <class W, class V>
void WriterHashMap<W, V>::growBuckets() {
    U32 const count = buckets.numBuckets();
    FMTRACE(*handler_, 2, "growing from: {} to: {}", count, 2 * count);
    U64 const from = Dunlin::Rdtsc::ticks();
    CriticalTasks tasks(writer_->criticalTaskCheck());
    auto& table = writer_->slotTable();
    buckets.resize(2 * count);
    U32 const mask = 2 * count - 1;

    // The link at which chain `b` stops holding keys of bucket `b` of the doubled table.
    auto const splitPoint = [&](U32 b) -> Link* {
        Link* at = &buckets[b];
        Link link = Mem::peek(*at);
        U32 slotCount = 0;
        while (!link.endsChain()) {
            countStep(slotCount);
            Slot& slot = table.slots[link.next];
            if ((Dunlin::Util::reverse(Mem::peek(slot.rhash)) & mask) != b) break;
            at = &slot.link;
            link = Mem::peek(slot.link);
        }
        return at;
    };

    for (U32 b = 0; b < count; ++b) {
        prefetchChains(b, count);
        Link const stop = Mem::peek(*splitPoint(b));
        Link& entry = buckets[b + count];
        Mem::poke(entry, Mem::peek(entry).to(stop.next)); // D1
        tasks.check();
    }
    buckets.publishSize(); // D2
    for (U32 b = 0; b < count; ++b) {
        prefetchChains(b, count);
        Link& stop = *splitPoint(b);
        Mem::publish(stop, Mem::peek(stop).to((b + count) | Link::endBit)); // D3
        tasks.check();
    }
    limitsFromCount();
    auto& counters = *table.counters;
    ++counters.bucketGrows;
    counters.lastBucketGrowTicks = Dunlin::Rdtsc::ticks() - from;
    counters.maxBucketGrowTicks =
        std::max(counters.maxBucketGrowTicks, counters.lastBucketGrowTicks);
}

// Halves the buckets. Readers as above.
//
//      store                          order, partner                   a reader now sees
//  H1  last link of b -> first of     publish; pairs with the          chain b runs on through
//      b + n/2, or its end            re-check of a walk               those of b + n/2
//  H2  (version + 1, n/2)             publish; pairs with doResize     half the buckets
//  H3  the pages are given back       after H2                         zero entries behind the end:
//                                     the version tells (H-file-1)
template <class W, class V>
void WriterHashMap<W, V>::shrinkBuckets() {
    U32 const count = buckets.numBuckets();
    if (count <= 1) return;
    U32 const half = count / 2;
    U64 const from = Dunlin::Rdtsc::ticks();
    CriticalTasks tasks(writer_->criticalTaskCheck());
    auto& table = writer_->slotTable();
    for (U32 b = 0; b < half; ++b) {
        Link* at = &buckets[b];
        Link link = Mem::peek(*at);
        U32 slotCount = 0;
        while (!link.endsChain()) {
            countStep(slotCount);
            at = &table.slots[link.next].link;
            link = Mem::peek(*at);
        }
        Mem::publish(*at, link.to(Mem::peek(buckets[b + half]).next)); // H1
        tasks.check();
    }
    buckets.publishSize(half); // H2
    buckets.resize(half);      // H3
    limitsFromCount();
    auto& counters = *table.counters;
    ++counters.bucketShrinks;
    U64 const time = Dunlin::Rdtsc::ticks() - from;
    counters.maxBucketShrinkTicks = std::max(counters.maxBucketShrinkTicks, time);
    FMTRACE(*handler_, 2, "shrunk from:{} to:{} shrinkBuckets_:{} time:{}", count, half,
            shrinkBuckets_, time);
}

} // namespace BriskCore
