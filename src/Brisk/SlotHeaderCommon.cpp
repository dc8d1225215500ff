#include "Brisk/SlotHeaderCommon.h"

#include "SharedMem/Atomics.h"

#include <fmt/format.h>

#include <cstring>

namespace Brisk {

SlotHeaderCommon::SlotHeaderCommon(Dunlin::Platform::DebugHandler& handler, U16 size, U32 slot,
                                   U32 slots, U32 configured, U32 formatIs, U32 oriel,
                                   std::string const& type, U32 value, U32 seedIs)
    : headerSize(size), format(formatIs), orielId(oriel), slotSize(slot), valueBytes(value),
      maxSize(configured), highestNumSlots(slots), seed(seedIs) {
    type.copy(typeName, sizeof typeName - 1);
    numSlots = {0, slots};
    Mem::storesStayBefore();
    Mem::poke(magic, magicNumber);
    FMTRACE(handler, 3, "{}", toString());
}

bool SlotHeaderCommon::validate(Dunlin::Platform::DebugHandler& handler, U16 size,
                                std::size_t fileSize, U32 oriel, Expected const& expected,
                                std::string& message) const {
    if (fileSize < size)
        message = fmt::format("bad file size: {} is below the header's {}", fileSize, size);
    else if (magic != magicNumber)
        message = fmt::format("bad magic: {:#x} wanted:{:#x}", magic, magicNumber);
    else if (format != formatNumber)
        message = fmt::format("bad format: {} wanted:{}", format, formatNumber);
    else if (headerSize != size)
        message = fmt::format("bad header size: {} wanted:{}", headerSize, size);
    else if (orielId != oriel)
        message = fmt::format("bad orielId: {:#x} wanted:{:#x}", orielId, oriel);
    else if (slotSize != expected.slotSize)
        message = fmt::format("bad slot size: {} wanted:{}", slotSize, expected.slotSize);
    else if (valueBytes != expected.valueBytes)
        message = fmt::format("bad value size: {} wanted:{}", valueBytes, expected.valueBytes);
    else if (std::memchr(typeName, 0, sizeof typeName) == nullptr)
        message = "bad type name: not terminated";
    else if (expected.typeName && std::strcmp(typeName, expected.typeName) != 0)
        message = fmt::format("bad type name: '{}' wanted:'{}'", typeName, expected.typeName);
    else
        return true;
    FMTRACE(handler, 0, "{}", message);
    return false;
}

std::string SlotHeaderCommon::toString() const {
    std::size_t const nameLength = ::strnlen(typeName, sizeof typeName);
    return fmt::format(
        "magic:{:#x} headerSize:{} format:{} orielId:{:#x} slotSize:{} valueBytes:{} type:{} "
        "maxSize:{} tableFlags:{:#x} runtimeFlags:{:#x} occupiedSlots:{} freeList:{} "
        "highestNumSlots:{} seed:{} numSlots:{} version:{} largestOccupied:{} "
        "slotVersionFloor:{} scratchpad:{}",
        magic, headerSize, format, orielId, slotSize, valueBytes,
        std::string_view(typeName, nameLength), maxSize, tableFlags, runtimeFlags, occupiedSlots,
        freeList, highestNumSlots, seed, numSlots.value, numSlots.version, largestOccupied,
        slotVersionFloor, scratchpad);
}

} // namespace Brisk
