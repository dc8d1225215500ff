// The reading end: the routes of one VRF, looked up and walked in the tables of a writer that goes
// on writing, and told with the names of their interfaces.
#pragma once

#include "RouteRecord.h"

#include <functional>
#include <memory>

namespace Cairn {

class RouteView {
public:
    // Raises CommandError if the tables are not there or cannot be read.
    explicit RouteView(RouteTableName const& name);
    ~RouteView();

    RouteTableName const& name() const { return name_; }
    // All routes that are there throughout, ordered by group and source. Raises CommandError for a
    // damaged table.
    void forEach(std::function<void(SeenRoute const&)> const& visit) const;
    std::optional<SeenRoute> get(IpAddress const& source, IpAddress const& group) const;

    // The row that is printed of a route.
    Row row(SeenRoute const& seen) const;

private:
    struct Tables;
    RouteTableName name_;
    std::unique_ptr<Tables> tables_;
};

// Which tables to view: empty texts let all through.
struct ViewFilter {
    bool v4 = true, v6 = true;
    std::string vrf, name;
};
// The names of the tables that are there.
std::vector<RouteTableName> routeTables(ViewFilter const& filter);
// Raises CommandError if a directory may not be entered that may hold such tables.
void requireOpen(ViewFilter const& filter);
// Calls `visit` with each. A table that cannot be read does not hide the others: it is raised as
// CommandError after them, the worst of several, as is that there is none at all.
void forEachView(ViewFilter const& filter, std::function<void(RouteView const&)> const& visit);

} // namespace Cairn
