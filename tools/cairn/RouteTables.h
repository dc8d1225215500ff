// The writing end: the route tables of one mirror, for every VRF and both families. Routes come by
// name; they stand in the tables as records with a bit for each outgoing interface.
//
// Two tables change for one route, and a writer may die in between. The order keeps readers right:
// an interface has its index in the table before a route has the bit, and loses it after no route
// has. Reference counts are written once a bundle; a successor counts them anew from the routes.
#pragma once

#include "NamedRoute.h"
#include "TableNames.h"

#include <functional>
#include <map>
#include <memory>
#include <span>
#include <utility>

namespace Cairn {

class RouteTables {
public:
    struct Counters {
        U64 written = 0; // new and changed routes
        U64 unchanged = 0;
        U64 removed = 0;
        U64 failed = 0; // no room: tried again by `retry`
        U64 kept = 0;   // found at the start
    };

    // Tables of the given writer's name, and of the given families: what concerns another family
    // is passed over. Touches no file.
    RouteTables(std::string name, bool v4, bool v6);
    ~RouteTables();

    // Takes over the tables of the default VRF and of every other VRF that has tables of this name.
    // Raises CommandError if another process writes them.
    void open();
    // Every route in the tables.
    void forEach(std::function<void(RouteName const&)> const& visit) const;
    std::size_t size() const;

    // Brings the tables up to date with each change. A change for which there is no room is kept
    // for `retry`; a later one of the same route takes its place. Raises CommandError for a damaged
    // table.
    void apply(std::span<RouteChange const> changes);
    // Makes `routes` the whole contents.
    void replaceAll(std::vector<NamedRoute> const& routes);
    // True if changes are left that found no room.
    bool retry();

    Counters const& counters() const { return counters_; }
    // Tells the notice board about each table.
    void post();
    // What went wrong since the last call, or an empty text.
    std::string takeFault() { return std::exchange(fault_, {}); }

private:
    class Vrf; // one pair of tables

    Vrf& vrf(bool v4, std::string const& name);

    std::string name_;
    bool v4_, v6_;
    std::map<std::pair<bool, std::string>, std::unique_ptr<Vrf>> vrfs_;
    std::map<RouteName, RouteChange> unwritten_;
    Counters counters_;
    std::string fault_;
};

} // namespace Cairn
