// Every system call of every step fails in turn: of making a table, taking it over, growing it,
// shrinking it, attaching a reader or a shadow, and removing it. A failure ends in an exception with
// a name or in a clean refusal, harms nothing that was there, and the next attempt succeeds. A call
// that a signal interrupts is made again, and nobody notices.
//
// The functions of the C library are defined once more below: in a program these come first.
#include "Brisk/FrontFixture.h"

#include "Dunlin/Exception.h"

#include <cstdarg>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>

namespace {

enum class Kind { failure, interrupt };
Kind kind = Kind::failure;
U32 callsLeft = 0; // 0: no call fails
char const* failedCall = nullptr;

// Counts one call; true if it is the one that fails, with `errno` set.
bool fails(char const* call, int error, bool interruptible = false) {
    if (kind == Kind::interrupt && !interruptible) return false;
    if (callsLeft == 0 || --callsLeft != 0) return false;
    failedCall = call;
    errno = kind == Kind::interrupt ? EINTR : error;
    return true;
}
// A writer that cannot read back the owner file that it has just written ends there and then: that
// file's reader does not take part.
int ownerFd = -1;
bool isOwner(char const* name) {
    return std::string_view(name).ends_with("/owner");
}

template <class Function>
Function* real(char const* name, Function*) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

} // namespace

