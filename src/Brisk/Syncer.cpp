#include "Brisk/Syncer.h"

#include "Dunlin/Exception.h"
#include "Dunlin/Rdtsc.h"

namespace Brisk {
namespace {

Dunlin::TaskSchedulerRoot& loop() {
    return *Dunlin::schedulerRootDunlin;
}
constexpr double forever = 1e18;
// The clock is looked at after so many slots.
constexpr U32 slotsPerLook = 64;

} // namespace

char const* toString(SyncerMode mode) {
    switch (mode) {
    case SyncerMode::idle:
        return "idle";
    case SyncerMode::sync:
        return "sync";
    case SyncerMode::flush:
        return "flush";
    }
    return "bad";
}

Syncer::Syncer(SyncerClient& client) : client_(client), alive_(std::make_shared<Syncer*>(this)) {}

Syncer::~Syncer() {
    *alive_ = nullptr;
}

void Syncer::sync(U32 slots, SyncerMode mode, bool asynchronous) {
    ++serial_;
    mode_ = mode;
    next_ = 0;
    slots_ = slots;
    if (asynchronous)
        postSlice();
    else
        walk(forever);
}

void Syncer::forceSyncCompletion() {
    if (mode_ != SyncerMode::idle) walk(forever);
}

void Syncer::stop() {
    ++serial_;
    mode_ = SyncerMode::idle;
}

void Syncer::notifyingIs(bool on) {
    notifying_ = on;
    if (on && mode_ == SyncerMode::sync) postSlice();
}

void Syncer::postSlice() {
    loop().taskAdd(Dunlin::TaskSchedulerRoot::Priority::normal, [alive = alive_, serial = serial_] {
        Syncer* const self = *alive;
        if (!self || self->serial_ != serial || self->done()) return;
        if (self->mode_ == SyncerMode::flush) return self->walk(self->yieldTime_);
        if (!self->notifying_) return;
        auto const failed = [self](std::string const& message) {
            self->stop();
            self->client_.syncFailed(message);
        };
        try {
            self->walk(self->yieldTime_);
        } catch (Dunlin::CorruptionDetectedException const& error) {
            failed(error.message());
        } catch (Dunlin::MemoryResourceException const& error) {
            failed(error.message());
        } catch (...) {
            if (*alive && self->serial_ == serial && !self->done()) self->postSlice();
            throw;
        }
    });
}

// The client's callbacks may start another walk, finish this one, or end the syncer's owner (whose
// memory then stays until the loop's next turn).
void Syncer::walk(double seconds) {
    ++slices_;
    U64 const serial = serial_;
    U64 const start = Dunlin::Rdtsc::ticks();
    double const limit = seconds * Dunlin::Rdtsc::calibrationRate();
    SyncerMode const mode = mode_;
    Dunlin::FirstRaised raised; // of a flush
    U32 const bound = mode == SyncerMode::sync ? std::max(slots_, client_.syncBound()) : slots_;
    for (U32 inSlice = 0; next_ < bound; ++inSlice) {
        if (inSlice % slotsPerLook == slotsPerLook - 1 &&
            static_cast<double>(Dunlin::Rdtsc::ticks() - start) > limit) {
            postSlice();
            return raised.rethrow();
        }
        U32 const slot = next_++;
        if (mode == SyncerMode::flush)
            raised.run([&] { client_.doFlushSlot(slot); });
        else
            client_.doSlot(Yarrow::BasicSlot{slot}, Wren::syncPass, true);
        if (serial_ != serial || mode_ == SyncerMode::idle) return raised.rethrow();
    }
    // The table may have grown during this slice.
    if (mode == SyncerMode::sync && client_.syncBound() > bound) {
        if (seconds == forever)
            walk(seconds);
        else
            postSlice();
        return;
    }
    mode_ = SyncerMode::idle;
    if (mode == SyncerMode::sync) return client_.syncComplete();
    raised.run([&] { client_.flushComplete(); });
    raised.rethrow();
}

} // namespace Brisk
