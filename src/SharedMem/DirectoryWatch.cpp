#include "SharedMem/DirectoryWatch.h"

#include "Dunlin/Exception.h"
#include "Dunlin/Fork.h"
#include "Dunlin/TaskSchedulerRoot.h"
#include "SharedMem/FileUtil.h"

#include <cerrno>
#include <cstring>
#include <map>
#include <sys/epoll.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <vector>

namespace Mem {
namespace {

constexpr U32 interest = IN_CREATE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE | IN_DELETE_SELF |
                         IN_MOVE_SELF | IN_ONLYDIR;

bool isDirectory(std::string const& path) {
    struct stat status;
    return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

std::string nearestExisting(std::string directory) {
    while (directory.size() > 1 && !isDirectory(directory)) {
        auto const slash = directory.rfind('/');
        if (slash == directory.npos) return ".";
        directory.resize(std::max<std::size_t>(slash, 1));
    }
    return directory;
}

} // namespace

// The descriptor and who listens to what on it: a process may have few inotify descriptors but many
// watches, and the kernel gives one number per directory.
struct DirectoryWatch::Hub {
    Fd inotify;
    U32 generation = ~0U;
    std::multimap<int, DirectoryWatch*> listeners;

    void ensureOpen() {
        if (generation == Dunlin::forkGeneration()) return;
        generation = Dunlin::forkGeneration();
        listeners.clear(); // of the parent process
        inotify.reset(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
        if (!inotify) {
            generation = ~0U;
            Dunlin::fmthrow<Dunlin::InvalidInitializeException>("inotify: {}",
                                                                std::strerror(errno));
        }
        Dunlin::schedulerRootDunlin->fdAdd(inotify.get(), EPOLLIN, [this](U32) { readAll(); });
    }
    bool listens(DirectoryWatch const* who) const {
        for (auto const& [watch, listener] : listeners)
            if (listener == who) return true;
        return false;
    }
    // A listener may be gone by the time it is its turn.
    void tell(std::vector<DirectoryWatch*> const& whom, U32 mask, std::string const& name) {
        for (DirectoryWatch* const listener : whom)
            if (listens(listener)) listener->handle(mask, name);
    }
    void readAll() {
        alignas(inotify_event) char buffer[16384];
        for (;;) {
            auto const got = ::read(inotify.get(), buffer, sizeof buffer);
            if (got <= 0) return;
            for (char const* at = buffer; at < buffer + got;) {
                auto const& event = *reinterpret_cast<inotify_event const*>(at);
                at += sizeof event + event.len;
                std::vector<DirectoryWatch*> whom;
                for (auto const& [watch, listener] : listeners)
                    if (watch == event.wd || (event.mask & IN_Q_OVERFLOW) != 0)
                        whom.push_back(listener);
                tell(whom, event.mask, event.len ? event.name : "");
            }
        }
    }
    void remove(DirectoryWatch* who) {
        if (generation != Dunlin::forkGeneration()) return;
        int const watch = who->watch_;
        std::erase_if(listeners, [who](auto const& entry) { return entry.second == who; });
        if (watch >= 0 && !listeners.contains(watch)) ::inotify_rm_watch(inotify.get(), watch);
    }
};

DirectoryWatch::Hub& DirectoryWatch::hub() {
    static auto& hub = *new Hub; // never destroyed: a front may be a static object
    return hub;
}

DirectoryWatch::DirectoryWatch(std::string const& directory, Callback callback)
    : directory_(directory), callback_(std::move(callback)) {
    arm();
}

DirectoryWatch::~DirectoryWatch() {
    hub().remove(this);
}

// First the watch, then the look: what appears in between is then either seen or told (H-file-7).
void DirectoryWatch::arm() {
    Hub& here = hub();
    here.ensureOpen();
    for (;;) {
        std::string const wanted = nearestExisting(directory_);
        int const watch = ::inotify_add_watch(here.inotify.get(), wanted.c_str(), interest);
        if (watch < 0) {
            if (errno == ENOENT || errno == ENOTDIR) continue; // it has just gone
            Dunlin::fmthrow<Dunlin::InvalidInitializeException>("cannot watch {}: {}", wanted,
                                                                std::strerror(errno));
        }
        if (watch != watch_) {
            here.remove(this);
            here.listeners.emplace(watch, this);
        }
        watch_ = watch;
        watched_ = wanted;
        if (nearestExisting(directory_) == wanted) return;
    }
}

void DirectoryWatch::handle(U32 mask, std::string const& name) {
    bool const self = (mask & (IN_DELETE_SELF | IN_MOVE_SELF | IN_IGNORED | IN_Q_OVERFLOW)) != 0;
    if ((mask & IN_IGNORED) != 0) {
        // The kernel has dropped the watch with its directory.
        hub().remove(this);
        watch_ = -1;
    }
    if (!self && watched_ == directory_) {
        callback_(name);
        return;
    }
    // Only the next component on the way down matters in a parent.
    if (!self) {
        std::string const next = watched_ + (watched_ == "/" ? "" : "/") + name;
        if (directory_ != next && !directory_.starts_with(next + '/')) return;
    }
    std::string const before = watched_;
    arm();
    if (self || watched_ != before) callback_("");
}

} // namespace Mem