// A call that fails gives `failed`.
#define REAL(name, failed, error, interruptible, ...)                                              \
    static auto* const next = real(#name, &name);                                                  \
    return fails(#name, error, interruptible) ? failed : next(__VA_ARGS__)

extern "C" {
int open(char const* name, int flags, ...) {
    va_list words;
    va_start(words, flags);
    mode_t const mode = flags & O_CREAT ? va_arg(words, mode_t) : 0;
    va_end(words);
    static auto* const next = real("open", &open);
    if (!isOwner(name)) return fails("open", EMFILE) ? -1 : next(name, flags, mode);
    return ownerFd = next(name, flags, mode);
}
void* mmap(void* at, size_t size, int protection, int flags, int fd, off_t offset) noexcept {
    REAL(mmap, MAP_FAILED, ENOMEM, false, at, size, protection, flags, fd, offset);
}
void* mremap(void* at, size_t from, size_t to, int flags, ...) noexcept {
    REAL(mremap, MAP_FAILED, ENOMEM, false, at, from, to, flags);
}
int posix_fallocate(int fd, off_t from, off_t size) {
    REAL(posix_fallocate, errno, ENOSPC, true, fd, from, size);
}
int rename(char const* from, char const* to) noexcept {
    REAL(rename, -1, EIO, false, from, to);
}
int mkdir(char const* name, mode_t mode) noexcept {
    REAL(mkdir, -1, EACCES, false, name, mode);
}
ssize_t read(int fd, void* to, size_t size) {
    static auto* const next = real("read", &read);
    return fd != ownerFd && fails("read", EIO, true) ? -1 : next(fd, to, size);
}
ssize_t write(int fd, void const* from, size_t size) {
    REAL(write, -1, ENOSPC, true, fd, from, size);
}
int stat(char const* name, struct stat* status) noexcept {
    REAL(stat, -1, EIO, false, name, status);
}
int socket(int domain, int type, int protocol) noexcept {
    REAL(socket, -1, EMFILE, false, domain, type, protocol);
}
int connect(int fd, sockaddr const* to, socklen_t size) {
    REAL(connect, -1, ECONNREFUSED, false, fd, to, size);
}
int bind(int fd, sockaddr const* to, socklen_t size) noexcept {
    REAL(bind, -1, EACCES, false, fd, to, size);
}
int listen(int fd, int backlog) noexcept {
    REAL(listen, -1, EOPNOTSUPP, false, fd, backlog);
}
int accept4(int fd, sockaddr* from, socklen_t* size, int flags) {
    REAL(accept4, -1, EMFILE, false, fd, from, size, flags);
}
ssize_t send(int fd, void const* from, size_t size, int flags) {
    REAL(send, -1, EPIPE, true, fd, from, size, flags);
}
ssize_t recv(int fd, void* to, size_t size, int flags) {
    REAL(recv, -1, ECONNRESET, true, fd, to, size, flags);
}
int inotify_init1(int flags) noexcept {
    REAL(inotify_init1, -1, EMFILE, false, flags);
}
int inotify_add_watch(int fd, char const* name, uint32_t mask) noexcept {
    REAL(inotify_add_watch, -1, ENOSPC, false, fd, name, mask);
}
}

namespace {

using namespace Support;

class Faults : public Fronts {
public:
    Faults() {
        Dunlin::traceSinkIs([](auto&&...) {});
    }
    ~Faults() override { Dunlin::traceSinkIs({}); }

    // Runs `action` once for each call that it makes, which then fails, and `after` behind each.
    // `action` says whether it succeeded; interrupted, it must.
    template <class Action, class After>
    static void eachFails(char const* step, Action action, After after) {
        for (Kind const which : {Kind::failure, Kind::interrupt}) {
            kind = which;
            for (U32 k = 1;; ++k) {
                ASSERT_LT(k, 2000U) << step;
                failedCall = nullptr;
                callsLeft = k;
                bool done = false;
                std::string reason;
                try {
                    done = action();
                } catch (Dunlin::Exception const& e) {
                    reason = e.message();
                    EXPECT_FALSE(reason.empty());
                }
                callsLeft = 0;
                SCOPED_TRACE(testing::Message()
                             << step << ", call " << k << ": " << (failedCall ? failedCall : "none")
                             << (which == Kind::interrupt ? " interrupted " : " ") << reason);
                ASSERT_TRUE(done || (failedCall && which == Kind::failure));
                ASSERT_TRUE(after());
                if (!failedCall) break;
            }
        }
    }
};

TEST_F(Faults, OfAWriterAreNamedAndPass) {
    auto w = detachedWriter(writerSettings(true));
    auto const start = [&] { return w->initialize("test") && w->validate(); };
    eachFails(
        "making a table",
        [&] {
            w->detach(false);
            return w->initialize("test");
        },
        [&] {
            bool const sound = start() && w->members() == 0;
            w->cleanup();
            w->detach(false);
            std::filesystem::remove_all(base_.path() + "/vrf");
            return sound;
        });
    ASSERT_TRUE(start());
    auto const refill = [&] {
        for (U32 id = 0; id < 40; ++id) put(*w, id, 1);
        return w->members() == 40 && w->validate();
    };
    ASSERT_TRUE(refill());
    // A file that cannot be read may cost the table, never its soundness.
    eachFails(
        "taking it over",
        [&] {
            w->detach(false);
            return w->initialize("test");
        },
        [&] { return start() && (w->members() == 40 || w->members() == 0) && refill(); });
    eachFails(
        "growing it",
        [&] {
            U32 const before = w->capacity();
            for (U32 id = 40; w->capacity() == before; ++id) put(*w, id, 1);
            return true;
        },
        [&] {
            bool const sound = w->validate();
            for (U32 id = 40; w->members() > 40; ++id) drop(*w, id);
            return sound && contents(*w).size() == 40 && w->validate();
        });
    eachFails(
        "removing it",
        [&] {
            w->cleanup();
            return true;
        },
        [&] {
            w->detach(false);
            bool const sound = start();
            return sound && (w->members() == 0 || w->members() == 40);
        });
}

// The endpoint of the doorbell and the watch over directories are made once in a process: here each
// attempt is a process of its own.
TEST_F(Faults, OfAProcesssFirstTablePass) {
    for (bool const writing : {true, false}) {
        for (U32 k = 1;; ++k) {
            Child child([&](Child&) {
                TestWriter w(*handler_, name_, writerSettings(true), TestOps{}, "TestValue",
                             Dunlin::noop);
                if (!writing) w.initialize("test");
                Client c(name_, shadowSettings(BriskType::valueShadow));
                failedCall = nullptr;
                callsLeft = k;
                try {
                    writing ? void(w.initialize("test")) : c.init();
                } catch (Dunlin::Exception const&) {
                }
                callsLeft = 0;
                if (!failedCall) return 1;
                if (!w.initialize("test") || !w.validate()) return 2;
                put(w, 1, 1);
                bool const told = pump([&] {
                    if (!c.front->initialized()) c.init();
                    c.front->tryAttach();
                    return c.known.size() == 1;
                });
                w.cleanup();
                return told ? 0 : 3;
            });
            int const code = child.join();
            if (code == 1) break;
            ASSERT_EQ(code, 0) << (writing ? "writer" : "shadow") << ", call " << k;
            ASSERT_LT(k, 1000U);
        }
    }
}

TEST_F(Faults, OfReadersPassWithoutTheWriter) {
    auto w = writer(writerSettings(true));
    for (U32 id = 0; id < 40; ++id) put(*w, id, 1);
    TestReader r(*handler_, name_.c_str(), TestOps{}, nullptr);
    eachFails(
        "attaching a reader", [&] { return r.initialize("test"); },
        [&] {
            bool const sound = r.initialize("test") && contents(r).size() == 40;
            r.detach(false);
            return sound;
        });
    ASSERT_TRUE(r.initialize("test"));
    eachFails(
        "following a growth",
        [&] {
            U32 const left = std::exchange(callsLeft, 0); // the writer has its own turn above
            for (U32 id = 1000; id < 1500; ++id) put(*w, id, 1);
            callsLeft = left;
            bool found = false;
            r.lookup(TestKey(1), found, nullptr);
            return found;
        },
        [&] {
            bool const all = contents(r).size() == 540;
            for (U32 id = 1000; id < 1500; ++id) drop(*w, id);
            return all && contents(r).size() == 40;
        });
    EXPECT_TRUE(w->validate());
}

TEST_F(Faults, OfShadowsAndTheirDoorbellPass) {
    auto w = writer(writerSettings(true));
    for (U32 id = 0; id < 40; ++id) put(*w, id, 1);
    for (BriskType const type : {BriskType::reader, BriskType::valueShadow, BriskType::keyShadow}) {
        auto c = std::make_unique<Client>(name_, shadowSettings(type));
        auto const same = [&] {
            return contents(c->front->table()) == contents(*w) &&
                   (type == BriskType::reader || (c->asleep() && c->known == contents(*w)));
        };
        U64 stamp = 1;
        eachFails(
            "mounting",
            [&] {
                c->init();
                settle(3);
                put(*w, 7, ++stamp);
                drop(*w, 8);
                settle(3);
                return true;
            },
            [&] {
                put(*w, 8, ++stamp);
                bool const good = pump([&] {
                    if (!c->front->initialized()) c->init();
                    c->front->tryAttach();
                    return same();
                });
                c = std::make_unique<Client>(name_, shadowSettings(type));
                settle(3);
                return good;
            });
    }
    EXPECT_TRUE(w->validate());
}

} // namespace
