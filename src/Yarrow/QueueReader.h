// The reading end of the notification queue, without types; see YarrowReader.h for the face. Maps
// the files read-only, writes nothing, and trusts nothing it reads.
#pragma once

#include "Dunlin/Trace.h"
#include "SharedMem/SharedMem.h"
#include "Yarrow/Format.h"

namespace Yarrow {

class QueueReader : public Dunlin::Debuggable {
public:
    enum class Taken {
        entry,    // `slot` and `sequence` tell a notification
        none,     // everything published was taken
        overtaken // notifications were dropped that this reader has not seen: walk all slots
    };

    QueueReader(Dunlin::Platform::DebugHandler& handler, Mem::RootPath const& rootPath);

    // Maps the queue of that generation; false if there is none.
    bool attach(SharedMem::OrielId orielId);
    void detach();
    bool attached() const { return control_ != nullptr; }

    // From the files, at this moment. The id is 0 once the queue has been replaced.
    SharedMem::OrielId orielId() const;
    U32 incarnation() const;
    // The last sequence published.
    Sequence head() const;
    // Where to go on after a walk over all slots that begins now: everything up to there was
    // readable before the walk. In front of a move of slots that is under way, so that a key that
    // moves during the walk is announced again.
    Sequence position() const;

    // The last sequence done with. Setting it also forgets that the reader was overtaken.
    Sequence last() const { return last_; }
    void lastIs(Sequence sequence);

    // The next notification behind `last`; it becomes `last` by `done`. Raises
    // CorruptionDetectedException if the files do not make sense, MemoryResourceException if a
    // grown file cannot be mapped.
    Taken next();
    U32 slot() const { return slot_; }
    Sequence sequence() const { return sequence_; }
    void done() { last_ = sequence_; }
    // The slot of the n-th entry behind the one under way, to ask ahead for; it may be any number.
    U32 slotAhead(U32 n) const {
        if (generation_ == 0 || limit_ - index_ <= n) return Entry::tombstone;
        return Mem::peek(table(generation_ & 1).entry(index_ + n)).slot;
    }
    // False if another notification for the slot stands later in the queue, so that this one
    // cannot be taken as proof that the slot is empty.
    bool validateNotif();

    // Whether the sequence lies in a move of slots that readers have yet to pass.
    bool inCorral(Sequence at) const;
    // The writer waits for this reader from that sequence on, and announces once more what a move has
    // carried along and this reader has not taken; `notCounted` when it does not know of the reader.
    static constexpr Sequence notCounted = ~Sequence{0};
    void countedFromIs(Sequence sequence) { countedFrom_ = sequence; }
    // Whether the notification is no more than a move: it lies in one that began when the writer was
    // counting this reader already. To any other, it may be all that is left of a change as well.
    bool merelyMoved(Sequence at) const;

    // True if all that the queue holds was taken.
    bool quiesced() const { return attached() && last_ == head(); }
    std::size_t primaryMappedSize() const { return files_[0].mappedSize(); }
    std::size_t secondaryMappedSize() const { return files_[1].mappedSize(); }
    std::string headersToString() const;
    // Times that the active table changed under this reader.
    U64 flips() const { return flips_; }

private:
    struct Found {
        U64 generation;
        Sequence base;
        U32 index; // of the first entry above the sequence looked for
        U32 count;
        Entry entry;
    };
    TableView table(U32 which) const;
    bool find(Sequence above, Found& found);
    void mapTable(U32 which, U32 capacity);
    bool refind();
    bool fetch();

    static constexpr U32 fetchedAtOnce = 8; // entries of a cache line

    Mem::Tracked<Mem::SharedMemWrapper> files_[2];
    ControlHeader const* control_ = nullptr;
    U64 generation_ = 0; // 0: to be looked up
    Sequence base_ = 0;
    U32 index_ = 0;
    U32 limit_ = 0;
    U32 fetched_ = 0; // entries from index_ up to here stand in ahead_, each at its number modulo 8
    Entry ahead_[fetchedAtOnce] = {};
    Sequence head_ = 0; // loaded before limit_
    Sequence last_ = 0;
    U32 slot_ = 0;
    Sequence sequence_ = 0;
    bool overtaken_ = false;
    Sequence countedFrom_ = notCounted;
    U64 flips_ = 0;
};

} // namespace Yarrow
