#include "Vomo/NboAttrLogSocket.h"

#include "Dunlin/Trace.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <system_error>
#include <unistd.h>

namespace Vomo::NboAttrLog {
namespace {

Dunlin::Platform::DebugHandler& handler() {
    static auto& it = *Dunlin::Platform::getDebugHandler("NboAttrLog", false);
    return it;
}

std::string errorText() {
    return std::system_category().message(errno);
}

sockaddr_un addressOf(std::string const& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path)
        Dunlin::fmthrow<Dunlin::InvalidInitializeException>(
            "socket path {} has {} bytes, at most {} are possible", path, path.size(),
            sizeof address.sun_path - 1);
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return address;
}

int openSocket() {
    return ::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
}
int newSocket() {
    int const fd = openSocket();
    if (fd < 0) Dunlin::fmthrow<Dunlin::InvalidInitializeException>("no socket: {}", errorText());
    return fd;
}

// Moves bytes between a connection and a socket. `onEnd` is called once, when the peer has gone or
// its stream was damaged; the pump is of no use then. A callback of the tree may close it: pump and
// connection belong to `owner`, which stays as long as they are at work.
class SocketPump {
public:
    SocketPump(Dunlin::TaskSchedulerRoot& loop, int fd, Demuxer& connection,
               std::weak_ptr<void> owner, std::function<void()> onEnd)
        : loop_(loop), fd_(fd), connection_(connection), owner_(std::move(owner)),
          onEnd_(std::move(onEnd)) {
        connection_.onWaiting = [this] { watch(true); };
        watch(false);
    }
    ~SocketPump() { close(); }
    void close() {
        if (fd_ < 0) return;
        connection_.onWaiting = nullptr;
        loop_.fdDel(fd_);
        ::close(std::exchange(fd_, -1));
    }
    SocketPump(SocketPump const&) = delete;
    SocketPump& operator=(SocketPump const&) = delete;

private:
    void watch(bool writing) {
        loop_.fdAdd(fd_, writing ? EPOLLIN | EPOLLOUT : EPOLLIN,
                    [this](U32 events) { ready(events); });
    }
    void ready(U32 events) {
        auto const keep = owner_.lock();
        // Without bytes, too: some may have come while the tree was at work.
        bool alive = (events & (EPOLLIN | EPOLLHUP | EPOLLERR)) ? receive() : apply({});
        if (fd_ < 0) return;
        if (alive && (events & EPOLLOUT)) alive = send();
        if (!alive) onEnd_();
    }
    bool receive() {
        U8 buffer[65536];
        ssize_t const n = ::recv(fd_, buffer, sizeof buffer, 0);
        if (n < 0) return errno == EAGAIN || errno == EINTR;
        return n != 0 && apply({buffer, static_cast<std::size_t>(n)});
    }
    bool apply(std::span<U8 const> bytes) {
        try {
            connection_.receive(bytes);
        } catch (std::exception const& e) {
            FMTRACE(handler(), 0, "attribute log: {}{}", e.what(),
                    connection_.damaged() ? "; the connection is closed"
                                          : ", raised by a notifiee");
        } catch (...) {
            FMTRACE(handler(), 0, "attribute log: a notifiee raised what is no exception");
        }
        return !connection_.damaged();
    }
    bool send() {
        while (connection_.waitingBytes() != 0) {
            auto const bytes = connection_.waiting();
            ssize_t const n = ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
            if (n < 0) return errno == EAGAIN || errno == EINTR;
            connection_.consumed(static_cast<std::size_t>(n));
        }
        watch(false);
        return true;
    }

    Dunlin::TaskSchedulerRoot& loop_;
    int fd_;
    Demuxer& connection_;
    std::weak_ptr<void> owner_;
    std::function<void()> onEnd_;
};

} // namespace

class SocketServer::Body : public std::enable_shared_from_this<Body> {
public:
    Body(Dunlin::TaskSchedulerRoot& loop, std::string path, Ptr<Entity> root, bool readOnlyRemote)
        : loop_(loop), path_(std::move(path)), root_(std::move(root)),
          readOnlyRemote_(readOnlyRemote) {
        bind();
        listen();
    }
    void close();
    std::size_t clients() const { return peers_.size(); }

private:
    friend class Peer;
    void bind();
    void listen() {
        loop_.fdAdd(fd_, EPOLLIN, [this](U32) { accept(); });
    }
    void accept();
    [[noreturn]] void fail();

    Dunlin::TaskSchedulerRoot& loop_;
    std::string path_;
    Ptr<Entity> root_;
    bool readOnlyRemote_;
    int fd_ = -1;
    Dunlin::TaskSchedulerRoot::TimerId timer_ = 0;
    ConnectionGroup group_;
    std::vector<std::unique_ptr<Peer>> peers_;
};

class SocketServer::Peer {
public:
    Peer(Body& server, int fd)
        : connection_(Demuxer::Role::source, server.root_, server.readOnlyRemote_, &server.group_),
          pump_(server.loop_, fd, connection_, server.weak_from_this(), [this, &server] {
              // Not from within the pump's own callback.
              server.loop_.taskAdd(Dunlin::TaskSchedulerRoot::Priority::normal,
                                   [this, from = server.weak_from_this()] {
                                       auto const it = from.lock();
                                       if (it)
                                           std::erase_if(it->peers_, [this](auto const& peer) {
                                               return peer.get() == this;
                                           });
                                   });
          }) {
        connection_.connectedIs(true);
    }
    void close() {
        pump_.close();
        connection_.connectedIs(false);
    }

private:
    Demuxer connection_;
    SocketPump pump_;
};

