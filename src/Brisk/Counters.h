// Counters of a writer and of a reader. Both are plain records, copied out whole.
#pragma once

#include "Dunlin/Types.h"

#include <cstddef>
#include <type_traits>

namespace Brisk {

namespace Writer {

// Reset at each attach. Times are in ticks of the time-stamp counter (Dunlin::Rdtsc).
struct Counters {
    U64 lookups = 0;
    U64 inserts = 0;
    U64 overwrites = 0;
    U64 removes = 0;
    U64 directOperations = 0;
    U64 commits = 0;
    U32 slotGrows = 0;
    U32 slotShrinks = 0;
    U32 slotMoves = 0;
    U32 bucketGrows = 0;
    U32 bucketShrinks = 0;
    U32 bucketGrowFailures = 0; // no room for more buckets: the table went on with longer chains
    U32 baseAddressChanges = 0;
    U32 bucketRemaps = 0;
    U64 slowPathNexts = 0;
    U64 lastBucketGrowTicks = 0;
    U64 maxBucketGrowTicks = 0;
    U64 maxBucketShrinkTicks = 0;
    // Refreshed when the record is read.
    U64 wrens = 0;              // wake-ups sent to readers
    U64 sequencesProcessed = 0; // positions received from readers
    U32 readers = 0;
    U32 sleepingReaders = 0;
    U64 slotsMappedSize = 0; // bytes, as the next three
    U64 bucketsMappedSize = 0;
    U64 yarrowPrimaryMappedSize = 0;
    U64 yarrowSecondaryMappedSize = 0;
    U32 largestOccupied = 0;
};

} // namespace Writer

namespace Reader {

// 512 bytes with fixed offsets, which reporting code reads as 64 words. Bytes between the named
// fields are reserved and zero.
struct Counters {
    U8 reserved0[4] = {};
    U32 headerField568 = 0; // the table's seed, as of the attach
    U8 reserved8[32] = {};
    U64 yarrowPrimaryMappedSize = 0; // bytes, as all mapped sizes
    U64 yarrowSecondaryMappedSize = 0;
    U8 reserved56[16] = {};
    U64 sequence = 0;      // last applied
    U64 sequencesSent = 0; // positions sent to the writer
    U8 reserved88[16] = {};
    U64 bucketsMappedSize = 0;
    U8 reserved112[8] = {};
    U32 occupiedSlots = 0; // keys in a shadow
    U8 reserved124[4] = {};
    U64 lookups = 0;
    U32 lookasideSlotReads = 0;
    U32 shadowBucketGrows = 0;
    U32 shadowBucketShrinks = 0;
    U32 shadowSlotGrows = 0;
    U8 reserved152[4] = {};
    U32 slotResizes = 0;
    U64 slotsMappedSize = 0;
    U8 reserved168[256] = {};
    U32 hashRetries = 0; // walks restarted because a link moved
    U32 baseAddressChanges = 0;
    U32 shadowPatches = 0;
    U8 reserved436[4] = {};
    U64 syncSequence = 0;
    U32 keyMismatches = 0;
    U32 slowPathNexts = 0;
    U32 shadowWrites = 0;
    U8 reserved460[4] = {};
    U32 shadowKeyMoves = 0;
    U8 reserved468[12] = {};
    U32 inFlightHits = 0;
    U32 inFlightMisses = 0;
    U64 shadowMappedSize = 0;
    U64 discardedSlots = 0;
    U64 orielMappedSize = 0;
};
static_assert(sizeof(Counters) == 512 && std::is_trivially_copyable_v<Counters>);
static_assert(offsetof(Counters, headerField568) == 4);
static_assert(offsetof(Counters, yarrowPrimaryMappedSize) == 40);
static_assert(offsetof(Counters, yarrowSecondaryMappedSize) == 48);
static_assert(offsetof(Counters, sequence) == 72);
static_assert(offsetof(Counters, sequencesSent) == 80);
static_assert(offsetof(Counters, bucketsMappedSize) == 104);
static_assert(offsetof(Counters, occupiedSlots) == 120);
static_assert(offsetof(Counters, lookups) == 128);
static_assert(offsetof(Counters, lookasideSlotReads) == 136);
static_assert(offsetof(Counters, shadowBucketGrows) == 140);
static_assert(offsetof(Counters, shadowBucketShrinks) == 144);
static_assert(offsetof(Counters, shadowSlotGrows) == 148);
static_assert(offsetof(Counters, slotResizes) == 156);
static_assert(offsetof(Counters, slotsMappedSize) == 160);
static_assert(offsetof(Counters, hashRetries) == 424);
static_assert(offsetof(Counters, baseAddressChanges) == 428);
static_assert(offsetof(Counters, shadowPatches) == 432);
static_assert(offsetof(Counters, syncSequence) == 440);
static_assert(offsetof(Counters, keyMismatches) == 448);
static_assert(offsetof(Counters, slowPathNexts) == 452);
static_assert(offsetof(Counters, shadowWrites) == 456);
static_assert(offsetof(Counters, shadowKeyMoves) == 464);
static_assert(offsetof(Counters, inFlightHits) == 480);
static_assert(offsetof(Counters, inFlightMisses) == 484);
static_assert(offsetof(Counters, shadowMappedSize) == 488);
static_assert(offsetof(Counters, discardedSlots) == 496);
static_assert(offsetof(Counters, orielMappedSize) == 504);

} // namespace Reader

} // namespace Brisk
