#include "SharedMem/CpuSupport.h"

#include "Dunlin/Types.h"

#include <atomic>

namespace Mem {
namespace {
std::optional<bool> forced;
}

bool Atomics::checkCpuSupport() {
    return forced.value_or(std::atomic_ref<U64>::is_always_lock_free &&
                           std::atomic_ref<U32>::is_always_lock_free);
}

void Atomics::cpuSupportIs(std::optional<bool> answer) {
    forced = answer;
}

} // namespace Mem
