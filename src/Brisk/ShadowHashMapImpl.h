// Definitions of ShadowHashMap; included only where a table is instantiated.
#pragma once

#include "Brisk/ShadowHashMap.h"
#include "Dunlin/Util.h"

namespace Brisk {

template <class Slot>
std::string dumpKey(Slot const& slot) {
    auto const key = slot.key();
    return Dunlin::dumpHex(&key, sizeof key);
}

template <class Key, class Slot>
ShadowHashMap<Key, Slot>::ShadowHashMap(Dunlin::Platform::DebugHandler& handler,
                                        Reader::Counters& counters, SlotCounters& slotCounters,
                                        Ops const& ops, Slot* const& slots, bool heap)
    : Debuggable(handler), counters_(counters), slotCounters_(slotCounters), ops_(ops),
      slots_(slots), bucketsMem_(heap ? Mem::Local::HEAP : Mem::Local::ANONYMOUS) {}

template <class Key, class Slot>
bool ShadowHashMap<Key, Slot>::initialize() {
    bucketFactor_ = 1;
    numBuckets_ = 2;
    buckets_ = static_cast<Slot**>(
        bucketsMem_.attach(Mem::multiplyOverflowCheck(numBuckets_, sizeof(Slot*))));
    if (!buckets_) FMTRACE(debugHandler(), 0, "bucketsMem_.attachAs() failed");
    return buckets_ != nullptr;
}

template <class Key, class Slot>
void ShadowHashMap<Key, Slot>::expect(U32 keys) {
    U32 factor = bucketFactor_;
    while (factor < 31 && (U64{1} << factor << loadShift_) < keys) ++factor;
    if (factor == bucketFactor_ || counters_.occupiedSlots != 0) return;
    void* const moved =
        bucketsMem_.resize(Mem::multiplyOverflowCheck(std::size_t{1} << factor, sizeof(Slot*)));
    if (!moved) return; // it grows as it goes, or raises then
    resized(static_cast<Slot**>(moved));
    counters_.shadowBucketGrows += factor - bucketFactor_; // each a doubling
    bucketFactor_ = factor;
    numBuckets_ = 1U << factor;
}

template <class Key, class Slot>
bool ShadowHashMap<Key, Slot>::rewrite(U32 slotIndex, bool updated) {
    ++counters_.shadowWrites;
    FMTRACE(debugHandler(), 8, "slotIndex:{} no index update needed", slotIndex);
    return updated;
}

template <class Key, class Slot>
bool ShadowHashMap<Key, Slot>::write(U32 slotIndex, Slot& slot, bool updated, bool silentMove,
                                     U32& movedFrom) {
    slot.hash = Dunlin::Util::reverse(ops_.hash(slot.key()));
    ++counters_.shadowWrites;
    FMTRACE(debugHandler(), 8, "slotIndex:{} key:{}", slotIndex, dumpKey(slot));
    Slot** place = &buckets_[bucketOf(slot.hash)];
    Slot* at = *place;
    if (!at) {
        FMTRACE(debugHandler(), 8, "value inserted in fresh bucket");
    } else {
        while (at && before(*at, slot.hash, slot.key())) {
            place = &at->next;
            at = *place;
        }
        if (at && at->hash == slot.hash && Ops::equal(at->key(), slot.key())) {
            if (at == &slot) {
                FMTRACE(debugHandler(), 8, "no index update needed");
                return updated;
            }
            // The key has moved to another shared slot.
            bool const tell = Slot::hasValue ? !slot.sameValue(*at) : !silentMove;
            ++counters_.shadowKeyMoves;
            link(&slot.next, at->next);
            link(place, &slot);
            movedFrom = static_cast<U32>(at - slots_);
            slotCounters_.remove(movedFrom);
            slotCounters_.add(slotIndex);
            at->reset();
            FMTRACE(debugHandler(), 8, "value updated");
            return tell;
        }
        FMTRACE(debugHandler(), 8, "{}", at ? "value inserted" : "add slot to end of chain");
    }
    link(&slot.next, at);
    link(place, &slot);
    slotCounters_.add(slotIndex);
    if (++counters_.occupiedSlots > load()) grow();
    return true;
}

template <class Key, class Slot>
bool ShadowHashMap<Key, Slot>::remove(U32 slotIndex, Slot& slot) {
    if (!slot.prev) {
        FMTRACE(debugHandler(), 9, "dead slot {}", slotIndex);
        return false;
    }
    FMTRACE(debugHandler(), 8, "slot:{} prev->next:{} next:{} occupied:{} key:{}", slotIndex,
            static_cast<void*>(*slot.prev), static_cast<void*>(slot.next), counters_.occupiedSlots,
            dumpKey(slot));
    link(slot.prev, slot.next);
    slot.next = nullptr;
    slot.prev = nullptr;
    slotCounters_.remove(slotIndex);
    if (--counters_.occupiedSlots <= load() / 4 && bucketFactor_ >= 2) shrink();
    return true;
}

template <class Key, class Slot>
void ShadowHashMap<Key, Slot>::resized(Slot** moved) {
    if (moved != buckets_)
        FMTRACE(debugHandler(), 2, "base address moved from {} to {}", static_cast<void*>(buckets_),
                static_cast<void*>(moved));
    buckets_ = moved;
}

template <class Key, class Slot>
void ShadowHashMap<Key, Slot>::grow() {
    U32 const wanted = numBuckets_ * 2;
    FMTRACE(debugHandler(), 2, "buckets growing from:{} to:{}", numBuckets_, wanted);
    void* const moved = bucketsMem_.resize(Mem::multiplyOverflowCheck(wanted, sizeof(Slot*)));
    if (!moved)
        Dunlin::fmthrow<Dunlin::MemoryResourceException>(
            "failed to resize {} from {} to {} buckets : {}", "shadow", numBuckets_, wanted,
            bucketsMem_.kindName());
    resized(static_cast<Slot**>(moved)); // the upper half is zero
    U32 const shift = 32 - (bucketFactor_ + 1);
    // From the highest down, so that no cell is overwritten before it is read.
    for (U32 bucket = numBuckets_; bucket-- > 0;) {
        Slot* const head = buckets_[bucket];
        if (!head) continue;
        buckets_[bucket] = nullptr;
        U32 const low = 2 * bucket;
        link(&buckets_[low], head);
        for (Slot* at = head; at; at = at->next) {
            if (at->hash >> shift == low) continue;
            FMTRACE(debugHandler(), 8, "splitting bucket {} to buckets {} and {}", bucket, low,
                    low + 1);
            *at->prev = nullptr;
            link(&buckets_[low + 1], at);
            break;
        }
    }
    ++bucketFactor_;
    numBuckets_ = wanted;
    ++counters_.shadowBucketGrows;
}

template <class Key, class Slot>
void ShadowHashMap<Key, Slot>::shrink() {
    U32 const wanted = numBuckets_ / 2;
    for (U32 bucket = 0; bucket < wanted; ++bucket) {
        Slot* const low = buckets_[2 * bucket];
        Slot* const high = buckets_[2 * bucket + 1];
        link(&buckets_[bucket], low);
        Slot** tail = &buckets_[bucket];
        while (*tail) tail = &(*tail)->next;
        link(tail, high);
    }
    U32 const former = numBuckets_;
    --bucketFactor_;
    numBuckets_ = wanted;
    void* const moved = bucketsMem_.resize(Mem::multiplyOverflowCheck(wanted, sizeof(Slot*)));
    if (!moved)
        Dunlin::fmthrow<Dunlin::MemoryResourceException>(
            "failed to resize {} from {} to {} buckets : {}", "shadow", former, wanted,
            bucketsMem_.kindName());
    ++counters_.shadowBucketShrinks;
    FMTRACE(debugHandler(), 2, "shrunk to numBuckets_:{} bucketFactor_:{}", numBuckets_,
            bucketFactor_);
    resized(static_cast<Slot**>(moved));
    for (U32 bucket = 0; bucket < numBuckets_; ++bucket)
        if (buckets_[bucket]) buckets_[bucket]->prev = &buckets_[bucket];
}

// Every pointer into the array is `offset` bytes off. The array is already in its new place, so a
// pointer is put right before it is followed; a chain's first `prev` is a bucket cell and stays.
template <class Key, class Slot>
void ShadowHashMap<Key, Slot>::patch(std::ptrdiff_t offset) {
    FMTRACE(debugHandler(), 5, "address offset {}", offset);
    auto const moved = [offset](auto* pointer) {
        return reinterpret_cast<decltype(pointer)>(reinterpret_cast<std::intptr_t>(pointer) +
                                                   offset);
    };
    for (U32 bucket = 0; bucket < numBuckets_; ++bucket) {
        if (!buckets_[bucket]) continue;
        FMTRACE(debugHandler(), 9, "Patching slots in bucket {}", bucket);
        buckets_[bucket] = moved(buckets_[bucket]);
        for (Slot* at = buckets_[bucket]; at->next; at = at->next) {
            at->next = moved(at->next);
            at->next->prev = &at->next;
        }
    }
    ++counters_.shadowPatches;
}

template <class Key, class Slot>
Slot* ShadowHashMap<Key, Slot>::find(Key const& key) const {
    U32 const hash = Dunlin::Util::reverse(ops_.hash(key));
    Slot* at = buckets_[bucketOf(hash)];
    while (at && before(*at, hash, key)) at = at->next;
    return at && at->hash == hash && Ops::equal(at->key(), key) ? at : nullptr;
}

template <class Key, class Slot>
Slot* ShadowHashMap<Key, Slot>::first(U32 bucket) const {
    for (; bucket < numBuckets_; ++bucket)
        if (buckets_[bucket]) return buckets_[bucket];
    return nullptr;
}

template <class Key, class Slot>
Slot* ShadowHashMap<Key, Slot>::next(Key const& key, Slot* hint) const {
    if (hint && hint->prev && Ops::equal(hint->key(), key))
        return hint->next ? hint->next : first(bucketOf(hint->hash) + 1);
    ++counters_.slowPathNexts;
    U32 const hash = Dunlin::Util::reverse(ops_.hash(key));
    U32 const bucket = bucketOf(hash);
    for (Slot* at = buckets_[bucket]; at; at = at->next)
        if (at->hash > hash || (at->hash == hash && Ops::less(key, at->key()))) return at;
    return first(bucket + 1);
}

template <class Key, class Slot>
bool ShadowHashMap<Key, Slot>::sound() const {
    U32 count = 0;
    for (U32 bucket = 0; bucket < numBuckets_; ++bucket) {
        Slot* const* place = &buckets_[bucket];
        for (Slot* at = *place; at; place = &at->next, at = at->next) {
            if (at->prev != place || bucketOf(at->hash) != bucket) return false;
            if (at->next && !before(*at, at->next->hash, at->next->key())) return false;
            ++count;
        }
    }
    return count == counters_.occupiedSlots;
}

} // namespace Brisk
