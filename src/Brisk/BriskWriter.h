// The one writer of a shared table. It takes the table's files over from whoever held them before,
// keeps them if it can prove them sound and makes new ones if not, and changes the table while
// readers in other processes go on reading: no reader waits, no lock is taken, the order of the
// stores is the whole protocol.
//
// A writer may die at any instruction. The mark in the header's runtimeFlags says that it was inside
// an operation; its successor finds it and formats anew. A writer that died between two operations
// leaves a table that is kept with all its entries.
//
// All operations run on one thread, that of the event loop (Dunlin::schedulerRootDunlin). Readers hear
// of changes whether or not it turns the loop: a change that comes more than 1 ms after the one before
// lets new followers in and wakes those that have gone to sleep, and followers look themselves while
// changes come closer together. What still needs the loop, or the descriptor of the loop in the
// host's: callbacks, the giving back of memory after a shrink, and of the places in the queue that
// all followers have passed; and the notice that the table's files were removed.
//
// A CorruptionDetectedException in the midst of a change leaves the
// mark set; what is found before the change begins, or by a read, does not.
#pragma once

#include "Brisk/BriskInterface.h"
#include "Brisk/MapDescriptor.h"
#include "Brisk/SlotWriter.h"
#include "Brisk/Validator.h"
#include "BriskCore/WriterHashMap.h"
#include "SharedMem/OwnerFile.h"
#include "SharedMem/WriterLock.h"
#include "Yarrow/YarrowWriter.h"
#include "Yarrow/YarrowWriterNotifiee.h"

#include <functional>
#include <memory>
#include <span>
#include <vector>

namespace Brisk {

template <class OpsType>
class BriskWriter : public BriskInterface<OpsType>, public Yarrow::YarrowWriterNotifiee {
public:
    using Ops = OpsType;
    using Interface = BriskInterface<Ops>;
    using Key = typename Ops::Key;
    using Value = typename Ops::Value;
    using Table = SlotWriterTable<Ops>;
    using Slot = typename Table::Slot;
    using HashMap = BriskCore::WriterHashMap<BriskWriter, Validator<Ops>>;
    using Queue = typename Ops::Notifier;

    // `name` is the table's path below the base directory; `typeName` goes into the files. Touches
    // no file. Asserts that a shared table has a size other than 0. `onQuiesced` is called from the
    // event loop when all readers have taken up all changes, and when that ends.
    BriskWriter(Dunlin::Platform::DebugHandler& handler, std::string const& name,
                MapDescriptor const& descriptor, Ops const& ops, std::string const& typeName,
                std::function<void(bool)> onQuiesced);
    ~BriskWriter() override;

    // Takes the table over. Raises InvalidInitializeException if another process writes it, or if
    // its files cannot be made, and MemoryResourceException.
    bool initialize(std::string const& event) override;
    // Lets the table go; the files stay. Nothing can be written until the next `initialize`. Asserts
    // that no direct operation on a new entry is open, and that it is not called by a task in the
    // middle of a resize.
    void detach(bool force) override;
    // An operation whose resize is under way keeps the table to its end.
    void abandon() override {
        if (!resizing_) detach(false);
    }
    bool validate() override;
    // Raises CorruptionDetectedException if the files on disk are not those in use.
    bool validateFiles() override;
    // Makes the table again, with all its entries, in the place from which its files were removed: a
    // new generation, to which readers come over. Nothing if no file is missing, or if the table was
    // cleaned up or let go. False if it is not possible now: another process writes the table, or an
    // operation is open. Raises InvalidInitializeException and MemoryResourceException where files
    // cannot be made. In both cases the table remains as it was, without a name, for this process.
    bool remake() override;
    void cleanup() override;

    U32 members() const override;
    U32 buckets() const override { return map_.buckets.numBuckets(); }
    U32 minSize() const override { return table_.minSlots; }
    U32 maxSize() const override { return table_.maxSize; }
    U32 capacity() const override { return table_.capacity(); }
    BriskType type() const override { return BriskType::writer; }
    bool quiesced() const override { return queue_.quiesced(); }
    bool clientQuiesced(std::string const& name) const override;
    // Lets in the followers that wait to be let in and wakes those that are behind, now. For a writer
    // that is about to leave the loop unturned for long; not needed for any change to be heard.
    void flush() override { queue_.wren().flush(); }
    Writer::Counters writerCounters() override;
    U64 sequence() const override { return queue_.sequence(); }
    Mem::YokeRootPath rootPath() const override { return rootPath_; }
    std::string briskName() const override { return rootPath_.directoryName(); }
    Mem::MountStatus mountStatus() const override {
        return this->initialized() ? Mem::MountStatus::mounted : Mem::MountStatus::unmounted;
    }
    SharedMem::OrielId orielId() const override { return orielId_; }
    void validateVersionAnchor() const override;
    void validateVersionAnchorHookIs(VersionAnchorHook hook) override { anchorHook_ = hook; }
    Mem::CacheVersionAnchor getCacheVersionAnchor() const override {
        return Mem::cacheVersionAnchor(table_.anchor);
    }
    void criticalTaskCheckIs(bool on) override { criticalTaskCheck_ = on; }
    bool criticalTaskCheck() const override { return criticalTaskCheck_; }
    void scratchpadIs(unsigned long word) override;
    unsigned long scratchpad() const override;

