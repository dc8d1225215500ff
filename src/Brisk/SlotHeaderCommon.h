// The part of a slot file's header that does not depend on the value type: 600 bytes, little
// endian. The lookaside slot stands behind it, then the slots.
#pragma once

#include "Dunlin/Trace.h"
#include "Dunlin/Types.h"
#include "SharedMem/VersionAnchor.h"

#include <cstddef>
#include <string>

namespace Brisk {

struct SlotHeaderCommon {
    static constexpr U64 magicNumber = 0x31544f4c53524943; // "CIRSLOT1"
    static constexpr U32 formatNumber = 2;
    static constexpr U16 bytes = 600;
    static constexpr U8 dumpYarrowHeaders = 2; // in tableFlags
    static constexpr U16 criticalSection = 1;  // in runtimeFlags
    static constexpr U32 noFreeSlot = 0xffffffff;

    // Formats a header with an empty free list. `typeName` is cut at 511 bytes. The magic number
    // is stored last.
    SlotHeaderCommon(Dunlin::Platform::DebugHandler& handler, U16 headerSize, U32 slotSize,
                     U32 numSlots, U32 maxSize, U32 format, U32 orielId,
                     std::string const& typeName, U32 valueBytes, U32 seed);
    // A header to copy into.
    SlotHeaderCommon() = default;

    // What the header of a table of some value type must say.
    struct Expected {
        U32 slotSize;
        U32 valueBytes;
        char const* typeName; // null: any
    };
    // True if the stored fields agree with the given ones; else a text in `message`. Reads nothing
    // if `fileSize` (bytes) is below `headerSize` (A34).
    bool validate(Dunlin::Platform::DebugHandler& handler, U16 headerSize, std::size_t fileSize,
                  U32 orielId, Expected const& expected, std::string& message) const;
    std::string toString() const;

    U64 magic = 0;                     // @0
    U32 headerSize = 0;                // @8
    U32 format = 0;                    // @12
    U32 orielId = 0;                   // @16: the writer generation that formatted the file
    U32 slotSize = 0;                  // @20
    U32 valueBytes = 0;                // @24
    U32 reserved28 = 0;                // @28
    char typeName[512] = {};           // @32
    U32 maxSize = 0;                   // @544: configured size at format time
    U8 tableFlags = 0;                 // @548
    U8 reserved549 = 0;                // @549
    U16 runtimeFlags = 0;              // @550: bit 0, the writer is inside a critical section
    U32 reserved552 = 0;               // @552
    U32 occupiedSlots = 0;             // @556, with freeList one unaligned 8-byte store (A3)
    U32 freeList = noFreeSlot;         // @560
    U32 highestNumSlots = 0;           // @564: the largest count this file ever had
    U32 seed = 0;                      // @568
    U32 reserved572 = 0;               // @572
    Mem::VersionedRef<U32> numSlots{}; // @576: version and count, one 8-byte store
    U32 largestOccupied = 0;           // @584
    // @588: slots that a growth makes start with this slotVersion. A shrink raises it above every
    // sequence it gives up, so that no snapshot of a former occupant ever matches (A17).
    U32 slotVersionFloor = 0;
    U64 scratchpad = 0; // @592: for the table's user
};
static_assert(sizeof(SlotHeaderCommon) == SlotHeaderCommon::bytes);
static_assert(offsetof(SlotHeaderCommon, orielId) == 16);
static_assert(offsetof(SlotHeaderCommon, maxSize) == 544);
static_assert(offsetof(SlotHeaderCommon, tableFlags) == 548);
static_assert(offsetof(SlotHeaderCommon, runtimeFlags) == 550);
static_assert(offsetof(SlotHeaderCommon, occupiedSlots) == 556);
static_assert(offsetof(SlotHeaderCommon, freeList) == 560);
static_assert(offsetof(SlotHeaderCommon, highestNumSlots) == 564);
static_assert(offsetof(SlotHeaderCommon, seed) == 568);
static_assert(offsetof(SlotHeaderCommon, numSlots) == 576);
static_assert(offsetof(SlotHeaderCommon, largestOccupied) == 584);
static_assert(offsetof(SlotHeaderCommon, scratchpad) == 592);

} // namespace Brisk
