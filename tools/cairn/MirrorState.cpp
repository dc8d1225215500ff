#include "MirrorState.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <utility>

namespace Cairn {

void MirrorState::seed(RouteId const& id) {
    routes_[id].state = State::seeded;
}

void MirrorState::wantResync(char const* reason) {
    if (resyncReason_.empty()) resyncReason_ = reason;
}

void MirrorState::overrun() {
    ++counters_.overruns;
    unheard_ = true;
    wantResync("notifications were lost");
}

void MirrorState::resyncEnded(bool disturbed) {
    if (unheard_ && disturbed) wantResync(incompleteDump);
    if (!disturbed) unheard_ = false;
}

bool MirrorState::takeSilentSign() {
    return std::exchange(silentSign_, false);
}

void MirrorState::fold(KernelEvent const& event, double now) {
    using Kind = KernelEvent::Kind;
    ++counters_.messages;
    switch (event.kind) {
    case Kind::none:
        return;
    case Kind::routeNew:
        foldRoute(event.route);
        return;
    case Kind::routeGone:
        foldGone(event.route, now);
        return;
    case Kind::linkNew:
        foldLink(event.link);
        return;
    case Kind::linkGone:
        links_.erase(event.link.index);
        silentSign_ = true;
        wantResync("an interface was removed");
        return;
    case Kind::forwarding:
        silentSign_ = true;
        wantResync("multicast forwarding was switched on an interface");
        return;
    }
}

// A (*,*) entry is no multicast route; a link-local group is never routed.
bool MirrorState::routable(RouteId const& id) {
    bool const yes = id.group.isMulticast() && !isLinkLocalGroup(id.group);
    if (!yes) ++counters_.passedOver;
    return yes;
}

void MirrorState::foldRoute(KernelRoute const& route) {
    if (!routable(route.id)) return;
    if (route.pending) {
        pending_.insert(route.id);
        return;
    }
    pending_.erase(route.id);
    Entry& entry = routes_[route.id];
    entry.round = round_;
    if (entry.state == State::present && entry.route.forwardsAs(route)) {
        ++counters_.unchanged;
        entry.route = route; // counters and origin
        return;
    }
    if (entry.state == State::held) holds_.erase({entry.holdEnds, route.id});
    entry.state = State::present;
    entry.route = route;
    dirty_.insert(route.id);
}

void MirrorState::foldGone(KernelRoute const& route, double now) {
    pending_.erase(route.id);
    // The end of a pending entry says nothing of a route that was added while it waited.
    if (route.pending) return;
    ++counters_.gone;
    auto const found = routes_.find(route.id);
    if (found == routes_.end()) return;
    remove(route.id, found->second, route.iif == 0 && route.oifs.empty(), now);
}

void MirrorState::remove(RouteId const& id, Entry& entry, bool ownerDied, double now) {
    if (entry.state == State::gone || entry.state == State::held) return;
    if (holdSeconds_ > 0 && ownerDied) {
        entry.state = State::held;
        entry.holdEnds = now + holdSeconds_;
        holds_.insert({entry.holdEnds, id});
        ++counters_.held;
    } else {
        entry.state = State::gone; // forgotten when its change is taken
    }
    dirty_.insert(id);
}

void MirrorState::foldLink(KernelLink const& link) {
    auto [place, isNew] = links_.try_emplace(link.index, link);
    if (!isNew && place->second == link) return;
    bool const renamed = !isNew && place->second.name != link.name;
    place->second = link;
    if (renamed) wantResync("an interface was renamed");
    // A route may have named the index before it had a name, or under its old one.
    for (auto const& [id, entry] : routes_)
        if (entry.state == State::present &&
            (entry.route.iif == link.index ||
             std::binary_search(entry.route.oifs.begin(), entry.route.oifs.end(), link.index)))
            dirty_.insert(id);
}

void MirrorState::resync(std::vector<KernelLink> const& links, std::vector<KernelRoute> const& dump,
                         Confirm const& confirm, double now) {
    std::string const reason = std::exchange(resyncReason_, {});
    ++counters_.resyncs;
    ++round_;

    std::set<U32> seen;
    for (auto const& link : links) {
        seen.insert(link.index);
        foldLink(link);
    }
    std::erase_if(links_, [&](auto const& link) { return !seen.contains(link.first); });
    resyncReason_.clear(); // a rename just seen is a part of this resync

    pending_.clear();
    for (auto const& route : dump) foldRoute(route);

    try {
        for (auto& [id, entry] : routes_) {
            if (entry.round == round_ ||
                (entry.state != State::present && entry.state != State::seeded))
                continue;
            ++counters_.confirmations;
            if (auto const route = confirm(id)) {
                ++counters_.spared;
                foldRoute(*route); // finds the entry, so the walk goes on undisturbed
            } else {
                // Whether its owner died or took the route back is lost with the notification.
                remove(id, entry, true, now);
            }
        }
    } catch (...) {
        resyncReason_ = reason;
        throw;
    }
}

void MirrorState::sweep(double now) {
    while (!holds_.empty() && holds_.begin()->first <= now) {
        RouteId const id = holds_.begin()->second;
        holds_.erase(holds_.begin());
        routes_[id].state = State::gone;
        dirty_.insert(id);
    }
}

std::optional<double> MirrorState::nextSweep() const {
    if (holds_.empty()) return std::nullopt;
    return holds_.begin()->first;
}

std::vector<RouteChange> MirrorState::takeChanges() {
    std::vector<RouteChange> changes;
    changes.reserve(dirty_.size());
    for (auto const& id : dirty_) {
        RouteChange change;
        auto const found = routes_.find(id);
        State const state = found == routes_.end() ? State::gone : found->second.state;
        if (state == State::present) {
            change.kind = RouteChange::Kind::present;
            change.route = named(found->second.route);
        } else {
            change.kind = state == State::held ? RouteChange::Kind::held : RouteChange::Kind::gone;
            change.route.name = {vrfName(isV4(id.group), id.table), id.source, id.group};
            if (state == State::gone && found != routes_.end()) routes_.erase(found);
        }
        changes.push_back(std::move(change));
    }
    dirty_.clear();
    return changes;
}

NamedRoute MirrorState::named(KernelRoute const& route) const {
    auto const nameOf = [&](U32 index) {
        auto const link = links_.find(index);
        return link == links_.end() ? std::string() : link->second.name;
    };
    NamedRoute result;
    result.name = {vrfName(isV4(route.id.group), route.id.table), route.id.source, route.id.group};
    result.iif = nameOf(route.iif);
    for (U32 const oif : route.oifs)
        if (auto name = nameOf(oif); !name.empty()) result.oifs.push_back(std::move(name));
    std::sort(result.oifs.begin(), result.oifs.end());
    return result;
}

std::string MirrorState::vrfName(bool v4, U32 table) const {
    if (table == (v4 ? defaultTableV4 : defaultTableV6)) return "default";
    for (auto const& [index, link] : links_)
        if (link.vrfTable == table) return link.name;
    return fmt::format("table-{}", table);
}

std::optional<RouteId> MirrorState::idOf(RouteName const& name) const {
    auto const idIn = [&](U32 table) { return RouteId{table, name.source, name.group}; };
    if (name.vrf == "default") return idIn(isV4(name.group) ? defaultTableV4 : defaultTableV6);
    for (auto const& [index, link] : links_)
        if (link.vrfTable != 0 && link.name == name.vrf) return idIn(link.vrfTable);
    std::string_view digits = name.vrf;
    if (!digits.starts_with("table-")) return std::nullopt;
    digits.remove_prefix(6);
    U32 table = 0;
    auto const [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), table);
    if (error != std::errc{} || end != digits.data() + digits.size()) return std::nullopt;
    return idIn(table);
}

} // namespace Cairn
