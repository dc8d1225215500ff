// The writer's side of the doorbell: who reads the table's queue, how far each reader has come, and
// which of them sleep and want to be woken.
//
// All of it is private memory of the one thread that also advances the queue, so no wake-up is lost
// and `notify` needs neither a fence nor a system call while all readers are awake. A writer that
// never turns its event loop takes the readers' messages with its changes.
#pragma once

#include "Dunlin/Rdtsc.h"
#include "Dunlin/Trace.h"
#include "SharedMem/FileUtil.h"
#include "SharedMem/OrielFile.h"
#include "Wren/Sequence.h"

#include <memory>
#include <string>
#include <utility>

namespace Wren {

struct Hello;

// What the doorbell asks of the queue it rings for, and tells it.
class WriterQueue {
public:
    virtual ~WriterQueue() = default;
    virtual SharedMem::OrielId orielId() const = 0;
    virtual U32 incarnation() const = 0;
    virtual Sequence sequence() const = 0;
    virtual Sequence prunedThrough() const = 0;
    // The table is about to be offered to readers; its files are proved sound.
    virtual void listening() = 0;
    // A reader has come further, or has gone. Called from the event loop only.
    virtual void positionsChanged() = 0;
    // All readers have taken all, or no longer have. Called from the event loop only.
    virtual void quiescedChanged(bool quiesced) = 0;
};

class WriterWrenSm : public Dunlin::Debuggable {
public:
    WriterWrenSm(Dunlin::Platform::DebugHandler& handler, WriterQueue& queue, bool localMem);
    ~WriterWrenSm();
    WriterWrenSm(WriterWrenSm const&) = delete;
    WriterWrenSm& operator=(WriterWrenSm const&) = delete;

    // The number by which readers ask for this table on the process's endpoint. Never 0, never the
    // same for two tables of a process.
    U32 tableId() const { return tableId_; }
    // From now on readers are let in: those of the users who may read files of the given permission
    // bits. Raises InvalidInitializeException if the process's endpoint cannot be made.
    void doEnableListen(U32 filesMode = 0600);
    // Closes the connections of all readers and lets in no more.
    void onDetach();

    // To be asked after each change, when it is published: whether `ring` has something to do. A
    // reader sleeps, or this change comes after a pause, in which a message may have come that the
    // event loop has not taken.
    bool mustRing() {
        if (pauseTicks_ == 0) return false; // not listening
        U64 const now = Dunlin::Rdtsc::ticks();
        sincePrevious_ = now - std::exchange(previousChange_, now);
        return sleepingReaders_ != 0 || sincePrevious_ >= pauseTicks_;
    }
    // Wakes every sleeping reader and, after a pause, does what `flush` does. Calls nobody back and
    // raises nothing.
    void ring();
    // Takes the messages that wait for the event loop, lets new readers in, and wakes those that
    // are behind. What the table is to hear of it, it hears from the event loop.
    void flush();
    // The pause, in seconds, for tables that listen from now on; a test may set 0.
    static void pauseIs(double seconds);

    // The position of the reader that is furthest behind; `ifNone` without readers.
    Sequence slowest(Sequence ifNone) const;
    // True if every reader is synchronised and has taken all; true without readers.
    bool quiesced() const;
    // True if at least one reader of that name is connected and all of them have taken all. False
    // for an empty name.
    bool clientQuiesced(std::string const& name) const;

    // Wake messages sent, positions received (each reader counts the same as sent), readers
    // connected, and those of them that sleep.
    U64 wrens() const { return wrens_; }
    U64 sequencesProcessed() const { return sequencesProcessed_; }
    U32 readers() const;
    U32 sleepingReaders() const { return sleepingReaders_; }

private:
    struct Reader;

    void accept(Mem::Fd connection, Hello const& hello);
    void handleMessages(Reader& reader);
    bool takeMessage(Reader& reader);
    void dropFailed();
    void wakeSleepers();
    void postCheck();
    void checkQuiesced();

    struct Impl;
    std::unique_ptr<Impl> impl_;
    U32 tableId_;
    U32 sleepingReaders_ = 0;
    U64 pauseTicks_ = 0; // 0: not listening
    U64 longLookTicks_ = 0;
    U64 previousChange_ = 0; // or the end of the look that it led to
    U64 sincePrevious_ = 0;
    U64 wrens_ = 0;
    U64 sequencesProcessed_ = 0;
};

} // namespace Wren
