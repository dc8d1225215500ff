#include "Brisk/SlotCounters.h"

#include <algorithm>
#include <bit>

namespace Brisk {

unsigned SlotCounters::bandOf(U32 index) const {
    return static_cast<unsigned>(std::bit_width(index / firstBand_));
}

void SlotCounters::add(U32 index) {
    unsigned const band = bandOf(index);
    if (counts_[band]++ == 0) used_ |= U64{1} << band;
}

void SlotCounters::remove(U32 index) {
    unsigned const band = bandOf(index);
    if (--counts_[band] == 0) used_ &= ~(U64{1} << band);
}

U32 SlotCounters::largestOccupied() const {
    if (used_ == 0) return 0;
    unsigned const top = static_cast<unsigned>(std::bit_width(used_)) - 1;
    return static_cast<U32>(std::min<U64>(U64{firstBand_} << top, 0xffffffff));
}

} // namespace Brisk
