#include "Wren/BolsterAcceptSm.h"

#include "Dunlin/Exception.h"
#include "Dunlin/Fork.h"
#include "Dunlin/TaskSchedulerRoot.h"
#include "SharedMem/Bolster.h"
#include "SharedMem/RootPath.h"
#include "SharedMem/WriterLock.h"
#include "Wren/Protocol.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace Wren {
namespace {

Dunlin::TaskSchedulerRoot& loop() {
    return *Dunlin::schedulerRootDunlin;
}

// A process that greets nobody holds a descriptor of ours: let in so many and no more.
constexpr std::size_t maxStrangers = 256;

} // namespace

BolsterAcceptSm& BolsterAcceptSm::bolsterAcceptSm() {
    static auto& endpoint = *new BolsterAcceptSm;
    endpoint.leaveParents();
    return endpoint;
}

BolsterAcceptSm::BolsterAcceptSm() {
    std::atexit([] { bolsterAcceptSm().removeSocket(); });
}

void BolsterAcceptSm::removeSocket() const {
    if (!path_.empty() && generation_ == Dunlin::forkGeneration()) ::unlink(path_.c_str());
}

// After a fork the socket, its name and the tables are the parent's.
void BolsterAcceptSm::leaveParents() {
    U32 const here = Dunlin::forkGeneration();
    if (generation_ == here) return;
    generation_ = here;
    listening_.reset();
    strangers_.clear();
    tables_.clear();
    path_.clear();
    filesMode_ = 0;
    socketName_ = SharedMem::BolsterName::own();
}

std::string const& BolsterAcceptSm::socketName() {
    leaveParents();
    return socketName_;
}

void BolsterAcceptSm::stopListening(bool removePath) {
    if (listening_) loop().fdDel(listening_.get());
    listening_.reset();
    if (removePath && !path_.empty()) ::unlink(path_.c_str());
    path_.clear();
}

void BolsterAcceptSm::ensureListening() {
    std::string const path = SharedMem::BolsterName::path(socketName_);
    if (listening_ && path == path_ && ::access(path.c_str(), F_OK) == 0) return;
    stopListening(true);
    auto const failed = [&](char const* call) {
        int const error = errno;
        stopListening(false);
        Dunlin::fmthrow<Dunlin::InvalidInitializeException>("cannot listen on {}: {}: {}", path,
                                                            call, std::strerror(error));
    };
    Mem::makeDirectory(path.substr(0, path.rfind('/')));
    listening_.reset(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!listening_) failed("socket");
    // The name holds our process id, so what is there is left from a dead process; unless its id
    // means another process, in another namespace of ids.
    std::string error;
    static auto& trace = *Dunlin::Platform::getDebugHandler("Wren", false);
    if (Mem::WriterLock::ownerIsAlive(trace, socketName_, error)) {
        errno = EADDRINUSE;
        failed("bind");
    }
    ::unlink(path.c_str());
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, path.c_str());
    if (::bind(listening_.get(), reinterpret_cast<sockaddr const*>(&address), sizeof address) != 0)
        failed("bind");
    path_ = path;
    if (!permit()) failed("chmod");
    if (::listen(listening_.get(), 1024) != 0) failed("listen");
    loop().fdAdd(listening_.get(), EPOLLIN, [this](U32) { acceptAll(); });
}

// To connect takes the right to write to the socket. Who may read a table may ask for its doorbell.
bool BolsterAcceptSm::permit() const {
    constexpr U32 readers = 0444;
    return ::chmod(path_.c_str(), 0600 | (filesMode_ & readers) | (filesMode_ & readers) >> 1) == 0;
}

void BolsterAcceptSm::tableAdd(U32 tableId, U32 filesMode, Acceptor acceptor) {
    leaveParents();
    bool const wider = (filesMode & ~filesMode_) != 0;
    filesMode_ |= filesMode;
    ensureListening();
    if (wider && !permit())
        Dunlin::fmthrow<Dunlin::InvalidInitializeException>("cannot let readers in by {}: {}",
                                                            path_, std::strerror(errno));
    tables_[tableId] = std::move(acceptor);
}

void BolsterAcceptSm::tableDel(U32 tableId) {
    leaveParents();
    tables_.erase(tableId);
}

void BolsterAcceptSm::look() {
    if (!listening_ || generation_ != Dunlin::forkGeneration()) return;
    acceptAll();
    for (auto at = strangers_.begin(); at != strangers_.end();) greet((at++)->first);
}

void BolsterAcceptSm::acceptAll() {
    for (;;) {
        Mem::Fd connection(
            ::accept4(listening_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
        if (!connection) return; // out of descriptors: the reader stays in the backlog
        if (strangers_.size() >= maxStrangers) continue;
        int const fd = connection.get();
        strangers_[fd] = std::move(connection);
        loop().fdAdd(fd, EPOLLIN, [this, fd](U32) { greet(fd); });
    }
}

void BolsterAcceptSm::greet(int fd) {
    Message message;
    Received const received = receive(fd, message);
    if (received == Received::nothing) return;
    loop().fdDel(fd);
    Mem::Fd connection = std::move(strangers_[fd]);
    strangers_.erase(fd);
    if (received == Received::closed || message.kind != Kind::hello) return;
    if (message.hello.version != protocolVersion) {
        send(fd, Refused{.reason = Refused::badVersion});
        return;
    }
    message.hello.name[sizeof message.hello.name - 1] = 0;
    auto const table = tables_.find(message.hello.tableId);
    if (table == tables_.end()) {
        send(fd, Refused{.reason = Refused::unknownTable});
        return;
    }
    table->second(std::move(connection), message.hello);
}

} // namespace Wren
