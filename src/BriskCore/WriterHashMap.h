// The writer's side of a table's index, a split-ordered hash list. All occupied slots form one
// list, sorted by bit-reversed hash and then by key; the buckets are entry points into it. The order
// does not depend on the bucket count, so buckets double and halve while readers keep walking: no
// slot moves, and each step is one 8-byte store.
//
// `WriterType` gives `Ops`, `Slot`, `slotTable()`, `prefetchSlot()` and `criticalTaskCheck()`.
// Everything here runs on the writer's thread. Every inconsistency found on a walk raises
// CorruptionDetectedException; nothing is mended.
#pragma once

#include "BriskCore/BucketTable.h"
#include "Dunlin/Trace.h"

namespace BriskCore {

template <class WriterType, class ValidatorType>
class WriterHashMap {
public:
    using Ops = typename WriterType::Ops;
    using Key = typename Ops::Key;
    using Value = typename Ops::Value;
    using Slot = typename WriterType::Slot;
    using Link = Brisk::SlotLink;
    using Buckets = BucketTable<Link>;

    WriterHashMap(Dunlin::Platform::DebugHandler& handler, Mem::YokeRootPath const& rootPath,
                  Bucket::WriterCounters& counters, bool localMem, bool shrinkBucketsEnabled,
                  WriterType& writer);

    U32 bucketOf(U32 hash) const { return hash & (buckets.numBuckets() - 1); }

    // True if `key`, whose hash and bucket the caller has computed, is in the table. `prev` is the
    // link whose `next` leads to `curr`; not found, `prev` is the link behind which the key
    // belongs and `curr` the first greater slot, or `prev` at the end of a chain.
    bool find(Key const& key, U32 bucket, Link*& prev, Link*& curr, U32 hash);
    // The slot of `key`, without the places around it; null if it is not there.
    Slot* lookup(Key const& key, U32 bucket, U32 hash);

    // For who asks ahead: the cell of a hash's bucket; the first slot of its chain, noSlot if it is
    // empty; and the slot behind one that is not of that hash. Anything may stand there.
    void prefetchBucket(U32 hash) { Mem::prefetch(&buckets[bucketOf(hash)]); }
    U32 headOf(U32 hash) { return Mem::peek(buckets[bucketOf(hash)]).next; }
    U32 behind(U32 slot, U32 hash);

    // The first entry at or behind `bucket` in list order; false at the end of the table.
    bool first(U32 bucket, Value& value, Brisk::IterHint& hint);
    // The entry that follows `key`, which need not be in the table any more. `key` may lie inside
    // `value`. False at the end of the table.
    bool next(Key const& key, Value& value, Brisk::IterHint& hint);
    // Raises unless `nextBucket` must follow `bucket`.
    void verifyNextBucket(U32 bucket, U32 nextBucket) const;

    // Doubles the buckets. Raises MemoryResourceException with the table as it was.
    void growBuckets();
    // Halves the buckets; nothing for a single one.
    void shrinkBuckets();

    // Sets the load limits from the bucket count.
    void limitsFromCount();
    // Entries above which the buckets double, and below which they halve if that is enabled.
    U32 growLimit() const { return numBuckets_; }
    U32 shrinkLimit() const { return shrinkBuckets_; }
    bool shrinkEnabled() const { return shrinkBucketsEnabled_; }

    void validatorIs(ValidatorType* validator) { validator_ = validator; }

private:
    // Takes the slot a walk has come to, or raises.
    Slot& occupiedSlot(U32 index);
    void checkBucket(Slot const& slot, U32 index, U32 bucket);
    void checkRhash(Slot const& slot, U32 index);
    void countStep(U32& slotCount);
    void give(Slot& slot, U32 index, U32 bucket, Value& value, Brisk::IterHint& hint);
    void verifyEndOfTable(U32 bucket) const;
    bool nextSlow(Key const& key, Value& value, Brisk::IterHint& hint);
    void prefetchChains(U32 bucket, U32 end);
    [[noreturn]] static void notOccupied(U32 index);
    [[noreturn]] static void corruptKey(U32 index);
    [[noreturn]] void cycle(U32 slotCount);

    Dunlin::Platform::DebugHandler* handler_;
    U32 numBuckets_ = 0;
    U32 shrinkBuckets_ = 0;

public:
    BucketWriter<Link> buckets;

private:
    WriterType* writer_;
    bool shrinkBucketsEnabled_;
    ValidatorType* validator_ = nullptr; // set only while a validation runs
};

} // namespace BriskCore
