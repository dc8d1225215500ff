// One side's whole operation at a given step of the other side's: deterministic, for it runs from
// inside the hook.
#pragma once

#include "SharedMem/StepHooks.h"

#include <functional>

namespace Support {

// Runs `action` with `interruption` before its step number `step`; false if it has no such step.
template <class Interruption, class Action>
bool interrupted(Mem::StepHooks::Hook& hook, U32 step, Interruption interruption, Action action) {
    static std::function<void()> now;
    static U32 left;
    bool done = false;
    left = step;
    now = [&] {
        done = true;
        interruption();
    };
    hook = [] {
        if (left-- == 0) now();
    };
    action();
    hook = nullptr;
    return done;
}

} // namespace Support
