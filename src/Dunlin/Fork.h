// What a forked child must not share with its parent (an epoll, a listening socket, a lock) is told
// from what it made itself by this number.
#pragma once

#include "Dunlin/Types.h"

namespace Dunlin {

// How many forks lie between the process that loaded the library and this one; at the first call
// counting begins.
U32 forkGeneration();

} // namespace Dunlin
