// The ends of a doorbell's connection, played by hand.
#pragma once

#include "SharedMem/Bolster.h"
#include "SharedMem/FileUtil.h"

#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>

namespace Support {

// A socket that `call` (bind or connect) has given the endpoint's address.
template <class Call>
Mem::Fd addressed(std::string const& socketName, Call call) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, SharedMem::BolsterName::path(socketName).c_str());
    Mem::Fd fd(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK, 0));
    EXPECT_EQ(call(fd.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    return fd;
}
inline Mem::Fd dialed(std::string const& socketName) {
    return addressed(socketName, ::connect);
}
// The directory of endpoints must be there.
inline Mem::Fd listening(std::string const& socketName) {
    Mem::Fd fd = addressed(socketName, ::bind);
    EXPECT_EQ(::listen(fd.get(), 100), 0);
    return fd;
}

} // namespace Support
