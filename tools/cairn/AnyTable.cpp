#include "AnyTable.h"

#include "SharedMem/FileUtil.h"

#include <cstring>

namespace Cairn {

Dunlin::Platform::DebugHandler& trace() {
    static auto const handler = Dunlin::Platform::getDebugHandler("cairn", false);
    return *handler;
}

namespace {
std::string firstReason;
}

void keepTrace(std::function<void(std::string const&)> also) {
    if (std::getenv("CAIRN_TRACE")) return;
    Dunlin::traceSinkIs([also = std::move(also)](std::string const&, unsigned, std::string_view,
                                                 std::string const& text) {
        auto const line = text.substr(0, text.find('\n'));
        if (firstReason.empty()) firstReason = line;
        if (also) also(line);
    });
}

std::string takeTraceReason() {
    return std::exchange(firstReason, {});
}

std::optional<Brisk::SlotHeaderCommon> headerOf(Mem::YokeRootPath const& path) {
    Brisk::SlotHeaderCommon header;
    if (Mem::readFile(path.file("slots"), &header, sizeof header) != long{sizeof header})
        return std::nullopt;
    bool const whole = header.magic == Brisk::SlotHeaderCommon::magicNumber &&
                       std::memchr(header.typeName, 0, sizeof header.typeName);
    return whole ? std::optional(header) : std::nullopt;
}

} // namespace Cairn
