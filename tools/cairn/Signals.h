// The end of a long-running command by SIGINT or SIGTERM: the loop wakes, and what is printed last
// does not wait for a reader that is not there.
#pragma once

#include "SharedMem/FileUtil.h"

namespace Cairn {

class EndBySignal {
public:
    // Takes over both signals; stops the process's event loop when one comes. One object at a time,
    // made before the listing whose end it guards.
    EndBySignal();
    // Sees that what was printed goes out.
    ~EndBySignal();
    EndBySignal(EndBySignal const&) = delete;
    EndBySignal& operator=(EndBySignal const&) = delete;

    bool ended() const;

private:
    Mem::Fd event_;
};

// Waits until a descriptor is ready for poll events such as POLLIN, or has an error to report. False: a
// signal ends the command (errno is EINTR), or poll failed (errno says why).
bool awaitReady(int fd, short events);

// A file that somebody cuts off beneath a reader costs it the page that it reads: that ends the process
// with the exit code of a damaged table, a sentence and, in JSON, a closed array.
void catchCutFiles();

// Gives the process a stdout on which a signal cuts nothing: every write is completed. A pipe that is
// full when the command ends is made larger for the rest of what is in the buffer, so that neither
// the end waits for the reader nor the reader meets half a row.
void openOutput();
// Whether the command is ending and nobody reads: what is not in the buffer yet should be left out.
bool outputIsBlocked();

} // namespace Cairn
