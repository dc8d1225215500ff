// The writing end of the notification queue, without types; see YarrowWriter.h for the face.
#pragma once

#include "SharedMem/SharedMem.h"
#include "Wren/WriterWrenSm.h"
#include "Yarrow/Format.h"
#include "Yarrow/YarrowWriterNotifiee.h"

#include <algorithm>
#include <memory>
#include <vector>

namespace Yarrow {

struct YarrowWriterOptions {
    PruneMode pruneMode = PruneMode::acknowledged;
    bool localMem = false;
    bool heap = false;
    bool trackMemory = false;
    // PruneMode::bounded: notifications further back than this may go.
    Sequence maxLag = 1U << 20;
    // An entry's offset has 32 bits; entries older than `maxAge` are dropped rather than kept, so
    // that the base can follow. Tests set both low.
    Sequence maxOffset = 0xffffffff;
    Sequence maxAge = 1U << 31;
};

class QueueWriter : public Dunlin::Debuggable, private Wren::WriterQueue {
public:
    // How the files were found.
    enum Attached : U32 { madeNew = 1, keptFiles = 2, remadeFiles = 4 };

    QueueWriter(Dunlin::Platform::DebugHandler& handler, Mem::RootPath const& rootPath,
                YarrowWriterOptions const& options, YarrowWriterNotifiee* notifiee);
    ~QueueWriter() override;

    // What `attach` would answer for that id, from a look at the files alone.
    U32 judge(SharedMem::OrielId orielId) const;
    // Takes over the files if they are a sound queue of that generation; otherwise retires them
    // and makes new ones. Raises InvalidInitializeException.
    U32 attach(SharedMem::OrielId orielId);
    bool validate(SharedMem::OrielId orielId, U32 highestNumSlots, std::string& message) const;
    // Raises CorruptionDetectedException if a file was replaced or got shorter.
    void validateFile() const;
    void cleanup();
    // Calls `f(file, where its orielId is)` for each of the queue's files.
    template <class F>
    void eachFile(F const& f) {
        f(files_[1], offsetof(SecondaryHeader, orielId));
        f(files_[0], offsetof(ControlHeader, orielId));
    }
    // The files are those of another generation now, at the same addresses.
    void orielIdIs(SharedMem::OrielId orielId) { orielId_ = orielId; }
    void detach();
    void dumpToCoreIs(bool include);

    // Announces that the slot changed: one more entry, in the place of the slot's former one, and a
    // ring for the readers that sleep. The change must be readable before. Raises
    // MemoryResourceException, with nothing announced, if the private index cannot grow.
    void notifySlot(U32 slot);
    // Ask ahead, without effect, for what `notifySlot` will touch: first the slot's position, then
    // the entry there.
    void prefetchPosition(U32 slot) const {
        if (slot < numPositions_) Mem::prefetchToStore(positions_ + slot);
    }
    void prefetchEntry(U32 slot) const {
        if (U32 const at = position(slot); at != ~0U) Mem::prefetchToStore(&table_.entry(at));
    }
    // Withdraws the slot's live entry, if it has one. Inside a move, the slot's contents are taken
    // to be in the slot announced last.
    void tombstoneSlot(U32 slot);

    // The span of a move of slots. What is announced inside is never replaced by a later
    // announcement while the span stands; it goes when every connected reader has passed it.
    void markShrinkStart();
    void markShrinkEnd();
    Sequence corralStart() const { return control_ ? Mem::peek(control_->corralStart) : 0; }
    Sequence corralEnd() const { return control_ ? Mem::peek(control_->corralEnd) : 0; }

    // As the file says, for a validation; no more than it has room for.
    U32 entryCount() const {
        return control_ ? std::min(Mem::peek(table_.header().count), capacity_) : 0;
    }
    Sequence baseSequence() const { return base_; }
    // `position` is below `entryCount()`.
    Entry entry(U32 position) const { return Mem::peek(table_.entry(position)); }
    // The place of the slot's live entry; 0xffffffff if it has none.
    U32 position(U32 slot) const { return slot < numPositions_ ? ~positions_[slot] : ~0U; }

    SharedMem::OrielId orielId() const override { return orielId_; }
    U32 incarnation() const override { return incarnation_; }
    Sequence sequence() const override { return sequence_; }
    Sequence prunedThrough() const override { return prunedThrough_; }

    bool quiesced() const { return wren_.quiesced(); }
    bool clientQuiesced(std::string const& name) const { return wren_.clientQuiesced(name); }
    Wren::WriterWrenSm& wren() { return wren_; }
    Wren::WriterWrenSm const& wren() const { return wren_; }
    std::size_t primaryMappedSize() const { return files_[0].mappedSize(); }
    std::size_t secondaryMappedSize() const { return files_[1].mappedSize(); }
    std::string headersToString() const;
    // Compactions so far in this process.
    U64 compactions() const { return compactions_; }

private:
    void listening() override;
    void positionsChanged() override;
    void quiescedChanged(bool quiesced) override;

    void withdraw(U32 slot, U32 position);
    void create(SharedMem::OrielId orielId);
    void takeOver();
    void rebuildPositions();
    void makeRoom();
    void compact(Sequence pruneThrough);
    bool reserveTable(U32 which, U32 live);
    void growPositions(U32 slot);
    void dissolveCorral();
    void maybeDissolveCorral();
    Sequence pruneBound() const;
    void refreshPointers();
    bool inCorral(Sequence at) const;

    Mem::RootPath rootPath_;
    YarrowWriterOptions options_;
    YarrowWriterNotifiee* notifiee_;
    Mem::Tracked<Mem::SharedMemWrapper> files_[2];
    ControlHeader* control_ = nullptr;
    TableView table_;
    // Private copies of the writer's own words; nobody else stores them.
    U64 generation_ = 0;
    Sequence base_ = 0;
    Sequence sequence_ = 0;
    Sequence prunedThrough_ = 0;
    U32 capacity_ = 0;
    U32 count_ = 0;
    U32 incarnation_ = 0;
    SharedMem::OrielId orielId_ = 0;
    bool corralOpen_ = false;
    U32 lastNotified_ = 0;
    std::vector<U32> movedUnseen_; // slots whose contents moved with a change not all have seen
    // By slot the complement of its position, so that fresh zero memory means "none".
    Mem::Local positionsMem_;
    U32* positions_ = nullptr;
    U32 numPositions_ = 0;
    U64 compactions_ = 0;
    Wren::WriterWrenSm wren_;
    std::shared_ptr<QueueWriter*> alive_; // posted tasks look here first
};

} // namespace Yarrow
