// What a notification of a table tells: which slot changed; and where the queue keeps the live
// notification of a slot.
#pragma once

#include "Dunlin/Types.h"

namespace Yarrow {

struct BasicSlot {
    U32 index;
};

} // namespace Yarrow

namespace Brisk {

// The place of a slot's live notification in the queue's active table; process-local.
struct YarrowPos {
    static constexpr U32 none = 0xffffffff;
    U32 value = none;
};

} // namespace Brisk
