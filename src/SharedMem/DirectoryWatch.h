// Tells of names that come and go in a directory, by the one inotify descriptor of the process. The
// directory need not exist yet: then the nearest existing parent is watched for the next component.
#pragma once

#include "Dunlin/Types.h"

#include <array>
#include <functional>
#include <string>

namespace Mem {

class DirectoryWatch {
public:
    // `callback` runs on the event loop for each name that appeared in or left `directory` (by
    // creation, renaming or removal), and with an empty name when anything else makes a new look
    // necessary: the directory itself came or went, or events were lost. It may destroy the watch.
    // Raises InvalidInitializeException where watching is not possible.
    using Callback = std::function<void(std::string const& name)>;
    DirectoryWatch(std::string const& directory, Callback callback);
    ~DirectoryWatch();
    DirectoryWatch(DirectoryWatch const&) = delete;
    DirectoryWatch& operator=(DirectoryWatch const&) = delete;

private:
    struct Hub;
    friend struct Hub;
    static Hub& hub();
    // The watches of the directory above `watched_` and of `watched_` itself.
    using Watches = std::array<int, 2>;
    void arm();
    void handle(int watch, U32 mask, std::string const& name);

    std::string directory_;
    Callback callback_;
    std::string watched_; // the directory or a parent
    Watches watches_{-1, -1};
};

} // namespace Mem
