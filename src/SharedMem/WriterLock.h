// One writing process per table. The lock is an open-file-description lock on byte 1 of
// "owner.lock", held on a close-on-exec descriptor for the life of the writer: it goes when the
// process goes, however that happens, and a stopped process keeps it. A process id proves nothing
// and is used for messages alone. A forked child does not inherit it. (Byte 0 is OwnerFile::lock.)
#pragma once

#include "Dunlin/Trace.h"
#include "SharedMem/FileUtil.h"
#include "SharedMem/RootPath.h"

#include <memory>

namespace SharedMem {
class OwnerFile;
}

namespace Mem {

class WriterLock {
public:
    WriterLock() = default;

    // Makes this process the only writer of the table, for as long as the returned object (or a
    // copy of it) lives. Waits for another process as `waitIs` says, then raises
    // InvalidInitializeException naming the owner. A second writer in the same process is refused
    // likewise; `forCleanup` shares the lock that this process already has. Nothing for a local
    // table.
    [[nodiscard]] static WriterLock acquireWriterLock(Dunlin::Platform::DebugHandler& handler,
                                                      RootPath const& rootPath,
                                                      SharedMem::OwnerFile const& ownerFile,
                                                      bool forCleanup);
    void release() { hold_.reset(); }
    bool held() const { return hold_ != nullptr; }
    // Whether the locked file still has its name. A lock on a file without one excludes nobody.
    bool hasName(RootPath const& rootPath) const;

    // Whether some process (this one included) is the table's writer now.
    static bool writerExists(RootPath const& rootPath);
    // True if `socketName` is this process's own.
    static bool ownerIsMe(Dunlin::Platform::DebugHandler& handler, std::string const& socketName);
    // True if a process listens on that socket; `error` receives the reason if not. A socket that
    // this user may not connect to proves nothing: the lock on `table` then decides, where one is
    // given, and `error` names the path in either case.
    static bool ownerIsAlive(Dunlin::Platform::DebugHandler& handler, std::string const& socketName,
                             std::string& error, RootPath const* table = nullptr);

    // How long to wait for a held lock, in seconds; 2 at first.
    static void waitIs(double seconds);

    // An open-file-description lock on one byte of the table's lock file, which is made if need
    // be. Raises InvalidInitializeException after that time.
    static Fd lockByte(Dunlin::Platform::DebugHandler& handler, RootPath const& rootPath,
                       long byte);

private:
    struct Hold;
    std::shared_ptr<Hold> hold_;
};

} // namespace Mem
