// The processor's time-stamp counter, for measuring short times without a system call.
#pragma once

#include "Dunlin/Types.h"

namespace Dunlin::Rdtsc {

U64 monotonicNanoseconds();

// Ticks so far; nanoseconds on processors without the counter.
inline U64 ticks() {
#if defined(__x86_64__)
    return __builtin_ia32_rdtsc();
#else
    return monotonicNanoseconds();
#endif
}

// Ticks a second, measured once against CLOCK_MONOTONIC at first use (takes about 2 ms then).
double calibrationRate();

} // namespace Dunlin::Rdtsc
