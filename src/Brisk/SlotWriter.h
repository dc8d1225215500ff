// The writer's mapping of a slot file: slots by index, the free list, growth, and the moves and
// the cut of a shrink. Only the writing process has one, on one thread.
#pragma once

#include "Brisk/Counters.h"
#include "Brisk/SlotTable.h"
#include "SharedMem/RootPath.h"
#include "SharedMem/SharedMem.h"
#include "SharedMem/VersionAnchor.h"

namespace Brisk {

template <class OpsType>
class SlotWriterTable final : public SlotTable<typename OpsType::Value> {
public:
    using Ops = OpsType;
    using Value = typename Ops::Value;
    using Base = SlotTable<Value>;
    using Slot = typename Base::Slot;
    using Header = typename Base::Header;

    // The slot array; every access is checked, so a corrupt link ends in an exception.
    class Slots {
    public:
        // Raises CorruptionDetectedException for an index above `maxIndex`.
        Slot& operator[](U32 index) {
            if (index > maxIndex) [[unlikely]]
                outOfRange(index, maxIndex);
            return base[index];
        }
        Slot* base = nullptr;
        U32 maxIndex = 0; // the slot count less one, 0 when there are none

    private:
        [[noreturn]] static void outOfRange(U32 index, U32 maxIndex);
    };

    // Clears the critical-section mark, but not while an exception is passing: what it leaves
    // behind must be found by the next writer.
    class CriticalSectionAnchor {
    public:
        explicit CriticalSectionAnchor(SlotWriterTable& table);
        ~CriticalSectionAnchor();
        CriticalSectionAnchor(CriticalSectionAnchor const&) = delete;
        CriticalSectionAnchor& operator=(CriticalSectionAnchor const&) = delete;

    private:
        SlotWriterTable& table_;
        int exceptions_;
    };

    SlotWriterTable(Dunlin::Platform::DebugHandler& handler, Mem::YokeRootPath const& rootPath,
                    Ops& ops, Writer::Counters& counters, U32 maxSize, bool fixedSize,
                    bool shrinkable, bool localMem, bool heap);

    U32 capacity() const override { return numSlots; }
    void detach() override;

    // Sets the critical-section mark. Asserts that it is clear: a task that runs in the middle of
    // an operation must not use this table.
    void enterCriticalSection();
    void leaveCriticalSection();
    void markCriticalSection(); // sets the mark whether or not it is set

    // Remaps the file for that many slots; publishes nothing. Raises MemoryResourceException and
    // keeps header and mapping.
    void resize(U32 newNumSlots);
    // Recomputes the occupancy bound of a shrink: the largest power of two below the slot count,
    // or 0 if this table will not shrink now.
    void shrinkThreshold();
    U32 shrinkThresholdValue() const { return shrinkThreshold_; }

    // Makes room when the free list is empty. Raises TableFullException, MemoryResourceException
    // (both leave the table as it was and the critical section clear) and
    // CorruptionDetectedException.
    void grow();
    // Links the slots from `start` to `end` - 1 in rising order. The caller stores the list's head.
    void addFreeSlots(U32 start, U32 end);
    // Takes all slots from `threshold` on off the free list.
    void purgeFreeSlots(U32 threshold);
    // Moves the entry of `fromSlotId` to the free-list head `toSlotId`; `prev` refers to it.
    void move(U32 fromSlotId, U32 toSlotId, SlotLink& prev);
    // Gives up a slot whose entry has moved away.
    void vacate(U32 slotId);
    // Publishes the smaller count and gives the memory back.
    void shrink(U32 newNumSlots);

    // Formats the mapped file for `count` slots with an empty list.
    void format(U32 count, U32 orielId, std::string const& typeName, U32 seed);
    // Takes the slot base, the counts and the shrink threshold from the mapped header.
    void reload();

    // Whether `link` lies in this file, and its offset there; growth may move the mapping.
    bool contains(SlotLink const* link) const;
    std::size_t offsetOf(SlotLink const* link) const {
        return static_cast<std::size_t>(reinterpret_cast<char const*>(link) -
                                        reinterpret_cast<char const*>(header));
    }
    SlotLink* linkAt(std::size_t offset) const {
        return reinterpret_cast<SlotLink*>(reinterpret_cast<char*>(header) + offset);
    }

    void recordAnchor(Slot const& slot);
    void resetAnchor() { anchor = {}; }

    Dunlin::Platform::DebugHandler* handler;
    Mem::YokeRootPath rootPath;
    Mem::Tracked<Mem::SharedMemWrapper> memory;
    Header* header = nullptr;  // null when detached
    Mem::VersionAnchor anchor; // the last one handed out
    U32 numSlots = 0;          // local copy of the header's count
    U32 maxSize;
    Ops* ops;
    U32 minSlots;
    Slots slots;
    Writer::Counters* counters;
    bool fixedSize;
    bool shrinkable;

private:
    void writeFreeImage(Slot& slot, U32 slotVersion);

    U32 shrinkThreshold_ = 0;
};

} // namespace Brisk
