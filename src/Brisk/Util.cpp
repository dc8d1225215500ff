#include "Brisk/Util.h"

#include "Dunlin/Exception.h"
#include "SharedMem/RootPath.h"

#include <fmt/format.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <sys/stat.h>

namespace Brisk::Util {
namespace {
bool onDut = false;
bool strict = false;
} // namespace

void writeCorruptionFile(Dunlin::Platform::DebugHandler& handler, std::string const& tableName,
                         std::string const& reason) {
    std::string const fileName = Mem::YokeRootPath(tableName).file(corruptionFileName);
    if (std::FILE* file = std::fopen(fileName.c_str(), "we")) {
        std::fwrite(reason.data(), 1, reason.size(), file);
        std::fputc('\n', file);
        std::fclose(file);
    } else {
        FMTRACE(handler, 1, "cannot write {}: {}", fileName, std::strerror(errno));
    }
}

void validateFile(Dunlin::Platform::DebugHandler& handler, std::string const& fileName,
                  std::size_t size) {
    struct stat info {};
    if (::stat(fileName.c_str(), &info) == 0 && static_cast<std::size_t>(info.st_size) >= size)
        return;
    FMTRACE(handler, 0, "{} has size {} wanted:{}", fileName, info.st_size, size);
    Dunlin::fmthrow<Dunlin::CorruptionDetectedException>("{} has size {} wanted:{}", fileName,
                                                         info.st_size, size);
}

bool runningOnPhysicalDut() {
    return onDut;
}
bool strictValidation() {
    return strict;
}
void runningOnPhysicalDutIs(bool on) {
    onDut = on;
}
void strictValidationIs(bool on) {
    strict = on;
}

U16 nextGeneration() {
    static std::atomic<U16> next{0};
    return next++;
}

double secondsSince(double systemTime) {
    using namespace std::chrono;
    return duration<double>(system_clock::now().time_since_epoch()).count() - systemTime;
}

} // namespace Brisk::Util
