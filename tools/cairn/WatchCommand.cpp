// `cairn watch`: follows route tables like `ip monitor`, through comings and goings of the writer.
//
// Callbacks only note which routes to look at. What is printed comes from comparing the table's
// client-side picture with what was printed last, after each turn of the loop: so a burst prints
// its outcome once, a reader that fell behind while its terminal or pipe was full prints the final
// state, and a writer's restart prints what really differs. The writer never waits for any of it.
#include "AnyTable.h"
#include "Board.h"
#include "Commands.h"
#include "RouteFilter.h"
#include "Signals.h"

#include "Dunlin/TaskSchedulerRoot.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>

namespace Cairn {
namespace {

using Brisk::Multicast::Fib::OifIndex;
using Brisk::Multicast::Fib::Route;
using Key = Routing::Multicast::Fib::IpGenRouteKey;
using RouteFront = Brisk::BriskMap<Mroute::RouteTable::Ops>;
using OifFront = Brisk::BriskMap<Mroute::OifIndexIntfTable::Ops>;

Row::List missingIn(Row::List const& with, Row::List const& without) {
    Row::List missing;
    std::set_difference(with.begin(), with.end(), without.begin(), without.end(),
                        std::back_inserter(missing));
    return missing;
}

// One route table, and what was printed of it.
class TableWatch {
public:
    TableWatch(RouteTableName const& name, WatchArguments const& arguments,
               RouteFilter const& filter, Listing& listing)
        : name_(name), arguments_(arguments), filter_(filter), listing_(listing),
          board_(name.route()), oifs_(name.oifIndexIntf(), Mroute::OifIndexIntfTable::typeName),
          routes_(name.route(), Mroute::RouteTable::typeName) {
        Brisk::MapDescriptor reader;
        reader.type = Brisk::BriskType::reader;
        oifs_.init(reader);

        auto const note = [this](Key const& key) { touched_.insert(key); };
        routes_.keyNotifyIs(note);
        routes_.valueNotifyIs([note](Route const& route) { note(route.key()); });
        routes_.deleteNotifyIs(note);
        routes_.mountStatusNotifyIs([this] {
            statusTouched_ = true;
            // One writer may go and the next come within a turn of the loop.
            if (!synchronised()) left_ = true;
        });
        Brisk::MapDescriptor shadow;
        shadow.type = arguments.keys ? Brisk::BriskType::keyShadow : Brisk::BriskType::valueShadow;
        // That everything is gone with the writer is said in one line.
        shadow.notifyOnFlush = false;
        routes_.init(shadow);
        if (synchronised()) return;
        begun_ = true; // nothing is there: whatever comes is news
        status("waiting").add("writer", std::string("none"));
        emit();
    }

    // Prints what the last turn of the loop brought.
    void turn() {
        post();
        if (std::exchange(statusTouched_, false)) {
            if (std::exchange(left_, false) && following_) end();
            if (synchronised() && !following_) begin();
        }
        if (!following_) return;
        if (U64 const walk = routes_.readerCounters().syncSequence; walk != lastWalk_) {
            lastWalk_ = walk;
            status("resynchronised").add("routes", U64{routes_.members()});
            emit();
        }
        auto const touched = std::exchange(touched_, {});
        for (Key const& key : touched) compare(key);
    }

private:
    bool synchronised() const { return routes_.mountStatus() == Mem::MountStatus::synchronised; }

    // At most once a second, and only when something else woke this process.
    void post() {
        double const now = Dunlin::schedulerRootDunlin->now();
        if (now < nextPost_) return;
        nextPost_ = now + 1;
        BoardNotice notice;
        notice.role = BoardNotice::Role::shadow;
        notice.sequence = routes_.sequence();
        board_.post(notice);
    }

    // The table is there, whole: print what differs from what was printed before, if anything was.
    void begin() {
        following_ = true;
        touched_.clear();
        lastWalk_ = routes_.readerCounters().syncSequence;
        status("synchronised")
            .add("writer", writerOf(Mem::YokeRootPath(name_.route())).text())
            .add("routes", U64{routes_.members()});
        emit();
        std::set<Key> gone;
        for (auto const& [key, seen] : printed_) gone.insert(key);
        Mroute::RouteTable::Value value;
        Brisk::IterHint hint;
        auto const& table = routes_.table();
        for (bool more = table.first(value, hint); more;
             more = table.next(value.key(), value, hint)) {
            gone.erase(value.key());
            if (begun_ || arguments_.initial)
                compare(value.key());
            else
                printed_[value.key()] = look(value);
        }
        for (Key const& key : gone) compare(key);
        begun_ = true;
    }
    // The writer has gone; what was printed is kept for its successor.
    void end() {
        following_ = false;
        touched_.clear();
        status("writer_gone").add("routes", U64{printed_.size()});
        emit();
    }

    SeenRoute look(Route const& route) {
        if (arguments_.keys) { // the key alone is followed
            SeenRoute seen;
            seen.route.name = {name_.vrf, route.key().s().address(), route.key().g().address()};
            seen.version = route.version();
            return seen;
        }
        if (oifs_.mountStatus() == Mem::MountStatus::unmounted) oifs_.tryAttach();
        return describe(route, name_.vrf, [this](OifIndex index) {
            bool found = false;
            Mroute::OifIndexIntfTable::Value value;
            oifs_.safeLookup(index, found, &value);
            return found ? std::string(value.intf().stringValue()) : unknownInterface(index);
        });
    }

