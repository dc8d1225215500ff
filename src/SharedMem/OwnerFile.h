// The file "owner": who writes a table, what it holds, and on which boot of the machine. Beside it
// stands "owner.lock", never replaced while in use, on which the writers' locks lie (WriterLock).
//
// The record is replaced whole, by rename. It tells of sound table files only from `bolsterInfoIs`
// on: until then it keeps the boot id it had, so that a writer that dies while it makes a table out
// of files of another boot does not vouch for them (H-file-6).
#pragma once

#include "Dunlin/Trace.h"
#include "SharedMem/Bolster.h"
#include "SharedMem/FileUtil.h"
#include "SharedMem/RootPath.h"

namespace SharedMem {

struct OwnerRecord;

class OwnerFile : public Dunlin::Debuggable {
public:
    static constexpr char const* OWNER_NAME = "owner";
    static constexpr char const* LOCK_NAME = "owner.lock";

    // A local table has no such file: it is always valid, and the setters do nothing.
    OwnerFile(Dunlin::Platform::DebugHandler& handler, Mem::RootPath const& rootPath,
              bool localMem);

    // Waits for other processes that attach to or remove this table; held until the handle's end.
    // Raises InvalidInitializeException after the waiting time of WriterLock.
    void lock();

    // True for an absent or empty file (A37) and for a whole record of this boot.
    bool validate() const;
    // `message` receives what is wrong.
    bool validate(std::string& message) const;
    // Raises CorruptionDetectedException unless the file is there and sound.
    void validateFile() const;

    // Each replaces the record. Names are cut to what the record can hold (255 and 107 bytes).
    // Raise InvalidInitializeException.
    void typeNameIs(std::string const& typeName);
    void sharedMemTypeIs(U32 type);
    void bolsterInfoIs(BolsterInfo const& info);

    // Empty if there is no file. Raise CorruptionDetectedException for a damaged one.
    BolsterInfo bolsterInfo() const;
    std::string typeName() const;
    // The record as text; says what is wrong with a bad one.
    std::string headerToString() const;

    // Removes the record and the lock file. The locks of this process stay in force until they
    // are released: who comes meanwhile waits for them, then finds the name gone and starts over.
    void cleanup();

private:
    OwnerRecord load() const;
    OwnerRecord loadOrFresh() const;
    void store(OwnerRecord& record);

    Mem::RootPath rootPath_;
    std::string fileName_;
    Mem::Fd lock_;
    bool localMem_;
};

} // namespace SharedMem
