#include "Dunlin/Fork.h"

#include <atomic>
#include <pthread.h>

namespace Dunlin {
namespace {
std::atomic<U32> forks{0};
}

U32 forkGeneration() {
    [[maybe_unused]] static int const watching =
        ::pthread_atfork(nullptr, nullptr, [] { forks.fetch_add(1, std::memory_order_relaxed); });
    return forks.load(std::memory_order_relaxed);
}

} // namespace Dunlin
