// Definitions of SlotWriterTable; included only where a table is instantiated.
#pragma once

#include "Brisk/SlotWriter.h"
#include "Brisk/TableFullException.h"

#include <bit>
#include <cmath>
#include <exception>

namespace Brisk {

template <class Ops>
SlotWriterTable<Ops>::SlotWriterTable(Dunlin::Platform::DebugHandler& handlerIs,
                                      Mem::YokeRootPath const& rootPathIs, Ops& opsIs,
                                      Writer::Counters& countersIs, U32 maxSizeIs, bool fixed,
                                      bool mayShrink, bool localMem, bool heap)
    : handler(&handlerIs), rootPath(rootPathIs),
      memory(rootPathIs, Base::fileName, Mem::backingOf(localMem, heap)), maxSize(maxSizeIs),
      ops(&opsIs), counters(&countersIs), fixedSize(fixed), shrinkable(mayShrink) {
    if (fixedSize) {
        minSlots = maxSize;
    } else {
        // As many slots as fit in a page behind the header, rounded down to a power of two.
        std::size_t const page = Mem::pageSize_;
        std::size_t const fit =
            page > Base::headerSize ? (page - Base::headerSize) / Base::slotSize : 0;
        minSlots =
            Mem::StepHooks::initialSlots(fit == 0 ? 1 : static_cast<U32>(std::bit_floor(fit)));
    }
}

template <class Ops>
void SlotWriterTable<Ops>::Slots::outOfRange(U32 index, U32 maxIndex) {
    Dunlin::fmthrow<Dunlin::CorruptionDetectedException>("out-of-range index: {} max:{}", index,
                                                         maxIndex);
}

template <class Ops>
SlotWriterTable<Ops>::CriticalSectionAnchor::CriticalSectionAnchor(SlotWriterTable& table)
    : table_(table), exceptions_(std::uncaught_exceptions()) {
    table_.enterCriticalSection();
}

template <class Ops>
SlotWriterTable<Ops>::CriticalSectionAnchor::~CriticalSectionAnchor() {
    if (std::uncaught_exceptions() == exceptions_) table_.leaveCriticalSection();
}

template <class Ops>
void SlotWriterTable<Ops>::enterCriticalSection() {
    U16 const flags = Mem::peek(header->runtimeFlags);
    FMASSERT((flags & SlotHeaderCommon::criticalSection) == 0, "Brisk reentrancy detected: {}",
             rootPath.text());
    Mem::poke(header->runtimeFlags, static_cast<U16>(flags | SlotHeaderCommon::criticalSection));
    // The mark shows before anything that it covers.
    Mem::storesStayBefore();
}

template <class Ops>
void SlotWriterTable<Ops>::markCriticalSection() {
    Mem::poke(header->runtimeFlags, static_cast<U16>(Mem::peek(header->runtimeFlags) |
                                                     SlotHeaderCommon::criticalSection));
    Mem::storesStayBefore();
}

template <class Ops>
void SlotWriterTable<Ops>::leaveCriticalSection() {
    Mem::publish(header->runtimeFlags,
                 static_cast<U16>(Mem::peek(header->runtimeFlags) &
                                  static_cast<U16>(~SlotHeaderCommon::criticalSection)));
}

template <class Ops>
void SlotWriterTable<Ops>::detach() {
    FMTRACE(*handler, 5, "{}", rootPath.text());
    numSlots = 0;
    slots.base = nullptr;
    slots.maxIndex = 0;
    memory.detach();
    header = nullptr;
    // Its place goes with the mapping, and what stands there later is not what was read (A16).
    if (anchor.offset < Mem::VersionAnchor::none) anchor.offset = Mem::VersionAnchor::lost;
}

template <class Ops>
void SlotWriterTable<Ops>::reload() {
    slots.base = reinterpret_cast<Slot*>(reinterpret_cast<char*>(header) + Base::headerSize);
    numSlots = header->numSlots.value;
    slots.maxIndex = numSlots == 0 ? 0 : numSlots - 1;
    shrinkThreshold();
}

template <class Ops>
void SlotWriterTable<Ops>::shrinkThreshold() {
    // The largest power of two strictly below the count.
    bool const mayShrink = shrinkable && !fixedSize && numSlots > minSlots;
    shrinkThreshold_ = mayShrink ? std::bit_ceil(numSlots) / 2 : 0;
}

template <class Ops>
void SlotWriterTable<Ops>::recordAnchor(Slot const& slot) {
    anchor.version = Mem::peek(slot.slotVersion);
    anchor.offset = static_cast<U32>(reinterpret_cast<char const*>(&slot.slotVersion) -
                                     reinterpret_cast<char const*>(header));
    anchor.base = header;
}

template <class Ops>
bool SlotWriterTable<Ops>::contains(SlotLink const* link) const {
    auto const* const base = reinterpret_cast<char const*>(header);
    auto const* const address = reinterpret_cast<char const*>(link);
    return address >= base && address < base + Base::fileSize(numSlots);
}

template <class Ops>
void SlotWriterTable<Ops>::resize(U32 newNumSlots) {
    FMTRACE(*handler, 5, "{} from {} to {} slots", rootPath.text(), numSlots, newNumSlots);
    std::size_t const size = Base::fileSize(newNumSlots);
    if (newNumSlots > maxSize)
        FMTRACE(*handler, 5, "overflowing by {} slots", newNumSlots - maxSize);
    void* const base = memory.resize(size);
    if (!base)
        Dunlin::fmthrow<Dunlin::MemoryResourceException>(
            "failed to resize {} from {} to {} slots, needed {} bytes. Reason: {}",
            memory.getFilename(), numSlots, newNumSlots, size, memory.reason());
    if (base != header) {
        ++counters->baseAddressChanges;
        FMTRACE(*handler, 5, "remap base address changed from {} to {}",
                static_cast<void const*>(header), static_cast<void const*>(base));
    }
    // The anchor outlives the old mapping (A16): it follows, or is lost with the part cut off.
    if (anchor.base) {
        if (std::size_t{anchor.offset} + sizeof(U32) > size)
            anchor.offset = Mem::VersionAnchor::lost;
        anchor.base = base;
    }
    header = static_cast<Header*>(base);
    slots.base = reinterpret_cast<Slot*>(static_cast<char*>(base) + Base::headerSize);
    FMTRACE(*handler, 5, "to {} successfully", newNumSlots);
}

template <class Ops>
void SlotWriterTable<Ops>::writeFreeImage(Slot& slot, U32 slotVersion) {
    // Nobody reaches these slots; what publishes them is the slot count, or for a new file the
    // file itself.
    Mem::poke(slot.link, SlotLink{});
    Mem::poke(slot.slotVersion, slotVersion);
    Mem::poke(slot.rhash, 0U);
    Ops::copyValue(&slot.value, &Ops::freeValue());
}

template <class Ops>
void SlotWriterTable<Ops>::format(U32 count, U32 orielId, std::string const& typeName, U32 seed) {
    ops->seedIs(seed);
    new (static_cast<SlotHeaderCommon*>(header))
        SlotHeaderCommon(*handler, SlotHeaderCommon::bytes, Base::slotSize, count, maxSize,
                         SlotHeaderCommon::formatNumber, orielId, typeName, sizeof(Value), seed);
    writeFreeImage(header->lookaside, 0);
    slots.base = reinterpret_cast<Slot*>(reinterpret_cast<char*>(header) + Base::headerSize);
    slots.maxIndex = count == 0 ? 0 : count - 1;
    for (U32 i = 0; i < count; ++i) writeFreeImage(slots[i], 0);
    reload();
    addFreeSlots(0, count);
    Mem::poke(header->freeList, 0U); // A11: the list's head is the caller's
}

// Makes the file longer; no slot moves. Readers: SlotReaderTable::doResize, ReaderHashMap.
//
//      store                      order, partner                       a reader now sees
//  G1  free images, new slots     shown by G4                          nothing: beyond its count
//  G2  links of the new slots     shown by G4                          nothing
//  G3  highestNumSlots            the writer's and its successor's     nothing
//  G4  (version + 1, new count)   publish; pairs with doResize         the new size: maps more
//  G5  freeList                   the writer's                         nothing
//
// A writer that dies in between leaves its critical-section mark: the successor formats anew.
template <class Ops>
void SlotWriterTable<Ops>::grow() {
    U32 const occupied = Mem::peek(header->occupiedSlots);
    if (occupied != numSlots)
        Dunlin::fmthrow<Dunlin::CorruptionDetectedException>(
            "the slot table is full but numSlots: {} and occupiedSlots: {} are not equal", numSlots,
            occupied);
    if (fixedSize) {
        leaveCriticalSection();
        TableFullException::throwException("Brisk table full (occupancy:{} tableSize:{}) {}",
                                           occupied, numSlots, rootPath.text());
    }
    U32 const old = numSlots;
    U32 wanted;
    if (old < maxSize) {
        wanted = static_cast<U32>(
            std::min<U64>(static_cast<U64>(2.0F * static_cast<float>(old)), maxSize));
    } else {
        wanted = static_cast<U32>(std::ceil(static_cast<float>(old) * 1.1F));
    }
    try {
        resize(wanted);
    } catch (Dunlin::MemoryResourceException const&) {
        leaveCriticalSection(); // nothing has changed: the table stays usable (A49)
        throw;
    }
    U32 const floor = Mem::peek(header->slotVersionFloor);
    slots.maxIndex = wanted - 1;
    for (U32 i = old; i < wanted; ++i) writeFreeImage(slots[i], floor); // G1
    addFreeSlots(old, wanted);                                          // G2
    if (Mem::peek(header->highestNumSlots) < wanted)
        Mem::poke(header->highestNumSlots, wanted); // G3
    header->numSlots.valueIs(wanted);               // G4
    Mem::poke(header->freeList, old);               // G5
    FMTRACE(*handler, 2, "{} from {} slots to {}", rootPath.text(), old, wanted);
    reload();
    ++counters->slotGrows;
}

template <class Ops>
void SlotWriterTable<Ops>::addFreeSlots(U32 start, U32 end) {
    FMASSERT(start < end, "bad index range, start: {} end: {}", start, end);
    FMASSERT(Mem::peek(header->freeList) == SlotHeaderCommon::noFreeSlot, "free-list is not empty");
    U32 above = SlotHeaderCommon::noFreeSlot;
    for (U32 i = end; i-- > start;) {
        Slot& slot = slots[i];
        Mem::poke(slot.link, Mem::peek(slot.link).to(above));
        above = i;
    }
}

template <class Ops>
void SlotWriterTable<Ops>::purgeFreeSlots(U32 threshold) {
    FMASSERT(threshold < numSlots, "bad threshold: {} numSlots:{}", threshold, numSlots);
    U32 index = Mem::peek(header->freeList);
    FMASSERT(index != SlotHeaderCommon::noFreeSlot, "free-list is empty");
    U32 length = 0;
    Slot* prev = nullptr;
    while (index != SlotHeaderCommon::noFreeSlot) {
        Slot& slot = slots[index];
        U32 const next = Mem::peek(slot.link).next;
        // A list with a loop would never end; its length cannot exceed the slot count.
        if (++length > numSlots) break;
        if (index < threshold) {
            prev = &slot;
        } else {
            FMTRACE(*handler, 7, "removing slot id {} from free-list", index);
            // The free list is private to the writer; a reader sees a link's version change.
            if (prev)
                Mem::publish(prev->link, Mem::peek(prev->link).to(next));
            else
                Mem::publish(header->freeList, next);
        }
        index = next;
    }
    U32 const occupied = Mem::peek(header->occupiedSlots);
    if (length + occupied != numSlots)
        Dunlin::fmthrow<Dunlin::CorruptionDetectedException>(
            "numSlots mismatch, length of freeList: {}, occupiedSlots: {} do not add up to "
            "numSlots: {}",
            length, occupied, numSlots);
}

// Moves an entry to a lower slot. The source stays occupied and intact until the caller gives it up
// (`vacate`), after it has announced the target and before anything else is moved or freed. Readers:
// all walks; SlotReaderTable::getValue by index.
//
//      store                      order, partner                       a reader now sees
//  M1  freeList                   the writer's                         nothing
//  M2  target rhash, value        shown by M5; the version of M3       nothing: unreachable
//  M3  target slotVersion+4 | 1   publish; pairs with readSlot         by index, the entry twice
//  M4  target link                publish, shown by M5                 nothing: unreachable
//  M5  previous link -> target    publish; pairs with the link's       the entry in its new place;
//                                 re-check of a walk                   on the source, still all right
//      in `vacate`:
//  M6  source less OCCUPIED       publish, before M7; pairs with       by index, the source empty
//                                 readSlot and the cursor's look
//  M7  source link, version + 4   publish; pairs with the re-check     whoever stands on the source
//                                 of one who stands on the source      starts over (H-link-2)
//
// A cursor loads the source's link, then its version, and both again behind the next slot. The link
// before M7: whatever happens to the next slot happens behind M7, and the second look at the link
// shows it. The link of M7: the version loaded behind it has lost OCCUPIED, and the cursor does not
// believe it. With M7 before M6, a cursor between the two would believe a link that nobody changes
// any more when the next slot goes.
template <class Ops>
void SlotWriterTable<Ops>::move(U32 fromSlotId, U32 toSlotId, SlotLink& prev) {
    FMASSERT(toSlotId != SlotHeaderCommon::noFreeSlot, "not valid toSlotId:{}", toSlotId);
    FMASSERT(fromSlotId > toSlotId,
             "should always move entries to lower section fromSlotId:{} toSlotId:{}", fromSlotId,
             toSlotId);
    Slot& from = slots[fromSlotId];
    Slot& to = slots[toSlotId];
    SlotLink const fromLink = Mem::peek(from.link);
    Mem::poke(header->freeList, Mem::peek(to.link).next); // M1
    Mem::poke(to.rhash, Mem::peek(from.rhash));           // M2
    Ops::copyValue(&to.value, &from.value);
    U32 const version = Mem::peek(to.slotVersion);
    if (version & occupiedBit) {
        Mem::publish(to.slotVersion, version + 2);
        Mem::publish(to.slotVersion, version + 4);
    } else {
        Mem::publish(to.slotVersion, (version + 4) | occupiedBit); // M3
    }
    Mem::publish(to.link, Mem::peek(to.link).to(fromLink.next)); // M4
    FMTRACE(*handler, 7, "fromSlotId:{} toSlotId:{}", fromSlotId, toSlotId);
    Mem::publish(prev, Mem::peek(prev).to(toSlotId)); // M5
}

template <class Ops>
void SlotWriterTable<Ops>::vacate(U32 slotId) {
    Slot& slot = slots[slotId];
    Mem::publish(slot.slotVersion, Mem::peek(slot.slotVersion) & ~occupiedBit); // M6
    SlotLink const link = Mem::peek(slot.link);
    Mem::publish(slot.link, link.to(link.next)); // M7
}

// Cuts the file. No entry stands at or above the new count.
//
//      store                      order, partner                       a reader now sees
//  S1  slotVersionFloor           the writer's; before S2              nothing
//  S2  (version + 1, new count)   publish; pairs with doResize         the new size
//  S3  the pages are given back   after S2                             zero pages behind the end:
//                                 every stale read fails its re-check (H-file-1)
template <class Ops>
void SlotWriterTable<Ops>::shrink(U32 newNumSlots) {
    FMTRACE(*handler, 5, "newNumSlots:{}", newNumSlots);
    U32 const old = numSlots;
    U32 floor = Mem::peek(header->slotVersionFloor);
    for (U32 i = newNumSlots; i < old; ++i)
        floor = std::max(floor, (Mem::peek(slots[i].slotVersion) | 3U) + 1);
    Mem::poke(header->slotVersionFloor, floor); // S1
    header->numSlots.valueIs(newNumSlots);      // S2
    numSlots = newNumSlots;
    slots.maxIndex = newNumSlots - 1;
    resize(newNumSlots); // S3
    reload();
    ++counters->slotShrinks;
    FMTRACE(*handler, 2, "{} from {} slots to {}", rootPath.text(), old, newNumSlots);
}

} // namespace Brisk
