#include "Signals.h"

#include "Dunlin/Exception.h"
#include "Dunlin/TaskSchedulerRoot.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace Cairn {
namespace {

volatile std::sig_atomic_t signalled = 0;
int wakeFd = -1;

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
    for (int const number : {SIGINT, SIGTERM}) ::sigaction(number, &action, nullptr);
}

EndBySignal::~EndBySignal() {
    struct sigaction action {};
    action.sa_handler = SIG_DFL;
    for (int const number : {SIGINT, SIGTERM}) ::sigaction(number, &action, nullptr);
    Dunlin::schedulerRootDunlin->fdDel(event_.get());
    wakeFd = -1;
}

bool EndBySignal::ended() const {
    return signalled != 0;
}

} // namespace Cairn
