// What `show` and `watch` let through, from words of the form KEYWORD VALUE.
#pragma once

#include "RouteRecord.h"

#include <map>
#include <optional>

namespace Cairn {

// Words of the form KEYWORD VALUE ...; each keyword once, and it may be cut short, as `ip`'s.
// Raises CommandError.
std::map<std::string, std::string> keywords(std::vector<std::string> const& words,
                                            std::vector<std::string> const& known);

struct RouteFilter {
    std::optional<IpPrefix> source, group;
    bool starOnly = false;
    std::string iif, oif; // empty: any

    // Of the keywords source, group, iif and oif. Raises CommandError.
    static RouteFilter of(std::map<std::string, std::string> const& values);
    bool letsKey(RouteName const& name) const;
    bool lets(SeenRoute const& seen) const;
};

IpAddress addressArgument(std::string const& text, char const* what);

} // namespace Cairn
