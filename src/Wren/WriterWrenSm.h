// The writer's side of the doorbell: who reads the table's queue, how far each reader has come, and
// which of them sleep and want to be woken.
//
// All of it is private memory of the one thread that also advances the queue, so no wake-up is lost
// and `notify` needs neither a fence nor a system call while all readers are awake.
#pragma once

#include "Dunlin/Trace.h"
#include "SharedMem/FileUtil.h"
#include "SharedMem/OrielFile.h"
#include "Wren/Sequence.h"

#include <memory>
#include <string>

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

    // Wakes every sleeping reader. Ask `mustRing` first: it is one private word.
    bool mustRing() const { return sleepingReaders_ != 0; }
    void ring();

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
    void drop(Reader& reader);
    void postCheck();
    void checkQuiesced();

    struct Impl;
    std::unique_ptr<Impl> impl_;
    U32 tableId_;
    U32 sleepingReaders_ = 0;
    U64 wrens_ = 0;
    U64 sequencesProcessed_ = 0;
};

} // namespace Wren
