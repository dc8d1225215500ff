// Points at which a test may stop or interrupt the shared-memory protocol, and the sizes of the
// tables it does that with. In ordinary builds they are empty or constant and compile to nothing;
// only objects built with CAIRN_STEP_HOOKS call the hooks.
#pragma once

#include "Dunlin/Types.h"

#include <cstddef>

namespace Mem::StepHooks {

// How a store may move among the other stores of its thread: freely; freely, as a word of a copied
// value; not before an earlier one. A fence is no store: none passes it.
enum class Order { relaxed, copied, release, fence };

#if defined(CAIRN_STEP_HOOKS)

// Called before each shared store (each word of a copied value counts as one), before each change of
// a file, and before each shared load or look at a file. A hook may end or stop the process, or run
// a whole operation of the other side; it is not called again from inside itself.
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
// Before a system call that asks for a file's size or maps a file: to a reader it is a load.
inline void look() {
    call(onLoad);
}

// Small tables for tests, in which few steps reach every operation. 0: as in ordinary builds.
struct Small {
    U32 slots = 0;        // that a table begins with
    U32 buckets = 0;      // that a table begins with
    U32 queueEntries = 0; // that are free in a queue table after a compaction, at least
    // A file that shrinks is zero from its new end on, not from the next page on; and a queue table
    // gives back what it does not need at once.
    bool cutToTheByte = false;
};
inline Small small;

inline U32 initialSlots(U32 usual) {
    return small.slots ? small.slots : usual;
}
inline U32 initialBuckets(U32 usual) {
    return small.buckets ? small.buckets : usual;
}
inline U32 freeQueueEntries(U32 usual) {
    return small.queueEntries ? small.queueEntries : usual;
}
inline bool cutToTheByte() {
    return small.cutToTheByte;
}

#else

inline void store() {}
inline void ordered(void*, std::size_t, Order) {}
inline void load() {}
inline void copyStep() {}
inline void look() {}
constexpr U32 initialSlots(U32 usual) {
    return usual;
}
constexpr U32 initialBuckets(U32 usual) {
    return usual;
}
constexpr U32 freeQueueEntries(U32 usual) {
    return usual;
}
constexpr bool cutToTheByte() {
    return false;
}

#endif

} // namespace Mem::StepHooks
