#include "RouteFilter.h"

#include <fmt/format.h>

#include <algorithm>

namespace Cairn {

std::map<std::string, std::string> keywords(std::vector<std::string> const& words,
                                            std::vector<std::string> const& known) {
    std::map<std::string, std::string> values;
    for (std::size_t i = 0; i < words.size(); i += 2) {
        auto const match = std::find_if(known.begin(), known.end(), [&](std::string const& k) {
            return !words[i].empty() && k.starts_with(words[i]);
        });
        if (match == known.end())
            throw CommandError(badUse, fmt::format("\"{}\" is none of: {}", shortened(words[i]),
                                                   fmt::join(known, ", ")));
        if (i + 1 == words.size())
            throw CommandError(badUse, fmt::format("{} needs a value", *match));
        if (words[i + 1].empty())
            throw CommandError(badUse, fmt::format("the value of {} is empty", *match));
        if (!values.emplace(*match, words[i + 1]).second)
            throw CommandError(badUse, fmt::format("{} is given twice", *match));
    }
    return values;
}

namespace {

IpPrefix prefixArgument(std::string const& text, char const* what) {
    auto const prefix = parsePrefix(text);
    if (!prefix)
        throw CommandError(
            badUse, fmt::format("{} \"{}\" is not an IP address or prefix", what, shortened(text)));
    return *prefix;
}

} // namespace

IpAddress addressArgument(std::string const& text, char const* what) {
    auto const address = parseAddress(text);
    if (!address)
        throw CommandError(badUse,
                           fmt::format("{} \"{}\" is not an IP address", what, shortened(text)));
    return *address;
}

RouteFilter RouteFilter::of(std::map<std::string, std::string> const& values) {
    RouteFilter filter;
    for (auto const& [key, value] : values) {
        if (key == "source" && value == "*")
            filter.starOnly = true;
        else if (key == "source")
            filter.source = prefixArgument(value, "source");
        else if (key == "group")
            filter.group = prefixArgument(value, "group");
        else if (key == "iif")
            filter.iif = value;
        else if (key == "oif")
            filter.oif = value;
    }
    return filter;
}

bool RouteFilter::letsKey(RouteName const& name) const {
    return (!starOnly || isUnspecified(name.source)) &&
           (!source || contains(*source, name.source)) && (!group || contains(*group, name.group));
}

bool RouteFilter::lets(SeenRoute const& seen) const {
    auto const& [name, routeIif, oifs] = seen.route;
    return letsKey(name) && (iif.empty() || iif == routeIif) &&
           (oif.empty() || std::binary_search(oifs.begin(), oifs.end(), oif));
}

} // namespace Cairn
