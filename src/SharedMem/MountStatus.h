// What a client sees of its table's state.
#pragma once

#include "Dunlin/Types.h"

namespace Mem {

enum class MountStatus : U32 { unmounted = 0, mounted = 1, synchronised = 2, flushing = 3 };

} // namespace Mem
