// Whether this processor can carry the shared-memory protocol.
#pragma once

#include <optional>

namespace Mem {

struct Atomics {
    // True if aligned 8-byte loads and stores are single and lock-free.
    static bool checkCpuSupport();
    // Test hook: what checkCpuSupport answers; empty goes back to the truth.
    static void cpuSupportIs(std::optional<bool> answer);
};

} // namespace Mem
