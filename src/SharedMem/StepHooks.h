// Points at which a test may stop or interrupt the shared-memory protocol. In ordinary builds they
// are empty and compile to nothing; only objects built with CAIRN_STEP_HOOKS call the hooks.
#pragma once

#include "Dunlin/Types.h"

namespace Mem::StepHooks {

#if defined(CAIRN_STEP_HOOKS)

// Called before each shared store (each word of a copied value counts as one), before each change of
// a file, and before each shared load. A hook may end or stop the process, or run a whole operation
// of the other side; it is not called again from inside itself.
using Hook = void (*)();
inline Hook onStore = nullptr;
inline Hook onLoad = nullptr;
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
inline void load() {
    call(onLoad);
}
inline void copyStep() {
    call(onStore);
    call(onLoad);
}

#else

inline void store() {}
inline void load() {}
inline void copyStep() {}

#endif

} // namespace Mem::StepHooks
