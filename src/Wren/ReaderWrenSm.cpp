#include "Wren/ReaderWrenSm.h"

#include "Dunlin/Exception.h"
#include "Dunlin/Rdtsc.h"

#include <cerrno>
#include <cstring>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <utility>

namespace Wren {
namespace {

Dunlin::TaskSchedulerRoot& loop() {
    return *Dunlin::schedulerRootDunlin;
}

// A second look in case a wake-up were lost. It is no part of the protocol, and an idle process
// must not spend its time on it. Without a connection the look is for the writer.
constexpr double tickSeconds = 10, retrySeconds = 1;

// After so many notifications in a row more are to be expected, from a writer that answers a Sleep
// only when it is done with them; for so long they are looked for.
constexpr Sequence burst = 64;
constexpr double lingerSeconds = 100e-6;

bool moreComes(ReaderClient const& client) {
    U64 const start = Dunlin::Rdtsc::ticks();
    double const limit = lingerSeconds * Dunlin::Rdtsc::calibrationRate();
    do {
        if (client.wrenHead() > client.wrenPosition()) return true;
    } while (static_cast<double>(Dunlin::Rdtsc::ticks() - start) < limit);
    return false;
}

} // namespace

ReaderWrenSm::ReaderWrenSm(Dunlin::Platform::DebugHandler& handler, ReaderClient& client)
    : Debuggable(handler), client_(client), alive_(std::make_shared<ReaderWrenSm*>(this)) {}

ReaderWrenSm::~ReaderWrenSm() {
    *alive_ = nullptr;
    disconnect();
}

std::string ReaderWrenSm::readerName() {
    std::string const own = SharedMem::BolsterName::own();
    return own.substr(0, own.rfind('-'));
}

bool ReaderWrenSm::connect(SharedMem::BolsterInfo const& writer) {
    if (state_ != State::idle) return true;
    refused_ = false;
    if (writer.empty()) return false;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, SharedMem::BolsterName::path(writer.socketName).c_str());
    Mem::Fd fd(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!fd) return false;
    if (::connect(fd.get(), reinterpret_cast<sockaddr const*>(&address), sizeof address) != 0) {
        FMTRACE(debugHandler(), 1, "cannot connect to {}: {}", address.sun_path,
                std::strerror(errno));
        return false;
    }
    Hello hello;
    hello.tableId = writer.tableId;
    hello.orielId = client_.wrenOrielId();
    hello.incarnation = client_.wrenIncarnation();
    hello.position = client_.wrenSynced() ? client_.wrenPosition() : 0;
    std::strncpy(hello.name, readerName().c_str(), sizeof hello.name - 1);
    if (!send(fd.get(), hello)) return false;
    fd_ = std::move(fd);
    state_ = State::greeted;
    watch(EPOLLIN);
    if (enabled_) lookLater(client_.wrenPosition());
    return true;
}

void ReaderWrenSm::watch(U32 events) {
    loop().fdAdd(fd_.get(), events, [this](U32 ready) { handleEvents(ready); });
}

// What the client raises passes on to the loop, and the work goes on at its next turn: the token
// stays with nobody who has forgotten it.
template <class Call>
auto ReaderWrenSm::askClient(Call call) {
    auto const alive = alive_;
    try {
        return call();
    } catch (...) {
        if (*alive) postSlice();
        throw;
    }
}

void ReaderWrenSm::enable() {
    enabled_ = true;
    if (state_ == State::awake) postSlice();
    lookLater(client_.wrenPosition());
    armTick();
}

void ReaderWrenSm::disconnect() {
    if (fd_) loop().fdDel(fd_.get());
    fd_.reset();
    state_ = State::idle;
    enabled_ = sleepUnsent_ = lagged_ = false;
    loop().timerDel(timer_);
    loop().timerDel(lookTimer_);
    timer_ = lookTimer_ = 0;
}

void ReaderWrenSm::lost() {
    refused_ = state_ == State::greeted;
    FMTRACE(debugHandler(), 1, "connection to the writer is {}", refused_ ? "refused" : "lost");
    bool const enabled = enabled_;
    disconnect();
    // Until there is another, what lies in the queue is found by the tick.
    if (enabled) enable();
    client_.handleDisconnect();
}

void ReaderWrenSm::notifyingIs(bool on) {
    notifying_ = on;
    if (!on || !enabled_) return;
    postSlice();
    lookLater(client_.wrenPosition());
}

void ReaderWrenSm::handleEvents(U32 events) {
    auto const alive = alive_;
    if ((events & EPOLLOUT) != 0 && sleepUnsent_) sendSleep();
    // What came is a Wake, unless it is the end: the work first, the message after it.
    bool const ended = (events & (EPOLLHUP | EPOLLERR)) != 0;
    if (state_ == State::asleep && enabled_ && notifying_ && !ended) client_.wrenDrain(yieldTime_);
    if (!*alive || !fd_) return;
    Message message;
    Received const received = receive(fd_.get(), message);
    if (received == Received::nothing) return;
    if (received == Received::message && message.kind == Kind::welcome &&
        state_ == State::greeted) {
        state_ = State::awake;
        askClient([&] { client_.wrenWelcome(message.welcome); });
        if (*alive && enabled_ && state_ == State::awake) slice();
    } else if (received == Received::message && message.kind == Kind::wake &&
               state_ == State::asleep) {
        state_ = State::awake;
        slice();
    } else {
        if (received == Received::message && message.kind == Kind::refused)
            FMTRACE(debugHandler(), 1, "refused, reason:{}", U32(message.refused.reason));
        lost();
    }
}

