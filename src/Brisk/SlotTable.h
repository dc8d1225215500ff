// The slot file of a table: its records, its header, and what writer and reader share of them.
//
//   0          SlotHeaderCommon, 600 bytes
//   600        the lookaside slot, laid out as a slot
//   600 + S    the slots, S bytes each, slot 0 first
#pragma once

#include "Brisk/SlotHeaderCommon.h"
#include "BriskCore/SlotLink.h"
#include "Dunlin/Exception.h"
#include "Dunlin/Util.h"

#include <type_traits>

namespace Brisk {

// A slot. An occupied one is a member of the split-ordered list, a free one of the free list.
template <class Value>
struct SlotRecord {
    SlotLink link;       // occupied: the next of the chain; free: the next free slot
    U32 slotVersion = 0; // occupiedBit, lookasideBit, and a sequence that runs for the file's life
    U32 rhash = 0;       // the key's hash, bits reversed
    Value value{};       // the key is its first field
};

template <class Value>
class SlotTable {
public:
    using Slot = SlotRecord<Value>;
    static_assert(std::is_trivially_copyable_v<Value> && sizeof(Slot) % 8 == 0);
    static_assert(alignof(Value) <= 8);

    struct Header : SlotHeaderCommon {
        using SlotHeaderCommon::SlotHeaderCommon;
        Slot lookaside;

        // False leaves a text in `message`, traced at level 0. `fileSize` in bytes; a file larger
        // than needed is accepted, since a shrunk file keeps its length.
        bool validate(Dunlin::Platform::DebugHandler& handler, std::size_t fileSize, U32 orielId,
                      char const* typeName, std::string& message) const;
    };
    static constexpr U32 slotSize = sizeof(Slot);
    static constexpr U32 headerSize = sizeof(Header);
    static_assert(headerSize == SlotHeaderCommon::bytes + slotSize);
    static constexpr char const* fileName = "slots";

    // Bytes of a file for that many slots. Raises RuntimeException for an impossible size.
    static std::size_t fileSize(U32 numSlots) {
        return Dunlin::Util::fileSizeHelper(numSlots, slotSize, headerSize);
    }

    virtual ~SlotTable() = default;
    virtual void detach() = 0;
    virtual U32 capacity() const = 0;
};

// The judgement on sizes that `Header::validate` makes after the common part.
bool validateSlotFileSize(Dunlin::Platform::DebugHandler& handler, std::size_t fileSize,
                          U32 numSlots, U32 slotSize, U32 headerSize, std::string& message);

template <class Value>
bool SlotTable<Value>::Header::validate(Dunlin::Platform::DebugHandler& handler,
                                        std::size_t fileSize, U32 oriel, char const* type,
                                        std::string& message) const {
    // A slot's value bytes are its size less the link and the two words, without tail padding.
    typename SlotHeaderCommon::Expected const expected{SlotTable::slotSize, sizeof(Value), type};
    return SlotHeaderCommon::validate(handler, SlotHeaderCommon::bytes, fileSize, oriel, expected,
                                      message) &&
           validateSlotFileSize(handler, fileSize, numSlots.value, SlotTable::slotSize,
                                SlotTable::headerSize, message);
}

} // namespace Brisk