    // Prints how a route differs from what was last printed of it.
    void compare(Key const& key) {
        bool found = false;
        Mroute::RouteTable::Value value;
        Route const now = *routes_.safeLookup(key, found, &value);
        auto const before = printed_.find(key);
        if (!found) {
            if (before == printed_.end()) return;
            auto const seen = std::move(before->second);
            printed_.erase(before);
            if (!lets(seen)) return;
            event("deleted", seen);
            if (!arguments_.keys)
                row_.add("iif", seen.route.iif, Row::Hue::interface)
                    .addEach("oif", "oifs", seen.route.oifs, Row::Hue::interface);
            finish();
            return;
        }
        SeenRoute const seen = look(now);
        if (before == printed_.end()) {
            printed_[key] = seen;
            if (!lets(seen)) return;
            event("added", seen);
            if (!arguments_.keys)
                row_.add("iif", seen.route.iif, Row::Hue::interface)
                    .addEach("oif", "oifs", seen.route.oifs, Row::Hue::interface)
                    .addJoined("flags", seen.flags);
            row_.add("version", U64{seen.version});
            finish();
            return;
        }
        SeenRoute const old = std::exchange(before->second, seen);
        if (old == seen || !(lets(old) || lets(seen))) return;
        event("changed", seen);
        if (old.route.iif != seen.route.iif)
            row_.add("iif", seen.route.iif, Row::Hue::interface)
                .add("iif_was", old.route.iif, Row::Hue::interface);
        // Lists that did not change are left out of a line; in JSON they are empty.
        auto const list = [&](char const* name, char const* jsonName, Row::List values) {
            if (!values.empty() || arguments_.json)
                row_.addEach(name, jsonName, std::move(values), Row::Hue::interface);
        };
        if (!arguments_.keys) {
            list("oif_added", "oifs_added", missingIn(seen.route.oifs, old.route.oifs));
            list("oif_removed", "oifs_removed", missingIn(old.route.oifs, seen.route.oifs));
            auto const sorted = [](Row::List names) {
                std::sort(names.begin(), names.end());
                return names;
            };
            auto const flags = sorted(seen.flags), former = sorted(old.flags);
            list("flag_set", "flags_set", missingIn(flags, former));
            list("flag_cleared", "flags_cleared", missingIn(former, flags));
        }
        row_.add("version", U64{seen.version});
        finish();
    }

    bool lets(SeenRoute const& seen) const {
        return arguments_.keys ? filter_.letsKey(seen.route.name) : filter_.lets(seen);
    }
    void event(char const* what, SeenRoute const& seen) {
        row_ = Row();
        row_.add("event", std::string(what))
            .add("source", sourceText(seen.route.name.source), Row::Hue::address)
            .add("group", toText(seen.route.name.group), Row::Hue::address);
    }
    void finish() {
        row_.add("vrf", name_.vrf).add("name", name_.name);
        emit();
    }
    Row& status(char const* what) {
        row_ = Row();
        return row_.add("event", std::string(what)).add("table", name_.route());
    }
    void emit() { listing_.print(row_); }

    RouteTableName name_;
    WatchArguments const& arguments_;
    RouteFilter const& filter_;
    Listing& listing_;
    BoardEntry board_;
    double nextPost_ = 0;
    OifFront oifs_;
    RouteFront routes_;
    std::set<Key> touched_;
    std::map<Key, SeenRoute> printed_;
    Row row_;
    bool statusTouched_ = true;
    bool left_ = false; // the table was not whole at some moment since the last turn
    bool following_ = false;
    bool begun_ = false; // what the table holds was printed, or is known to the user
    U64 lastWalk_ = 0;
};

} // namespace

int watchCommand(Common const& common, WatchArguments arguments) {
    arguments.json = common.json;
    auto const values = keywords(arguments.words, {"source", "group", "iif", "oif", "vrf", "name"});
    auto const filter = RouteFilter::of(values);
    if (arguments.keys && !(filter.iif + filter.oif).empty())
        throw CommandError(badUse, "--keys follows keys alone: iif and oif cannot be known");
    auto const value = [&](char const* key, char const* otherwise) {
        auto const found = values.find(key);
        return found == values.end() ? std::string(otherwise) : found->second;
    };
    RouteTableName name{true, value("vrf", "default"), value("name", "kernel")};
    if (!isDirectoryName(name.vrf) || !isDirectoryName(name.name))
        throw CommandError(badUse, "vrf and name are names");
    Listing listing = common.listing();
    EndBySignal const endBySignal;
    std::vector<std::unique_ptr<TableWatch>> watches;
    for (bool const v4 : {true, false}) {
        if (!(v4 ? common.v4 : common.v6)) continue;
        name.v4 = v4;
        watches.push_back(std::make_unique<TableWatch>(name, arguments, filter, listing));
    }
    auto& loop = *Dunlin::schedulerRootDunlin;
    double const end = arguments.seconds > 0 ? loop.now() + arguments.seconds : 0;
    Dunlin::TaskSchedulerRoot::TimerId timer = 0;
    if (end > 0) timer = loop.timerAdd(arguments.seconds, [] {});
    while (!endBySignal.ended() && (end == 0 || loop.now() < end)) {
        for (auto const& watch : watches) watch->turn();
        if (std::fflush(stdout) != 0 && !endBySignal.ended())
            throw CommandError(badUse, fmt::format("output: {}", std::strerror(errno)));
        loop.runOnce(-1);
    }
    if (timer) loop.timerDel(timer);
    return done;
}

} // namespace Cairn
