// Points at which a test may stop or interrupt the shared-memory protocol. In ordinary builds they
// are empty and compile to nothing; only objects built with CAIRN_STEP_HOOKS call the hooks.
#pragma once

#include "Dunlin/Types.h"

#include <cstddef>

namespace Mem::StepHooks {

// How a store may move among the other stores of its thread: freely; freely, as a word of a copied
// value; not before an earlier one. A fence is no store: none passes it.
enum class Order { relaxed, copied, release, fence };

#if defined(CAIRN_STEP_HOOKS)

// Called before each shared store (each word of a copied value counts as one), before each change of
// a file, and before each shared load. A hook may end or stop the process, or run a whole operation
// of the other side; it is not called again from inside itself.
using Hook = void (*)();
inline Hook onStore = nullptr;
inline Hook onLoad = nullptr;
// Called between `onStore` and the store itself with the place that is about to change; at a fence
// with none. A test may then show a reader what memory looks like while some stores are held back.
using OrderHook = void (*)(void* at, std::size_t size, Order order);
inline OrderHook onOrder = nullptr;
inline bool inside = false;

inline void call(Hook hook) {
    if (!hook || inside) return;
    inside = true;
    hook();
    inside = false;
}
inline void store() {
    call(onStore);
}
inline void ordered(void* at, std::size_t size, Order order) {
    if (onOrder && !inside) onOrder(at, size, order);
}
inline void load() {
    call(onLoad);
}
inline void copyStep() {
    call(onStore);
    call(onLoad);
}

#else

inline void store() {}
inline void ordered(void*, std::size_t, Order) {}
inline void load() {}
inline void copyStep() {}

#endif

} // namespace Mem::StepHooks
