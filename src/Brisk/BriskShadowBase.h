// What drives a shadow, without its types: the walk that brings it in line with the table, the
// queue that keeps it there, and the doorbell that wakes it.
//
// Order of an attach: greet the writer, so that it holds its notifications back; take the queue's
// position; walk all slots; take the queue from that position on. So no change can fall between.
#pragma once

#include "Brisk/Syncer.h"
#include "Dunlin/Trace.h"
#include "SharedMem/RootPath.h"
#include "Wren/ReaderWrenSm.h"
#include "Yarrow/YarrowReader.h"

namespace Brisk {

class BriskShadowBase : public Dunlin::Debuggable,
                        protected SyncerClient,
                        protected Wren::ReaderClient {
public:
    static constexpr U32 keyShadowFlag = 1;
    static constexpr U32 asyncFlag = 2;
    static constexpr U32 notifyOnFlushFlag = 4;

    // `name` is the table's.
    BriskShadowBase(Dunlin::Platform::DebugHandler& handler, char const* name, U32 flags);
    ~BriskShadowBase() override;

    // Walks that began because notifications were missed, and wake-ups that did not come.
    U64 resyncs() const { return resyncs_; }
    U64 lateWakes() const { return wren.lateWakes(); }
    U64 syncSlices() const { return syncer.slices(); }

    bool doSlot(Yarrow::BasicSlot slot, Wren::Sequence sequence, bool compare) override = 0;
    // The writer has gone. True if the client has heard all that was published by then, as far as it
    // wants to and as the files make sense. Otherwise the rest follows in slices, and `restTaken`
    // after it. The files stay readable while they are mapped.
    bool takeRest();

protected:
    virtual void restTaken() = 0;
    virtual void handleQuiesced(bool quiesced) = 0;
    virtual std::string dumpHeaders() const = 0;
    virtual void corruptionDetected(std::string const& message) = 0;
    void handleDisconnect() override = 0;
    // Starts a walk over all slots, beside what the client was told before.
    virtual void resync();
    // Begins to take notifications, if the walk is complete and the shadow lives.
    virtual void maybeEnableYarrow();
    // Whether the shadow is fed from the queue now.
    virtual bool syncFromYarrow() const { return yarrowEnabled; }
    void syncComplete() override = 0;
    void flushComplete() override = 0;
    void doFlushSlot(U32 slot) override = 0;
    // The private array's length.
    virtual U32 localCapacity() const = 0;
    // Brings the mappings up to date.
    virtual bool resize() = 0;
    // Whether the shadow is attached.
    virtual bool runtime() const = 0;
    virtual U32 sharedCapacity() const = 0;
    virtual SharedMem::OrielId sharedOrielId() const = 0;
    // The shadow counts as attached from here on: the walk's callbacks see it so (A18).
    virtual void markRuntime() = 0;
    // Asks ahead for what `doSlot` will touch, without effect.
    virtual void prefetchSlot(U32 slot) const = 0;

    // Maps the queue and starts the first walk. False if there is no queue of this generation.
    bool initializeYarrow();
    // The writer is there after all.
    void stay() { leaving_ = false; }
    // Connects to the table's writer if it listens.
    void maybeConnect();
    // Ends connection, queue and walk.
    void stopAll();
    // Remembers, for `doSlot`, that the queue's head at the end of a walk is known (A40).
    void noteSyncComplete();
    void reportQuiesced(bool quiesced);

    Mem::YokeRootPath const shadowPath;
    U32 const flags;
    bool notifying = true;
    bool synced = false;
    bool yarrowEnabled = false;
    bool wrenEnabled = false;
    bool quiescedReported = false; // what the client was told last
    Wren::Sequence syncSequence = 0;
    Syncer syncer;
    Yarrow::YarrowReader<Yarrow::BasicSlot> yarrowReader;
    Wren::ReaderWrenSm wren;

private:
    void startWalk(bool asynchronous);
    bool restLeft() const;
    void postRest();
    void unreadable(std::string const& message);

    // Of SyncerClient and ReaderClient.
    U32 syncBound() override;
    void syncFailed(std::string const& message) override;
    U32 wrenOrielId() const override { return sharedOrielId(); }
    U32 wrenIncarnation() const override { return incarnation_; }
    Wren::Sequence wrenPosition() const override { return yarrowReader.last(); }
    Wren::Sequence wrenHead() const override { return yarrowReader.head(); }
    bool wrenSynced() const override { return synced && syncer.done(); }
    bool wrenDrain(double seconds) override;
    void wrenWelcome(Wren::Welcome const& welcome) override;
    void wrenRetry() override { maybeConnect(); }

    U32 incarnation_ = 0;
    Wren::Sequence syncHead_ = 0; // what was published when the walk ended
    U64 walkSerial_ = 0;
    U64 resyncs_ = 0;
    bool draining_ = false;
    bool leaving_ = false; // the writer has gone, and the rest up to rest_ is being taken
    bool restPosted_ = false;
    Wren::Sequence rest_ = 0;
    std::shared_ptr<BriskShadowBase*> here_; // posted tasks look here first
};

} // namespace Brisk
