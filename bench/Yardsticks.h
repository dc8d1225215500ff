// The bare array that every scenario is measured against: records of 176 bytes, as large as a route's
// slot, at indexes known beforehand. No keys, no hash, no search: what the memory itself costs.
#pragma once

#include "bench/Harness.h"

namespace Bench {

struct Yardsticks {
    double read; // random read, the next index depending on what was read, 160 bytes copied out
    double readSeqlock; // the same with a sequence lock in each record, while a writer overwrites
    double overwrite;   // random overwrite of 160 bytes
};

Yardsticks measureYardsticks(U32 entries, Options const& options);

} // namespace Bench
