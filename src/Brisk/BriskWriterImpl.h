// The write path; included only where a table is instantiated.
#pragma once

#include "Brisk/BriskWriterAttachImpl.h"
#include "Brisk/ValidatorImpl.h"

#include <bit>

namespace Brisk {

template <class Ops>
void BriskWriter<Ops>::assertNotResizing() const {
    FMASSERT(!resizing_, "Brisk reentrancy detected: {}", rootPath_.text());
}

template <class Ops>
void BriskWriter<Ops>::assertAttached(char const* doing) const {
    FMASSERT(this->initialized(), "{}: {} before initialize, or after detach", rootPath_.text(),
             doing);
}

// Before an operation: no direct operation is open, and none is going on beneath this one.
template <class Ops>
template <class What>
void BriskWriter<Ops>::assertIdle(char const* doing, What const& what) const {
    FMASSERT(directSlot_ == noSlot,
             "unbalanced directSlot:{} containing value:{} when {}:{} - Make sure the "
             "DirectIs/Commit are properly paired!",
             directSlot_, table_.slots[directSlot_].value, doing, what);
    assertNotResizing();
}

template <class Ops>
U32 BriskWriter<Ops>::members() const {
    return table_.header ? Mem::peek(table_.header->occupiedSlots) : 0;
}

// ---- insert and rewrite ----

// Takes a free slot for a key of that hash and links it towards what `prev` leads to; nothing leads
// to it yet. Growth may move the mapping, so `prev` travels as an offset if it lies in the slot
// file; the result is where it is now. The first half of the insert, see `write`.
template <class Ops>
SlotLink* BriskWriter<Ops>::takeSlot(U32 hash, SlotLink* prev, U32& index) {
    bool const inSlots = table_.contains(prev);
    std::size_t const offset = inSlots ? table_.offsetOf(prev) : 0;
    if (Mem::peek(table_.header->freeList) == SlotHeaderCommon::noFreeSlot) [[unlikely]] {
        ResizingAnchor const resizing(*this);
        table_.grow();
        if (inSlots) prev = table_.linkAt(offset);
    }
    auto& header = *table_.header;
    index = Mem::peek(header.freeList);
    Slot& slot = table_.slots[index];
    Mem::poke(slot.rhash, Dunlin::Util::reverse(hash)); // I1
    U32 const occupied = Mem::peek(header.occupiedSlots) + 1;
    if (Mem::peek(header.largestOccupied) < occupied) Mem::poke(header.largestOccupied, occupied);
    Mem::pokePair(header.occupiedSlots, occupied, Mem::peek(slot.link).next); // I2
    ++counters_.inserts;
    return prev;
}

// Inserts, rewrites, or leaves alone. Readers: ReaderHashMap::lookup, first, next;
// SlotReaderTable::readSlot, and getValue by slot number.
//
// Insert:
//      store                         order, partner                   a reader now sees
//  I1  slot rhash                    shown by I6                      nothing: unreachable
//  I2  occupiedSlots, freeList       one store; the writer's          one member too many
//  I3  slot link -> prev's next      shown by I6                      nothing
//  I4  slotVersion + 2               publish, stays before I5; pairs  by number: not occupied
//                                    with readSlot
//  I5  value, (slotVersion + 2) | 1  publish; pairs with readSlot     by number: the entry
//  I6  prev link -> slot             publish; pairs with observe of   the entry, complete
//                                    a walk
//  I7  notification                  after I6                         followers: the change
//
// A writer that dies in between leaves its critical-section mark: its successor formats anew.
template <class Ops>
auto BriskWriter<Ops>::write(Value const& value, bool overwrite) -> Value const* {
    decltype(auto) key = Ops::key(value);
    assertAttached("writing");
    U32 const hash = this->ops_.hash(key);
    U32 const bucket = map_.bucketOf(hash);
    assertIdle("writing value", value);
    typename Table::CriticalSectionAnchor const inside(table_);
    SlotLink* prev;
    SlotLink* curr;
    if (map_.find(key, bucket, prev, curr, hash)) {
        U32 const index = Mem::peek(*prev).next;
        Slot& slot = table_.slots[index];
        FMTRACE(this->debugHandler(), 9, "existing {} bucket:{} slot:{} next:{}", key, bucket,
                index, Mem::peek(slot.link).next);
        if (!overwrite) return &slot.value;
        queue_.prefetchEntry(index);
        rewrite(slot, value);
        ++counters_.overwrites;
        queue_.notify(index);
        return &slot.value;
    }
    U32 index;
    prev = takeSlot(hash, prev, index);
    Slot& slot = table_.slots[index];
    Mem::publish(slot.link, Mem::peek(slot.link).to(Mem::peek(*prev).next)); // I3
    U32 const version = Mem::peek(slot.slotVersion);
    Mem::publish(slot.slotVersion, version + 2); // I4
    Mem::storesStayBefore();
    Ops::copyValue(&slot.value, &value); // I5
    Mem::publish(slot.slotVersion, (version + 4) | occupiedBit);
    Mem::publish(*prev, Mem::peek(*prev).to(index)); // I6
    FMTRACE(this->debugHandler(), 9, "new {} bucket:{} slot:{} next:{}", key, bucket, index,
            Mem::peek(slot.link).next);
    maybeGrowBuckets();
    queue_.notify(index); // I7
    return &slot.value;
}

template <class Ops>
void BriskWriter<Ops>::writeAll(std::span<Value const* const> values, std::size_t* written) {
    forAll(
        values, sizeof(Value), [](Value const& value) -> decltype(auto) { return Ops::key(value); },
        [&](Value const& value) {
            write(value, true);
            if (written) ++*written;
        });
}

template <class Ops>
U32 BriskWriter<Ops>::removeAll(std::span<Key const* const> keys, bool* removed) {
    U32 count = 0;
    Value old;
    forAll(
        keys, sizeof(Key), [](Key const& key) -> Key const& { return key; },
        [&](Key const& key) {
            bool const wasThere = remove(key, old);
            count += wasThere;
            if (removed) *removed++ = wasThere;
        });
    return count;
}

// Calls `perform` with each item in its order, and asks for the memory of those that follow. What is
// asked for must have come before it tells what to ask for next: each item goes through stages, so
// many items apart.
template <class Ops>
template <class Item, class KeyOf, class Perform>
void BriskWriter<Ops>::forAll(std::span<Item const* const> items, std::size_t bytes,
                              KeyOf const& keyOf, Perform const& perform) {
    constexpr std::size_t stage = 6, stages = 5, kept = 32;
    static_assert(stage * stages <= kept);
    struct Coming {
        U32 hash;
        U32 slot;
    } coming[kept];
    assertAttached("changing many entries");
    std::size_t const count = items.size();
    for (std::size_t turn = 0; turn < count + stage * stages; ++turn) {
        std::size_t at = turn; // the item that has come to the stage; beyond `count`, none
        if (at < count) Mem::prefetch(items[at], bytes);
        if (at -= stage; at < count) {
            U32 const hash = this->ops_.hash(keyOf(*items[at]));
            coming[at % kept].hash = hash;
            map_.prefetchBucket(hash);
        }
        if (at -= stage; at < count) {
            Coming& it = coming[at % kept];
            prefetchSlot(it.slot = map_.headOf(it.hash));
        }
        if (at -= stage; at < count) {
            Coming& it = coming[at % kept];
            prefetchSlot(it.slot = map_.behind(it.slot, it.hash));
        }
        if (at -= stage; at < count) queue_.prefetchEntry(coming[at % kept].slot);
        if (at -= stage; at < count) perform(*items[at]);
    }
}

// Rewrites an occupied slot in place. Neither its link nor its hash is touched.
// Readers: SlotReaderTable::readSlot, readMatch.
//
//      store                     order, partner                          a reader now sees
//  R1  lookaside value, rhash    stays after R4 of the rewrite before    old value, from the slot
//  R2  slotVersion + 2           publish; pairs with readSlot's observe  new value, from the lookaside
//  R3  slot value                stays after R2                          new value, from the lookaside
//  R4  (slotVersion + 2) | 1     publish; pairs with readSlot's observe  new value, from the slot
//
// A writer that dies in between leaves the mark in runtimeFlags: its successor formats anew.
template <class Ops>
void BriskWriter<Ops>::rewrite(Slot& slot, Value const& value) {
    Slot& lookaside = table_.header->lookaside;
    Mem::storesStayBefore();
    Ops::copyValue(&lookaside.value, &value); // R1
    Mem::poke(lookaside.rhash, Mem::peek(slot.rhash));
    U32 const version = Mem::peek(slot.slotVersion);
    Mem::publish(slot.slotVersion, version + 2); // R2
    Mem::storesStayBefore();
    Ops::copyValue(&slot.value, &value);                         // R3
    Mem::publish(slot.slotVersion, (version + 4) | occupiedBit); // R4
}

// More buckets are a matter of speed: where there is no room for them the table goes on with longer
// chains, and the insert that wanted them is announced as any other (H-file-5).
template <class Ops>
void BriskWriter<Ops>::maybeGrowBuckets() {
    if (members() <= map_.growLimit()) [[likely]]
        return;
    ResizingAnchor const resizing(*this);
    try {
        map_.growBuckets();
    } catch (Dunlin::MemoryResourceException const& e) {
        FMTRACE(this->debugHandler(), 0, "{}", e.message());
        ++counters_.bucketGrowFailures;
    }
}

// ---- remove ----

// Readers: as for `write`.
//
//      store                       order, partner                     a reader now sees
//  U1  prev link -> slot's next    publish; pairs with a walk         the key is gone; who stands on
//                                                                     the slot still has its next
//  U2  slotVersion less OCCUPIED   publish; pairs with readSlot       who stands on it starts over
//  U3  freeList                    the writer's                       nothing
//  U4  slot link -> old free head  publish; pairs with the re-check   who stands on it starts over
//  U5  occupiedSlots               the writer's                       one member less
//  U6  notification                after U2                           followers: the change
//
// A writer that dies in between leaves its critical-section mark: its successor formats anew.
template <class Ops>
bool BriskWriter<Ops>::remove(Key const& key, Value& value) {
    assertAttached("removing");
    U32 const hash = this->ops_.hash(key);
    U32 const bucket = map_.bucketOf(hash);
    assertIdle("removing key", key);
    SlotLink* prev;
    SlotLink* curr;
    if (!map_.find(key, bucket, prev, curr, hash)) {
        FMTRACE(this->debugHandler(), 9, "{} bucket:{} not found", key, bucket);
        return false;
    }
    typename Table::CriticalSectionAnchor const inside(table_);
    U32 const index = Mem::peek(*prev).next;
    Slot& slot = table_.slots[index];
    FMTRACE(this->debugHandler(), 9, "{} bucket:{} slot:{}", key, bucket, index);
    queue_.prefetchEntry(index);
    Ops::copyValue(&value, &slot.value);
    auto& header = *table_.header;
    SlotLink const link = Mem::peek(slot.link);
    Mem::publish(*prev, Mem::peek(*prev).to(link.next));                        // U1
    Mem::publish(slot.slotVersion, Mem::peek(slot.slotVersion) & ~occupiedBit); // U2
    U32 const head = Mem::peek(header.freeList);
    Mem::poke(header.freeList, index);                                    // U3
    Mem::publish(slot.link, link.to(head));                               // U4
    Mem::poke(header.occupiedSlots, Mem::peek(header.occupiedSlots) - 1); // U5
    ++counters_.removes;
    queue_.notify(index); // U6
    maybeShrinkSlots();
    if (map_.shrinkEnabled() && members() < map_.shrinkLimit()) [[unlikely]] {
        ResizingAnchor const resizing(*this);
        map_.shrinkBuckets();
    }
    return true;
}

// ---- direct operations ----

template <class Ops>
auto BriskWriter<Ops>::directWrite(Value const& value) -> Value* {
    decltype(auto) key = Ops::key(value);
    assertAttached("modifying");
    U32 const hash = this->ops_.hash(key);
    U32 const bucket = map_.bucketOf(hash);
    assertIdle("modifying key", key);
    table_.enterCriticalSection(); // left by directCommit
    SlotLink* curr;
    bool const found = map_.find(key, bucket, directPrev_, curr, hash);
    U32 index;
    if (found)
        index = Mem::peek(*directPrev_).next;
    else
        directPrev_ = takeSlot(hash, directPrev_, index);
    ++counters_.directOperations;
    Slot& slot = table_.slots[index];
    // An occupied slot's new value is built in the lookaside slot. What readers may still be
    // copying from there belongs to a rewrite whose slot has changed since.
    bool const occupied = (Mem::peek(slot.slotVersion) & occupiedBit) != 0;
    Value* const area = occupied ? &table_.header->lookaside.value : &slot.value;
    Mem::storesStayBefore();
    Ops::copyValue(area, &value);
    FMTRACE(this->debugHandler(), 9, "{}{} bucket:{} slot:{} next:{}", key,
            found ? " existing" : " new ", bucket, index, Mem::peek(slot.link).next);
    directSlot_ = index;
    directNew_ = !found;
    directKey_ = key;
    return area;
}

template <class Ops>
auto BriskWriter<Ops>::directUpdate(Key const& key) -> Value* {
    assertAttached("modifying");
    U32 const hash = this->ops_.hash(key);
    U32 const bucket = map_.bucketOf(hash);
    assertIdle("modifying key", key);
    typename Table::CriticalSectionAnchor const inside(table_);
    SlotLink* curr;
    if (!map_.find(key, bucket, directPrev_, curr, hash)) return nullptr;
    ++counters_.directOperations;
    directSlot_ = Mem::peek(*directPrev_).next;
    directNew_ = false;
    directKey_ = key;
    Slot& slot = table_.slots[directSlot_];
    bool const occupied = (Mem::peek(slot.slotVersion) & occupiedBit) != 0;
    return occupied ? &table_.header->lookaside.value : &slot.value;
}

// Publishes the area that directWrite or directUpdate gave.
//
//      store                        order, partner                       a reader now sees
//  C0  critical-section mark        before C1; set by directWrite, not   nothing
//                                   by directUpdate (A45)
//  a new entry:
//  C1  slot link -> prev's next     shown by C3                          nothing
//  C2  (slotVersion + 4) | 1        publish; after the caller's stores   by number: the entry
//  C3  prev link -> slot            publish; pairs with a walk           the entry
//  an existing one: as a rewrite, whose R1 was the caller's
//  C4  lookaside rhash              shown by C5                          old value
//  C5  slotVersion + 2              publish; pairs with readSlot         new value, lookaside
//  C6  slot value                   stays after C5                       new value, lookaside
//  C7  slotVersion + 2              publish                              new value, slot
template <class Ops>
void BriskWriter<Ops>::directCommit() {
    FMASSERT(directSlot_ != noSlot,
             "not in direct mode! Make sure the DirectIs/Commit are properly paired!");
    assertNotResizing();
    ++counters_.commits;
    U32 const index = directSlot_;
    Slot& slot = table_.slots[index];
    Slot& lookaside = table_.header->lookaside;
    U32 const version = Mem::peek(slot.slotVersion);
    bool const occupied = (version & occupiedBit) != 0;
    // The wrong key in the area would break the chain.
    FMASSERT(Ops::equal(Ops::key(occupied ? lookaside.value : slot.value), directKey_),
             "directSlot:{} of key:{} was filled with value:{}", index, directKey_,
             occupied ? lookaside.value : slot.value);
    table_.markCriticalSection(); // C0
    if (directNew_)
        Mem::publish(slot.link, Mem::peek(slot.link).to(Mem::peek(*directPrev_).next)); // C1
    if (!occupied) {
        Mem::publish(slot.slotVersion, (version + 4) | occupiedBit); // C2
    } else {
        Mem::poke(lookaside.rhash, Mem::peek(slot.rhash)); // C4
        Mem::publish(slot.slotVersion, version + 2);       // C5
        Mem::storesStayBefore();
        Ops::copyValue(&slot.value, &lookaside.value); // C6
        Mem::publish(slot.slotVersion, version + 4);   // C7
    }
    directSlot_ = noSlot;
    if (directNew_) {
        Mem::publish(*directPrev_, Mem::peek(*directPrev_).to(index)); // C3
        directNew_ = false;
    }
    maybeGrowBuckets();
    queue_.notify(index);
    table_.leaveCriticalSection();
}

// ---- reads of the writer ----

template <class Ops>
auto BriskWriter<Ops>::lookup(Key const& key, bool& found, void* out) const -> Value const* {
    assertNotResizing();
    ++table_.counters->lookups;
    found = false; // also where the walk raises
    U32 const hash = this->ops_.hash(key);
    U32 const bucket = map_.bucketOf(hash);
    Slot* const slot = map_.lookup(key, bucket, hash);
    found = slot != nullptr;
    if (!found) {
        FMTRACE(this->debugHandler(), 9, "{} not found bucket:{}", key, bucket);
        table_.resetAnchor();
        if (out) Ops::copyValue(out, &Ops::type_default());
        return &Ops::type_default();
    }
    table_.recordAnchor(*slot);
    FMTRACE(this->debugHandler(), 9, "{} found bucket:{} slotId:{}", key, bucket, indexOf(*slot));
    return &slot->value;
}

template <class Ops>
bool BriskWriter<Ops>::first(Value& value, IterHint& hint) const {
    assertNotResizing();
    return map_.first(0, value, hint);
}

template <class Ops>
bool BriskWriter<Ops>::next(Key const& key, Value& value, IterHint& hint) const {
    assertNotResizing();
    return map_.next(key, value, hint);
}

template <class Ops>
void BriskWriter<Ops>::validateVersionAnchor() const {
    if (anchorHook_) anchorHook_(table_.anchor);
    this->checkVersionAnchor(table_.anchor);
}

// ---- shrinking ----

template <class Ops>
void BriskWriter<Ops>::maybeShrinkSlots() {
    U32 const threshold = table_.shrinkThresholdValue();
    doMaybeShrinkSlots(members() < threshold / 2 ? threshold : 0);
}

// Moves the occupied slots of the upper part down and cuts the file. Each moved entry is announced
// in its new place before its old place is given up, so that a follower finds the new one first;
// the announcements lie in the queue's corral, where none replaces another.
template <class Ops>
void BriskWriter<Ops>::doMaybeShrinkSlots(U32 shrinkThreshold) {
    if (shrinkThreshold == 0) return;
    auto& handler = this->debugHandler();
    if (queue_.corralStart() != 0) {
        FMTRACE(handler, 5, "shrink started, ignoring shrinkThreshold:{}", shrinkThreshold);
        return;
    }
    U32 const occupied = members();
    U32 threshold = table_.minSlots;
    if (occupied != 0) {
        // Four times the largest power of two not above the occupancy.
        U32 const shift = (33U - static_cast<U32>(std::countl_zero(occupied))) % 32U;
        threshold = std::max(table_.minSlots, U32{1} << shift);
    }
    FMTRACE(handler, 5, "threshold:{} shrinkThreshold:{}{}", threshold, shrinkThreshold,
            shrinkThreshold > threshold ? " SUPER SHRINK!" : "");
    ResizingAnchor const resizing(*this);
    table_.purgeFreeSlots(threshold);
    queue_.markShrinkStart();
    BriskCore::CriticalTasks tasks(criticalTaskCheck_);
    U32 moves = 0;
    U32 const count = table_.numSlots;
    for (U32 i = threshold; i < count; ++i) {
        Slot& slot = table_.slots[i];
        if ((Mem::peek(slot.slotVersion) & occupiedBit) == 0) {
            FMTRACE(handler, 8, "skipping not occupied slot:{}", i);
            continue;
        }
        Key const key = Ops::key(slot.value);
        U32 const hash = this->ops_.hash(key);
        SlotLink* prev = nullptr;
        SlotLink* curr = nullptr;
        bool const found = map_.find(key, map_.bucketOf(hash), prev, curr, hash);
        FMASSERT(found, "fromSlot:{} key not found", i);
        // A slot with the key of another, which alone is in the list, would take its place.
        FMASSERT(prev != nullptr && Mem::peek(*prev).next == i, "fromSlot:{} not referenced", i);
        U32 const to = Mem::peek(table_.header->freeList);
        FMTRACE(handler, 7, "moving fromSlot:{} toSlot:{}", i, to);
        table_.move(i, to, *prev);
        queue_.notify(to);
        queue_.tombstone(i);
        table_.vacate(i);
        queue_.notify(i);
        ++moves;
        tasks.check();
    }
    queue_.markShrinkEnd();
    table_.shrink(threshold);
    counters_.slotMoves += moves;
    FMTRACE(handler, 5, "at threshold:{} done", threshold);
}

template <class Ops>
void BriskWriter<Ops>::shrink() {
    if (!this->initialized()) return;
    assertNotResizing();
    // The slot of an open direct operation, and the link to it, must stay where they are. The next
    // remove asks again.
    if (directSlot_ != noSlot) return;
    maybeShrinkSlots();
}

template <class Ops>
void BriskWriter<Ops>::handleQuiesced(bool quiesced) {
    if (onQuiesced_) onQuiesced_(quiesced);
}

// ---- the rest ----

template <class Ops>
bool BriskWriter<Ops>::clientQuiesced(std::string const& name) const {
    return !name.empty() && queue_.clientQuiesced(name);
}

template <class Ops>
void BriskWriter<Ops>::scratchpadIs(unsigned long word) {
    if (table_.header) Mem::publish(table_.header->scratchpad, U64{word});
}

template <class Ops>
unsigned long BriskWriter<Ops>::scratchpad() const {
    return table_.header ? Mem::observe(table_.header->scratchpad) : 0;
}

template <class Ops>
Writer::Counters BriskWriter<Ops>::writerCounters() {
    auto const& wren = queue_.wren();
    counters_.wrens = wren.wrens();
    counters_.sequencesProcessed = wren.sequencesProcessed();
    counters_.readers = wren.readers();
    counters_.sleepingReaders = wren.sleepingReaders();
    counters_.slotsMappedSize = table_.memory.mappedSize();
    counters_.bucketsMappedSize = map_.buckets.mappedSize();
    counters_.yarrowPrimaryMappedSize = queue_.primaryMappedSize();
    counters_.yarrowSecondaryMappedSize = queue_.secondaryMappedSize();
    counters_.bucketRemaps = bucketCounters_.remaps;
    counters_.largestOccupied = table_.header ? Mem::peek(table_.header->largestOccupied) : 0;
    return counters_;
}

} // namespace Brisk