// Takes notifications for one slice, then either goes on in the next turn or goes to sleep. While
// the token is with a busy writer it works early, and sends nothing: the Wake that is on its way
// hands the token back first. The callbacks may do anything, end this object included.
void ReaderWrenSm::slice() {
    if (!enabled_ || !notifying_) return;
    auto const alive = alive_;
    State const state = state_;
    lagged_ = false; // what lies there now is not what lay there at the last tick
    Sequence const from = client_.wrenPosition();
    bool const drained = askClient([&] { return client_.wrenDrain(yieldTime_); });
    if (!*alive || !enabled_ || state_ != state) return;
    if (state == State::awake && drained && notifying_) {
        sendSleep();
    } else if (state == State::awake) {
        Position const progress{.kind = Kind::progress,
                                .synced = client_.wrenSynced(),
                                .position = client_.wrenPosition()};
        if (send(fd_.get(), progress)) ++sequencesSent_; // a full buffer: the next one tells more
    }
    if (state == State::asleep) lookLater(client_.wrenPosition());
    bool const inBurst = state == State::asleep || client_.wrenPosition() - from >= burst;
    if (!drained || !notifying_ || (inBurst && moreComes(client_))) postSlice();
}

void ReaderWrenSm::postSlice() {
    if (slicePosted_) return;
    slicePosted_ = true;
    loop().taskAdd(Dunlin::TaskSchedulerRoot::Priority::normal, [alive = alive_] {
        ReaderWrenSm* const self = *alive;
        if (!self) return;
        self->slicePosted_ = false;
        if (self->state_ >= State::awake) self->slice();
    });
}

// The token goes to the writer, with the place up to which we have seen everything. If more was
// published meanwhile, the writer sees that by the same number and wakes us at once.
void ReaderWrenSm::sendSleep() {
    Position const sleep{
        .kind = Kind::sleep, .synced = client_.wrenSynced(), .position = client_.wrenPosition()};
    bool const sent = send(fd_.get(), sleep);
    // Kept until the socket takes it. Any other failure shows as the end of the connection.
    bool const unsent = !sent && errno == EAGAIN;
    if (sent) {
        ++sequencesSent_;
        state_ = State::asleep;
    }
    // Room in the socket is waited for only so long: it is there nearly always.
    if (std::exchange(sleepUnsent_, unsent) != unsent) watch(unsent ? EPOLLIN | EPOLLOUT : EPOLLIN);
    lookLater(sleep.position);
}

// A writer that turns its loop seldom or never takes our message only with a change that comes after
// a pause (WriterWrenSm::mustRing). So while its changes follow each other closely we look ourselves;
// once we have seen none for `quietSeconds`, it wakes us at the next one. docs/doorbell.md tells why
// no change falls in between.
void ReaderWrenSm::lookLater(Sequence seen) {
    seen_ = seen;
    seenTicks_ = Dunlin::Rdtsc::ticks();
    if (lookTimer_ == 0 && state_ != State::idle) armLook(quietSeconds);
}

void ReaderWrenSm::armLook(double seconds) {
    lookTimer_ = loop().timerAdd(seconds, [this] {
        lookTimer_ = 0;
        look();
    });
}

void ReaderWrenSm::look() {
    bool const waits = state_ == State::greeted || state_ == State::asleep || sleepUnsent_;
    if (!enabled_ || !notifying_ || !waits) return;
    double const since =
        static_cast<double>(Dunlin::Rdtsc::ticks() - seenTicks_) / Dunlin::Rdtsc::calibrationRate();
    if (since < quietSeconds) {
        armLook(quietSeconds - since);
        return;
    }
    Sequence const head = client_.wrenHead();
    if (head == seen_ && head <= client_.wrenPosition()) return;
    lookLater(head);
    lagged_ = false;
    auto const alive = alive_;
    // Works early, but sends no second Sleep: the token is with the writer.
    if (!client_.wrenDrain(yieldTime_) && *alive && enabled_) postSlice();
}

void ReaderWrenSm::armTick() {
    if (timer_ != 0) return;
    timer_ = loop().timerAdd(state_ == State::idle ? retrySeconds : tickSeconds, [this] {
        timer_ = 0;
        tick();
    });
}

void ReaderWrenSm::tick() {
    if (!enabled_) return;
    auto const alive = alive_;
    armTick();
    bool const behind = notifying_ && client_.wrenHead() > client_.wrenPosition();
    if (behind && state_ == State::asleep && lagged_) ++lateWakes_;
    lagged_ = behind;
    if (state_ == State::idle && !refused_) client_.wrenRetry();
    // Works early, but sends no second Sleep: the token is with the writer.
    if (*alive && enabled_ && behind && state_ != State::awake) client_.wrenDrain(yieldTime_);
    if (*alive && enabled_ && state_ == State::awake && behind) postSlice();
}

} // namespace Wren
