// The end of a long-running command by SIGINT or SIGTERM: the loop wakes, and a write that waits
// for a full pipe is given up.
#pragma once

#include "SharedMem/FileUtil.h"

namespace Cairn {

class EndBySignal {
public:
    // Takes over both signals; stops the process's event loop when one comes. One object at a time.
    EndBySignal();
    ~EndBySignal();
    EndBySignal(EndBySignal const&) = delete;
    EndBySignal& operator=(EndBySignal const&) = delete;

    bool ended() const;

private:
    Mem::Fd event_;
};

} // namespace Cairn
