// Definitions of SlotReaderTable; included only where a table is instantiated.
#pragma once

#include "Brisk/SlotReader.h"

namespace Brisk {

template <class Ops>
SlotReaderTable<Ops>::SlotReaderTable(Dunlin::Platform::DebugHandler& handler,
                                      Mem::YokeRootPath const& rootPathIs, Ops& opsIs,
                                      Reader::Counters& countersIs)
    : Debuggable(handler), rootPath(&rootPathIs), memory(rootPathIs, Base::fileName), ops(&opsIs),
      counters(&countersIs) {}

template <class Ops>
bool SlotReaderTable<Ops>::attach() {
    detach();
    if (memory.memSize() == 0) {
        FMTRACE(debugHandler(), 0, "no shared memory region");
        return false;
    }
    void const* const base = memory.attach(Base::headerSize, Mem::Mode::reader);
    if (!base) {
        FMTRACE(debugHandler(), 0, "cannot attach to shmem size:{}", Base::headerSize);
        return false;
    }
    header = static_cast<Header const*>(base);
    Header copy;
    snapshot(copy);
    counters->headerField568 = copy.seed;
    return true;
}

template <class Ops>
void SlotReaderTable<Ops>::detach() {
    FMTRACE(debugHandler(), 5, "");
    memory.detach();
    header = nullptr;
    localVersion_ = 0xffffffff;
    capacity_ = 0;
    slots_ = nullptr;
    numSlots_ = 0;
    replaced = false;
    anchor = {};
    if (keptAnchor.offset < Mem::VersionAnchor::none) keptAnchor.offset = Mem::VersionAnchor::lost;
}

template <class Ops>
std::size_t SlotReaderTable<Ops>::snapshot(Header& copy) const {
    U32 version = Mem::observe(header->numSlots.version);
    for (;;) {
        Mem::copyBytes(&copy, header, sizeof(Header));
        std::size_t const fileSize = memory.memSize();
        Mem::loadsStayBefore();
        U32 const again = Mem::observe(header->numSlots.version);
        if (again == version) return fileSize;
        version = again;
    }
}

template <class Ops>
bool SlotReaderTable<Ops>::doResize(SharedMem::OrielId orielId) {
    if (!header || current()) return false;
    Header copy;
    std::size_t const fileSize = snapshot(copy);
    std::size_t newSize = 0;
    try {
        newSize = Base::fileSize(copy.numSlots.value);
    } catch (Dunlin::RuntimeException const& e) {
        Dunlin::fmthrow<Dunlin::CorruptionDetectedException>("bad newNumSlots:{} message:{}",
                                                             copy.numSlots.value, e.message());
    }
    if (newSize > fileSize)
        Dunlin::fmthrow<Dunlin::CorruptionDetectedException>(
            "requesting to map {} {} slots. Requested file resize to {} but real file size is {}",
            memory.getFilename(), copy.numSlots.value, newSize, fileSize);
    FMTRACE(debugHandler(), 2, "{} from {} slots to {}", rootPath->text(), numSlots_,
            copy.numSlots.value);
    void const* const base = memory.resize(newSize);
    if (!base)
        Dunlin::fmthrow<Dunlin::MemoryResourceException>(
            "failed to resize {} from {} to {} slots, needed {} bytes. Reason: {}",
            memory.getFilename(), numSlots_, copy.numSlots.value, newSize, memory.reason());
    if (base != header) {
        FMTRACE(debugHandler(), 5, "changed base address mapping from {} to {}",
                static_cast<void const*>(header), base);
        ++counters->baseAddressChanges;
    }
    // Both anchors follow the mapping, or are lost with the part that was cut off (A17).
    for (Mem::VersionAnchor* kept : {&anchor, &keptAnchor})
        if (kept->offset < Mem::VersionAnchor::none) {
            if (kept->offset + sizeof(U32) > newSize)
                kept->offset = Mem::VersionAnchor::lost;
            else
                kept->base = base;
        }
    header = static_cast<Header const*>(base);
    ++counters->slotResizes;
    FMTRACE(debugHandler(), 3, "onResize {}", copy.toString());
    slots_ = reinterpret_cast<Slot const*>(static_cast<char const*>(base) + Base::headerSize);
    localVersion_ = copy.numSlots.version;
    capacity_ = copy.numSlots.value;
    numSlots_ = copy.numSlots.value;
    // A writer that re-formats retires these files: their generation is then no longer ours
    // (H-file-2). They stay as they are, so reading goes on until the owner attaches anew.
    replaced = copy.orielId != orielId;
    FMTRACE(debugHandler(), 2, "successful");
    return true;
}

template <class Ops>
void SlotReaderTable<Ops>::outOfRange(U32 index) const {
    Dunlin::fmthrow<Dunlin::CorruptionDetectedException>("out-of-range index:{} numSlots:{}", index,
                                                         numSlots_);
}

template <class Ops>
void SlotReaderTable<Ops>::anchorIs(U32 index, U32 version) {
    anchor = {version,
              static_cast<U32>(Base::headerSize + std::size_t{index} * Base::slotSize +
                               offsetof(Slot, slotVersion)),
              header};
}

// A slot under a sequence lock that never stalls: while the writer rewrites the slot, its new value
// stands complete in the lookaside slot.
//
//      load                     order, partner
//  R1  slotVersion              observe; pairs with the publishes of a rewrite (R2, R4 there)
//  R2  hash, key, value         raw words, from the slot or from the lookaside slot
//  R3  slotVersion again        after R2; a rewrite that overlapped has changed it, also one of
//                               another slot that reused the lookaside: ours has left it first
template <class Ops>
auto SlotReaderTable<Ops>::readSlot(U32 index, void* out) -> Seen {
    Slot const& at = slot(index);
    Seen seen;
    seen.version = Mem::observe(at.slotVersion); // R1
    for (;;) {
        Slot const& from = source(at, seen.version);
        seen.rhash = Mem::peek(from.rhash); // R2
        Ops::copyValue(out, &from.value);
        Mem::loadsStayBefore();
        U32 const again = Mem::observe(at.slotVersion); // R3
        if (again == seen.version) break;
        seen.version = again;
    }
    anchorIs(index, seen.version);
    return seen;
}

template <class Ops>
auto SlotReaderTable<Ops>::readMatch(U32 index, U32 rhash, Key const& key, void* out) -> Match {
    Slot const& at = slot(index);
    // A record spans several cache lines; ask for all while the first is on its way.
    Mem::prefetch(&at, sizeof(Slot));
    static_assert(sizeof(Match::keyBytes) <= sizeof(Value));
    Match seen;
    seen.version = Mem::observe(at.slotVersion); // R1
    for (;;) {
        Slot const& from = source(at, seen.version);
        seen.rhash = Mem::peek(from.rhash); // R2
        Mem::copyBytes(seen.keyBytes, &from.value, sizeof seen.keyBytes);
        seen.matches = seen.rhash == rhash && Ops::equal(seen.key(), key);
        if (seen.matches) Ops::copyValue(out, &from.value);
        Mem::loadsStayBefore();
        U32 const again = Mem::observe(at.slotVersion); // R3
        if (again == seen.version) return seen;
        seen.version = again;
    }
}

template <class Ops>
auto SlotReaderTable<Ops>::getValue(U32 index, void* out) -> Seen {
    if (index >= capacity_) return {};
    return readSlot(index, out);
}

} // namespace Brisk
