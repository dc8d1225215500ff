// The number of a notification: 64 bits, counted from 1 for the life of a table's files.
#pragma once

#include "Dunlin/Types.h"

namespace Wren {

// 0: none yet. All ones: no notification but a pass over all slots.
using Sequence = U64;
inline constexpr Sequence syncPass = ~Sequence{0};

} // namespace Wren
