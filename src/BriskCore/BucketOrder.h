// Arithmetic of split order: which buckets a hash may stand in, and which bucket follows which.
#pragma once

#include "Dunlin/Util.h"

namespace BriskCore {

// The successor of `bucket` in the order of `bits`-bit numbers with reversed bits; the last one
// wraps to 0. 0xffffffff if `bits` is not in 1 to 31.
constexpr U32 successor(U32 bucket, U32 bits) {
    if (bits < 1 || bits > 31) return 0xffffffff;
    U32 const shift = 32 - bits;
    U32 const reversed = Dunlin::Util::reverse(bucket << shift); // low `bits` bits, reversed
    U32 const next = (reversed + 1) & (0xffffffffU >> shift);
    return Dunlin::Util::reverse(next) >> shift;
}
static_assert(successor(0, 2) == 2 && successor(2, 2) == 1 && successor(1, 2) == 3 &&
              successor(3, 2) == 0);
static_assert(successor(0, 1) == 1 && successor(1, 1) == 0 && successor(5, 0) == 0xffffffff);

// Whether a key of that hash may stand in the chain of `bucket` while the writer may be halfway
// through a doubling or a halving of `numBuckets` (a power of two). Masks, not `%`: with one
// bucket the half modulus is 0 (A48).
constexpr bool mayStandIn(U32 hash, U32 bucket, U32 numBuckets) {
    U32 const mask = numBuckets - 1;
    return (hash & mask) == bucket || (hash & (mask >> 1)) == bucket ||
           (hash & (mask << 1 | 1)) == bucket;
}

} // namespace BriskCore
