// The private copy that a shadow keeps of a table, by the number of the shared slot.
//
// The invariant: the store holds, for slot i of the shared table, what the client was last told
// about slot i. So a delete can be told with a key that is nowhere in shared memory any more, and
// a client sees every key go exactly once.
//
// A value store keeps whole values and reads from private memory alone. A key store keeps keys, and
// fetches values from the shared table when they are asked for: they may be newer than the last
// notification.
#pragma once

#include "Brisk/BriskReader.h"
#include "Brisk/ShadowHashMap.h"
#include "Dunlin/Exception.h"
#include "Wren/Sequence.h"
#include "Yarrow/YarrowReader.h"

#include <memory>
#include <vector>

namespace Brisk {

template <class OpsType>
struct ValueShadowSlot {
    using Ops = OpsType;
    static constexpr bool hasValue = true;

    ValueShadowSlot* next;
    ValueShadowSlot** prev; // the link that leads here; null: not in the index
    U32 hash;               // bits reversed
    typename Ops::Value value;

    decltype(auto) key() const { return Ops::key(value); }
    bool empty() const { return !next && !prev; }
    bool sameValue(ValueShadowSlot const& other) const { return value == other.value; }
    void take(typename Ops::Value const& from) { value = from; }
    void reset() {
        next = nullptr;
        prev = nullptr;
        hash = 0;
        value = Ops::type_default();
    }
};

template <class OpsType>
struct KeyShadowSlot {
    using Ops = OpsType;
    static constexpr bool hasValue = false;

    KeyShadowSlot* next;
    KeyShadowSlot** prev;
    U32 hash;
    typename Ops::Key keyOnly;

