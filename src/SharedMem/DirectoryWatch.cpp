#include "SharedMem/DirectoryWatch.h"

#include "Dunlin/Exception.h"
#include "Dunlin/Fork.h"
#include "Dunlin/TaskSchedulerRoot.h"
#include "SharedMem/FileUtil.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <set>
#include <sys/epoll.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <utility>

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

std::string parentOf(std::string const& directory) {
    auto const slash = directory.rfind('/');
    if (slash == directory.npos) return directory;
    return directory.substr(0, std::max<std::size_t>(slash, 1));
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
    void tell(std::set<DirectoryWatch*> const& whom, inotify_event const& event) {
        std::string const name = event.len ? event.name : "";
        for (DirectoryWatch* const listener : whom)
            if (listens(listener)) listener->handle(event.wd, event.mask, name);
    }
    void readAll() {
        alignas(inotify_event) char buffer[16384];
        for (;;) {
            auto const got = ::read(inotify.get(), buffer, sizeof buffer);
            if (got <= 0) return;
            for (char const* at = buffer; at < buffer + got;) {
                auto const& event = *reinterpret_cast<inotify_event const*>(at);
                at += sizeof event + event.len;
                std::set<DirectoryWatch*> whom;
                for (auto const& [watch, listener] : listeners)
                    if (watch == event.wd || (event.mask & IN_Q_OVERFLOW) != 0)
                        whom.insert(listener);
                // The kernel has dropped the watch with its directory.
                if ((event.mask & IN_IGNORED) != 0)
                    for (DirectoryWatch* const listener : whom)
                        std::replace(listener->watches_.begin(), listener->watches_.end(), event.wd,
                                     -1);
                tell(whom, event);
            }
        }
    }
    void remove(DirectoryWatch* who) {
        if (generation != Dunlin::forkGeneration()) return;
        std::erase_if(listeners, [who](auto const& entry) { return entry.second == who; });
        for (int const watch : std::exchange(who->watches_, {-1, -1}))
            if (watch >= 0 && !listeners.contains(watch)) ::inotify_rm_watch(inotify.get(), watch);
    }
    // In place of those it has. What both have is not given up in between.
    void replace(DirectoryWatch* who, Watches const& watches) {
        for (int const watch : watches) listeners.emplace(watch, nullptr);
        remove(who);
        std::erase_if(listeners, [](auto const& entry) { return !entry.second; });
        for (int const watch : watches) listeners.emplace(watch, who);
        who->watches_ = watches;
    }
    int add(std::string const& directory) {
        int const watch = ::inotify_add_watch(inotify.get(), directory.c_str(), interest);
        if (watch < 0 && errno != ENOENT && errno != ENOTDIR)
            Dunlin::fmthrow<Dunlin::InvalidInitializeException>("cannot watch {}: {}", directory,
                                                                std::strerror(errno));
        return watch;
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
// The directory above is watched too. A removed directory lives on, and tells nobody, for as long as
// a process has one of its files open or mapped: only the directory above tells at once. Watching
// ends when both are found where they were found before.
void DirectoryWatch::arm() {
    Hub& here = hub();
    here.ensureOpen();
    for (;;) {
        std::string const wanted = nearestExisting(directory_);
        Watches const watches{here.add(parentOf(wanted)), here.add(wanted)};
        bool const same = watches == watches_;
        bool const gone = watches[0] < 0 || watches[1] < 0;
        if (!same) here.replace(this, watches);
        watched_ = wanted;
        if (same && !gone) return;
    }
}

void DirectoryWatch::handle(int watch, U32 mask, std::string const& name) {
    bool const self = (mask & (IN_DELETE_SELF | IN_MOVE_SELF | IN_IGNORED | IN_Q_OVERFLOW)) != 0;
    bool const mine = watch == watches_[1];
    if (!self && mine && watched_ == directory_) {
        callback_(name);
        return;
    }
    // Only the next component on the way down matters in a parent.
    if (!self) {
        std::string const at = mine ? watched_ : parentOf(watched_);
        std::string const next = at + (at == "/" ? "" : "/") + name;
        if (directory_ != next && !directory_.starts_with(next + '/')) return;
    }
    int const before = watches_[1];
    arm();
    if (self || watches_[1] != before) callback_("");
}

} // namespace Mem
