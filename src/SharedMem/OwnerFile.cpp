#include "SharedMem/OwnerFile.h"

#include "Dunlin/Exception.h"
#include "SharedMem/StepHooks.h"
#include "SharedMem/WriterLock.h"

#include <cstring>
#include <fmt/format.h>
#include <span>
#include <unistd.h>

namespace SharedMem {

struct OwnerRecord {
    static constexpr U32 magicValue = 0x6e776f63; // "cown"

    U32 magic = magicValue;
    U32 format = 1;
    U32 crc = 0; // of the whole record with this field 0
    U32 sharedMemType = 0;
    U32 tableId = 0;
    char socketName[108] = {};
    char typeName[256] = {};
    char bootId[40] = {};
    char reserved[88] = {};

    U32 expectedCrc() const {
        OwnerRecord copy = *this;
        copy.crc = 0;
        return Mem::crc32(&copy, sizeof copy);
    }
};
static_assert(sizeof(OwnerRecord) == 512);

namespace {

void putText(std::span<char> to, std::string const& text) {
    std::size_t const length = std::min(text.size(), to.size() - 1);
    std::memcpy(to.data(), text.data(), length);
    std::memset(to.data() + length, 0, to.size() - length);
}

std::string getText(std::span<char const> from) {
    return {from.data(), ::strnlen(from.data(), from.size())};
}

} // namespace

OwnerFile::OwnerFile(Dunlin::Platform::DebugHandler& handler, Mem::RootPath const& rootPath,
                     bool localMem)
    : Debuggable(handler), rootPath_(rootPath), fileName_(rootPath.file(OWNER_NAME)),
      localMem_(localMem) {}

void OwnerFile::lock() {
    if (localMem_ || lock_) return;
    lock_ = Mem::WriterLock::lockByte(debugHandler(), rootPath_, 0);
}

// The record in the file. An absent or empty file gives a fresh record that names no boot.
OwnerRecord OwnerFile::load() const {
    OwnerRecord record;
    long const got = Mem::readFile(fileName_, &record, sizeof record);
    if (got <= 0) {
        if (got < 0 && errno != ENOENT)
            Dunlin::fmthrow<Dunlin::CorruptionDetectedException>("cannot read {}: {}", fileName_,
                                                                 std::strerror(errno));
        return {};
    }
    if (got != sizeof record)
        Dunlin::fmthrow<Dunlin::CorruptionDetectedException>("{} is too short: {} bytes wanted:{}",
                                                             fileName_, got, sizeof record);
    if (record.magic != OwnerRecord::magicValue)
        Dunlin::fmthrow<Dunlin::CorruptionDetectedException>("{} has bad magic {:#x} wanted:{:#x}",
                                                             fileName_, record.magic,
                                                             OwnerRecord::magicValue);
    if (U32 const wanted = record.expectedCrc(); record.crc != wanted)
        Dunlin::fmthrow<Dunlin::CorruptionDetectedException>("{} has bad crc {:#x} wanted:{:#x}",
                                                             fileName_, record.crc, wanted);
    return record;
}

OwnerRecord OwnerFile::loadOrFresh() const {
    try {
        return load();
    } catch (Dunlin::CorruptionDetectedException const& error) {
        FMTRACE(debugHandler(), 0, "starting over: {}", error.message());
        return {};
    }
}

void OwnerFile::store(OwnerRecord& record) {
    rootPath_.makeDirectories();
    record.crc = record.expectedCrc();
    Mem::replaceFile(fileName_, &record, sizeof record);
}

bool OwnerFile::validate() const {
    std::string message;
    return validate(message);
}

bool OwnerFile::validate(std::string& message) const {
    if (localMem_) return true;
    char probe;
    long const got = Mem::readFile(fileName_, &probe, 1);
    if (got == 0 || (got < 0 && errno == ENOENT)) return true;
    try {
        if (std::string const boot = getText(load().bootId); boot != Mem::bootId()) {
            message =
                fmt::format("{} is of boot '{}', this is '{}'", fileName_, boot, Mem::bootId());
            return false;
        }
    } catch (Dunlin::CorruptionDetectedException const& error) {
        message = error.message();
        return false;
    }
    return true;
}

void OwnerFile::validateFile() const {
    if (localMem_) return;
    std::string message;
    if (char probe; Mem::readFile(fileName_, &probe, 1) != 1)
        message = fmt::format("{} is missing or empty", fileName_);
    else
        validate(message);
    if (!message.empty()) Dunlin::fmthrow<Dunlin::CorruptionDetectedException>("{}", message);
}

void OwnerFile::typeNameIs(std::string const& typeName) {
    if (localMem_) return;
    OwnerRecord record = loadOrFresh();
    putText(record.typeName, typeName);
    store(record);
}

void OwnerFile::sharedMemTypeIs(U32 type) {
    if (localMem_) return;
    OwnerRecord record = loadOrFresh();
    record.sharedMemType = type;
    store(record);
}

void OwnerFile::bolsterInfoIs(BolsterInfo const& info) {
    if (localMem_) return;
    OwnerRecord record = loadOrFresh();
    putText(record.socketName, info.socketName);
    record.tableId = info.tableId;
    if (!info.empty()) putText(record.bootId, Mem::bootId());
    store(record);
}

BolsterInfo OwnerFile::bolsterInfo() const {
    if (localMem_) return {};
    OwnerRecord const record = load();
    return {getText(record.socketName), record.tableId};
}

std::string OwnerFile::typeName() const {
    return localMem_ ? std::string() : getText(load().typeName);
}

std::string OwnerFile::headerToString() const {
    if (localMem_) return "local table";
    try {
        OwnerRecord const record = load();
        return fmt::format(
            "format:{} typeName:{} sharedMemType:{} socketName:{} tableId:{} boot:{}",
            record.format, getText(record.typeName), record.sharedMemType,
            getText(record.socketName), record.tableId, getText(record.bootId));
    } catch (Dunlin::CorruptionDetectedException const& error) {
        return error.message();
    }
}

void OwnerFile::cleanup() {
    if (localMem_) return;
    Mem::StepHooks::store();
    ::unlink(fileName_.c_str());
    ::unlink(rootPath_.file(LOCK_NAME).c_str());
}

} // namespace SharedMem
