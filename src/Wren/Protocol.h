// The messages between a reader and the writer of a table: one SOCK_SEQPACKET socket per reader and
// table, one message per packet, fields in the machine's byte order. docs/doorbell.md tells the
// protocol.
#pragma once

#include "Wren/Sequence.h"

#include <cstddef>

namespace Wren {

inline constexpr U32 protocolVersion = 1;

// A change that comes so many seconds after the one before it makes the writer look for the messages
// that wait for its event loop. A look that is over sooner than `longLookSeconds` is not counted as a
// part of the next pause. A follower that has seen no change for `quietSeconds` after its Sleep may
// rely on the writer. docs/doorbell.md tells why these numbers fit together.
inline constexpr double pauseSeconds = 0.001, longLookSeconds = 10 * pauseSeconds,
                        quietSeconds = 20 * pauseSeconds;

enum class Kind : U32 { hello = 1, welcome, refused, sleep, wake, progress };

// Reader's first message: which table it wants to hear of.
struct Hello {
    Kind kind = Kind::hello;
    U32 version = protocolVersion;
    U32 tableId = 0;
    U32 orielId = 0;
    U32 incarnation = 0;
    U32 reserved = 0;
    Sequence position = 0; // 0: none yet; holds back pruning
    char name[64] = {};    // ends in NUL
};
struct Welcome {
    Kind kind = Kind::welcome;
    U32 incarnation = 0;
    Sequence sequence = 0;
    Sequence prunedThrough = 0;
};
struct Refused {
    Kind kind = Kind::refused;
    enum Reason : U32 { badVersion = 1, unknownTable, otherGeneration } reason = badVersion;
};
// Sleep hands the token to the writer; Progress tells a position alone.
struct Position {
    Kind kind = Kind::sleep;
    U32 synced = 0;
    Sequence position = 0;
};
// Hands the token back.
struct Wake {
    Kind kind = Kind::wake;
    U32 reserved = 0;
    Sequence sequence = 0;
};
static_assert(sizeof(Hello) == 96 && sizeof(Welcome) == 24 && sizeof(Refused) == 8);
static_assert(sizeof(Position) == 16 && sizeof(Wake) == 16);

// Room for any message, received in place.
union Message {
    Kind kind;
    Hello hello;
    Welcome welcome;
    Refused refused;
    Position position;
    Wake wake;
    char bytes[sizeof(Hello) + 8];
    Message() : bytes{} {}
};

enum class Received { message, nothing, closed };

// Receives one message from a non-blocking socket. `closed` also for a packet of a length that its
// kind does not have, or of an unknown kind.
Received receive(int fd, Message& to);
// True if the whole message was taken over by the socket; errno tells why not.
bool sendMessage(int fd, void const* message, std::size_t size);
template <class M>
bool send(int fd, M const& message) {
    return sendMessage(fd, &message, sizeof message);
}

} // namespace Wren
