// How many occupied slots a shadow has in each band of slot numbers, so that it knows down to what
// size its array may shrink.
#pragma once

#include "Dunlin/Types.h"

#include <array>

namespace Brisk {

class SlotCounters {
public:
    // The first band holds the slots below `firstBand` (at least 1); each further band ends at
    // twice the slot number.
    explicit SlotCounters(U32 firstBand) : firstBand_(firstBand == 0 ? 1 : firstBand) {}

    void add(U32 index);
    // The slot was added before.
    void remove(U32 index);
    // The smallest slot count, by band, that still holds all occupied slots; 0 without any.
    U32 largestOccupied() const;

private:
    unsigned bandOf(U32 index) const;

    U32 firstBand_;
    U64 used_ = 0; // bit n: band n is not empty
    std::array<U32, 34> counts_{};
};

} // namespace Brisk
