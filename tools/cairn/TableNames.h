// Where the tables of routes stand below the base directory, and what tables there are.
#pragma once

#include "Dunlin/Types.h"

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace Cairn {

// Exit codes of the tool.
enum ExitCode : int {
    done = 0,
    nothingMatched = 1,
    badUse = 2,  // or bad input
    noTable = 3, // or not readable, or written by someone else
    damaged = 4,
};

// Ends a command; the text goes to stderr.
class CommandError : public std::runtime_error {
public:
    CommandError(ExitCode exitCode, std::string const& text)
        : std::runtime_error(text), code(exitCode) {}
    ExitCode code;
};

// The pair of tables "route" and "oifIndexIntf" of one VRF, family and writer:
// routing/multicast/routestatus/VRF/NAME, or routing6/... for IPv6.
struct RouteTableName {
    bool v4 = true;
    std::string vrf = "default";
    std::string name = "kernel";

    std::string path() const;
    std::string route() const { return path() + "/route"; }
    std::string oifIndexIntf() const { return path() + "/oifIndexIntf"; }
    // Of the name of a table "route"; nothing if it is not of that form.
    static std::optional<RouteTableName> ofRoute(std::string const& table);
};

// A text that may stand as one directory name: no slash, not "." or "..", no control characters.
bool isDirectoryName(std::string const& text);

// The tables below the base directory, by name, sorted.
struct TablesPresent {
    std::vector<std::string> tables;
    std::vector<std::string> closed; // directories that may not be entered
};
TablesPresent tablesPresent();
// The error that there are directories which may not be entered.
CommandError closedError(std::string const& directory);
// Whether a table belongs to a family that is asked for; one of no family always does.
bool ofFamily(std::string const& table, bool v4, bool v6);
// The table that `text` means: its whole name, a path of it, or the end of the only name of the
// given families that ends so. Raises CommandError.
std::string tableMeant(std::string const& text, bool v4, bool v6);

} // namespace Cairn
