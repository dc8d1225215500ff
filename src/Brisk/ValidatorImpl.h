// Definitions of Validator; included only where a table is instantiated.
#pragma once

#include "Brisk/BriskWriter.h"
#include "Brisk/Validator.h"

namespace Brisk {

template <class Ops>
Validator<Ops>::Validator(Dunlin::Platform::DebugHandler& handler, BriskWriter<Ops>& writer)
    : handler_(&handler), writer_(&writer) {
    U32 const capacity = writer.capacity();
    if (!occupied_.resize(capacity) || !free_.resize(capacity))
        Dunlin::fmthrow<Dunlin::MemoryResourceException>("n:{} unable to resize", capacity);
}

template <class Ops>
template <class... A>
bool Validator<Ops>::fail(fmt::format_string<A...> format, A&&... args) {
    message_ = Dunlin::formatText(format, fmt::make_format_args(args...));
    FMTRACE(*handler_, 0, "{}", message_);
    return false;
}

template <class Ops>
bool Validator<Ops>::doValidate(U32 orielId) {
    auto& table = writer_->slotTable();
    auto& queue = writer_->queue();
    auto const& header = *table.header;
    std::string queueMessage;
    bool sound = writer_->hashMap().buckets.validate(orielId, message_);
    U16 const flags = Mem::peek(header.runtimeFlags);
    if (flags & SlotHeaderCommon::criticalSection) {
        fail("bad critical section runtimeFlags:{:x}", flags);
        queue.validate(orielId, Mem::peek(header.highestNumSlots), queueMessage);
        return false;
    }
    std::string slotMessage;
    if (!header.validate(*handler_, table.memory.mappedSize(), orielId, writer_->typeName().c_str(),
                         slotMessage)) {
        message_ = slotMessage;
        sound = false;
    }
    if (!queue.validate(orielId, Mem::peek(header.highestNumSlots), queueMessage)) {
        message_ = queueMessage;
        sound = false;
    }
    if (!sound) return false;
    U32 const entries = queue.entryCount();
    if (!positions_.resize(entries))
        Dunlin::fmthrow<Dunlin::MemoryResourceException>("n:{} unable to resize", entries);
    if (!walkOccupied() || !walkFreeSlots()) return false;
    if (U32 const slots = occupiedCount_ + freeCount_; slots != writer_->capacity())
        return fail("bad slotCount:{} occupiedSlots:{} freeSlots:{} capacity:{}", slots,
                    occupiedCount_, freeCount_, writer_->capacity());
    return walkQueue();
}

// Walks the list by the ordinary iteration, whose own checks apply too. They do not see whether the
// list rises: where it does not, readers find their keys missing and a writer inserts them twice.
template <class Ops>
bool Validator<Ops>::walkOccupied() {
    FMTRACE(*handler_, 7, "starting");
    U32 const wanted = Mem::peek(writer_->slotTable().header->occupiedSlots);
    auto& map = writer_->hashMap();
    auto const& ops = *writer_->slotTable().ops;
    typename Ops::Value value = Ops::type_default();
    typename Ops::Key last{};
    U32 lastRhash = 0, lastSlot = noSlot;
    IterHint hint;
    U32 walked = 0;
    for (bool more = map.first(0, value, hint); more;
         more = map.next(Ops::key(value), value, hint)) {
        if (++walked > wanted)
            return fail("walkedSlots:{} is greater than header->occupiedSlots:{}", walked, wanted);
        typename Ops::Key const key = Ops::key(value);
        U32 const rhash = Dunlin::Util::reverse(ops.hash(key));
        bool const rises = lastRhash < rhash || (lastRhash == rhash && Ops::less(last, key));
        if (lastSlot != noSlot && !rises)
            return fail("slot:{} is out of order behind slot:{}", hint.slotIndex, lastSlot);
        last = key;
        lastRhash = rhash;
        lastSlot = hint.slotIndex;
    }
    FMTRACE(*handler_, 7, "marked {} slots", occupiedCount_);
    if (occupiedCount_ != wanted)
        return fail("mismatch header->occupiedSlots:{} count:{}", wanted, occupiedCount_);
    return true;
}

template <class Ops>
void Validator<Ops>::markOccupied(U32 slotId) {
    using Corrupt = Dunlin::CorruptionDetectedException;
    FMTRACE(*handler_, 8, "slotIndex: {}", slotId);
    auto& slot = writer_->slotTable().slots[slotId];
    if (occupied_[slotId]) Dunlin::fmthrow<Corrupt>("duplicate slot: {}", slotId);
    occupied_[slotId] = 1;
    ++occupiedCount_;
    U32 const version = Mem::peek(slot.slotVersion);
    if ((version & occupiedBit) == 0)
        Dunlin::fmthrow<Corrupt>("missing OCCUPIED bit: {:#x}", version);
    if (version & lookasideBit) Dunlin::fmthrow<Corrupt>("stuck LOOKASIDE bit: {:#x}", version);
    auto& queue = writer_->queue();
    U32 const position = queue.position(slotId);
    if (position == YarrowPos::none) {
        FMTRACE(*handler_, 9, "no notification in yarrow queue for occupied slotId:{}", slotId);
        return;
    }
    auto const size = static_cast<U32>(positions_.size());
    if (position >= size)
        Dunlin::fmthrow<Corrupt>("slot:{} bad yarrow index:{} size:{}", slotId, position, size);
    U32 const named = queue.entry(position).slot;
    if (named != slotId)
        Dunlin::fmthrow<Corrupt>("slot:{} bad notification:{} slot:{}", slotId, position, named);
    if (positions_[position])
        Dunlin::fmthrow<Corrupt>("slot:{} duplicate yarrow position:{}", slotId, position);
    positions_[position] = 1;
    ++positionCount_;
}

template <class Ops>
bool Validator<Ops>::walkFreeSlots() {
    FMTRACE(*handler_, 7, "starting");
    auto& table = writer_->slotTable();
    auto& queue = writer_->queue();
    U32 const numSlots = table.header->numSlots.value;
    U32 index = Mem::peek(table.header->freeList);
    while (index != SlotHeaderCommon::noFreeSlot) {
        FMTRACE(*handler_, 7, "walking slotIndex: {}", index);
        if (index > numSlots)
            return fail("corrupted free slot detected with out of bound index: {}", index);
        auto& slot = table.slots[index]; // the slot count itself is caught here
        if (free_[index]) return fail("duplicate freeSlot detected: {}", index);
        free_[index] = 1;
        ++freeCount_;
        // A removal is notified, so a free slot may well have a position.
        if (U32 const position = queue.position(index); position != YarrowPos::none) {
            if (position >= positions_.size())
                return fail("slot index:{} has out of range yarrow slot: {}", index, position);
            U32 const named = queue.entry(position).slot;
            if (named != index)
                return fail("slot index:{} has slot:{} with wrong yarrow slot:{}", index, named,
                            position);
        }
        if (Mem::peek(slot.slotVersion) & occupiedBit)
            return fail("corrupted free slot not marked as empty: {}", index);
        index = Mem::peek(slot.link).next;
    }
    FMTRACE(*handler_, 7, "marked {} free slots", freeCount_);
    return true;
}

template <class Ops>
bool Validator<Ops>::walkQueue() {
    auto& table = writer_->slotTable();
    auto& queue = writer_->queue();
    U64 const corralStart = queue.corralStart();
    U64 const corralEnd = queue.corralEnd();
    for (U32 pos = 0; pos < positions_.size(); ++pos) {
        auto const entry = queue.entry(pos);
        U32 const slot = entry.slot;
        U64 const seq = queue.baseSequence() + entry.offset;
        U32 const slotPos = slot == YarrowPos::none ? YarrowPos::none : queue.position(slot);
        if (corralStart != 0 && seq >= corralStart && (corralEnd == 0 || seq <= corralEnd)) {
            if (slotPos == pos)
                return fail("corral pos:{} seq:{} slot:{} yarrowPos:{}", pos, seq, slot, slotPos);
        } else if (slot == YarrowPos::none) {
            if (positions_[pos]) return fail("active tombstone pos:{}", pos);
        } else {
            if (!positions_[pos] && slot < writer_->capacity() &&
                (Mem::peek(table.slots[slot].slotVersion) & occupiedBit))
                return fail("occupied slot:{} on deleted notification:{}", slot, pos);
            if (slotPos != pos)
                return fail("yarrow pos:{} has slot:{} seq:{} with wrong yarrowSlot:{}", pos, slot,
                            seq, slotPos);
        }
    }
    return true;
}

} // namespace Brisk
