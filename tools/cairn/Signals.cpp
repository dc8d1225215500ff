#include "Signals.h"

#include "Output.h"
#include "TableNames.h"

#include "Dunlin/Exception.h"
#include "Dunlin/TaskSchedulerRoot.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Cairn {
namespace {

volatile std::sig_atomic_t signalled = 0;
int wakeFd = -1;
constexpr int endingSignals[] = {SIGINT, SIGTERM};
struct sigaction former[std::size(endingSignals)]; // by which they are handled outside EndBySignal

void handle(int) {
    int const kept = errno;
    signalled = 1;
    U64 const one = 1;
    [[maybe_unused]] auto const written = ::write(wakeFd, &one, sizeof one);
    errno = kept;
}

} // namespace

EndBySignal::EndBySignal() : event_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!event_) Dunlin::fmthrow<Dunlin::RuntimeException>("eventfd: {}", std::strerror(errno));
    signalled = 0;
    wakeFd = event_.get();
    Dunlin::schedulerRootDunlin->fdAdd(wakeFd, EPOLLIN, [this](U32) {
        U64 count = 0;
        [[maybe_unused]] auto const taken = ::read(event_.get(), &count, sizeof count);
        Dunlin::schedulerRootDunlin->stop();
    });
    struct sigaction action {};
    action.sa_handler = handle; // without SA_RESTART: a write that waits returns
    for (std::size_t i = 0; i < std::size(endingSignals); ++i) {
        ::sigaction(endingSignals[i], nullptr, &former[i]);
        // A shell's background job keeps ignoring the interrupt that is meant for its foreground.
        if (former[i].sa_handler != SIG_IGN) ::sigaction(endingSignals[i], &action, nullptr);
    }
}

EndBySignal::~EndBySignal() {
    std::fflush(stdout); // an error is found by who flushes last
    for (std::size_t i = 0; i < std::size(endingSignals); ++i)
        ::sigaction(endingSignals[i], &former[i], nullptr);
    Dunlin::schedulerRootDunlin->fdDel(event_.get());
    wakeFd = -1;
}

bool EndBySignal::ended() const {
    return signalled != 0;
}

bool awaitReady(int fd, short events) {
    // A signal between the look at `signalled` and the wait is seen on the event.
    pollfd fds[2] = {{fd, events, 0}, {wakeFd, POLLIN, 0}};
    while (signalled == 0) {
        int const n = ::poll(fds, 2, -1);
        if (n < 0 && errno != EINTR) return false;
        if (n > 0 && fds[0].revents != 0) return true;
    }
    errno = EINTR;
    return false;
}

namespace {

// How long the last words wait for a reader where the way to it cannot be widened.
constexpr int patienceMs = 1000;
// Less than what a pipe is widened by.
constexpr std::size_t bufferSize = 16384;
bool blocked = false;

bool widenPipe() {
    int const size = ::fcntl(STDOUT_FILENO, F_GETPIPE_SZ);
    return size > 0 && ::fcntl(STDOUT_FILENO, F_SETPIPE_SZ, 2 * size) > 0;
}

// Waits until a write of PIPE_BUF bytes goes through; false: nobody reads, and the command is ending.
bool awaitRoom() {
    if (awaitReady(STDOUT_FILENO, POLLOUT)) return true;
    if (errno != EINTR) return false;
    pollfd room{STDOUT_FILENO, POLLOUT, 0};
    auto const roomWithin = [&](int milliseconds) { return ::poll(&room, 1, milliseconds) > 0; };
    if (roomWithin(0)) return true;
    blocked = true;
    if (widenPipe() && roomWithin(0)) return true;
    if (roomWithin(patienceMs)) return true;
    errno = ETIMEDOUT;
    return false;
}

ssize_t writeAll(void*, char const* data, std::size_t size) {
    std::size_t written = 0;
    while (written < size) {
        if (!awaitRoom()) return 0;
        // A pipe with room takes so many bytes without waiting.
        auto const n =
            ::write(STDOUT_FILENO, data + written, std::min(size - written, std::size_t{PIPE_BUF}));
        if (n < 0 && errno != EINTR && errno != EAGAIN) return 0;
        if (n > 0) written += static_cast<std::size_t>(n);
    }
    return static_cast<ssize_t>(size);
}

} // namespace

namespace {

// The file that is mapped at an address, and where in it.
struct MappedFile {
    std::string path = "a file";
    off_t offset = 0;
};

MappedFile fileAt(std::uintptr_t address) {
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) {
        std::uintptr_t begin = 0, end = 0, offset = 0;
        int path = 0;
        if (std::sscanf(line.c_str(), "%" SCNxPTR "-%" SCNxPTR " %*s %" SCNxPTR " %*s %*s %n",
                        &begin, &end, &offset, &path) < 3 ||
            address < begin || address >= end || path == 0)
            continue;
        return {line.substr(static_cast<std::size_t>(path)),
                static_cast<off_t>(address - begin + offset)};
    }
    return {};
}

// The fault is one of our own reading instructions, never inside the C library: what must not be
// called from a handler may be called here.
void busError(int, siginfo_t* info, void*) {
    ::signal(SIGBUS, SIG_DFL); // a second one is none of these
    Listing::finishAll();
    std::fflush(stdout);
    auto const [path, offset] = fileAt(reinterpret_cast<std::uintptr_t>(info->si_addr));
    struct stat status {};
    // Memory for files may also have run out, even for the zeros of a page.
    bool const cut = ::stat(path.c_str(), &status) != 0 || offset >= status.st_size;
    complain(fmt::format("cairn: {} {}", shortened(path),
                         cut ? "was cut off while it was in use: the table is damaged"
                             : "cannot be read: its file system has no page left"));
    ::_exit(cut ? damaged : noTable);
}

} // namespace

void catchCutFiles() {
    struct sigaction action {};
    action.sa_sigaction = busError;
    action.sa_flags = SA_SIGINFO;
    ::sigaction(SIGBUS, &action, nullptr);
}

void openOutput() {
    cookie_io_functions_t functions{};
    functions.write = writeAll;
    std::FILE* const stream = ::fopencookie(nullptr, "w", functions);
    if (!stream) return; // no memory: the one at hand will do
    bool const terminal = ::isatty(STDOUT_FILENO) == 1;
    std::setvbuf(stream, nullptr, terminal ? _IOLBF : _IOFBF, bufferSize);
    stdout = stream;
}

bool outputIsBlocked() {
    return blocked;
}

} // namespace Cairn
