// `cairn show` and `cairn get`: the routes in the tables, read beside a writer that goes on.
#include "Commands.h"

#include <fmt/format.h>

#include <algorithm>

namespace Cairn {
namespace {

using Words = std::vector<std::string>;

// Words of the form KEYWORD VALUE ...; each keyword once. Keywords may be cut short, as `ip`'s.
std::map<std::string, std::string> keywords(Words const& words, Words const& known) {
    std::map<std::string, std::string> values;
    for (std::size_t i = 0; i < words.size(); i += 2) {
        auto const match = std::find_if(known.begin(), known.end(), [&](std::string const& k) {
            return !words[i].empty() && k.starts_with(words[i]);
        });
        if (match == known.end())
            throw CommandError(
                badUse, fmt::format("\"{}\" is none of: {}", words[i], fmt::join(known, ", ")));
        if (i + 1 == words.size())
            throw CommandError(badUse, fmt::format("{} needs a value", *match));
        if (!values.emplace(*match, words[i + 1]).second)
            throw CommandError(badUse, fmt::format("{} is given twice", *match));
    }
    return values;
}

struct RouteFilter {
    std::optional<IpPrefix> source, group;
    bool starOnly = false;
    std::string iif, oif;

    bool lets(SeenRoute const& seen) const {
        auto const& [name, routeIif, oifs] = seen.route;
        return (!starOnly || isUnspecified(name.source)) &&
               (!source || contains(*source, name.source)) &&
               (!group || contains(*group, name.group)) && (iif.empty() || iif == routeIif) &&
               (oif.empty() || std::binary_search(oifs.begin(), oifs.end(), oif));
    }
};

IpPrefix prefixOf(std::string const& text, char const* what) {
    auto const prefix = parsePrefix(text);
    if (!prefix)
        throw CommandError(badUse,
                           fmt::format("{} \"{}\" is not an IP address or prefix", what, text));
    return *prefix;
}

IpAddress addressOf(std::string const& text, char const* what) {
    auto const address = parseAddress(text);
    if (!address)
        throw CommandError(badUse, fmt::format("{} \"{}\" is not an IP address", what, text));
    return *address;
}

} // namespace

int showCommand(Common const& common, Words const& words) {
    auto const values = keywords(words, {"source", "group", "iif", "oif", "vrf", "name"});
    auto const value = [&](char const* key) {
        auto const found = values.find(key);
        return found == values.end() ? std::string() : found->second;
    };
    RouteFilter filter;
    if (auto const text = value("source"); text == "*")
        filter.starOnly = true;
    else if (!text.empty())
        filter.source = prefixOf(text, "source");
    if (auto const text = value("group"); !text.empty()) filter.group = prefixOf(text, "group");
    filter.iif = value("iif");
    filter.oif = value("oif");
    Listing listing = common.listing();
    forEachView({common.v4, common.v6, value("vrf"), value("name")}, [&](RouteView const& view) {
        view.forEach([&](SeenRoute const& seen) {
            if (filter.lets(seen)) listing.print(view.row(seen));
        });
    });
    // An empty table is no failure; a filter that nothing passes is.
    return listing.rows() == 0 && !values.empty() ? nothingMatched : done;
}

int getCommand(Common const& common, Words const& words) {
    if (words.size() < 2) throw CommandError(badUse, "get needs a source and a group");
    IpAddress const group = addressOf(words[1], "group");
    if (!group.isMulticast())
        throw CommandError(badUse, fmt::format("group {} is not a multicast address", words[1]));
    IpAddress const source =
        words[0] == "*" ? unspecifiedAddress(group.af()) : addressOf(words[0], "source");
    if (source.af() != group.af())
        throw CommandError(badUse, fmt::format("source {} and group {} are of two address families",
                                               words[0], words[1]));
    auto const values = keywords({words.begin() + 2, words.end()}, {"vrf", "name"});
    auto const value = [&](char const* key) {
        auto const found = values.find(key);
        return found == values.end() ? std::string() : found->second;
    };
    Listing listing = common.listing();
    forEachView({common.v4 && isV4(group), common.v6 && !isV4(group), value("vrf"), value("name")},
                [&](RouteView const& view) {
                    if (auto const seen = view.get(source, group)) listing.print(view.row(*seen));
                });
    return listing.rows() == 0 ? nothingMatched : done;
}

} // namespace Cairn
