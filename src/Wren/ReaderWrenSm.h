// The reader's side of the doorbell, for one table: connects to the writer, takes notifications
// when it is woken, and sleeps when there are none. The token is with the reader while it works and
// with the writer while it sleeps.
#pragma once

#include "Dunlin/TaskSchedulerRoot.h"
#include "Dunlin/Trace.h"
#include "SharedMem/Bolster.h"
#include "SharedMem/FileUtil.h"
#include "Wren/Protocol.h"

#include <memory>
#include <string>

namespace Wren {

// What the doorbell asks of the reader it wakes. All calls come from the event loop, except those
// that `connect` makes.
class ReaderClient {
public:
    virtual ~ReaderClient() = default;
    virtual U32 wrenOrielId() const = 0;
    virtual U32 wrenIncarnation() const = 0;
    // The last notification that was done with; 0 while there is no position yet.
    virtual Sequence wrenPosition() const = 0;
    // The last one published.
    virtual Sequence wrenHead() const = 0;
    virtual bool wrenSynced() const = 0;
    // Takes notifications for up to `seconds`; true if none is left.
    virtual bool wrenDrain(double seconds) = 0;
    // The writer has let us in.
    virtual void wrenWelcome(Welcome const& welcome) = 0;
    virtual void handleDisconnect() = 0;
    // No connection for a while: time to look for the writer again.
    virtual void wrenRetry() = 0;
};

class ReaderWrenSm : public Dunlin::Debuggable {
public:
    ReaderWrenSm(Dunlin::Platform::DebugHandler& handler, ReaderClient& client);
    ~ReaderWrenSm();
    ReaderWrenSm(ReaderWrenSm const&) = delete;
    ReaderWrenSm& operator=(ReaderWrenSm const&) = delete;

    // Connects and greets; false if the writer does not listen yet. Does nothing when connected.
    bool connect(SharedMem::BolsterInfo const& writer);
    // From now on notifications are taken. Before, the connection only holds back pruning.
    void enable();
    // Takes no more until `enable`; the connection stays.
    void suspend() { enabled_ = false; }
    // Ends the connection and the taking of notifications, without a call of handleDisconnect.
    void disconnect();

    // Off: notifications wait in the queue until it is on again.
    void notifyingIs(bool on);
    // How long one slice of taking notifications may last, in seconds.
    void yieldTimeIs(double const& seconds) { yieldTime_ = seconds; }
    double yieldTime() const { return yieldTime_; }

    // Let in by the writer.
    bool connected() const { return state_ >= State::awake; }
    bool enabled() const { return enabled_; }
    // The last connection ended before the writer let us in.
    bool refused() const { return refused_; }
    // Positions told to the writer.
    U64 sequencesSent() const { return sequencesSent_; }
    // Times that work was found although no Wake had come for a whole tick: a defect.
    U64 lateWakes() const { return lateWakes_; }

    // The name that this process's readers give: its process name.
    static std::string readerName();

private:
    enum class State { idle, greeted, awake, asleep };

    void handleEvents(U32 events);
    void slice();
    void postSlice();
    void sendSleep();
    void watch(U32 events);
    template <class Call>
    auto askClient(Call call);
    void tick();
    void armTick();
    void look();
    void lookLater(Sequence seen);
    void armLook(double seconds);
    void lost();

    ReaderClient& client_;
    Mem::Fd fd_;
    State state_ = State::idle;
    bool enabled_ = false;
    bool notifying_ = true;
    bool slicePosted_ = false;
    bool sleepUnsent_ = false;
    bool refused_ = false;
    bool lagged_ = false;
    double yieldTime_ = 0.05;
    U64 sequencesSent_ = 0;
    U64 lateWakes_ = 0;
    Dunlin::TaskSchedulerRoot::TimerId timer_ = 0;
    Dunlin::TaskSchedulerRoot::TimerId lookTimer_ = 0;
    Sequence seen_ = 0; // the head at the last look, and when that was over
    U64 seenTicks_ = 0;
    std::shared_ptr<ReaderWrenSm*> alive_; // posted tasks look here first
};

} // namespace Wren
