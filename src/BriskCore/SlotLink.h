// The link of the split-ordered list and the cursor of a walk along it.
#pragma once

#include "Dunlin/Types.h"

namespace Brisk {

// A link as it stands in a slot and in a bucket entry. Both halves change together, in one aligned
// 8-byte store, so whoever has copied the pair knows that they belong to each other.
struct alignas(8) SlotLink {
    U32 version = 0; // + 4 at every store
    U32 next = 0xffffffff;

    // `next` with bit 31 set ends a bucket's chain; the low 31 bits are then the following bucket,
    // and all ones end the table.
    static constexpr U32 endBit = 0x80000000;
    static constexpr U32 tableEnd = 0xffffffff;
    static constexpr U32 versionStep = 4;

    bool endsChain() const { return (next & endBit) != 0; }
    bool endsTable() const { return next == tableEnd; }
    U32 bucket() const { return next & ~endBit; }
    // What replaces this link when it is to lead to `target`.
    SlotLink to(U32 target) const { return {version + versionStep, target}; }
};
static_assert(sizeof(SlotLink) == 8 && alignof(SlotLink) == 8);

// An iteration position held by the caller. A default hint holds none: its numbers match no slot
// and no bucket of any table (A27).
struct IterHint {
    U32 version = 0; // the slotVersion that the slot had when it was read
    U32 slotIndex = 0xffffffff;
    U32 bucketIndex = 0xffffffff;
};

// The state bits of a slotVersion word; the bits above are a sequence.
inline constexpr U32 occupiedBit = 1;
inline constexpr U32 lookasideBit = 2;

inline constexpr U32 noSlot = 0xffffffff;

} // namespace Brisk
