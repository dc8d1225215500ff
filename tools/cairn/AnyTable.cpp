#include "AnyTable.h"

#include "SharedMem/FileUtil.h"
#include "SharedMem/OwnerFile.h"
#include "SharedMem/WriterLock.h"

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

std::string WriterName::text() const {
    return pid == 0 ? process : fmt::format("{}-{}", process, pid);
}

WriterName writerOf(Mem::YokeRootPath const& path) {
    if (!Mem::WriterLock::writerExists(path)) return {};
    try {
        auto const info = SharedMem::OwnerFile(trace(), path, false).bolsterInfo();
        if (auto const name = SharedMem::BolsterName::BolsterNameIs(info.socketName))
            return {name->processName, name->pid};
    } catch (Dunlin::Exception const&) {
        // A damaged owner file does not hide that the lock is held.
    }
    return {"unknown", 0};
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
