// What stands in the way of a table, and the one mapping from causes to exit codes and texts that all
// commands use.
//
//   cause                                                        code
//   misused words and options, faulty files of routes            2, badUse
//   no such table or base directory, not permitted, owned        3, noTable
//   files of a table that cannot be what its writer left         4, damaged
#pragma once

#include "AnyTable.h"
#include "TableNames.h"

#include "Dunlin/Exception.h"

#include <optional>
#include <string>

namespace Cairn {

// The exception being handled as the error of a command. Called from a catch block only. `where`, if
// not empty, begins the text of what does not name its place itself.
CommandError errorOfException(std::string const& where = {});

// What the files of a table show from outside; nothing if a reader may well attach to them.
std::optional<CommandError> faultOf(std::string const& table);
// The same of a table for which attaching failed; always an error. `reason` is what the library said.
CommandError attachError(std::string const& table, std::string const& reason);

// Raises CommandError unless the base directory can be read.
void requireBase();

// A front that is attached to a table. A writer that lives may be just making it anew: it is waited
// for, a second at most. Raises CommandError.
template <class Table>
std::unique_ptr<Front<Table>> openTable(std::string const& table);

// Whether another attempt may help: true for a second, if a writer lives.
class Patience {
public:
    explicit Patience(std::string const& table) : path_(table) {}
    bool again();

private:
    Mem::YokeRootPath path_;
    int tries_ = 0;
};

template <class Table>
std::unique_ptr<Front<Table>> openTable(std::string const& table) {
    for (Patience patience(table);;) {
        std::optional<CommandError> fault = faultOf(table);
        if (!fault) {
            takeTraceReason();
            try {
                if (auto front = readingFront<Table>(table)) return front;
                fault = attachError(table, takeTraceReason());
            } catch (Dunlin::Exception const&) {
                fault = errorOfException("table " + table);
            }
        }
        if (!patience.again()) throw *fault;
    }
}

} // namespace Cairn
