// The lock-free lookup and walk over a table that another process is changing at the same moment.
// Holds no lock, writes nothing into shared memory, never blocks the writer.
//
// A reader that followed a link loads that link's version again after it has used the target; if it
// moved, all that was read through the link is void and the walk starts over at the bucket. What
// looks wrong behind a link that has not moved raises CorruptionDetectedException: the ordinary way
// in which a reader learns that the table was resized beneath it (BriskReader re-maps and asks
// again). Shared memory may hold anything at all: indexes are checked before use, cycles are
// bounded, keys are compared and hashed but nothing in them is followed.
//
// `ReaderType` gives `Ops` and `slotTable()`. One object belongs to one thread at a time.
#pragma once

#include "BriskCore/BucketTable.h"
#include "Dunlin/Trace.h"

namespace BriskCore {

template <class ReaderType>
class ReaderHashMap : public Dunlin::Debuggable {
public:
    using Ops = typename ReaderType::Ops;
    using Key = typename Ops::Key;
    using Value = typename Ops::Value;
    using Link = Brisk::SlotLink;

    ReaderHashMap(Dunlin::Platform::DebugHandler& handler, Mem::YokeRootPath const& rootPath,
                  ReaderType& reader);

    // The value of `key` in `out`, or in the reader's scratch value if that is null; the type's
    // default value, and `found` false, if the key is not there or the table is detached.
    Value const* lookup(Key const& key, bool& found, void* out) const;
    // The first entry at or behind `bucketIndex` in bucket order; false at the end of the table.
    bool first(U32 bucketIndex, Value& value, Brisk::IterHint& hint) const;
    // The successor of `key`, the key last returned; the hint may be stale and the key gone.
    bool next(Key const& key, Value& value, Brisk::IterHint& hint) const;
    // Raises unless a link from bucket `current` may lead to bucket `next`, at this bucket count or
    // at half or twice as many.
    void verifyNextBucket(U32 current, U32 next) const;
    void verifyFollowing(U32 current, U32 next) const;

    BucketReader<Link> buckets;

private:
    // A bucket entry or slot link that a walk stands on, as it was loaded.
    struct Step {
        Link const* place;
        Link link;
        bool moved() const;
    };
    enum class Outcome : U8 { no, yes, retry };
    // How far a walk has come along a chain, and the place from which it looks for a circle.
    struct Lap {
        U32 slotCount = 0;
        Step mark{};
    };

    Step bucketStep(U32 bucket) const;
    Outcome lookupOnce(Key const& key, U32 rhash, U32 bucket, void* out) const;
    Outcome firstOnce(U32& bucket, U32& bucketCount, Value& value, Brisk::IterHint& hint) const;
    bool nextSlow(Key const& key, Value& value, Brisk::IterHint& hint) const;
    Outcome nextSlowOnce(Key const& key, U32 rhash, U32 bucket, Value& value, Brisk::IterHint& hint,
                         U32& follow) const;
    bool tooFar(Lap& lap, Step const& at) const;
    void countRetry(U32 bucket) const;
    bool mayStandIn(Key const& key, U32 bucket) const;
    [[noreturn]] static void notOccupied(U32 slot, Key const& key);

    ReaderType* reader_;
};

} // namespace BriskCore
