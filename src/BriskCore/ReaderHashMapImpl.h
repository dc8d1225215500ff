// Definitions of ReaderHashMap; included only where a table is instantiated.
#pragma once

#include "BriskCore/BucketOrder.h"
#include "BriskCore/ReaderHashMap.h"

namespace BriskCore {

template <class R>
ReaderHashMap<R>::ReaderHashMap(Dunlin::Platform::DebugHandler& handler,
                                Mem::YokeRootPath const& rootPath, R& reader)
    : Debuggable(handler), buckets(handler, rootPath, typename BucketReader<Link>::Options{}),
      reader_(&reader) {}

// Loads of the target stay before the second look at the link that led there.
template <class R>
bool ReaderHashMap<R>::Step::moved() const {
    Mem::loadsStayBefore();
    return Mem::peek(place->version) != link.version;
}

template <class R>
auto ReaderHashMap<R>::bucketStep(U32 bucket) const -> Step {
    Link const& place = buckets[bucket];
    return {&place, Mem::observe(place)};
}

// Counts a step of a walk, which has come along `at`. A walk of more steps than there are slots runs
// in a circle, or the writer goes on ahead of it: removing behind it, inserting in front. The list
// only rises, so a sound table never leads a walk back to a link that has not changed since. One that
// does is damaged, and this raises; a walk that goes round without meeting one is to start over, and
// this is true.
template <class R>
bool ReaderHashMap<R>::tooFar(Lap& lap, Step const& at) const {
    U32 const capacity = reader_->slotTable().capacity();
    if (++lap.slotCount <= capacity) [[likely]]
        return false;
    U32 const beyond = lap.slotCount - capacity;
    if (beyond == 1) {
        lap.mark = at;
    } else if (at.place == lap.mark.place && at.link.version == lap.mark.link.version) {
        Dunlin::fmthrow<Dunlin::CorruptionDetectedException>(
            "hash chain cycle detected, slotCount:{} capacity:{}", capacity + 1, capacity);
    }
    if (beyond <= capacity + 1) return false;
    FMTRACE(debugHandler(), 5, "chain changes ahead of its reader, slotCount:{} capacity:{}",
            lap.slotCount, capacity);
    return true;
}

template <class R>
void ReaderHashMap<R>::countRetry(U32 bucket) const {
    ++reader_->slotTable().counters->hashRetries;
    static_cast<void>(buckets[bucket]); // a smaller table since: out of range
}

template <class R>
bool ReaderHashMap<R>::mayStandIn(Key const& key, U32 bucket) const {
    return BriskCore::mayStandIn(reader_->slotTable().ops->hash(key), bucket, buckets.numBuckets);
}

template <class R>
void ReaderHashMap<R>::notOccupied(U32 slot, Key const& key) {
    Dunlin::fmthrow<Dunlin::CorruptionDetectedException>("slot:{} not marked as occupied key:{}",
                                                         slot, Dunlin::dumpHex(&key, sizeof key));
}

template <class R>
auto ReaderHashMap<R>::lookup(Key const& key, bool& found, void* out) const -> Value const* {
    found = false;
    if (buckets.numBuckets == 0) {
        FMTRACE(debugHandler(), 5, "bucket table detached");
        return &Ops::type_default();
    }
    auto& table = reader_->slotTable();
    U32 const hash = table.ops->hash(key);
    U32 const bucket = hash & (buckets.numBuckets - 1);
    U32 const rhash = Dunlin::Util::reverse(hash);
    if (!out) out = table.scratch();
    for (;;) {
        switch (lookupOnce(key, rhash, bucket, out)) {
        case Outcome::yes:
            found = true;
            return static_cast<Value const*>(out);
        case Outcome::no:
            return &Ops::type_default();
        case Outcome::retry:
            countRetry(bucket);
        }
    }
}

// One walk along a chain.
//
//      load                          pairs with the writer's            what it makes sure of
//  L1  bucket word                   link stores (publish)              the target is a whole slot
//  L2  slotVersion, rhash, key,      rewrite and fill of a slot         a value of one moment
//      value of a match, slotVersion
//  L3  link version again            link stores                        L2 was read through a link
//                                                                       that still stands
//  L4  the slot's own link           link stores                        as L1
//  L5  bucket version, on a miss     publishSize                        a miss is not due to a split
template <class R>
auto ReaderHashMap<R>::lookupOnce(Key const& key, U32 rhash, U32 bucket, void* out) const
    -> Outcome {
    auto& table = reader_->slotTable();
    Step at = bucketStep(bucket); // L1
    Lap lap;
    for (;;) {
        if (at.link.endsChain()) {
            if (!at.link.endsTable()) static_cast<void>(buckets[at.link.bucket()]);
            Mem::loadsStayBefore();
            buckets.checkResize(); // L5
            return Outcome::no;
        }
        if (tooFar(lap, at)) [[unlikely]]
            return Outcome::retry;
        U32 const index = at.link.next;
        auto const seen = table.readMatch(index, rhash, key, out); // L2
        if (at.moved()) return Outcome::retry;                     // L3
        Key const& slotKey = seen.key();
        if ((seen.version & Brisk::occupiedBit) == 0) [[unlikely]]
            notOccupied(index, slotKey);
        if (seen.matches) {
            if (at.moved()) return Outcome::retry;
            table.anchorIs(index, seen.version);
            return Outcome::yes;
        }
        bool const further = seen.rhash < rhash || (seen.rhash == rhash && Ops::less(slotKey, key));
        // Only the link of a slot that the walk goes on from is loaded.
        Step next = at;
        if (further) {
            Link const& place = table.linkAt(index);
            next = {&place, Mem::observe(place)}; // L4
        }
        if (at.moved()) return Outcome::retry;
        if (!mayStandIn(slotKey, bucket)) [[unlikely]]
            Dunlin::fmthrow<Dunlin::CorruptionDetectedException>(
                "corrupt key detected. key:{} bucketIndex:{}",
                Dunlin::dumpHex(&slotKey, sizeof slotKey), bucket);
        if (!further) {
            buckets.checkResize();
            return Outcome::no;
        }
        at = next;
    }
}

template <class R>
bool ReaderHashMap<R>::first(U32 bucket, Value& value, Brisk::IterHint& hint) const {
    static_cast<void>(buckets[bucket]);
    U32 bucketCount = 0;
    for (;;) {
        switch (firstOnce(bucket, bucketCount, value, hint)) {
        case Outcome::yes:
            return true;
        case Outcome::no:
            return false;
        case Outcome::retry:
            countRetry(bucket);
        }
    }
}

template <class R>
auto ReaderHashMap<R>::firstOnce(U32& bucket, U32& bucketCount, Value& value,
                                 Brisk::IterHint& hint) const -> Outcome {
    auto& table = reader_->slotTable();
    Step at = bucketStep(bucket);
    while (at.link.endsChain()) {
        if (at.link.endsTable()) {
            verifyNextBucket(bucket, 0);
            FMTRACE(debugHandler(), 8, "none found!");
            return Outcome::no;
        }
        if (++bucketCount >= buckets.numBuckets)
            Dunlin::fmthrow<Dunlin::CorruptionDetectedException>(
                "has bucket cycle detected, bucketCount: {} numBuckets: {}", bucketCount,
                buckets.numBuckets);
        U32 const follow = at.link.bucket();
        verifyFollowing(bucket, follow);
        at = bucketStep(follow);
        bucket = follow;
    }
    U32 const index = at.link.next;
    auto const seen = table.readSlot(index, &value);
    if (at.moved()) return Outcome::retry;
    Key const& key = Ops::key(value);
    if ((seen.version & Brisk::occupiedBit) == 0) notOccupied(index, key);
    if (!mayStandIn(key, bucket))
        Dunlin::fmthrow<Dunlin::CorruptionDetectedException>(
            "corrupt key detected, key:{} bucket:{}", Dunlin::dumpHex(&key, sizeof key), bucket);
    hint = {seen.version, index, bucket};
    FMTRACE(debugHandler(), 9, "{} found at bucket {}, saving {}", key, bucket, index);
    return Outcome::yes;
}

// One step from the slot that the hint stands on.
//
//      load                      pairs with the writer's          what it makes sure of
//  P1  the hint slot's link      M7 of a move, U4 of a removal    see P2
//  P2  its slotVersion           M6 and U2, stored before those   the slot was still in the list when
//                                                                 P1 loaded its link
//  P3  the next slot             rewrite, fill, free              a value of one moment
//  P4  link and slotVersion      M7, U4; M6, U2                   the next slot was still that when P3
//      again                                                      read it
template <class R>
bool ReaderHashMap<R>::next(Key const& keyIs, Value& value, Brisk::IterHint& hint) const {
    // The key may lie inside `value`, which a retry would find overwritten (H-link-4).
    Key const key = keyIs;
    auto& table = reader_->slotTable();
    if (hint.slotIndex >= table.capacity() || hint.bucketIndex >= buckets.numBuckets)
        return nextSlow(key, value, hint);
    Link const& place = table.linkAt(hint.slotIndex);
    Step const at{&place, Mem::observe(place)}; // P1
    auto const stale = [&] { return table.versionAt(hint.slotIndex) != hint.version; };
    if (stale()) return nextSlow(key, value, hint); // P2

    if (at.link.endsChain()) {
        // The hint's bucket may be older than a doubling while the slot is not: at a chain's end
        // the bucket is that of the slot's own hash (A44, H-link-3).
        U32 const rhash = table.rhashAt(hint.slotIndex);
        if (at.moved() || stale()) return nextSlow(key, value, hint); // P4
        U32 const bucket = Dunlin::Util::reverse(rhash) & (buckets.numBuckets - 1);
        if (at.link.endsTable()) {
            verifyNextBucket(bucket, 0);
            FMTRACE(debugHandler(), 9, "{} failed", key);
            return false;
        }
        U32 const follow = at.link.bucket();
        verifyFollowing(bucket, follow);
        FMTRACE(debugHandler(), 9, "{} next bucket {} using {}", key, follow, hint.slotIndex);
        return first(follow, value, hint);
    }
    U32 const index = at.link.next;
    U32 const ownRhash = table.rhashAt(hint.slotIndex);
    auto const seen = table.readSlot(index, &value);              // P3
    if (at.moved() || stale()) return nextSlow(key, value, hint); // P4
    Key const& found = Ops::key(value);
    if ((seen.version & Brisk::occupiedBit) == 0) notOccupied(index, found);
    // The list only rises. Where it does not, it may run in a circle, which the bounds of single
    // steps would never find.
    if (seen.rhash < ownRhash || (seen.rhash == ownRhash && !Ops::less(key, found)))
        Dunlin::fmthrow<Dunlin::CorruptionDetectedException>(
            "corrupt key detected. key:{} bucketIndex {}", Dunlin::dumpHex(&found, sizeof found),
            hint.bucketIndex);
    if (!mayStandIn(found, hint.bucketIndex)) {
        // Behind two doublings the hint's bucket is no proof any more; the key of the slot it
        // stands on is.
        U32 const own = table.ops->hash(key) & (buckets.numBuckets - 1);
        if (!mayStandIn(found, own))
            Dunlin::fmthrow<Dunlin::CorruptionDetectedException>(
                "corrupt key detected. key:{} bucketIndex {}",
                Dunlin::dumpHex(&found, sizeof found), hint.bucketIndex);
        hint.bucketIndex = own;
    }
    FMTRACE(debugHandler(), 9, "{} success {} using {}, saving new slot hint {}", key, found,
            hint.slotIndex, index);
    hint.version = seen.version;
    hint.slotIndex = index;
    return true;
}

template <class R>
bool ReaderHashMap<R>::nextSlow(Key const& key, Value& value, Brisk::IterHint& hint) const {
    auto& table = reader_->slotTable();
    ++table.counters->slowPathNexts;
    U32 const hash = table.ops->hash(key);
    U32 const rhash = Dunlin::Util::reverse(hash);
    U32 const bucket = hash & (buckets.numBuckets - 1);
    for (;;) {
        U32 follow = Link::tableEnd;
        switch (nextSlowOnce(key, rhash, bucket, value, hint, follow)) {
        case Outcome::yes:
            return follow == Link::tableEnd ? true : first(follow, value, hint);
        case Outcome::no:
            return false;
        case Outcome::retry:
            countRetry(bucket);
        }
    }
}

// A fresh walk to the first slot that sorts behind `key`. `follow` is set if the chain ends before
// it: then the successor is the head of the next bucket that is not empty.
template <class R>
auto ReaderHashMap<R>::nextSlowOnce(Key const& key, U32 rhash, U32 bucket, Value& value,
                                    Brisk::IterHint& hint, U32& follow) const -> Outcome {
    auto& table = reader_->slotTable();
    Step at = bucketStep(bucket);
    Lap lap;
    for (;;) {
        if (at.link.endsTable()) {
            verifyNextBucket(bucket, 0);
            FMTRACE(debugHandler(), 9, "{} failed", key);
            return Outcome::no;
        }
        if (at.link.endsChain()) {
            follow = at.link.bucket();
            verifyFollowing(bucket, follow);
            FMTRACE(debugHandler(), 9, "{} next bucket {}", key, follow);
            return Outcome::yes;
        }
        if (tooFar(lap, at)) [[unlikely]]
            return Outcome::retry;
        U32 const index = at.link.next;
        auto const seen = table.readSlot(index, &value);
        Key const& found = Ops::key(value);
        FMTRACE(debugHandler(), 9, "{} comparing slot {} {}", key, index, found);
        if (at.moved()) return Outcome::retry;
        if ((seen.version & Brisk::occupiedBit) == 0)
            Dunlin::fmthrow<Dunlin::CorruptionDetectedException>(
                "slow-path slot:{} not marked as occupied key:{} slotCount:{}", index,
                Dunlin::dumpHex(&key, sizeof key), lap.slotCount);
        if (rhash < seen.rhash || (rhash == seen.rhash && Ops::less(key, found))) {
            if (!mayStandIn(found, bucket))
                Dunlin::fmthrow<Dunlin::CorruptionDetectedException>(
                    "corrupt key detected. key:{} bucketIndex {}",
                    Dunlin::dumpHex(&found, sizeof found), bucket);
            hint = {seen.version, index, bucket};
            FMTRACE(debugHandler(), 9, "{} success {}, saving {}", key, found, index);
            return Outcome::yes;
        }
        Link const& place = table.linkAt(index);
        Step const next{&place, Mem::observe(place)};
        if (at.moved()) return Outcome::retry;
        at = next;
        FMTRACE(debugHandler(), 9, "{} next slot {} success", key, index);
    }
}

// As verifyNextBucket, for a chain that goes on. No chain goes on at bucket 0, where walks begin: the
// last one ends the table, and one that led back to the start would keep a walk going for ever.
template <class R>
void ReaderHashMap<R>::verifyFollowing(U32 current, U32 next) const {
    if (next == 0)
        Dunlin::fmthrow<Dunlin::CorruptionDetectedException>(
            "has bucket: {} with next bucket: {} and numBuckets: {}", current, next,
            buckets.numBuckets);
    verifyNextBucket(current, next);
}

template <class R>
void ReaderHashMap<R>::verifyNextBucket(U32 current, U32 next) const {
    U32 const bits = buckets.bucketFactor;
    U32 const mask = buckets.numBuckets - 1;
    auto const leads = [&](U32 b, U32 m) { return (successor(current, b) & m) == next; };
    if (leads(bits, mask) || leads(bits - 1, mask >> 1) || leads(bits + 1, mask << 1 | 1)) return;
    Dunlin::fmthrow<Dunlin::CorruptionDetectedException>(
        "has bucket: {} with next bucket: {} and numBuckets: {}", current, next,
        buckets.numBuckets);
}

} // namespace BriskCore
