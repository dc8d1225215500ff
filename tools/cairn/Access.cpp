#include "Access.h"

#include "KernelFeed.h"
#include "Output.h"
#include "RouteFile.h"

#include "Dunlin/Util.h"
#include "SharedMem/WriterLock.h"

#include <fmt/format.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace Cairn {

CommandError errorOfException(std::string const& where) {
    auto const error = [&](ExitCode code, std::string const& text) {
        return CommandError(code, where.empty() ? text : where + ": " + text);
    };
    try {
        throw;
    } catch (CommandError const& e) {
        return e;
    } catch (RouteFileError const& e) {
        return {badUse, e.what()};
    } catch (KernelError const& e) {
        return {badUse, e.what()};
    } catch (Dunlin::CorruptionDetectedException const& e) {
        return error(damaged, e.what());
    } catch (Dunlin::Exception const& e) {
        return error(noTable, e.what());
    } catch (std::filesystem::filesystem_error const& e) {
        return {noTable, fmt::format("{}: {}", shortened(e.path1().string()), e.code().message())};
    } catch (std::system_error const& e) {
        return error(badUse, e.code().message());
    } catch (std::exception const& e) {
        return error(badUse, e.what());
    }
}

namespace {

// Nothing if the file can be read.
std::optional<CommandError> fileFault(std::string const& table, Mem::YokeRootPath const& path,
                                      char const* name, Mem::Fd& file) {
    file = Mem::Fd(::open(path.file(name).c_str(), O_RDONLY | O_CLOEXEC));
    if (file) return std::nullopt;
    if (errno == ENOENT && std::string_view(name) != "slots")
        return CommandError(
            damaged, fmt::format("table {}: its file {} is missing", shortened(table), name));
    if (errno == ENOENT)
        return CommandError(noTable, fmt::format("no table {} below {}", shortened(table),
                                                 shortened(Dunlin::Util::baseDirectory())));
    return CommandError(
        noTable, fmt::format("table {}: {}: {}", shortened(table), name, std::strerror(errno)));
}

} // namespace

std::optional<CommandError> faultOf(std::string const& table) {
    Mem::YokeRootPath const path(table);
    Mem::Fd slots, other;
    if (auto fault = fileFault(table, path, "slots", slots)) return fault;
    for (char const* name : {"buckets", "oriel"})
        if (auto fault = fileFault(table, path, name, other)) return fault;
    auto const found = [&](std::string const& text) {
        return CommandError(damaged, fmt::format("table {}: {}", shortened(table), text));
    };
    Brisk::SlotHeaderCommon header;
    using Header = Brisk::SlotHeaderCommon;
    bool const whole = ::pread(slots.get(), &header, sizeof header, 0) == ssize_t{sizeof header};
    // The file grows before the count does.
    struct stat status {};
    ::fstat(slots.get(), &status);
    auto const size = static_cast<U64>(status.st_size);
    if (!whole || header.magic != Header::magicNumber)
        return found(fmt::format("no header in its file slots of {} bytes", size));
    if (!std::memchr(header.typeName, 0, sizeof header.typeName))
        return found("the name of its type has no end");
    if (U64 const wanted = header.headerSize + U64{header.numSlots.value} * header.slotSize;
        size < wanted)
        return found(fmt::format("its file slots has {} bytes where {} slots need {}", size,
                                 header.numSlots.value, wanted));
    U64 valueBytes = header.valueBytes;
    withTable(header.typeName, [&]<class Table>() { valueBytes = sizeof(typename Table::Value); });
    if (header.valueBytes != valueBytes)
        return found(fmt::format("its values have {} bytes where {} has {}", header.valueBytes,
                                 header.typeName, valueBytes));
    return std::nullopt;
}

CommandError attachError(std::string const& table, std::string const& reason) {
    if (auto fault = faultOf(table)) return *fault;
    return {damaged, fmt::format("table {}: {}", shortened(table),
                                 reason.empty() ? "a reader cannot attach to it" : reason)};
}

void requireBase() {
    std::string const base = Dunlin::Util::baseDirectory();
    struct stat status {};
    int error = 0;
    if (::stat(base.c_str(), &status) != 0)
        error = errno;
    else if (!S_ISDIR(status.st_mode))
        error = ENOTDIR;
    else if (::access(base.c_str(), R_OK | X_OK) != 0)
        error = errno;
    if (error)
        throw CommandError(
            noTable, fmt::format("base directory {}: {}", shortened(base), std::strerror(error)));
}

bool Patience::again() {
    if (++tries_ > 20 || !Mem::WriterLock::writerExists(path_)) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    return true;
}

} // namespace Cairn
