// Routes from a file: the JSON of `ip -j mroute show` or of `cairn -j show`, or CSV with a header line
// that names `source,group,iif,oifs` in any order. The file decides by its first character: '[' is
// JSON. A source that is empty or `*` is that of a (*,G). The file "-" is standard input.
#pragma once

#include "NamedRoute.h"

#include <stdexcept>
#include <vector>

namespace Cairn {

// The text names file, line and reason: "routes.csv:7: group 10.1.1.1 is not a multicast address".
class RouteFileError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct RouteFile {
    std::vector<NamedRoute> routes; // in the order of the file, each name once
    // Entries that are no routes: unresolved ones, (*,*), link-local groups.
    std::size_t passedOver = 0;
};

// Raises RouteFileError if the file cannot be read to its end, be it for a signal that ends the command,
// or if any part of it is not as it must be.
RouteFile readRouteFile(std::string const& path);
// The same of a text in hand; `path` is what errors name.
RouteFile parseRouteFile(std::string_view text, std::string const& path);

} // namespace Cairn