void SocketServer::Body::bind() {
    sockaddr_un const address = addressOf(path_);
    fd_ = newSocket();
    auto const* const where = reinterpret_cast<sockaddr const*>(&address);
    bool bound = ::bind(fd_, where, sizeof address) == 0;
    if (!bound && errno == EADDRINUSE) {
        // Nobody listens at a socket that is left over.
        struct stat file {};
        int const probe = newSocket();
        bool const dead = ::lstat(path_.c_str(), &file) == 0 && S_ISSOCK(file.st_mode) &&
                          ::connect(probe, where, sizeof address) != 0 && errno == ECONNREFUSED;
        ::close(probe);
        errno = EADDRINUSE;
        if (dead && ::unlink(path_.c_str()) == 0) bound = ::bind(fd_, where, sizeof address) == 0;
    }
    if (!bound || ::listen(fd_, 16) != 0) fail();
}

void SocketServer::Body::fail() {
    std::string const why = errorText();
    ::close(fd_);
    Dunlin::fmthrow<Dunlin::InvalidInitializeException>("cannot serve at {}: {}", path_, why);
}

void SocketServer::Body::close() {
    for (auto const& peer : peers_) peer->close();
    loop_.timerDel(timer_);
    loop_.fdDel(fd_);
    ::close(fd_);
    ::unlink(path_.c_str());
}

void SocketServer::Body::accept() {
    int const fd = ::accept4(fd_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (fd >= 0) {
        peers_.push_back(std::make_unique<Peer>(*this, fd));
    } else if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
        // The client stays in the queue, and the socket would be ready again at once.
        FMTRACE(handler(), 0, "attribute log: a client of {} has to wait: {}", path_, errorText());
        loop_.fdDel(fd_);
        timer_ = loop_.timerAdd(0.2, [this] { listen(); });
    }
}

SocketServer::SocketServer(Dunlin::TaskSchedulerRoot& loop, std::string path, Ptr<Entity> root,
                           bool readOnlyRemote)
    : body_(std::make_shared<Body>(loop, std::move(path), std::move(root), readOnlyRemote)) {}
SocketServer::~SocketServer() {
    body_->close();
}
std::size_t SocketServer::clients() const {
    return body_->clients();
}

class SocketClient::Body : public std::enable_shared_from_this<Body> {
public:
    Body(Dunlin::TaskSchedulerRoot& loop, std::string path, Ptr<Entity> root, double retrySeconds)
        : connection(Demuxer::Role::mirror, std::move(root)), loop_(loop), path_(std::move(path)),
          retrySeconds_(retrySeconds) {
        addressOf(path_); // raises if it is none
    }
    void connect();
    bool connected() const { return pump_ != nullptr; }
    void close() {
        closed_ = true;
        loop_.timerDel(timer_);
        if (pump_) pump_->close();
        connection.connectedIs(false);
    }

    Demuxer connection;
    unsigned connections = 0;

private:
    void retry() {
        timer_ = loop_.timerAdd(retrySeconds_, [this] { connect(); });
    }

    Dunlin::TaskSchedulerRoot& loop_;
    std::string path_;
    double retrySeconds_;
    std::unique_ptr<SocketPump> pump_;
    Dunlin::TaskSchedulerRoot::TimerId timer_ = 0;
    bool closed_ = false;
};

void SocketClient::Body::connect() {
    sockaddr_un const address = addressOf(path_);
    int const fd = openSocket();
    if (fd < 0) FMTRACE(handler(), 0, "attribute log: no socket for {}: {}", path_, errorText());
    if (fd < 0 || ::connect(fd, reinterpret_cast<sockaddr const*>(&address), sizeof address) != 0) {
        if (fd >= 0) ::close(fd);
        retry();
        return;
    }
    ++connections;
    pump_ = std::make_unique<SocketPump>(loop_, fd, connection, weak_from_this(), [this] {
        loop_.taskAdd(Dunlin::TaskSchedulerRoot::Priority::normal, [from = weak_from_this()] {
            auto const it = from.lock();
            if (!it || it->closed_ || it->pump_ == nullptr) return;
            it->pump_.reset();
            it->connection.connectedIs(false);
            it->retry();
        });
    });
    connection.connectedIs(true);
}

SocketClient::SocketClient(Dunlin::TaskSchedulerRoot& loop, std::string path, Ptr<Entity> root,
                           double retrySeconds)
    : body_(std::make_shared<Body>(loop, std::move(path), std::move(root), retrySeconds)) {
    body_->connect();
}
SocketClient::~SocketClient() {
    body_->close();
}
bool SocketClient::connected() const {
    return body_->connected();
}
bool SocketClient::synced() const {
    return body_->connection.synced();
}
void SocketClient::onSyncedIs(std::function<void()> f) {
    body_->connection.onSynced = std::move(f);
}
unsigned SocketClient::connections() const {
    return body_->connections;
}

} // namespace Vomo::NboAttrLog
