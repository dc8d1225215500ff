#include "Dunlin/Util.h"

#include "Dunlin/Trace.h"

#include <cstdio>
#include <cstdlib>
#include <limits>

namespace Dunlin::Util {
namespace {

std::string& chosenBase() {
    static auto& directory = *new std::string; // never destroyed: a table may be a static object
    return directory;
}

} // namespace

std::size_t fileSizeHelper(U32 numSlots, U32 slotSize, U32 headerSize) {
    if (numSlots > 0x7fffffffU)
        fmthrow<RuntimeException>("slot count {} exceeds {}", numSlots, 0x7fffffffU);
    U64 const size = headerSize + U64{numSlots} * slotSize;
    if (size > static_cast<U64>(std::numeric_limits<std::ptrdiff_t>::max()))
        fmthrow<RuntimeException>("{} slots of {} bytes are no possible file size", numSlots,
                                  slotSize);
    return size;
}

void includeShmemInCore() {
    // core(5): bits 0 and 1 anonymous, bits 2 and 3 file-backed mappings, bit 4 ELF headers.
    if (std::FILE* file = std::fopen("/proc/self/coredump_filter", "we")) {
        std::fputs("0x3f\n", file);
        std::fclose(file);
    }
}

std::string traceHandleName(std::string const& name, std::string const& suffix) {
    return suffix.empty() ? "Brisk-" + name : "Brisk-" + name + "-" + suffix;
}

void emitCanaryLogText(std::string const& text) {
    static auto const& handler = *Platform::getDebugHandler("canary", false);
    FMTRACE(handler, 1, "{}", text);
}

std::string baseDirectory() {
    std::string directory = chosenBase();
    if (directory.empty())
        if (char const* text = std::getenv("CAIRN_BASE")) directory = text;
    if (directory.empty()) directory = "/dev/shm/cairn";
    while (directory.size() > 1 && directory.back() == '/') directory.pop_back();
    return directory;
}

void baseDirectoryIs(std::string const& directory) {
    chosenBase() = directory;
}

} // namespace Dunlin::Util
