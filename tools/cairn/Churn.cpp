#include "Churn.h"

#include <algorithm>
#include <set>

namespace Cairn {

Churn::Churn(std::vector<NamedRoute> routes, U64 seed) : random_(seed) {
    std::set<std::string> interfaces;
    for (auto& route : routes) {
        if (!route.iif.empty()) interfaces.insert(route.iif);
        interfaces.insert(route.oifs.begin(), route.oifs.end());
        members_.push_back({std::move(route)});
    }
    interfaces_.assign(interfaces.begin(), interfaces.end());
}

RouteChange Churn::next() {
    if (members_.empty()) return {};
    Member& member = members_[pick(members_.size())];
    NamedRoute& route = member.route;
    // One in ten goes, each that is away comes back when next met: about a tenth is away at a time.
    std::size_t const dice = pick(10);
    if (!member.present) {
        member.present = true;
        --absent_;
    } else if (dice == 0) {
        member.present = false;
        ++absent_;
        return {RouteChange::Kind::gone, route};
    } else if (!interfaces_.empty()) {
        auto const& interface = interfaces_[pick(interfaces_.size())];
        if (dice < 4) {
            route.iif = interface;
        } else {
            auto const at = std::lower_bound(route.oifs.begin(), route.oifs.end(), interface);
            if (at != route.oifs.end() && *at == interface)
                route.oifs.erase(at);
            else
                route.oifs.insert(at, interface);
        }
    }
    return {RouteChange::Kind::present, route};
}

} // namespace Cairn
