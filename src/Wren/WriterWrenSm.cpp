#include "Wren/WriterWrenSm.h"

#include "Dunlin/TaskSchedulerRoot.h"
#include "Wren/BolsterAcceptSm.h"
#include "Wren/Protocol.h"

#include <algorithm>
#include <exception>
#include <list>
#include <sys/epoll.h>

namespace Wren {
namespace {

Dunlin::TaskSchedulerRoot& loop() {
    return *Dunlin::schedulerRootDunlin;
}
U32 lastTableId = 0;
double pause = pauseSeconds;

// A reader's socket holds fewer.
constexpr int messagesPerLook = 1000;

} // namespace

struct WriterWrenSm::Reader {
    Mem::Fd fd;
    std::string name;
    Sequence position = 0;
    bool synced = false;
    bool asleep = false;
    bool failed = false; // to be dropped
};

struct WriterWrenSm::Impl {
    Impl(WriterQueue& q, bool local) : queue(q), localMem(local) {}

    WriterQueue& queue;
    bool localMem;
    bool listening = false;
    bool lastQuiesced = true;
    bool checkPosted = false;
    std::list<Reader> readers;
    std::shared_ptr<WriterWrenSm*> alive; // posted tasks look here first
};

WriterWrenSm::WriterWrenSm(Dunlin::Platform::DebugHandler& handler, WriterQueue& queue,
                           bool localMem)
    : Debuggable(handler), impl_(std::make_unique<Impl>(queue, localMem)), tableId_(++lastTableId) {
    impl_->alive = std::make_shared<WriterWrenSm*>(this);
}

WriterWrenSm::~WriterWrenSm() {
    *impl_->alive = nullptr;
    onDetach();
}

void WriterWrenSm::doEnableListen(U32 filesMode) {
    if (impl_->localMem) return;
    BolsterAcceptSm::bolsterAcceptSm().tableAdd(
        tableId_, filesMode,
        [this](Mem::Fd connection, Hello const& hello) { accept(std::move(connection), hello); });
    impl_->listening = true;
    pauseTicks_ = static_cast<U64>(pause * Dunlin::Rdtsc::calibrationRate()) + 1;
    longLookTicks_ = static_cast<U64>(longLookSeconds / pauseSeconds) * pauseTicks_;
    impl_->queue.listening();
}

void WriterWrenSm::onDetach() {
    if (!impl_->listening) return;
    impl_->listening = false;
    pauseTicks_ = 0;
    BolsterAcceptSm::bolsterAcceptSm().tableDel(tableId_);
    for (Reader const& reader : impl_->readers) loop().fdDel(reader.fd.get());
    impl_->readers.clear();
    sleepingReaders_ = 0;
}

void WriterWrenSm::accept(Mem::Fd connection, Hello const& hello) {
    WriterQueue const& queue = impl_->queue;
    int const fd = connection.get();
    if (hello.orielId != queue.orielId()) {
        FMTRACE(debugHandler(), 1, "refusing {}: orielId {:#x} is not {:#x}", hello.name,
                hello.orielId, queue.orielId());
        send(fd, Refused{.reason = Refused::otherGeneration});
        return;
    }
    if (hello.position > queue.sequence()) return;
    if (!send(fd, Welcome{.incarnation = queue.incarnation(),
                          .sequence = queue.sequence(),
                          .prunedThrough = queue.prunedThrough()}))
        return;
    // A position of an earlier incarnation says nothing about this one.
    bool const same = hello.incarnation == queue.incarnation();
    Reader& reader = impl_->readers.emplace_back(Reader{
        .fd = std::move(connection), .name = hello.name, .position = same ? hello.position : 0});
    FMTRACE(debugHandler(), 1, "reader {} at {}", hello.name, hello.position);
    loop().fdAdd(fd, EPOLLIN, [this, &reader](U32) { handleMessages(reader); });
    postCheck();
}

void WriterWrenSm::dropFailed() {
    for (auto at = impl_->readers.begin(); at != impl_->readers.end();) {
        auto const reader = at++;
        if (!reader->failed) continue;
        FMTRACE(debugHandler(), 1, "reader {} has gone", reader->name);
        loop().fdDel(reader->fd.get());
        if (reader->asleep) --sleepingReaders_;
        impl_->readers.erase(reader);
    }
}

// False if there is none, or if the connection has failed by it.
bool WriterWrenSm::takeMessage(Reader& reader) {
    Message message;
    Received const received = receive(reader.fd.get(), message);
    if (received == Received::nothing) return false;
    bool const sleeps = message.kind == Kind::sleep;
    if (received == Received::closed || (!sleeps && message.kind != Kind::progress) ||
        message.position.position > impl_->queue.sequence() || reader.asleep) {
        reader.failed = true;
        return false;
    }
    ++sequencesProcessed_;
    reader.position = message.position.position;
    reader.synced = message.position.synced != 0;
    if (sleeps && reader.position < impl_->queue.sequence()) {
        ++wrens_;
        reader.failed = !send(reader.fd.get(), Wake{.sequence = impl_->queue.sequence()});
    } else if (sleeps) {
        // Nothing was announced since that look: the one thread does both.
        reader.asleep = true;
        ++sleepingReaders_;
    }
    return !reader.failed;
}

void WriterWrenSm::handleMessages(Reader& reader) {
    if (!takeMessage(reader) && !reader.failed) return;
    dropFailed();
    auto const alive = impl_->alive; // the table's owner may end it when it hears of the quiet
    checkQuiesced();
    if (*alive && impl_->listening) impl_->queue.positionsChanged();
}

void WriterWrenSm::ring() {
    if (sleepingReaders_ != 0) wakeSleepers();
    if (sincePrevious_ < pauseTicks_) return;
    flush();
    // The look itself is no pause, or slow looks would follow each other.
    U64 const end = Dunlin::Rdtsc::ticks();
    if (end - previousChange_ < longLookTicks_) previousChange_ = end;
}

void WriterWrenSm::wakeSleepers() {
    Wake const wake{.sequence = impl_->queue.sequence()};
    bool failed = false;
    for (Reader& reader : impl_->readers) {
        if (!reader.asleep) continue;
        reader.asleep = false;
        ++wrens_;
        // One Wake at most is under way, so the buffer has room unless the reader is broken.
        if (!send(reader.fd.get(), wake)) reader.failed = failed = true;
    }
    sleepingReaders_ = 0;
    // Telling of it would reach back into the table that is being changed.
    if (failed || impl_->lastQuiesced) postCheck();
}

// Also called in the midst of a change of the table, so what the table is to hear is posted.
void WriterWrenSm::flush() {
    if (!impl_->listening) return;
    try {
        BolsterAcceptSm::bolsterAcceptSm().look();
    } catch (std::exception const& error) {
        FMTRACE(debugHandler(), 0, "cannot let readers in: {}", error.what());
    }
    bool heard = false;
    for (Reader& reader : impl_->readers)
        for (int taken = 0; taken < messagesPerLook && takeMessage(reader); ++taken) heard = true;
    heard |= std::any_of(impl_->readers.begin(), impl_->readers.end(),
                         [](Reader const& r) { return r.failed; });
    dropFailed();
    if (heard) postCheck();
}

void WriterWrenSm::pauseIs(double seconds) {
    pause = seconds;
}

void WriterWrenSm::postCheck() {
    if (impl_->checkPosted) return;
    impl_->checkPosted = true;
    loop().taskAdd(Dunlin::TaskSchedulerRoot::Priority::normal, [alive = impl_->alive] {
        WriterWrenSm* const self = *alive;
        if (!self) return;
        self->impl_->checkPosted = false;
        self->dropFailed();
        self->checkQuiesced();
        if (*alive && self->impl_->listening) self->impl_->queue.positionsChanged();
    });
}

void WriterWrenSm::checkQuiesced() {
    bool const now = quiesced();
    if (now == impl_->lastQuiesced) return;
    impl_->lastQuiesced = now;
    impl_->queue.quiescedChanged(now);
}

Sequence WriterWrenSm::slowest(Sequence ifNone) const {
    Sequence slowest = ifNone;
    for (Reader const& reader : impl_->readers) slowest = std::min(slowest, reader.position);
    return slowest;
}

bool WriterWrenSm::quiesced() const {
    Sequence const head = impl_->queue.sequence();
    return std::all_of(impl_->readers.begin(), impl_->readers.end(),
                       [&](Reader const& r) { return r.synced && r.position == head; });
}

bool WriterWrenSm::clientQuiesced(std::string const& name) const {
    if (name.empty()) return false;
    Sequence const head = impl_->queue.sequence();
    bool any = false;
    for (Reader const& reader : impl_->readers) {
        if (reader.name != name) continue;
        if (!reader.synced || reader.position != head) return false;
        any = true;
    }
    return any;
}

U32 WriterWrenSm::readers() const {
    return static_cast<U32>(impl_->readers.size());
}

} // namespace Wren
