#include "RouteView.h"

#include "AnyTable.h"

#include <fmt/format.h>

#include <algorithm>

namespace Cairn {

using Brisk::Multicast::Fib::OifIndex;
using Brisk::Multicast::Fib::Route;
using Routing::Multicast::Fib::IpGenRouteKey;

struct RouteView::Tables {
    explicit Tables(RouteTableName const& name)
        : oifs(readingFront<Mroute::OifIndexIntfTable>(name.oifIndexIntf())),
          routes(readingFront<Mroute::RouteTable>(name.route())) {}

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
    } catch (Dunlin::CorruptionDetectedException const& e) {
        throw CommandError(damaged, fmt::format("table {}: {}", name.route(), e.what()));
    } catch (Dunlin::Exception const& e) {
        throw CommandError(noTable, fmt::format("table {}: {}", name.route(), e.what()));
    }
}

} // namespace

RouteView::RouteView(RouteTableName const& name) : name_(name) {
    guarded(name_, [&] {
        takeTraceReason();
        tables_ = std::make_unique<Tables>(name);
        if (tables_->oifs && tables_->routes) return;
        auto const reason = takeTraceReason();
        throw CommandError(noTable, fmt::format("table {}: {}", name_.route(),
                                                reason.empty() ? "not readable" : reason));
    });
}

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

void forEachView(ViewFilter const& filter, std::function<void(RouteView const&)> const& visit) {
    std::optional<CommandError> fault;
    std::size_t viewed = 0;
    for (auto const& table : tablesPresent()) {
        auto const name = RouteTableName::ofRoute(table);
        if (!name || !(name->v4 ? filter.v4 : filter.v6) ||
            (!filter.vrf.empty() && filter.vrf != name->vrf) ||
            (!filter.name.empty() && filter.name != name->name))
            continue;
        try {
            visit(RouteView(*name));
            ++viewed;
        } catch (CommandError const& e) {
            if (!fault) fault = e;
        }
    }
    if (fault) throw *fault;
    if (viewed == 0)
        throw CommandError(noTable, fmt::format("no route table{}{}{}{} below {}",
                                                filter.vrf.empty() ? "" : " of VRF ", filter.vrf,
                                                filter.name.empty() ? "" : " by the name ",
                                                filter.name, Dunlin::Util::baseDirectory()));
}

} // namespace Cairn