    typename Ops::Key const& key() const { return keyOnly; }
    bool empty() const { return !next && !prev; }
    bool sameValue(KeyShadowSlot const&) const { return true; }
    void take(typename Ops::Value const& from) { keyOnly = Ops::key(from); }
    void reset() {
        next = nullptr;
        prev = nullptr;
        hash = 0;
        keyOnly = Ops::key(Ops::type_default());
    }
};

// What a store tells; the front of a shadow, or a test.
template <class Key, class Value>
class ShadowListener {
public:
    virtual ~ShadowListener() = default;
    virtual void shadowValue(Value const& value) = 0;
    virtual void shadowKey(Key const& key) = 0;
    virtual void shadowDelete(Key const& key) = 0;
};

template <class Key, class Value>
class ShadowStoreBase {
public:
    virtual ~ShadowStoreBase() = default;
    virtual bool initialize() = 0;
    // Brings slot and client up to date. `sequence` is the notification's, or all ones in a walk
    // over all slots. `compare`: the slot may be as the client knows it, and then nothing is told.
    // False if the notification proved stale: a later one for the slot is on its way. Raises
    // MemoryResourceException.
    virtual bool doSlot(Yarrow::BasicSlot slot, Wren::Sequence sequence, bool compare) = 0;
    // Empties a slot, and tells the client if it wants to hear of a flush.
    virtual void doFlushSlot(U32 slot) = 0;
    virtual std::size_t shadowMappedSize() const = 0;
    virtual std::size_t orielMappedSize() const = 0;
    virtual Value const* directLookup(Key const& key, bool& found, void* out) = 0;
    virtual Value const* lookup(Key const& key, bool& found, void* out) = 0;
    virtual bool first(U32 bucket, Value& value, IterHint& hint) = 0;
    virtual bool next(Key const& key, Value& value, IterHint& hint) = 0;
    virtual U32 numSlots() const = 0;
    virtual void validateVersionAnchor() const = 0;
    virtual Mem::CacheVersionAnchor getCacheVersionAnchor() const = 0;
    // Gives everything up; no callback comes after it.
    virtual void disable() = 0;
    virtual U32 buckets() const = 0;
    // Ask ahead, without effect, for what `doSlot` will touch: of a slot that a notification names,
    // or that a walk comes to.
    virtual void prefetchNotified(U32 index) const = 0;
    virtual void prefetchWalked(U32 index) const = 0;
    // Test hook: whether the index is sound.
    virtual bool sound() const = 0;
};

template <class SlotType>
class ShadowStore
    : public ShadowStoreBase<typename SlotType::Ops::Key, typename SlotType::Ops::Value>,
      public Dunlin::Debuggable {
public:
    using Slot = SlotType;
    using Ops = typename Slot::Ops;
    using Key = typename Ops::Key;
    using Value = typename Ops::Value;
    using ReaderType = BriskReader<Ops>;

    ShadowStore(Dunlin::Platform::DebugHandler& handler, ReaderType& reader,
                Yarrow::YarrowReader<Yarrow::BasicSlot>& yarrowReader, Reader::Counters& counters,
                Ops const& ops, ShadowListener<Key, Value>& listener, bool notifyOnFlush);

    bool initialize() override;
    bool doSlot(Yarrow::BasicSlot slot, Wren::Sequence sequence, bool compare) override {
        bool taken = true;
        passOn([&] { taken = apply(slot.index, sequence, compare, 0); });
        return taken;
    }
    void doFlushSlot(U32 slot) override;
    std::size_t shadowMappedSize() const override {
        return slotsMem_.size() + versionsMem_.size() + hashMap_.mappedSize();
    }
    std::size_t orielMappedSize() const override { return 0; }
    Value const* directLookup(Key const& key, bool& found, void* out) override {
        return lookup(key, found, out);
    }
    Value const* lookup(Key const& key, bool& found, void* out) override;
    bool first(U32 bucket, Value& value, IterHint& hint) override;
    bool next(Key const& key, Value& value, IterHint& hint) override;
    U32 numSlots() const override { return numSlots_; }
    void validateVersionAnchor() const override;
    Mem::CacheVersionAnchor getCacheVersionAnchor() const override {
        return Mem::cacheVersionAnchor(*currentAnchor_);
    }
    void disable() override;
    U32 buckets() const override { return hashMap_.numBuckets(); }
    void prefetchNotified(U32 index) const override;
    void prefetchWalked(U32 index) const override;
    bool sound() const override { return hashMap_.sound(); }

private:
    // A key that is known in a slot but gone from there may have moved on, and so may the one that
    // it displaced; so far is the trail followed.
    static constexpr unsigned maxTrail = 64;

    template <class Step>
    void passOn(Step&& step);
    bool apply(U32 index, Wren::Sequence sequence, bool compare, unsigned depth);
    bool growFor(U32 index);
    bool unchanged(U32 index) const;
    bool read(U32 index, Value& in, Mem::VersionAnchor& anchor);
    bool accept(Wren::Sequence sequence);
    bool elsewhere(Key const& key, U32& index);
    void park(U32 index);
    bool isParked(Key const& key) const;
    std::unique_ptr<Slot> unpark(Key const& key);
    void takeOver(U32 index, Key const& key, U32 at, unsigned depth);
    void forgetAndTell(U32 index, Key const& key);
    void tellDeleted(Key const& key);
    void tryShrink();
    void shrink(U32 newNumSlots);
    void resizeArrays(U32 newNumSlots);
    Value const* fetch(Slot const& slot, bool& found, void* out);
    bool land(Slot* slot, Value& value, IterHint& hint);
    U32 liveNumSlots() const;

    ReaderType& reader_;
    SlotReaderTable<Ops>& readerTable_;
    Yarrow::YarrowReader<Yarrow::BasicSlot>& yarrowReader_;
    Reader::Counters& counters_;
    SlotCounters slotCounters_;
    ShadowListener<Key, Value>& listener_;
    Slot* slots_ = nullptr;
    ShadowHashMap<Key, Slot> hashMap_;
    U32 numSlots_ = 0;
    Mem::Local slotsMem_;
    // By slot the slotVersion that was last read; 0 none. The same version is the same value.
    U32* versions_ = nullptr;
    Mem::Local versionsMem_;
    std::vector<std::unique_ptr<Slot>> parked_;
    bool notifyOnFlush_;
    bool initialized_ = false;
    unsigned inCallback_ = 0;
    Dunlin::FirstRaised raised_;           // by the client: passes on when the store is whole again
    Key const* deletingKey_ = nullptr;     // being told as deleted at this moment
    Value const* updatingValue_ = nullptr; // being told as changed at this moment
    Value scratch_{};
    Mem::VersionAnchor* readerAnchor_;
    Mem::VersionAnchor* notifyAnchor_;
    Mem::VersionAnchor* currentAnchor_;
};

template <class OpsType>
class KeyShadowStore : public ShadowStore<KeyShadowSlot<OpsType>> {
public:
    using Base = ShadowStore<KeyShadowSlot<OpsType>>;

    template <class... A>
    explicit KeyShadowStore(Dunlin::Platform::DebugHandler& handler, BriskReader<OpsType>& reader,
                            A&&... more)
        : Base(handler, reader, std::forward<A>(more)...),
          orielMem_(reader.rootPath(), SharedMem::OrielFile::ORIEL_NAME) {}

    // Keeps a page of the oriel file mapped as long as it reads values from the table.
    bool initialize() override {
        if (!orielMem_.attach(Mem::pageSize_, Mem::Mode::reader)) {
            FMTRACE(this->debugHandler(), 0, "failed to map oriel: {}", orielMem_.reason());
            return false;
        }
        return Base::initialize();
    }
    std::size_t orielMappedSize() const override { return orielMem_.mappedSize(); }
    void disable() override {
        orielMem_.detach();
        Base::disable();
    }

private:
    Mem::Tracked<Mem::SharedMemWrapper> orielMem_;
};

} // namespace Brisk
