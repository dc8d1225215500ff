// The attribute log over a unix socket: one process serves an entity tree, others hold mirrors.
#pragma once

#include "Dunlin/TaskSchedulerRoot.h"
#include "Vomo/NboAttrLogDemuxer.h"

namespace Vomo::NboAttrLog {

// Serves `root` at a socket of the file system; each client has a connection of its own. All calls
// come from the loop's thread. It may be destroyed at any time, also from within a callback of the
// tree: the connections end there, and a message that is being applied is applied to its end.
class SocketServer {
public:
    // Raises Dunlin::InvalidInitializeException if the path cannot be bound. A socket that a dead
    // process left there is taken over.
    SocketServer(Dunlin::TaskSchedulerRoot& loop, std::string path, Ptr<Entity> root,
                 bool readOnlyRemote = false);
    ~SocketServer();
    SocketServer(SocketServer const&) = delete;
    SocketServer& operator=(SocketServer const&) = delete;
    std::size_t clients() const;

private:
    class Peer;
    class Body;
    std::shared_ptr<Body> body_; // stays until no callback of a connection is on the stack
};

// Keeps `root` a mirror of what a server serves; connects again when it was cut off. It may be
// destroyed at any time, as a server may.
class SocketClient {
public:
    SocketClient(Dunlin::TaskSchedulerRoot& loop, std::string path, Ptr<Entity> root,
                 double retrySeconds = 0.2);
    ~SocketClient();
    SocketClient(SocketClient const&) = delete;
    SocketClient& operator=(SocketClient const&) = delete;
    bool connected() const;
    // All that the server held when they connected has come; what is changed here before may be lost.
    bool synced() const;
    // Called each time that comes true.
    void onSyncedIs(std::function<void()> f);
    // How often it has connected.
    unsigned connections() const;

private:
    class Body;
    std::shared_ptr<Body> body_;
};

} // namespace Vomo::NboAttrLog
