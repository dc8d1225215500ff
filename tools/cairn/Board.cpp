#include "Board.h"

#include "Dunlin/Exception.h"
#include "Dunlin/Util.h"
#include "SharedMem/FileUtil.h"
#include "SharedMem/RootPath.h"

#include <fmt/format.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <unistd.h>

namespace Cairn {
namespace fs = std::filesystem;
namespace {

struct Record {
    static constexpr U64 magicValue = 0x316472616f626e63; // "cnboard1"
    U64 magic = magicValue;
    U32 crc = 0; // of the whole record with this field 0
    U32 role = 0;
    U32 pid = 0;
    U32 reserved = 0;
    U64 sequence = 0, lookups = 0, readers = 0, sleeping = 0;
    char table[512] = {};

    U32 expectedCrc() const {
        Record copy = *this;
        copy.crc = 0;
        return Mem::crc32(&copy, sizeof copy);
    }
};
static_assert(sizeof(Record) == 568);

std::string boardDirectory() {
    return Dunlin::Util::baseDirectory() + "/board";
}

} // namespace

BoardEntry::BoardEntry(std::string table) : table_(std::move(table)) {
    static unsigned count = 0;
    file_ = fmt::format("{}/{}-{}", boardDirectory(), ::getpid(), count++);
}

BoardEntry::~BoardEntry() {
    ::unlink(file_.c_str());
}

void BoardEntry::post(BoardNotice const& notice) {
    Record record;
    record.role = static_cast<U32>(notice.role);
    record.pid = static_cast<U32>(::getpid());
    record.sequence = notice.sequence;
    record.lookups = notice.lookups;
    record.readers = notice.readers;
    record.sleeping = notice.sleeping;
    std::memcpy(record.table, table_.data(), std::min(table_.size(), sizeof record.table - 1));
    record.crc = record.expectedCrc();
    if (std::exchange(posted_, record.crc) == record.crc) return;
    try {
        Mem::makeDirectory(boardDirectory());
        Mem::replaceFile(file_, &record, sizeof record);
    } catch (Dunlin::Exception const&) {
        // A full or read-only file system: `top` will not see this process.
    }
}

std::vector<BoardNotice> readBoard() {
    std::vector<BoardNotice> notices;
    std::error_code error;
    for (fs::directory_iterator it(boardDirectory(), error), end; !error && it != end;
         it.increment(error)) {
        Record record;
        auto const path = it->path().string();
        if (Mem::readFile(path, &record, sizeof record) != long{sizeof record} ||
            record.magic != Record::magicValue || record.crc != record.expectedCrc() ||
            record.role > static_cast<U32>(BoardNotice::Role::shadow))
            continue;
        if (::kill(static_cast<pid_t>(record.pid), 0) != 0 && errno == ESRCH) {
            ::unlink(path.c_str());
            continue;
        }
        BoardNotice notice;
        notice.table.assign(record.table, ::strnlen(record.table, sizeof record.table));
        notice.role = static_cast<BoardNotice::Role>(record.role);
        notice.pid = record.pid;
        notice.sequence = record.sequence;
        notice.lookups = record.lookups;
        notice.readers = record.readers;
        notice.sleeping = record.sleeping;
        notices.push_back(std::move(notice));
    }
    return notices;
}

} // namespace Cairn
