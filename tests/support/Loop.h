// The process's loop, turned until something holds.
#pragma once

#include "Dunlin/TaskSchedulerRoot.h"

namespace Support {

inline Dunlin::TaskSchedulerRoot& loop() {
    return *Dunlin::schedulerRootDunlin;
}
// False if the condition does not hold within `seconds`.
template <class Condition>
bool pump(Condition condition, double seconds = 10) {
    double const end = loop().now() + seconds;
    while (!condition()) {
        if (loop().now() > end) return false;
        loop().runOnce(0.02);
    }
    return true;
}
inline void settle(int turns = 5) {
    for (int i = 0; i < turns; ++i) loop().runOnce(0.003);
}

} // namespace Support
