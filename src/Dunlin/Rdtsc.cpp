#include "Dunlin/Rdtsc.h"

#include <ctime>

namespace Dunlin::Rdtsc {

U64 monotonicNanoseconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<U64>(now.tv_sec) * 1'000'000'000U + static_cast<U64>(now.tv_nsec);
}

namespace {

double measure() {
#if defined(__x86_64__)
    constexpr U64 span = 2'000'000;
    U64 const from = monotonicNanoseconds();
    U64 const fromTicks = ticks();
    U64 now = from;
    while (now - from < span) now = monotonicNanoseconds();
    return static_cast<double>(ticks() - fromTicks) * 1e9 / static_cast<double>(now - from);
#else
    return 1e9;
#endif
}

} // namespace

double calibrationRate() {
    static double const rate = measure();
    return rate;
}

} // namespace Dunlin::Rdtsc
