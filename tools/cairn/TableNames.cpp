#include "TableNames.h"

#include "Dunlin/Util.h"

#include <fmt/format.h>

#include <algorithm>
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

std::vector<std::string> tablesPresent() {
    std::vector<std::string> tables;
    fs::path const base = Dunlin::Util::baseDirectory();
    std::error_code error;
    auto const options = fs::directory_options::skip_permission_denied;
    // A table may go while its directory is read: what cannot be looked at is not there.
    for (fs::recursive_directory_iterator it(base, options, error), end; !error && it != end;
         it.increment(error))
        if (it->path().filename() == "slots")
            tables.push_back(fs::relative(it->path().parent_path(), base, error).string());
    std::sort(tables.begin(), tables.end());
    return tables;
}

bool ofFamily(std::string const& table, bool v4, bool v6) {
    return !(table.starts_with("routing/") && !v4) && !(table.starts_with("routing6/") && !v6);
}

std::string tableMeant(std::string const& text, bool v4, bool v6) {
    auto const tables = tablesPresent();
    std::string name = text;
    while (name.ends_with('/')) name.pop_back();
    auto const base = Dunlin::Util::baseDirectory() + "/";
    if (name.starts_with(base)) name.erase(0, base.size());
    if (std::find(tables.begin(), tables.end(), name) != tables.end()) return name;
    std::vector<std::string> meant;
    for (auto const& table : tables)
        if (table.ends_with("/" + name) && ofFamily(table, v4, v6)) meant.push_back(table);
    if (meant.empty())
        throw CommandError(
            noTable, fmt::format("no table \"{}\" below {}", text, Dunlin::Util::baseDirectory()));
    if (meant.size() > 1)
        throw CommandError(badUse,
                           fmt::format("\"{}\" may be any of: {}", text, fmt::join(meant, ", ")));
    return meant.front();
}

} // namespace Cairn
