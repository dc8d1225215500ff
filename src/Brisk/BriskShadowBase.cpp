#include "Brisk/BriskShadowBase.h"

#include "Dunlin/Exception.h"
#include "Dunlin/Rdtsc.h"
#include "Dunlin/TaskSchedulerRoot.h"
#include "SharedMem/OwnerFile.h"

#include <utility>

namespace Brisk {
namespace {

// The clock is looked at after so many notifications.
constexpr unsigned notificationsPerLook = 32;
// A notified slot is asked for so many notifications ahead.
constexpr U32 prefetchedAhead = 8;

} // namespace

BriskShadowBase::BriskShadowBase(Dunlin::Platform::DebugHandler& handler, char const* name,
                                 U32 flagsAre)
    : Debuggable(handler), shadowPath(name), flags(flagsAre), syncer(*this),
      yarrowReader(handler, shadowPath), wren(handler, *this),
      here_(std::make_shared<BriskShadowBase*>(this)) {}

BriskShadowBase::~BriskShadowBase() {
    *here_ = nullptr;
}

bool BriskShadowBase::initializeYarrow() {
    if (!yarrowReader.attach(sharedOrielId())) return false;
    incarnation_ = yarrowReader.incarnation();
    maybeConnect();
    markRuntime();
    startWalk((flags & asyncFlag) != 0);
    return true;
}

// The position comes before the walk (H-shadow-3).
void BriskShadowBase::startWalk(bool asynchronous) {
    yarrowEnabled = false;
    wren.suspend();
    ++walkSerial_;
    syncSequence = yarrowReader.position();
    yarrowReader.lastIs(syncSequence);
    syncHead_ = Wren::syncPass; // until the walk is complete, everything may have been met by it
    syncer.sync(syncBound(), SyncerMode::sync, asynchronous);
}

void BriskShadowBase::resync() {
    ++resyncs_;
    FMTRACE(debugHandler(), 1, "{} last:{} head:{}", shadowPath.text(), yarrowReader.last(),
            yarrowReader.head());
    Dunlin::FirstRaised raised;
    raised.run([&] { reportQuiesced(false); });
    if (runtime()) startWalk(true);
    raised.rethrow();
}

U32 BriskShadowBase::syncBound() {
    resize();
    return std::max(sharedCapacity(), localCapacity());
}

void BriskShadowBase::noteSyncComplete() {
    syncHead_ = yarrowReader.head();
}

void BriskShadowBase::maybeEnableYarrow() {
    if (!runtime() || !syncer.done()) return;
    yarrowEnabled = wrenEnabled = true;
    wren.enable();
    if (leaving_) postRest();
}

void BriskShadowBase::maybeConnect() {
    try {
        SharedMem::OwnerFile const owner(debugHandler(), shadowPath, false);
        if (!wren.connect(owner.bolsterInfo()))
            FMTRACE(debugHandler(), 1, "{} no writer listens yet", shadowPath.text());
    } catch (Dunlin::Exception const& error) {
        FMTRACE(debugHandler(), 1, "{}", error.message());
    }
    if (yarrowEnabled && !wren.enabled()) wren.enable();
}

void BriskShadowBase::stopAll() {
    wren.disconnect();
    yarrowEnabled = wrenEnabled = leaving_ = false;
    yarrowReader.detach();
    syncer.stop();
    ++walkSerial_;
    quiescedReported = false;
}

// ---- what a writer has left behind ----

bool BriskShadowBase::restLeft() const {
    if (!runtime() || !notifying) return false;
    return syncer.done() ? yarrowEnabled && yarrowReader.last() < rest_ : true;
}

bool BriskShadowBase::takeRest() {
    // What a successor publishes in a table that it keeps is not waited for.
    if (!std::exchange(leaving_, true)) rest_ = yarrowReader.head();
    if (!restLeft()) return true;
    postRest();
    return false;
}

// One slice. A walk that is under way goes on by itself and comes back here when it is complete.
void BriskShadowBase::postRest() {
    if (std::exchange(restPosted_, true)) return;
    Dunlin::schedulerRootDunlin->taskAdd(
        Dunlin::TaskSchedulerRoot::Priority::normal, [here = here_] {
            BriskShadowBase* const self = *here;
            if (!self) return;
            self->restPosted_ = false;
            if (!self->leaving_ || !self->runtime()) return;
            try {
                if (self->restLeft() && self->syncer.done())
                    self->wrenDrain(self->wren.yieldTime());
            } catch (...) {
                if (*here) self->postRest(); // what a client raises does not end it
                throw;
            }
            if (!*here || !self->leaving_ || !self->runtime()) return;
            if (!self->restLeft())
                self->restTaken();
            else if (self->syncer.done())
                self->postRest();
        });
}

// Files that a successor has replaced stop making sense to those who read the old ones: then what
// could be taken from them was taken.
void BriskShadowBase::unreadable(std::string const& message) {
    yarrowEnabled = false;
    wren.suspend();
    if (!leaving_) return corruptionDetected(message);
    FMTRACE(debugHandler(), 1, "{} the rest cannot be read: {}", shadowPath.text(), message);
    postRest();
}

void BriskShadowBase::reportQuiesced(bool quiesced) {
    if (quiesced == quiescedReported) return;
    quiescedReported = quiesced;
    handleQuiesced(quiesced);
}

void BriskShadowBase::syncFailed(std::string const& message) {
    unreadable(message);
}

// A writer of another incarnation may have died before it announced its last change, and one that
// has dropped what we have not seen cannot tell us any more (H-write-3).
void BriskShadowBase::wrenWelcome(Wren::Welcome const& welcome) {
    bool const another = welcome.incarnation != incarnation_;
    incarnation_ = welcome.incarnation;
    yarrowReader.countedFromIs(welcome.sequence);
    if (another || welcome.prunedThrough > yarrowReader.last()) resync();
}

bool BriskShadowBase::wrenDrain(double seconds) {
    // A client's callback that runs the loop must not bring us back in here.
    if (!runtime() || !yarrowEnabled || draining_) return false;
    struct Guard {
        bool& flag;
        explicit Guard(bool& f) : flag(f) { flag = true; }
        ~Guard() { flag = false; }
    } const guard(draining_);
    U64 const serial = walkSerial_;
    U64 const start = Dunlin::Rdtsc::ticks();
    double const limit = seconds * Dunlin::Rdtsc::calibrationRate();
    try {
        for (unsigned taken = 1;; ++taken) {
            switch (yarrowReader.next()) {
            case Yarrow::QueueReader::Taken::none:
                reportQuiesced(true);
                return true;
            case Yarrow::QueueReader::Taken::overtaken:
                resync();
                return false;
            case Yarrow::QueueReader::Taken::entry: {
                prefetchSlot(yarrowReader.slotAhead(prefetchedAhead));
                reportQuiesced(false);
                Wren::Sequence const sequence = yarrowReader.sequence();
                Dunlin::FirstRaised raised;
                raised.run([&] { doSlot(yarrowReader.slot(), sequence, sequence <= syncHead_); });
                // The client may have detached the shadow, or a new walk may have begun.
                bool const mine = runtime() && walkSerial_ == serial;
                if (mine) yarrowReader.done();
                raised.rethrow();
                if (!mine || !notifying) return false;
            }
            }
            if (taken % notificationsPerLook == 0 &&
                static_cast<double>(Dunlin::Rdtsc::ticks() - start) > limit)
                return false;
        }
    } catch (Dunlin::CorruptionDetectedException const& error) {
        unreadable(error.message());
    } catch (Dunlin::MemoryResourceException const& error) {
        unreadable(error.message());
    }
    return false;
}

} // namespace Brisk
