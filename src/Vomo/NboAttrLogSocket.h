// The attribute log over a unix socket: one process serves an entity tree, others hold mirrors.
#pragma once

#include "Dunlin/TaskSchedulerRoot.h"
#include "Vomo/NboAttrLogDemuxer.h"

namespace Vomo::NboAttrLog {

// Serves `root` at a socket of the file system; each client has a connection of its own. All calls
// come from the loop's thread. Not to be destroyed from within a callback of the tree, but by a task.
class SocketServer {
public:
    // Raises Dunlin::InvalidInitializeException if the path cannot be bound. A socket that a dead
    // process left there is taken over.
    SocketServer(Dunlin::TaskSchedulerRoot& loop, std::string path, Ptr<Entity> root,
                 bool readOnlyRemote = false);
    ~SocketServer();
    SocketServer(SocketServer const&) = delete;
    SocketServer& operator=(SocketServer const&) = delete;
    std::size_t clients() const { return peers_.size(); }

private:
    class Peer;
    void listen();
    void accept();
    void drop(Peer const* peer);
    [[noreturn]] void fail();

    Dunlin::TaskSchedulerRoot& loop_;
    std::string path_;
    Ptr<Entity> root_;
    bool readOnlyRemote_;
    int fd_ = -1;
    Dunlin::TaskSchedulerRoot::TimerId timer_ = 0;
    ConnectionGroup group_;
    std::vector<std::unique_ptr<Peer>> peers_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

// Keeps `root` a mirror of what a server serves; connects again when it was cut off. Not to be
// destroyed from within a callback of the tree, but by a task.
class SocketClient {
public:
    SocketClient(Dunlin::TaskSchedulerRoot& loop, std::string path, Ptr<Entity> root,
                 double retrySeconds = 0.2);
    ~SocketClient();
    SocketClient(SocketClient const&) = delete;
    SocketClient& operator=(SocketClient const&) = delete;
    bool connected() const { return pump_ != nullptr; }
    // All that the server held when they connected has come; what is changed here before may be lost.
    bool synced() const { return connection_.synced(); }
    // Called each time that comes true.
    void onSyncedIs(std::function<void()> f) { connection_.onSynced = std::move(f); }
    // How often it has connected.
    unsigned connections() const { return connections_; }

private:
    class Pump;
    void connect();
    void retry();

    Dunlin::TaskSchedulerRoot& loop_;
    std::string path_;
    double retrySeconds_;
    Demuxer connection_;
    std::unique_ptr<Pump> pump_;
    Dunlin::TaskSchedulerRoot::TimerId timer_ = 0;
    unsigned connections_ = 0;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

} // namespace Vomo::NboAttrLog
