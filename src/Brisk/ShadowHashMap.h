// The private index over a shadow's slots. The slots stand in the store's array, by the number of
// the shared slot; the map threads them into chains, sorted by (bit-reversed hash, key), with the
// bucket number in the top bits of the reversed hash. So doubling cuts each chain once, and the
// walk over all buckets has the order of the shared table's.
//
// Slot offers `next`, `prev` (the link that leads here; null: in no chain), `hash`, `key()` and
// `sameValue(other)`.
#pragma once

#include "Brisk/Counters.h"
#include "Brisk/SlotCounters.h"
#include "BriskCore/SlotLink.h"
#include "Dunlin/Trace.h"
#include "SharedMem/Atomics.h"
#include "SharedMem/LocalMem.h"

namespace Brisk {

template <class Key, class Slot>
class ShadowHashMap : public Dunlin::Debuggable {
public:
    using Ops = typename Slot::Ops;

    // `slots` is where the store keeps the array's address.
    ShadowHashMap(Dunlin::Platform::DebugHandler& handler, Reader::Counters& counters,
                  SlotCounters& slotCounters, Ops const& ops, Slot* const& slots, bool heap);

    bool initialize();
    // An empty index makes room for so many keys at once, if there is the memory.
    void expect(U32 keys);
    // Puts the slot in its place by its key. True if the caller is to notify: a key that was in no
    // slot, one whose value is another (`updated`), or one that has come from another slot with
    // another value. `movedFrom` receives that slot's number, which is empty then; a slot type that
    // keeps no value cannot tell, so `silentMove` says whether such a move is no change. Raises
    // MemoryResourceException if the buckets cannot grow; the slot is in its place all the same.
    bool write(U32 slotIndex, Slot& slot, bool updated, bool silentMove, U32& movedFrom);
    // The same for a slot that is in its place already, under the same key.
    bool rewrite(U32 slotIndex, bool updated);
    // Takes the slot out; false if it is in no chain. Raises MemoryResourceException.
    bool remove(U32 slotIndex, Slot& slot);
    // The array has moved by so many bytes.
    void patch(std::ptrdiff_t offset);
    Slot* find(Key const& key) const;
    // The first slot at or behind `bucket`; null at the end.
    Slot* first(U32 bucket) const;
    // The slot behind `key`, quickly if `hint` (may be null) holds it.
    Slot* next(Key const& key, Slot* hint) const;

    // Ask ahead, without effect, for the chain of a reversed hash: its cell, then its first slot.
    void prefetchCell(U32 hash) const { Mem::prefetch(&buckets_[bucketOf(hash)]); }
    void prefetchHead(U32 hash) const { Mem::prefetch(buckets_[bucketOf(hash)]); }

    U32 numBuckets() const { return numBuckets_; }
    std::size_t mappedSize() const { return bucketsMem_.size(); }
    // Test hook: whether every chain is as the head of this file says.
    bool sound() const;

private:
    U32 bucketOf(U32 hash) const { return hash >> (32 - bucketFactor_); }
    U32 load() const { return numBuckets_ << loadShift_; }
    static bool before(Slot const& slot, U32 hash, Key const& key) {
        return slot.hash < hash || (slot.hash == hash && Ops::less(slot.key(), key));
    }
    static void link(Slot** place, Slot* slot) {
        *place = slot;
        if (slot) slot->prev = place;
    }
    void grow();
    void shrink();
    void resized(Slot** moved);

    Reader::Counters& counters_;
    SlotCounters& slotCounters_;
    Ops const& ops_;
    Slot* const& slots_;
    U8 loadShift_ = 0;
    U32 bucketFactor_ = 1;
    U32 numBuckets_ = 2;
    Slot** buckets_ = nullptr;
    Mem::Local bucketsMem_;
};

} // namespace Brisk
