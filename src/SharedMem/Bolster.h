// The name by which a process's doorbell endpoint is found: "<process>-<pid>", a socket in the
// directory "sockets" below the base directory.
#pragma once

#include "Dunlin/Types.h"

#include <optional>
#include <string>

namespace SharedMem {

// Where the writer of a table is reached. Empty when nobody writes it.
struct BolsterInfo {
    std::string socketName;
    U32 tableId = 0;

    bool empty() const { return socketName.empty(); }
    friend bool operator==(BolsterInfo const&, BolsterInfo const&) = default;
};

// The parts of a socket name.
struct BolsterName {
    std::string processName;
    U32 pid = 0;

    // The name's parts; nothing if it is not of that form.
    static std::optional<BolsterName> BolsterNameIs(std::string const& text);
    // The name of this process's endpoint.
    static std::string own();
    // The socket's path. Raises InvalidInitializeException if it is longer than a socket address
    // can hold (107 bytes).
    static std::string path(std::string const& socketName);
};

} // namespace SharedMem
