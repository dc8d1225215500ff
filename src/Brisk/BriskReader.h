// A process's read-only attachment to one shared table: attaching and checking, lookups and walks,
// and following a table that grows or shrinks beneath it. It has no notification of changes.
//
// One object belongs to one thread at a time; any number of objects in any number of processes read
// side by side, and none of them holds up the writer.
#pragma once

#include "Brisk/BriskInterface.h"
#include "Brisk/SlotReader.h"
#include "BriskCore/ReaderHashMap.h"

#include <memory>

namespace Brisk {

template <class OpsType>
class BriskReader : public BriskInterface<OpsType> {
public:
    using Ops = OpsType;
    using Interface = BriskInterface<Ops>;
    using Key = typename Ops::Key;
    using Value = typename Ops::Value;
    using Header = typename SlotReaderTable<Ops>::Header;

    // `name` is the table's path below the base directory. Maps nothing. With `counters` null the
    // reader keeps a record of its own.
    BriskReader(Dunlin::Platform::DebugHandler& handler, char const* name, Ops const& ops,
                Reader::Counters* counters);
    ~BriskReader() override;

    // Attaches to the table and checks its files. False, with a trace line, if there is none or if
    // it is not sound; it may be asked again. Raises InvalidInitializeException only where the
    // processor cannot carry the protocol.
    bool initialize(std::string const& event) override;
    void detach(bool force) override;
    void abandon() override { detach(false); }

    U32 members() const override;
    U32 buckets() const override { return map_.buckets.numBuckets; }
    U32 minSize() const override { return 0; }
    U32 maxSize() const override;
    U32 capacity() const override { return table_.capacity(); }
    BriskType type() const override { return BriskType::reader; }
    bool quiesced() const override { return this->initialized(); }
    Reader::Counters readerCounters() override;
    Mem::YokeRootPath rootPath() const override { return rootPath_; }
    std::string briskName() const override { return rootPath_.directoryName(); }
    Mem::MountStatus mountStatus() const override {
        return this->initialized() ? Mem::MountStatus::mounted : Mem::MountStatus::unmounted;
    }
    SharedMem::OrielId orielId() const override { return orielId_; }
    void validateVersionAnchor() const override;
    Mem::CacheVersionAnchor getCacheVersionAnchor() const override {
        return Mem::cacheVersionAnchor(table_.anchor);
    }

    // These raise CorruptionDetectedException if the table is damaged; one that was only resized
    // is re-mapped and read again.
    Value const* lookup(Key const& key, bool& found, void* out) const override;
    bool first(Value& value, IterHint& hint) const override;
    bool next(Key const& key, Value& value, IterHint& hint) const override;
    // Reads one slot by number into `value`, and into `out` unless that is null; true if it is
    // occupied. A slot beyond the table is one that is not.
    bool getValue(U32 slotIndex, Value& value, void* out) const;
    // As `getValue`, but a slot that cannot be read is one that is not occupied.
    bool safeValue(U32 slotIndex, Value& value, void* out) const;

    // Brings both mappings up to date; true if anything had changed.
    bool doResize() const;
    // True once the writer has put another generation in the place of this table. Reading goes on
    // in what was there; detach and initialize lead to the new one.
    bool replaced() const { return table_.replaced; }
    std::string dumpHeaders() const;

    SlotReaderTable<Ops>& slotTable() const { return table_; }

private:
    // Runs `walk` until it was not disturbed by a resize; `onRemap` runs after each re-mapping.
    template <class Walk, class OnRemap>
    auto undisturbed(Walk walk, OnRemap onRemap) const;
    bool unchanged() const;

    std::string name_;
    Mem::YokeRootPath rootPath_;
    std::unique_ptr<Reader::Counters> ownCounters_;
    Reader::Counters* counters_;
    mutable SlotReaderTable<Ops> table_;
    mutable BriskCore::ReaderHashMap<BriskReader> map_;
    SharedMem::OrielId orielId_ = 0;
};

} // namespace Brisk
