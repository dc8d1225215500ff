// `cairn show` and `cairn get`: the routes in the tables, read beside a writer that goes on.
#include "Commands.h"
#include "RouteFilter.h"
#include "RouteView.h"

#include <fmt/format.h>

namespace Cairn {

using Words = std::vector<std::string>;

int showCommand(Common const& common, Words const& words) {
    auto const values = keywords(words, {"source", "group", "iif", "oif", "vrf", "name"});
    auto const value = [&](char const* key) {
        auto const found = values.find(key);
        return found == values.end() ? std::string() : found->second;
    };
    auto const filter = RouteFilter::of(values);
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
    // SOURCE GROUP, or "source X group Y" as `show` prints it.
    bool const named =
        !words.empty() && !words[0].empty() &&
        (std::string("source").starts_with(words[0]) || std::string("group").starts_with(words[0]));
    if (words.size() < 2) throw CommandError(badUse, "get needs a source and a group");
    Words typed = words;
    if (!named) {
        typed = {"source", words[0], "group", words[1]};
        typed.insert(typed.end(), words.begin() + 2, words.end());
    }
    auto const values = keywords(typed, {"source", "group", "vrf", "name"});
    auto const value = [&](char const* key) {
        auto const found = values.find(key);
        return found == values.end() ? std::string() : found->second;
    };
    if (value("source").empty() || value("group").empty())
        throw CommandError(badUse, "get needs a source and a group");
    IpAddress const group = addressArgument(value("group"), "group");
    if (!group.isMulticast())
        throw CommandError(badUse,
                           fmt::format("group {} is not a multicast address", toText(group)));
    IpAddress const source = value("source") == "*" ? unspecifiedAddress(group.af())
                                                    : addressArgument(value("source"), "source");
    if (source.af() != group.af())
        throw CommandError(badUse, fmt::format("source {} and group {} are of two address families",
                                               toText(source), toText(group)));
    if (!(isV4(group) ? common.v4 : common.v6))
        throw CommandError(badUse,
                           fmt::format("group {} is not of the family asked for", toText(group)));
    Listing listing = common.listing();
    forEachView({isV4(group), !isV4(group), value("vrf"), value("name")},
                [&](RouteView const& view) {
                    if (auto const seen = view.get(source, group)) listing.print(view.row(*seen));
                });
    return listing.rows() == 0 ? nothingMatched : done;
}

} // namespace Cairn
