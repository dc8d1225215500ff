#include "TableNames.h"

#include "Output.h"

#include "Dunlin/Util.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>

namespace Cairn {
namespace fs = std::filesystem;

std::string RouteTableName::path() const {
    return fmt::format("{}/multicast/routestatus/{}/{}", v4 ? "routing" : "routing6", vrf, name);
}

std::optional<RouteTableName> RouteTableName::ofRoute(std::string const& table) {
    std::vector<std::string> parts;
    for (auto const& part : fs::path(table)) parts.push_back(part.string());
    if (parts.size() != 6 || (parts[0] != "routing" && parts[0] != "routing6") ||
        parts[1] != "multicast" || parts[2] != "routestatus" || parts[5] != "route")
        return std::nullopt;
    return RouteTableName{parts[0] == "routing", parts[3], parts[4]};
}

bool isDirectoryName(std::string const& text) {
    return !text.empty() && text.size() <= 255 && text != "." && text != ".." &&
           std::none_of(text.begin(), text.end(),
                        [](char c) { return c == '/' || static_cast<U8>(c) < ' ' || c == '\x7f'; });
}

namespace {

// What goes while it is looked at is not there.
void gather(fs::path const& base, fs::path const& below, TablesPresent& found) {
    std::error_code error;
    fs::directory_iterator it(base / below, error);
    if (error == std::errc::permission_denied) found.closed.push_back(below.string());
    for (fs::directory_iterator const end; !error && it != end; it.increment(error)) {
        std::error_code gone;
        auto const name = it->path().filename();
        if (name == "slots")
            found.tables.push_back(below.string());
        else if (it->is_directory(gone) && !it->is_symlink(gone) &&
                 !(below.empty() && name == "board"))
            gather(base, below / name, found);
    }
}

} // namespace

TablesPresent tablesPresent() {
    TablesPresent found;
    gather(Dunlin::Util::baseDirectory(), {}, found);
    std::sort(found.tables.begin(), found.tables.end());
    std::sort(found.closed.begin(), found.closed.end());
    return found;
}

CommandError closedError(std::string const& directory) {
    return {noTable, fmt::format("directory {} below {}: {}", shortened(directory),
                                 shortened(Dunlin::Util::baseDirectory()), std::strerror(EACCES))};
}

bool ofFamily(std::string const& table, bool v4, bool v6) {
    return !(table.starts_with("routing/") && !v4) && !(table.starts_with("routing6/") && !v6);
}

std::string tableMeant(std::string const& text, bool v4, bool v6) {
    auto const [tables, closed] = tablesPresent();
    std::string name = text;
    while (name.ends_with('/')) name.pop_back();
    auto const base = Dunlin::Util::baseDirectory() + "/";
    if (name.starts_with(base)) name.erase(0, base.size());
    if (std::find(tables.begin(), tables.end(), name) != tables.end()) return name;
    std::vector<std::string> meant;
    for (auto const& table : tables)
        if (table.ends_with("/" + name) && ofFamily(table, v4, v6)) meant.push_back(table);
    if (name.empty()) throw CommandError(badUse, "the name of a table is empty");
    if (meant.empty() && !closed.empty()) throw closedError(closed.front());
    if (meant.empty())
        throw CommandError(noTable, fmt::format("no table \"{}\" below {}", shortened(text),
                                                shortened(Dunlin::Util::baseDirectory())));
    if (meant.size() > 1)
        throw CommandError(badUse, fmt::format("\"{}\" may be any of: {}", shortened(text),
                                               fmt::join(meant, ", ")));
    return meant.front();
}

} // namespace Cairn
