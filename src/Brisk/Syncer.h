// Walks the slot numbers of a shadow: to bring it in line with the shared table, or to empty it. At
// once, or in slices on the event loop so that the client's thread stays free in between.
#pragma once

#include "Dunlin/TaskSchedulerRoot.h"
#include "Wren/Sequence.h"
#include "Yarrow/BasicSlot.h"

#include <fmt/core.h>

#include <memory>
#include <string>

namespace Brisk {

enum class SyncerMode : U32 { idle = 0, sync = 1, flush = 2 };

class SyncerClient {
public:
    virtual ~SyncerClient() = default;
    virtual bool doSlot(Yarrow::BasicSlot slot, Wren::Sequence sequence, bool compare) = 0;
    virtual void doFlushSlot(U32 slot) = 0;
    // How far a walk has to go now; asked again at each slice, since the table grows and shrinks.
    virtual U32 syncBound() = 0;
    virtual void syncComplete() = 0;
    virtual void flushComplete() = 0;
    // A slice found damage, or had no memory; the walk is over.
    virtual void syncFailed(std::string const& message) = 0;
};

class Syncer {
public:
    explicit Syncer(SyncerClient& client);
    ~Syncer();
    Syncer(Syncer const&) = delete;
    Syncer& operator=(Syncer const&) = delete;

    // Walks the slots 0 to `slots` - 1, and in sync mode as far as the client's bound if that is
    // more. A walk that is under way is given up. Asynchronous: in slices, and never complete
    // before this returns. Otherwise an exception of the client passes on.
    //
    // What a client raises in a slice passes on to the loop, and the walk goes on behind the slot
    // that raised it. A flush is always walked to its end, at once or in slices, before the first
    // exception passes on.
    void sync(U32 slots, SyncerMode mode, bool asynchronous);
    // Finishes the walk that is under way, on the spot.
    void forceSyncCompletion();
    // Gives up the walk that is under way.
    void stop();
    bool done() const { return mode_ == SyncerMode::idle; }
    SyncerMode mode() const { return mode_; }

    // Off: an asynchronous synchronisation waits. A flush goes on.
    void notifyingIs(bool on);
    // How long one slice may last, in seconds.
    void yieldTimeIs(double const& seconds) { yieldTime_ = seconds; }
    // Slices run so far.
    U64 slices() const { return slices_; }

private:
    void walk(double seconds);
    void postSlice();

    SyncerClient& client_;
    SyncerMode mode_ = SyncerMode::idle;
    U32 next_ = 0;
    U32 slots_ = 0;
    U64 serial_ = 0; // tells a walk from the one that replaced it
    bool notifying_ = true;
    double yieldTime_ = 0.05;
    U64 slices_ = 0;
    std::shared_ptr<Syncer*> alive_; // posted tasks look here first
};

char const* toString(SyncerMode mode);

} // namespace Brisk

template <>
struct fmt::formatter<Brisk::SyncerMode> : fmt::formatter<std::string_view> {
    template <class Context>
    auto format(Brisk::SyncerMode mode, Context& context) const {
        return fmt::formatter<std::string_view>::format(Brisk::toString(mode), context);
    }
};
