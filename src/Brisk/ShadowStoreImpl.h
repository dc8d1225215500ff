// Definitions of ShadowStore; included only where a table is instantiated.
#pragma once

#include "Brisk/ShadowHashMapImpl.h"
#include "Brisk/ShadowStore.h"

namespace Brisk {

// The slots that fit the first page of the shared table.
template <class Ops>
constexpr U32 firstBandOf(std::size_t pageSize) {
    using Table = SlotTable<typename Ops::Value>;
    return pageSize > Table::headerSize
               ? static_cast<U32>((pageSize - Table::headerSize) / Table::slotSize)
               : 0;
}

template <class Slot>
ShadowStore<Slot>::ShadowStore(Dunlin::Platform::DebugHandler& handler, ReaderType& reader,
                               Yarrow::YarrowReader<Yarrow::BasicSlot>& yarrowReader,
                               Reader::Counters& counters, Ops const& ops,
                               ShadowListener<Key, Value>& listener, bool notifyOnFlush)
    : Debuggable(handler), reader_(reader), readerTable_(reader.slotTable()),
      yarrowReader_(yarrowReader), counters_(counters),
      slotCounters_(firstBandOf<Ops>(Mem::pageSize_)), listener_(listener),
      hashMap_(handler, counters, slotCounters_, ops, slots_, false), notifyOnFlush_(notifyOnFlush),
      readerAnchor_(&readerTable_.anchor), notifyAnchor_(&readerTable_.keptAnchor),
      currentAnchor_(readerAnchor_) {}

template <class Slot>
bool ShadowStore<Slot>::initialize() {
    PLAINASSERT(!initialized_, "a store is set up once");
    if (!hashMap_.initialize()) return false;
    counters_.occupiedSlots = 0;
    reader_.doResize(); // until then it knows of no slots
    hashMap_.expect(std::min(reader_.members(), reader_.capacity()));
    initialized_ = true;
    return true;
}

template <class Slot>
U32 ShadowStore<Slot>::liveNumSlots() const {
    return readerTable_.header ? Mem::observe(readerTable_.header->numSlots).value : 0;
}

// ---- bringing a slot up to date ----

// Passes on what the client raised in a step, when the step is complete. What the table raises goes
// first, since it ends the mount: the client's exception is traced then, and never shows up with a
// later slot that it does not belong to.
template <class Slot>
template <class Step>
void ShadowStore<Slot>::passOn(Step&& step) {
    try {
        step();
    } catch (...) {
        try {
            raised_.rethrow();
        } catch (std::exception const& error) {
            FMTRACE(debugHandler(), 0, "raised by a callback before the table failed: {}",
                    error.what());
        } catch (...) {
            FMTRACE(debugHandler(), 0,
                    "raised by a callback before the table failed: not an exception");
        }
        throw;
    }
    raised_.rethrow();
}

// Makes the array hold `index`; false if there is no such slot any more.
template <class Slot>
bool ShadowStore<Slot>::growFor(U32 index) {
    auto& handler = debugHandler();
    U32 const live = liveNumSlots();
    if (index >= live) {
        FMTRACE(handler, 8,
                "skip growing of shadow table to accomodate slotIndex:{} because shared memory has "
                "shrunk to {} slots",
                index, live);
        return false;
    }
    FMTRACE(handler, 8, "for slotIndex:{}", index);
    reader_.doResize();
    U32 const capacity = reader_.capacity();
    if (index >= capacity) {
        FMTRACE(handler, 8, "complete. Never learned of slotIndex:{} so it is safe to ignore.",
                index);
        FMTRACE(handler, 8, "discarding notification for slotIndex:{}", index);
        return false;
    }
    FMTRACE(handler, 2, "resize shadow slots from {} to {} due to out of range slot {}", numSlots_,
            capacity, index);
    resizeArrays(capacity); // new slots are zero, and so empty
    ++counters_.shadowSlotGrows;
    FMTRACE(handler, 5, "complete.");
    return true;
}

template <class Slot>
void ShadowStore<Slot>::resizeArrays(U32 newNumSlots) {
    auto* const base =
        static_cast<char*>(slotsMem_.resize(Mem::multiplyOverflowCheck(newNumSlots, sizeof(Slot))));
    void* const versions =
        base || newNumSlots == 0
            ? versionsMem_.resize(Mem::multiplyOverflowCheck(newNumSlots, sizeof(U32)))
            : nullptr;
    auto* const old = reinterpret_cast<char*>(slots_);
    if (base || newNumSlots == 0) {
        slots_ = reinterpret_cast<Slot*>(base);
        if (base && old && base != old) {
            FMTRACE(debugHandler(), 5, "address offset is {}", base - old);
            hashMap_.patch(base - old);
        }
    }
    if (newNumSlots > 0 && (!base || !versions))
        Dunlin::fmthrow<Dunlin::MemoryResourceException>(
            "failed to resize {} from {} to {} slots - {}", reader_.rootPath().text(), numSlots_,
            newNumSlots, slotsMem_.kindName());
    versions_ = static_cast<U32*>(versions);
    numSlots_ = newNumSlots;
    FMTRACE(debugHandler(), 5, "Passed resize {} and got {} back.",
            std::size_t{newNumSlots} * sizeof(Slot), static_cast<void*>(base));
}

// The version that a slot will have when the rewrite under way in it, if any, is complete: what is
// read from the lookaside slot is what will stand there then, and is not told twice.
constexpr U32 settledVersion(U32 version) {
    return (version & lookasideBit) != 0 ? (version + 2) | occupiedBit : version;
}

// The shared slot still shows the version that was read last: the sequence in it runs for the life
// of the file, so the value is the same.
template <class Slot>
bool ShadowStore<Slot>::unchanged(U32 index) const {
    if (!readerTable_.header || versions_[index] == 0 || index >= reader_.capacity()) return false;
    return settledVersion(readerTable_.versionAt(index)) == versions_[index];
}

template <class Slot>
bool ShadowStore<Slot>::read(U32 index, Value& in, Mem::VersionAnchor& anchor) {
    bool found = false;
    try {
        found = reader_.getValue(index, in, nullptr);
    } catch (Dunlin::CorruptionDetectedException const& error) {
        FMTRACE(debugHandler(), 0, "{}", error.message());
    }
    anchor = *readerAnchor_;
    return found;
}

// Whether the notification under way may be taken as the slot's last word.
template <class Slot>
bool ShadowStore<Slot>::accept(Wren::Sequence sequence) {
    if (sequence == Wren::syncPass) return true;
    if (!yarrowReader_.validateNotif()) {
        FMTRACE(debugHandler(), 8, "failed because sequence:{} may have been tombstoned", sequence);
        return false;
    }
    counters_.sequence = sequence;
    return true;
}

// Looks a key up through the shared index; `index` is its slot.
template <class Slot>
bool ShadowStore<Slot>::elsewhere(Key const& key, U32& index) {
    bool found = false;
    try {
        reader_.lookup(key, found, nullptr);
    } catch (Dunlin::CorruptionDetectedException const& error) {
        FMTRACE(debugHandler(), 0, "{}", error.message());
        return false;
    }
    if (!found) return false;
    using Table = SlotTable<Value>;
    index = (readerAnchor_->offset - Table::headerSize) / Table::slotSize;
    return true;
}

// Takes what is known of the slot out of the index, then tells the client that the key is deleted,
// also if the index could not give memory back: no later flush would find the key.
template <class Slot>
void ShadowStore<Slot>::forgetAndTell(U32 index, Key const& key) {
    Dunlin::FirstRaised ofTheIndex;
    ofTheIndex.run([&] { hashMap_.remove(index, slots_[index]); });
    slots_[index].reset();
    versions_[index] = 0;
    tellDeleted(key);
    ofTheIndex.rethrow();
}

template <class Slot>
void ShadowStore<Slot>::tellDeleted(Key const& key) {
    deletingKey_ = &key;
    ++inCallback_;
    raised_.run([&] { listener_.shadowDelete(key); });
    --inCallback_;
    deletingKey_ = nullptr;
}

// Sets aside what is known of a slot, while the slot that its key has moved to is looked at: keys
// may have changed places in a circle.
template <class Slot>
void ShadowStore<Slot>::park(U32 index) {
    Slot& slot = slots_[index];
    parked_.push_back(std::make_unique<Slot>(slot));
    hashMap_.remove(index, slot);
    slot.reset();
    versions_[index] = 0;
}

template <class Slot>
bool ShadowStore<Slot>::isParked(Key const& key) const {
    return std::any_of(parked_.begin(), parked_.end(),
                       [&](auto const& parked) { return Ops::equal(parked->key(), key); });
}

template <class Slot>
std::unique_ptr<Slot> ShadowStore<Slot>::unpark(Key const& key) {
    for (auto& parked : parked_) {
        if (!Ops::equal(parked->key(), key)) continue;
        auto result = std::move(parked);
        parked = std::move(parked_.back());
        parked_.pop_back();
        return result;
    }
    return nullptr;
}

// Brings slot `at` up to date, to which the key of slot `index` has moved. It may have moved on before
// that slot is read, so it is looked up until it is taken over or is in no slot at all; only then the
// client is told that it is deleted (H-sched-3), or when the table fails: no flush would find it.
template <class Slot>
void ShadowStore<Slot>::takeOver(U32 index, Key const& key, U32 at, unsigned depth) {
    Dunlin::FirstRaised ofTheTable;
    ofTheTable.run([&] {
        park(index);
        // Each turn follows a move by the writer; the bound is for files that no writer made.
        for (unsigned turn = 0; turn == 0 || (turn < maxTrail && elsewhere(key, at)); ++turn) {
            apply(at, Wren::syncPass, true, depth + 1);
            if (!initialized_ || !isParked(key)) return;
        }
    });
    if (initialized_ && unpark(key)) tellDeleted(key);
    ofTheTable.rethrow();
}

// The array may move, and the client may end everything, wherever a callback or a nested call
// stands: slots are taken by number behind them, and `initialized_` is looked at first.
template <class Slot>
bool ShadowStore<Slot>::apply(U32 index, Wren::Sequence sequence, bool compare, unsigned depth) {
    bool const walk = sequence == Wren::syncPass;
    if (!initialized_) return true;
    if (index >= numSlots_ && !growFor(index)) return true;
    *notifyAnchor_ = {};
    bool fresh = slots_[index].empty();
    // Read already, and told: by a walk, or when an earlier notification led here late.
    if (!fresh && unchanged(index)) {
        if (!walk) counters_.sequence = sequence;
        return true;
    }
    // Never into a slot that holds what the client was told last (H-shadow-1).
    Mem::VersionAnchor anchor;
    bool found;
    union Room {
        Room() {} // not to be filled twice
        Value value;
    } room;
    Value& aside = room.value;
    bool const inPlace = Slot::hasValue && fresh;
    if constexpr (Slot::hasValue)
        found = read(index, inPlace ? slots_[index].value : aside, anchor);
    else
        found = read(index, aside, anchor);
    FMTRACE(debugHandler(), 9, "updated: {} compare: {} slotIndex:{}{}", found, compare, index,
            found ? " found" : " not found");
    if (!found) {
        if (fresh) return true;
        if (!accept(sequence)) return false;
        Key const key = slots_[index].key();
        // A walk may have passed the key's new slot before it came there (H-shrink-3). That slot is
        // looked at now and takes the key over: what happens to it from here on is announced. To
        // leave the key where it is would lose its deletion, since this slot may stay as it is.
        if (U32 at; walk && depth < maxTrail && elsewhere(key, at) && at != index)
            takeOver(index, key, at, depth);
        else
            forgetAndTell(index, key);
        if (initialized_) tryShrink();
        return true;
    }
    Key const key = inPlace ? Key(slots_[index].key()) : Key(Ops::key(aside));
    if (!fresh && !Ops::equal(slots_[index].key(), key)) {
        // The slot was reused. Its old key may live on in another slot, which then takes it over.
        if (!accept(sequence)) return false;
        Key const old = slots_[index].key();
        if (U32 at; walk && depth < maxTrail && elsewhere(old, at) && at != index) {
            takeOver(index, old, at, depth);
            if (!initialized_) return true;
            // The trail may have led back here, where the slot was found empty.
            if (index >= numSlots_ || !slots_[index].empty()) return true;
        } else {
            forgetAndTell(index, old);
            if (!initialized_) return true;
        }
        fresh = true;
    }
    if (!walk) counters_.sequence = sequence;
    Slot& slot = slots_[index];
    bool updated = true;
    if constexpr (Slot::hasValue) {
        if (!fresh && compare && slot.value == aside)
            updated = false;
        else if (!inPlace)
            slot.take(aside);
        updatingValue_ = &slot.value;
    } else {
        if (fresh) slot.take(aside);
        scratch_ = aside;
        updatingValue_ = &scratch_;
    }
    versions_[index] = settledVersion(anchor.version);
    *notifyAnchor_ = anchor; // for a client that validates what it is being told
    // A key that is moved by a shrink is no change; a key store cannot compare the values.
    bool const silentMove = !walk && yarrowReader_.merelyMoved(sequence);
    auto const parked = fresh && !parked_.empty() ? unpark(key) : nullptr;
    U32 movedFrom = noSlot;
    bool tell;
    try {
        tell = fresh ? hashMap_.write(index, slot, updated, silentMove, movedFrom)
                     : hashMap_.rewrite(index, updated);
    } catch (...) {
        updatingValue_ = nullptr;
        throw;
    }
    if (movedFrom != noSlot) {
        versions_[movedFrom] = 0;
        // A key store cannot say that the value it has not been told of is the one it moved with:
        // if the queue announces the slot again behind the move, it was not.
        if (!tell && !Slot::hasValue) versions_[index] = 0;
    }
    if constexpr (Slot::hasValue)
        if (parked) tell = !slot.sameValue(*parked);
    if (tell) {
        ++inCallback_;
        raised_.run([&] {
            if constexpr (Slot::hasValue)
                listener_.shadowValue(slot.value);
            else
                listener_.shadowKey(key);
        });
        --inCallback_;
    }
    updatingValue_ = nullptr;
    return true;
}

template <class Slot>
void ShadowStore<Slot>::prefetchNotified(U32 index) const {
    if (!readerTable_.header || index >= numSlots_ || index >= reader_.capacity()) return;
    readerTable_.prefetch(index);
    Mem::prefetch(&versions_[index]);
    Mem::prefetch(&slots_[index], sizeof(Slot));
}

// The slots themselves come one after the other; where their keys belong in the index does not. The
// hash that stands in the shared slot is good enough for that.
template <class Slot>
void ShadowStore<Slot>::prefetchWalked(U32 index) const {
    constexpr U32 cellAhead = 16, headAhead = 8;
    if (!readerTable_.header || index + cellAhead >= reader_.capacity()) return;
    hashMap_.prefetchCell(readerTable_.rhashAt(index + cellAhead));
    hashMap_.prefetchHead(readerTable_.rhashAt(index + headAhead));
}

template <class Slot>
void ShadowStore<Slot>::doFlushSlot(U32 index) {
    if (!initialized_ || index >= numSlots_ || slots_[index].empty()) return;
    Key const key = slots_[index].key();
    FMTRACE(debugHandler(), 9, "slotIndex {} key:{}", index, Dunlin::dumpHex(&key, sizeof key));
    passOn([&] {
        if (notifyOnFlush_) return forgetAndTell(index, key);
        hashMap_.remove(index, slots_[index]);
        slots_[index].reset();
    });
}

// ---- giving memory back ----

template <class Slot>
void ShadowStore<Slot>::tryShrink() {
    if (counters_.occupiedSlots > numSlots_ / 4) return;
    U32 const largest = slotCounters_.largestOccupied();
    if (largest >= numSlots_) return;
    FMTRACE(debugHandler(), 2, "shadow slot occupancy <= 25% and can shrink to {} slots.", largest);
    U32 const live = liveNumSlots();
    if (live > largest && largest != 0) {
        FMTRACE(debugHandler(), 2,
                "skip shrinking of shadow table to {} slots because shared memory has grown to {} "
                "slots",
                largest, live);
        return;
    }
    shrink(largest);
}

template <class Slot>
void ShadowStore<Slot>::shrink(U32 newNumSlots) {
    FMTRACE(debugHandler(), 5, "newNumSlots:{}", newNumSlots);
    FMTRACE(debugHandler(), 2, "resize shadow slots from {} to {}", numSlots_, newNumSlots);
    resizeArrays(newNumSlots);
    FMTRACE(debugHandler(), 5, "complete.");
}

template <class Slot>
void ShadowStore<Slot>::disable() {
    FMTRACE(debugHandler(), 5, "");
    initialized_ = false;
    counters_.occupiedSlots = 0;
    // A client that detaches from inside a callback still holds a reference into the array; the
    // memory then goes with the store.
    if (inCallback_ == 0)
        shrink(0);
    else
        numSlots_ = 0;
}

// ---- reading ----

template <class Slot>
auto ShadowStore<Slot>::lookup(Key const& key, bool& found, void* out) -> Value const* {
    found = false;
    ++counters_.lookups;
    if (!initialized_) return &Ops::type_default();
    if (deletingKey_) {
        if (Ops::equal(*deletingKey_, key)) {
            ++counters_.inFlightHits;
            currentAnchor_ = notifyAnchor_;
            return &Ops::type_default();
        }
        ++counters_.inFlightMisses;
    } else if (updatingValue_) {
        if (Ops::equal(Ops::key(*updatingValue_), key)) {
            found = true;
            ++counters_.inFlightHits;
            currentAnchor_ = notifyAnchor_;
            if (!Slot::hasValue && out) {
                Ops::copyValue(out, updatingValue_);
                return static_cast<Value const*>(out);
            }
            return updatingValue_;
        }
        ++counters_.inFlightMisses;
    }
    currentAnchor_ = readerAnchor_;
    Slot const* const slot = hashMap_.find(key);
    if (!slot) return &Ops::type_default();
    return fetch(*slot, found, out);
}

// The value of a known slot: its own, or the shared table's for a store without values.
template <class Slot>
auto ShadowStore<Slot>::fetch(Slot const& slot, bool& found, void* out) -> Value const* {
    if constexpr (Slot::hasValue) {
        found = true;
        return &slot.value;
    } else {
        Key const key = slot.key();
        U32 const index = static_cast<U32>(&slot - slots_);
        // Not the scratch value: that is what a callback under way was told.
        auto* const into =
            out ? static_cast<Value*>(out) : static_cast<Value*>(readerTable_.scratch());
        found = reader_.safeValue(index, *into, nullptr);
        if (found && Ops::equal(Ops::key(*into), key)) return into;
        // Reused by another key, or given up: a notification is on its way. Ask the index.
        if (found)
            ++counters_.keyMismatches;
        else
            readerTable_.resetAnchor();
        Value const* const value = reader_.lookup(key, found, out);
        return found ? value : &Ops::type_default();
    }
}

template <class Slot>
bool ShadowStore<Slot>::first(U32 bucket, Value& value, IterHint& hint) {
    currentAnchor_ = readerAnchor_;
    return land(initialized_ ? hashMap_.first(bucket) : nullptr, value, hint);
}

template <class Slot>
bool ShadowStore<Slot>::next(Key const& keyIs, Value& value, IterHint& hint) {
    Key const key = keyIs; // may lie inside `value`
    currentAnchor_ = readerAnchor_;
    if (!initialized_) return land(nullptr, value, hint);
    Slot* const at = hint.slotIndex < numSlots_ ? &slots_[hint.slotIndex] : nullptr;
    if (!at) ++counters_.slowPathNexts;
    return land(hashMap_.next(key, at), value, hint);
}

template <class Slot>
bool ShadowStore<Slot>::land(Slot* slot, Value& value, IterHint& hint) {
    while (slot) {
        Key const key = slot->key();
        U32 const index = static_cast<U32>(slot - slots_);
        bool found = false;
        Value const* const from = fetch(*slot, found, &value);
        if (found) {
            hint.slotIndex = index;
            if (from != &value) Ops::copyValue(&value, from);
            return true;
        }
        // Nothing is there any more for this key.
        slot = hashMap_.next(key, &slots_[index]);
    }
    Ops::copyValue(&value, &Ops::type_default());
    return false;
}

template <class Slot>
void ShadowStore<Slot>::validateVersionAnchor() const {
    // Without the mapping nothing can be compared any more.
    Mem::VersionAnchor anchor = *currentAnchor_;
    if (!readerTable_.header && anchor.offset != Mem::VersionAnchor::none)
        anchor.offset = Mem::VersionAnchor::lost;
    BriskInterfaceBase::checkVersionAnchor(anchor);
}

} // namespace Brisk