    // Raises TableFullException for a full fixed-size table and MemoryResourceException where the
    // file cannot grow, both with the table as it was.
    Value const* write(Value const& value, bool overwrite) override;
    // Writes the values one after the other, overwriting, and asks for the memory of each one ahead
    // of its turn. What `write` raises ends it, with the values before that one written; `written`,
    // if it is not null, counts them.
    void writeAll(std::span<Value const* const> values, std::size_t* written = nullptr);
    bool remove(Key const& key, Value& value) override;
    // Removes the keys one after the other, likewise; the number of those that were there. Which,
    // `removed` says, if it is not null: one word for each key that had its turn.
    U32 removeAll(std::span<Key const* const> keys, bool* removed = nullptr);
    // The result points into the table; `out` is filled only with the default value of a miss.
    Value const* lookup(Key const& key, bool& found, void* out) const override;
    bool first(Value& value, IterHint& hint) const override;
    bool next(Key const& key, Value& value, IterHint& hint) const override;
    // Between these and `directCommit`, nothing but `lookup` is allowed. The area of `directUpdate`
    // holds whatever the last rewrite of any entry left there: fill it whole, key included.
    Value* directWrite(Value const& value) override;
    Value* directUpdate(Key const& key) override;
    void directCommit() override;

    // Shrinks the slots if the table has become mostly empty; called by the queue from the loop.
    void shrink() override;
    void handleQuiesced(bool quiesced) override;

    std::string dumpHeaders() const;
    // Why the last validation failed.
    std::string const& lastFinding() const { return lastFinding_; }

    // For the parts of the writer.
    Table& slotTable() const { return table_; }
    HashMap& hashMap() const { return map_; }
    Queue& queue() const { return queue_; }
    std::string const& typeName() const { return typeName_; }
    // Asks ahead for all that an operation on the slot will touch; no effect.
    void prefetchSlot(U32 index) const {
        if (index > table_.slots.maxIndex) return;
        Mem::prefetchToStore(table_.slots.base + index, sizeof(Slot));
        queue_.prefetchPosition(index);
    }

private:
    // Set while buckets or slots are being resized: a task that runs in between must not come near
    // the table (A46, H-link-5).
    class ResizingAnchor {
    public:
        explicit ResizingAnchor(BriskWriter& writer) : writer_(writer) { writer_.resizing_ = true; }
        ~ResizingAnchor() { writer_.resizing_ = false; }
        ResizingAnchor(ResizingAnchor const&) = delete;
        ResizingAnchor& operator=(ResizingAnchor const&) = delete;

    private:
        BriskWriter& writer_;
    };

    void attach();
    bool attachAndValidate(bool force, SharedMem::OwnerFile& ownerFile,
                           SharedMem::BolsterInfo const& bolsterInfo);
    U32 attachSlots();
    void retireSlots();
    void commitSlots();
    bool validate(SharedMem::OrielId orielId, bool checkOwner);
    SharedMem::OrielId newOrielId() const;
    std::vector<SharedMem::OrielId> idsInFiles() const;
    void removeCorruptionFile() const;
    bool fileIsMissing() const;
    template <class F>
    void eachFile(F const& f);
    void copyFiles(SharedMem::OrielId id);
    void moveToCopies(SharedMem::OrielId id);

    void assertAttached(char const* doing) const;
    void assertNotResizing() const;
    template <class What>
    void assertIdle(char const* doing, What const& what) const;
    template <class Item, class KeyOf, class Perform>
    void forAll(std::span<Item const* const> items, std::size_t bytes, KeyOf const& keyOf,
                Perform const& perform);
    SlotLink* takeSlot(U32 hash, SlotLink* prev, U32& index);
    void rewrite(Slot& slot, Value const& value);
    void maybeGrowBuckets();
    void doMaybeShrinkSlots(U32 shrinkThreshold);
    void maybeShrinkSlots();
    U32 indexOf(Slot const& slot) const { return static_cast<U32>(&slot - table_.slots.base); }

    bool localMem_;
    Mem::YokeRootPath rootPath_;
    SharedMem::OrielId orielId_ = 0;
    U32 directSlot_ = noSlot; // the slot of an open direct operation
    SlotLink* directPrev_ = nullptr;
    bool directNew_ = false; // its slot is not linked yet
    Key directKey_{};
    Writer::Counters counters_;
    BriskCore::Bucket::WriterCounters bucketCounters_;
    std::function<void(bool)> onQuiesced_;
    mutable Table table_;
    mutable HashMap map_;
    mutable Queue queue_;
    VersionAnchorHook anchorHook_ = nullptr;
    std::string typeName_;
    bool owner_ = false; // this writer's identity stands in the owner file
    bool criticalTaskCheck_;
    bool resizing_ = false;
    bool slotsAside_ = false; // the slot file waits under its temporary name
    Mem::WriterLock writerLock_;
    std::string lastFinding_;
};

} // namespace Brisk
