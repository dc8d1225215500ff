// The notice board: what the processes of this tool do with the tables right now, for `cairn top`.
// One small file for each process and table below BASE/board, replaced whole every few seconds;
// gone with its process or swept by the next reader. Nothing depends on it.
#pragma once

#include "Dunlin/Types.h"

#include <string>
#include <vector>

namespace Cairn {

struct BoardNotice {
    enum class Role : U32 { writer, reader, shadow };
    std::string table;
    Role role = Role::reader;
    U32 pid = 0;
    U64 sequence = 0; // last published, or last taken up
    U64 lookups = 0;  // since the process began
    U64 readers = 0;  // of a writer: those connected to the doorbell
    U64 sleeping = 0; // of a writer: of them asleep
};

// One process's notice for one table.
class BoardEntry {
public:
    explicit BoardEntry(std::string table);
    ~BoardEntry();
    BoardEntry(BoardEntry const&) = delete;
    BoardEntry& operator=(BoardEntry const&) = delete;

    // Does nothing if it says what the last one said. A board that cannot be written is done
    // without.
    void post(BoardNotice const& notice);

private:
    std::string table_;
    std::string file_;
    U32 posted_ = 0; // checksum of what stands there
};

// All notices of living processes.
std::vector<BoardNotice> readBoard();

} // namespace Cairn
