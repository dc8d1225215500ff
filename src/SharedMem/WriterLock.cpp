#include "SharedMem/WriterLock.h"

#include "Dunlin/Exception.h"
#include "Dunlin/Rdtsc.h"
#include "SharedMem/Bolster.h"
#include "SharedMem/OwnerFile.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <mutex>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

namespace Mem {

// The registry lets a process share its own lock for cleanup: an open-file-description lock
// excludes a second description of the same process too.
struct WriterLock::Hold {
    std::string path;
    Fd lock;

    static std::mutex mutex;
    static std::map<std::string, std::weak_ptr<Hold>>& registry() {
        // Never destroyed: a writer may be a static object.
        static auto& holds = *new std::map<std::string, std::weak_ptr<Hold>>;
        return holds;
    }
    // A child shares the parent's open file descriptions, so a lock it kept would outlive the
    // parent. Closing the child's descriptor leaves the parent's lock alone.
    static void leaveToParent() {
        for (auto& [path, weak] : registry())
            if (auto const hold = weak.lock()) hold->lock.reset();
        registry().clear();
    }
    static void watchForks() {
        static int const watching = ::pthread_atfork(nullptr, nullptr, leaveToParent);
        FMASSERT(watching == 0, "pthread_atfork: {}", std::strerror(watching));
    }
    ~Hold() {
        std::lock_guard const guard(mutex);
        auto const found = registry().find(path);
        if (found != registry().end() && found->second.expired()) registry().erase(found);
    }
};
std::mutex WriterLock::Hold::mutex;

namespace {

double waitSeconds = 2;

struct flock byteLock(short type, long byte) {
    struct flock lock {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    lock.l_start = byte;
    lock.l_len = 1;
    return lock;
}

bool isNamed(Fd const& file, std::string const& fileName) {
    struct stat mine, named;
    return ::fstat(file.get(), &mine) == 0 && ::stat(fileName.c_str(), &named) == 0 &&
           mine.st_ino == named.st_ino && mine.st_dev == named.st_dev;
}

// Opens and locks; empty if another holds the byte. A lock won on a file that has lost its name
// meanwhile (a cleanup) excludes nobody, so that is looked at after the lock is held.
Fd tryLockByte(std::string const& fileName, long byte) {
    for (;;) {
        Fd file(::open(fileName.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644));
        if (!file) {
            if (errno == ENOENT) return Fd(); // the directory is just being removed
            Dunlin::fmthrow<Dunlin::InvalidInitializeException>("cannot open {}: {}", fileName,
                                                                std::strerror(errno));
        }
        struct flock lock = byteLock(F_WRLCK, byte);
        if (::fcntl(file.get(), F_OFD_SETLK, &lock) != 0) {
            if (errno == EAGAIN || errno == EACCES) return Fd();
            Dunlin::fmthrow<Dunlin::InvalidInitializeException>("cannot lock {}: {}", fileName,
                                                                std::strerror(errno));
        }
        if (isNamed(file, fileName)) return file;
    }
}

std::string ownerText(Dunlin::Platform::DebugHandler& handler, RootPath const& rootPath) {
    try {
        std::string const name =
            SharedMem::OwnerFile(handler, rootPath, false).bolsterInfo().socketName;
        return name.empty() ? "a process that is just attaching or removing it" : name;
    } catch (Dunlin::Exception const&) {
        return "a process with a damaged owner file";
    }
}

} // namespace

void WriterLock::waitIs(double seconds) {
    waitSeconds = seconds;
}

Fd WriterLock::lockByte(Dunlin::Platform::DebugHandler& handler, RootPath const& rootPath,
                        long byte) {
    std::string const fileName = rootPath.file(SharedMem::OwnerFile::LOCK_NAME);
    U64 const end = Dunlin::Rdtsc::monotonicNanoseconds() + static_cast<U64>(waitSeconds * 1e9);
    bool told = false;
    for (;;) {
        rootPath.makeDirectories();
        if (Fd lock = tryLockByte(fileName, byte)) return lock;
        if (!told) FMTRACE(handler, 1, "waiting for {}", ownerText(handler, rootPath));
        told = true;
        if (Dunlin::Rdtsc::monotonicNanoseconds() >= end)
            Dunlin::fmthrow<Dunlin::InvalidInitializeException>(
                "{} is owned by {}", rootPath.text(), ownerText(handler, rootPath));
        timespec const pause{0, 2'000'000};
        ::nanosleep(&pause, nullptr);
    }
}

WriterLock WriterLock::acquireWriterLock(Dunlin::Platform::DebugHandler& handler,
                                         RootPath const& rootPath,
                                         SharedMem::OwnerFile const& ownerFile, bool forCleanup) {
    WriterLock result;
    if (rootPath.localMem()) return result;
    FMTRACE(handler, 5, "{} forCleanup:{} owner:{}", rootPath.text(), forCleanup,
            ownerFile.headerToString());
    {
        std::lock_guard const guard(Hold::mutex);
        auto const found = Hold::registry().find(rootPath.text());
        if (found != Hold::registry().end()) result.hold_ = found->second.lock();
    }
    if (result.hold_) {
        if (forCleanup) return result;
        Dunlin::fmthrow<Dunlin::InvalidInitializeException>("{} is owned by {}", rootPath.text(),
                                                            SharedMem::BolsterName::own());
    }
    Hold::watchForks();
    auto hold = std::make_shared<Hold>();
    hold->path = rootPath.text();
    hold->lock = lockByte(handler, rootPath, 1);
    {
        std::lock_guard const guard(Hold::mutex);
        Hold::registry()[rootPath.text()] = hold;
    }
    result.hold_ = std::move(hold);
    return result;
}

bool WriterLock::hasName(RootPath const& rootPath) const {
    return hold_ && isNamed(hold_->lock, rootPath.file(SharedMem::OwnerFile::LOCK_NAME));
}

bool WriterLock::writerExists(RootPath const& rootPath) {
    // To ask for a lock takes no right to write: any reader of the table may.
    Fd const file(
        ::open(rootPath.file(SharedMem::OwnerFile::LOCK_NAME).c_str(), O_RDONLY | O_CLOEXEC));
    if (!file) return false;
    struct flock lock = byteLock(F_WRLCK, 1);
    return ::fcntl(file.get(), F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

bool WriterLock::ownerIsMe(Dunlin::Platform::DebugHandler& handler, std::string const& socketName) {
    bool const me = socketName == SharedMem::BolsterName::own();
    FMTRACE(handler, 5, "socketName:{} me:{}", socketName, me);
    return me;
}

bool WriterLock::ownerIsAlive(Dunlin::Platform::DebugHandler& handler,
                              std::string const& socketName, std::string& error,
                              RootPath const* table) {
    if (socketName.empty()) {
        error = "no owner";
        return false;
    }
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, SharedMem::BolsterName::path(socketName).c_str());
    Fd const probe(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!probe) {
        error = std::strerror(errno);
        return false;
    }
    // A full backlog answers EAGAIN: somebody listens all the same.
    bool alive =
        ::connect(probe.get(), reinterpret_cast<sockaddr const*>(&address), sizeof address) == 0 ||
        errno == EAGAIN;
    if (!alive) {
        bool const forbidden = errno == EACCES || errno == EPERM;
        error = std::strerror(errno);
        if (forbidden) {
            error = std::string("cannot connect to ") + address.sun_path + ": " + error;
            alive = table && writerExists(*table);
        }
    }
    FMTRACE(handler, 5, "socketName:{} alive:{}", socketName, alive);
    return alive;
}

} // namespace Mem
