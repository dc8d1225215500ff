// A reader's mapping of a slot file.
#pragma once

#include "Brisk/Counters.h"
#include "Brisk/SlotTable.h"
#include "SharedMem/OrielFile.h"
#include "SharedMem/RootPath.h"
#include "SharedMem/SharedMem.h"
#include "SharedMem/VersionAnchor.h"

#include <new>

namespace Brisk {

template <class OpsType>
class SlotReaderTable final : public SlotTable<typename OpsType::Value>, public Dunlin::Debuggable {
public:
    using Ops = OpsType;
    using Key = typename Ops::Key;
    using Value = typename Ops::Value;
    using Base = SlotTable<Value>;
    using Slot = typename Base::Slot;
    using Header = typename Base::Header;

    // State and hash of a slot as of one moment.
    struct Seen {
        U32 version = 0;
        U32 rhash = 0;
    };
    // The same with the slot's key, which is copied in whole words: a key of odd size brings a few
    // bytes of what follows it.
    struct Match : Seen {
        bool matches; // hash and key are those asked for
        alignas(Key) alignas(4) unsigned char keyBytes[(sizeof(Key) + 3) / 4 * 4];
        Key const& key() const { return *std::launder(reinterpret_cast<Key const*>(keyBytes)); }
    };

    SlotReaderTable(Dunlin::Platform::DebugHandler& handler, Mem::YokeRootPath const& rootPath,
                    Ops& ops, Reader::Counters& counters);

    // Maps the header alone; the first read maps the rest. False leaves a trace line.
    bool attach();
    void detach() override;
    U32 capacity() const override { return capacity_; }

    // A consistent copy of the header and the file's size in bytes.
    std::size_t snapshot(Header& copy) const;
    // Follows a change of the slot count; false if there was none. `orielId` is the generation that
    // the reader attached to. Raises CorruptionDetectedException, MemoryResourceException.
    bool doResize(SharedMem::OrielId orielId);
    // True while the header shows the version of the last mapping.
    bool current() const { return Mem::observe(header->numSlots.version) == localVersion_; }

    // Copies a slot's value into `out`. Raises CorruptionDetectedException for an index not below
    // the slot count. Whether the slot is occupied is for the caller to judge, once it knows that
    // the link that led here still stands.
    Seen readSlot(U32 index, void* out);
    // Reads a slot's hash and key, and copies its value into `out` only if both are the given ones.
    Match readMatch(U32 index, U32 rhash, Key const& key, void* out);
    // `readSlot` by slot number; a slot beyond the capacity reads as one that is not occupied.
    Seen getValue(U32 index, void* out);

    SlotLink const& linkAt(U32 index) const { return slot(index).link; }
    U32 versionAt(U32 index) const { return Mem::observe(slot(index).slotVersion); }
    // Asks ahead for a slot, without effect.
    void prefetch(U32 index) const { Mem::prefetch(&slot(index), sizeof(Slot)); }
    U32 rhashAt(U32 index) const { return Mem::peek(slot(index).rhash); }

    void anchorIs(U32 index, U32 version);
    void resetAnchor() { anchor = {}; }
    // Where a lookup without a buffer puts its value.
    void* scratch() { return &scratch_; }

    Mem::YokeRootPath const* rootPath;
    Mem::Tracked<Mem::SharedMemWrapper> memory;
    Header const* header = nullptr; // null when detached
    Mem::VersionAnchor anchor;      // of the value read last
    Ops* ops;
    Reader::Counters* counters;
    Mem::VersionAnchor keptAnchor; // follows the mapping when it moves
    // Set when the writer has put a new generation in the place of this table's files. What is
    // mapped stays readable and does not change any more.
    bool replaced = false;

private:
    Slot const& slot(U32 index) const {
        if (index >= numSlots_) [[unlikely]]
            outOfRange(index);
        return slots_[index];
    }
    // The place to read a slot from in the given state.
    Slot const& source(Slot const& slot, U32 version) {
        if ((version & lookasideBit) == 0) [[likely]]
            return slot;
        ++counters->lookasideSlotReads;
        return header->lookaside;
    }
    [[noreturn]] void outOfRange(U32 index) const;

    U32 localVersion_ = 0xffffffff;
    U32 capacity_ = 0;
    Slot const* slots_ = nullptr;
    U32 numSlots_ = 0;
    Value scratch_{};
};

} // namespace Brisk
