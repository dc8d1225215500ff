#include "RouteView.h"

#include "Access.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>

namespace Cairn {

using Brisk::Multicast::Fib::OifIndex;
using Brisk::Multicast::Fib::Route;
using Routing::Multicast::Fib::IpGenRouteKey;

struct RouteView::Tables {
    explicit Tables(RouteTableName const& name)
        : oifs(openTable<Mroute::OifIndexIntfTable>(name.oifIndexIntf())),
          routes(openTable<Mroute::RouteTable>(name.route())) {}

    // The names of a route's interfaces. An index may get another interface once its last route is
    // gone: the names count only if the route still stands afterwards.
    std::optional<SeenRoute> named(RouteTableName const& where, Route route) const {
        bool found = true;
        while (found) {
            SeenRoute const seen =
                describe(route, where.vrf, [this](OifIndex index) { return interface(index); });
            Mroute::RouteTable::Value again;
            Route const now = *routes->table().lookup(route.key(), found, &again);
            if (found && now == route) return seen;
            route = now;
        }
        return std::nullopt;
    }
    std::string interface(OifIndex index) const {
        bool found = false;
        Mroute::OifIndexIntfTable::Value value;
        oifs->table().lookup(index, found, &value);
        return found ? std::string(value.intf().stringValue()) : unknownInterface(index);
    }

    std::unique_ptr<Front<Mroute::OifIndexIntfTable>> oifs;
    std::unique_ptr<Front<Mroute::RouteTable>> routes;
};

namespace {

// Runs a read; a damaged table ends the command.
template <class Read>
auto guarded(RouteTableName const& name, Read read) {
    try {
        return read();
    } catch (Dunlin::Exception const&) {
        throw errorOfException("table " + name.route());
    }
}

// Whether a table that passes the filter may be below a directory.
bool couldHold(std::string const& directory, ViewFilter const& filter) {
    std::size_t depth = 0;
    for (auto const& part : std::filesystem::path(directory)) {
        std::string const is = part.string();
        if ((depth == 0 && !(is == "routing" ? filter.v4 : is == "routing6" && filter.v6)) ||
            (depth == 1 && is != "multicast") || (depth == 2 && is != "routestatus") ||
            (depth == 3 && !filter.vrf.empty() && is != filter.vrf) ||
            (depth == 4 && !filter.name.empty() && is != filter.name))
            return false;
        ++depth;
    }
    return true;
}

} // namespace

RouteView::RouteView(RouteTableName const& name)
    : name_(name), tables_(std::make_unique<Tables>(name)) {}

RouteView::~RouteView() = default;

void RouteView::forEach(std::function<void(SeenRoute const&)> const& visit) const {
    guarded(name_, [&] {
        std::vector<Route> all;
        auto const& routes = tables_->routes->table();
        all.reserve(std::min(routes.members(), routes.capacity()));
        Mroute::RouteTable::Value value;
        Brisk::IterHint hint;
        for (bool more = routes.first(value, hint); more;
             more = routes.next(value.key(), value, hint))
            all.push_back(value);
        // A walk through a table that is resized may meet a route twice.
        std::stable_sort(all.begin(), all.end(),
                         [](Route const& a, Route const& b) { return a.key() < b.key(); });
        all.erase(std::unique(all.begin(), all.end(),
                              [](Route const& a, Route const& b) { return a.key() == b.key(); }),
                  all.end());
        for (Route const& route : all)
            if (auto const seen = tables_->named(name_, route)) visit(*seen);
    });
}

std::optional<SeenRoute> RouteView::get(IpAddress const& source, IpAddress const& group) const {
    S32 const length = isUnspecified(source) ? 0 : hostLength(source);
    IpGenRouteKey const key(IpPrefix(source, length), IpPrefix(group, hostLength(group)));
    return guarded(name_, [&]() -> std::optional<SeenRoute> {
        bool found = false;
        Mroute::RouteTable::Value value;
        tables_->routes->table().lookup(key, found, &value);
        if (!found) return std::nullopt;
        return tables_->named(name_, value);
    });
}

Row RouteView::row(SeenRoute const& seen) const {
    Row row;
    addRoute(row, seen, name_);
    return row;
}

std::vector<RouteTableName> routeTables(ViewFilter const& filter) {
    std::vector<RouteTableName> names;
    auto const [tables, closed] = tablesPresent();
    for (auto const& table : tables)
        if (auto const name = RouteTableName::ofRoute(table);
            name && (name->v4 ? filter.v4 : filter.v6) &&
            (filter.vrf.empty() || filter.vrf == name->vrf) &&
            (filter.name.empty() || filter.name == name->name))
            names.push_back(*name);
    return names;
}

void requireOpen(ViewFilter const& filter) {
    for (auto const& directory : tablesPresent().closed)
        if (couldHold(directory, filter)) throw closedError(directory);
}

void forEachView(ViewFilter const& filter, std::function<void(RouteView const&)> const& visit) {
    std::optional<CommandError> fault;
    std::size_t viewed = 0;
    for (auto const& name : routeTables(filter)) {
        try {
            visit(RouteView(name));
            ++viewed;
        } catch (CommandError const& e) {
            if (!fault || e.code > fault->code) fault = e;
        }
    }
    if (fault) throw *fault;
    requireOpen(filter);
    if (viewed == 0)
        throw CommandError(
            noTable,
            fmt::format("no route table{}{}{}{} below {}", filter.vrf.empty() ? "" : " of VRF ",
                        shortened(filter.vrf), filter.name.empty() ? "" : " by the name ",
                        shortened(filter.name), shortened(Dunlin::Util::baseDirectory())));
}

} // namespace Cairn
