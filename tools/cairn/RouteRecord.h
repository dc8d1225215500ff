// A record of a route table as people read it.
#pragma once

#include "Mroute/MfibBriskTypes.h"
#include "NamedRoute.h"
#include "Output.h"
#include "TableNames.h"

#include <functional>

namespace Cairn {

struct SeenRoute {
    NamedRoute route;
    std::vector<std::string> flags;
    U32 version = 0;
    bool operator==(SeenRoute const&) const = default;
};

// `interfaceOf` names the interface of an index.
SeenRoute describe(Brisk::Multicast::Fib::Route const& route, std::string const& vrf,
                   std::function<std::string(Brisk::Multicast::Fib::OifIndex)> const& interfaceOf);
// What an index without an interface is called.
std::string unknownInterface(Brisk::Multicast::Fib::OifIndex index);

Row& addRoute(Row& row, SeenRoute const& seen, RouteTableName const& table);

} // namespace Cairn
