#include "SharedMem/OrielFile.h"

#include "Dunlin/Exception.h"
#include "SharedMem/FileUtil.h"
#include "SharedMem/StepHooks.h"

#include <sys/stat.h>
#include <unistd.h>

namespace SharedMem {
namespace {

struct OrielRecord {
    static constexpr U32 magicValue = 0x6c726f63; // "corl"
    U32 magic = magicValue;
    U32 format = 1;
    U32 id = 0;
    U32 crc = 0;

    U32 expectedCrc() const { return Mem::crc32(this, offsetof(OrielRecord, crc)); }
};
static_assert(sizeof(OrielRecord) == 16);

} // namespace

OrielFile::OrielFile(Dunlin::Platform::DebugHandler& handler, Mem::RootPath const& rootPath,
                     bool localMem)
    : Debuggable(handler), rootPath_(rootPath), fileName_(rootPath.file(ORIEL_NAME)),
      localMem_(localMem) {}

OrielId OrielFile::read() const {
    if (localMem_) return 0;
    OrielRecord record;
    if (Mem::readFile(fileName_, &record, sizeof record) != sizeof record) return 0;
    if (record.magic != OrielRecord::magicValue || record.crc != record.expectedCrc()) {
        FMTRACE(debugHandler(), 0, "bad contents of {}", fileName_);
        return 0;
    }
    return record.id;
}

void OrielFile::write(OrielId id) {
    if (localMem_) return;
    rootPath_.makeDirectories();
    OrielRecord record;
    record.id = id;
    record.crc = record.expectedCrc();
    Mem::replaceFile(fileName_, &record, sizeof record);
}

double OrielFile::mtime() const {
    struct stat status;
    if (localMem_ || ::stat(fileName_.c_str(), &status) != 0) return 0;
    return static_cast<double>(status.st_mtim.tv_sec) +
           static_cast<double>(status.st_mtim.tv_nsec) * 1e-9;
}

void OrielFile::validate(OrielId id) const {
    if (localMem_) return;
    if (OrielId const stored = read(); stored != id)
        Dunlin::fmthrow<Dunlin::CorruptionDetectedException>("{} holds orielId {:#x}, wanted {:#x}",
                                                             fileName_, stored, id);
}

void OrielFile::cleanup() {
    if (localMem_) return;
    Mem::StepHooks::store();
    ::unlink(fileName_.c_str());
}

} // namespace SharedMem
