#include "Brisk/SlotTable.h"

#include <fmt/format.h>

namespace Brisk {

bool validateSlotFileSize(Dunlin::Platform::DebugHandler& handler, std::size_t fileSize,
                          U32 numSlots, U32 slotSize, U32 headerSize, std::string& message) {
    message.clear();
    if (fileSize < headerSize) {
        message = fmt::format("bad header file size: {} wanted:{}", fileSize, headerSize);
    } else if (numSlots == 0) {
        message = "bad numSlots: 0 message: a table has at least one slot";
    } else {
        try {
            std::size_t const wanted = Dunlin::Util::fileSizeHelper(numSlots, slotSize, headerSize);
            if (wanted > fileSize)
                message = fmt::format("bad shmem size:{} wanted:{} for {} slots", fileSize, wanted,
                                      numSlots);
        } catch (Dunlin::RuntimeException const& e) {
            message = fmt::format("bad numSlots: {} message: {}", numSlots, e.message());
        }
    }
    if (message.empty()) return true;
    FMTRACE(handler, 0, "{}", message);
    return false;
}

} // namespace Brisk
