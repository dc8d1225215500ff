// The 32-bit integer mix (Thomas Wang) behind the hashes of route keys and bit mapper keys. The
// results stand in shared tables.
#pragma once

#include "Dunlin/Types.h"

namespace Mroute {

constexpr U32 wang(U32 x) {
    x = x * 32767 - 1;
    x ^= x >> 12;
    x *= 5;
    x ^= x >> 4;
    x *= 2057;
    return x ^ x >> 16;
}

} // namespace Mroute
