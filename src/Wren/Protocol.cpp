#include "Wren/Protocol.h"

#include <cerrno>
#include <sys/socket.h>

namespace Wren {
namespace {

std::size_t sizeOf(Kind kind) {
    switch (kind) {
    case Kind::hello:
        return sizeof(Hello);
    case Kind::welcome:
        return sizeof(Welcome);
    case Kind::refused:
        return sizeof(Refused);
    case Kind::sleep:
    case Kind::progress:
        return sizeof(Position);
    case Kind::wake:
        return sizeof(Wake);
    }
    return 0;
}

} // namespace

Received receive(int fd, Message& to) {
    ssize_t got;
    do {
        got = ::recv(fd, to.bytes, sizeof to.bytes, MSG_DONTWAIT | MSG_TRUNC);
    } while (got < 0 && errno == EINTR);
    if (got < 0) return errno == EAGAIN ? Received::nothing : Received::closed;
    if (got < static_cast<ssize_t>(sizeof(Kind))) return Received::closed;
    return static_cast<std::size_t>(got) == sizeOf(to.kind) ? Received::message : Received::closed;
}

bool sendMessage(int fd, void const* message, std::size_t size) {
    ssize_t put;
    do {
        put = ::send(fd, message, size, MSG_DONTWAIT | MSG_NOSIGNAL);
    } while (put < 0 && errno == EINTR);
    return put == static_cast<ssize_t>(size);
}

} // namespace Wren
