// Long operations of a writer let critical-priority tasks run on their thread every 10 ms.
#pragma once

#include "Dunlin/Rdtsc.h"
#include "Dunlin/TaskSchedulerRoot.h"

namespace BriskCore {

class CriticalTasks {
public:
    explicit CriticalTasks(bool enabled) : enabled_(enabled), from_(Dunlin::Rdtsc::ticks()) {
        if (enabled_) interval_ = static_cast<U64>(0.01 * Dunlin::Rdtsc::calibrationRate());
    }
    // Call once a step.
    void check() {
        if (!enabled_) return;
        U64 const now = Dunlin::Rdtsc::ticks();
        if (now - from_ < interval_) return;
        Dunlin::schedulerRootDunlin->runCriticalPriorityTasks();
        from_ = Dunlin::Rdtsc::ticks();
    }

private:
    bool enabled_;
    U64 from_;
    U64 interval_ = 0;
};

} // namespace BriskCore
