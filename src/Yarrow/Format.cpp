#include "Yarrow/Format.h"

#include <algorithm>
#include <fmt/format.h>
#include <vector>

namespace Yarrow {
namespace {

template <class... A>
bool bad(std::string& message, fmt::format_string<A...> format, A&&... args) {
    message = fmt::format(format, std::forward<A>(args)...);
    return false;
}

bool soundHeaders(FileImages const& images, SharedMem::OrielId orielId, std::string& message) {
    if (images.primarySize < TableView::entriesOffset(0) ||
        images.secondarySize < TableView::entriesOffset(1))
        return bad(message, "bad queue file sizes: {} and {}", images.primarySize,
                   images.secondarySize);
    auto const& control = *static_cast<ControlHeader const*>(images.primary);
    auto const& second = *static_cast<SecondaryHeader const*>(images.secondary);
    if (control.magic != ControlHeader::magicValue || second.magic != ControlHeader::magicValue)
        return bad(message, "bad queue magic: {:#x} and {:#x}", control.magic, second.magic);
    if (control.format != ControlHeader::formatNumber ||
        second.format != ControlHeader::formatNumber ||
        control.headerSize != sizeof(ControlHeader) ||
        second.headerSize != sizeof(SecondaryHeader) || control.entrySize != sizeof(Entry) ||
        control.pruneMode > U32(PruneMode::bounded))
        return bad(message, "bad queue format: {}", toString(control));
    if (control.orielId != orielId || second.orielId != orielId)
        return bad(message, "bad queue orielId: {:#x} and {:#x} wanted:{:#x}", control.orielId,
                   second.orielId, orielId);
    return true;
}

} // namespace

bool soundFiles(FileImages const& images, SharedMem::OrielId orielId, U32 numSlots,
                std::string& message) {
    if (!soundHeaders(images, orielId, message)) return false;
    auto const& control = *static_cast<ControlHeader const*>(images.primary);
    U64 const start = control.corralStart, end = control.corralEnd;
    U64 const sequence = control.sequence;
    if (sequence == Wren::syncPass || control.prunedThrough > sequence)
        return bad(message, "bad queue sequence: {} prunedThrough:{}", sequence,
                   control.prunedThrough);
    if (start != 0 && (end < start || end > sequence))
        return bad(message, "open or bad corral: {} to {} sequence:{}", start, end, sequence);

    U32 const which = control.activeGeneration & 1;
    auto* const base = const_cast<void*>(which == 0 ? images.primary : images.secondary);
    std::size_t const size = which == 0 ? images.primarySize : images.secondarySize;
    TableView const table(base, which);
    TableHeader const& header = table.header();
    if (control.activeGeneration < 2 || header.generation != control.activeGeneration)
        return bad(message, "bad queue generation: {} wanted:{}", header.generation,
                   control.activeGeneration);
    if (header.capacity > TableView::capacityOf(size, which) || header.count > header.capacity ||
        header.baseSequence > sequence)
        return bad(message, "bad queue table: {} file size:{} sequence:{}", toString(header), size,
                   sequence);

    U32 lastOffset = 0;
    std::vector<U32> slots;
    slots.reserve(header.count);
    for (U32 i = 0; i < header.count; ++i) {
        Entry const entry = table.entry(i);
        if (entry.offset <= lastOffset || entry.offset > sequence - header.baseSequence)
            return bad(message, "bad queue entry:{} offset:{} after:{}", i, entry.offset,
                       lastOffset);
        lastOffset = entry.offset;
        if (entry.slot == Entry::tombstone) continue;
        if (entry.slot >= numSlots)
            return bad(message, "bad queue entry:{} slot:{} numSlots:{}", i, entry.slot, numSlots);
        U64 const at = header.baseSequence + entry.offset;
        if (start == 0 || at < start || at > end) slots.push_back(entry.slot);
    }
    std::sort(slots.begin(), slots.end());
    if (auto const twice = std::adjacent_find(slots.begin(), slots.end()); twice != slots.end())
        return bad(message, "slot:{} stands twice in the queue", *twice);
    return true;
}

std::string toString(ControlHeader const& control) {
    return fmt::format(
        "magic:{:#x} format:{} headerSize:{} orielId:{:#x} incarnation:{} entrySize:{} "
        "pruneMode:{} prunedThrough:{} activeGeneration:{} corral:{}-{} sequence:{}",
        control.magic, control.format, control.headerSize, control.orielId, control.incarnation,
        control.entrySize, control.pruneMode, control.prunedThrough, control.activeGeneration,
        control.corralStart, control.corralEnd, control.sequence);
}

std::string toString(TableHeader const& table) {
    return fmt::format("generation:{} baseSequence:{} capacity:{} count:{}", table.generation,
                       table.baseSequence, table.capacity, table.count);
}

} // namespace Yarrow
