// The file "oriel": the id of the generation of a table's files. It is written last when a table is
// made, so a reader that finds it finds the rest.
#pragma once

#include "Dunlin/Trace.h"
#include "SharedMem/RootPath.h"

namespace SharedMem {

// Low half: process id of the writer that made the files; high half: generation. 0 is no id.
using OrielId = U32;

class OrielFile : public Dunlin::Debuggable {
public:
    static constexpr char const* ORIEL_NAME = "oriel";

    // A local table has no such file: `read` answers 0 and the others do nothing.
    OrielFile(Dunlin::Platform::DebugHandler& handler, Mem::RootPath const& rootPath,
              bool localMem);

    // The stored id; 0 if there is no file, or none that can be read.
    OrielId read() const;
    // Replaces the file. Raises InvalidInitializeException.
    void write(OrielId id);
    // Time of the last write, in seconds of the system clock; 0 if there is no file.
    double mtime() const;
    // Raises CorruptionDetectedException if the file does not hold `id`.
    void validate(OrielId id) const;
    void cleanup();

private:
    Mem::RootPath rootPath_;
    std::string fileName_;
    bool localMem_;
};

} // namespace SharedMem
