// `cairn watch`: follows route tables like `ip monitor`, through comings and goings of the writer.
//
// Callbacks only keep the last value of each route. What is printed comes from comparing that with
// what was printed last, after each turn of the loop: so a burst prints its outcome once, a reader
// that fell behind while its terminal or pipe was full prints the final state, and a writer's restart
// prints what really differs. The writer never waits for any of it.
//
// With a filter the events are those of a table that holds only what passes: a route that enters it
// is added, one that leaves it is deleted.
#include "Access.h"
#include "Board.h"
#include "Commands.h"
#include "RouteFilter.h"
#include "Signals.h"

#include "Dunlin/TaskSchedulerRoot.h"
#include "Dunlin/Util.h"
#include "SharedMem/DirectoryWatch.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <unistd.h>

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

// The names of outgoing interfaces by their index, read from the table beside the routes' own,
// whether its writer lives or not.
class InterfaceNames {
public:
    explicit InterfaceNames(std::string const& table)
        : front_(table, Mroute::OifIndexIntfTable::typeName) {
        Brisk::MapDescriptor reader;
        reader.type = Brisk::BriskType::reader;
        front_.init(reader);
    }
    // Takes up the table as it is now: the writer of the routes is another than before.
    void renew() {
        front_.detach(true);
        refresh();
    }
    // Attaches again if that is needed. True if names given before may be wrong.
    bool refresh() {
        try {
            if (front_.mountStatus() == Mem::MountStatus::unmounted) front_.attach("watch");
        } catch (Dunlin::Exception const&) {
            // Interfaces are called by their numbers until the table can be read.
        }
        auto const generation = front_.orielId();
        if (generation == 0 || std::exchange(generation_, generation) == generation) return false;
        return std::exchange(given_, false);
    }
    std::string operator()(OifIndex index) {
        given_ = true;
        bool found = false;
        Mroute::OifIndexIntfTable::Value value;
        front_.safeLookup(index, found, &value);
        return found ? std::string(value.intf().stringValue()) : unknownInterface(index);
    }

private:
    OifFront front_;
    SharedMem::OrielId generation_ = 0;
    bool given_ = false;
};

// One route table, and what was printed of it.
class TableWatch {
public:
    TableWatch(RouteTableName const& name, WatchArguments const& arguments,
               RouteFilter const& filter, Listing& listing)
        : name_(name), arguments_(arguments), filter_(filter), listing_(listing),
          board_(name.route()), names_(name.oifIndexIntf()),
          routes_(name.route(), Mroute::RouteTable::typeName) {
        routes_.valueNotifyIs([this](Route const& route) { touched_[route.key()] = route; });
        // A shadow of keys has no values.
        routes_.keyNotifyIs([this](Key const& key) { touched_[key] = routeNow(key); });
        routes_.deleteNotifyIs([this](Key const& key) { touched_[key] = std::nullopt; });
        routes_.mountStatusNotifyIs([this] {
            statusTouched_ = true;
            // One writer may go and the next come within a turn of the loop.
            if (synchronised()) return;
            left_ = true;
            for (auto& [key, route] : touched_) lastWords_[key] = std::move(route);
            touched_.clear();
        });
        Brisk::MapDescriptor shadow;
        shadow.type = arguments.keys ? Brisk::BriskType::keyShadow : Brisk::BriskType::valueShadow;
        // That everything is gone with the writer is said in one line.
        shadow.notifyOnFlush = false;
        requireReadable();
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
            if (std::exchange(left_, false)) end();
            if (synchronised() && !following_) begin();
        }
        if (!following_) return requirePermitted();
        members_ = routes_.members();
        if (U64 const walk = routes_.readerCounters().syncSequence; walk != lastWalk_) {
            lastWalk_ = walk;
            status("resynchronised").add("routes", members_);
            emit();
        }
        if (!arguments_.keys && names_.refresh()) compareAll();
        compareEach(touched_);
    }

private:
    using Changes = std::map<Key, std::optional<Route>>; // no route: deleted

    bool synchronised() const { return routes_.mountStatus() == Mem::MountStatus::synchronised; }

    // A table that is there and cannot be followed ends the command; one that is not is waited for.
    void requireReadable() const {
        for (auto const& table : {name_.route(), name_.oifIndexIntf()}) {
            if (::access(Mem::YokeRootPath(table).file("slots").c_str(), F_OK) != 0 &&
                errno != EACCES)
                continue;
            Patience patience(table);
            auto fault = faultOf(table);
            while (fault && patience.again()) fault = faultOf(table);
            if (fault) throw *fault;
        }
    }
    void requirePermitted() const {
        for (auto const& table : {name_.route(), name_.oifIndexIntf()})
            if (::access(Mem::YokeRootPath(table).file("slots").c_str(), R_OK) != 0 &&
                errno == EACCES)
                throw *faultOf(table);
    }

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
        names_.renew();
        members_ = routes_.members();
        lastWalk_ = routes_.readerCounters().syncSequence;
        status("synchronised")
            .add("writer", writerOf(Mem::YokeRootPath(name_.route())).text())
            .add("routes", members_);
        emit();
        silent_ = !begun_ && !arguments_.initial;
        compareAll();
        silent_ = false;
        begun_ = true;
    }
    // The writer has gone; what was printed is kept for its successor.
    void end() {
        if (std::exchange(following_, false)) {
            names_.refresh();
            compareEach(lastWords_);
            status("writer_gone").add("routes", members_);
            emit();
        }
        lastWords_.clear();
    }

    std::optional<Route> routeNow(Key const& key) const {
        bool found = false;
        Mroute::RouteTable::Value value;
        Route const route = *routes_.safeLookup(key, found, &value);
        return found ? std::optional(route) : std::nullopt;
    }
    void compareEach(Changes& changes) {
        for (auto const& [key, route] : std::exchange(changes, {})) compare(key, route);
    }
    void compareAll() {
        std::set<Key> gone;
        for (auto const& [key, seen] : printed_) gone.insert(key);
        Mroute::RouteTable::Value value;
        Brisk::IterHint hint;
        auto const& table = routes_.table();
        for (bool more = table.first(value, hint); more;
             more = table.next(value.key(), value, hint)) {
            gone.erase(value.key());
            compare(value.key(), value);
        }
        for (Key const& key : gone) compare(key, std::nullopt);
    }

    // The route as it is printed; nothing if there is none or the filter keeps it back.
    std::optional<SeenRoute> look(std::optional<Route> const& route) {
        if (!route) return std::nullopt;
        SeenRoute seen;
        if (arguments_.keys) { // the key alone is followed
            seen.route.name = {name_.vrf, route->key().s().address(), route->key().g().address()};
            seen.version = route->version();
        } else {
            seen = describe(*route, name_.vrf, [this](OifIndex index) { return names_(index); });
        }
        bool const passes = arguments_.keys ? filter_.letsKey(seen.route.name) : filter_.lets(seen);
        return passes ? std::optional(std::move(seen)) : std::nullopt;
    }

    // Prints how a route differs from what was last printed of it.
    void compare(Key const& key, std::optional<Route> const& route) {
        auto const now = look(route);
        auto const before = printed_.find(key);
        if (before == printed_.end()) {
            if (!now) return;
            printed_[key] = *now;
            if (!silent_) added(*now);
        } else if (!now) {
            SeenRoute const old = std::move(before->second);
            printed_.erase(before);
            deleted(old);
        } else if (SeenRoute const old = std::exchange(before->second, *now); old != *now) {
            changed(old, *now);
        }
    }

    void added(SeenRoute const& seen) {
        event("added", seen);
        if (!arguments_.keys)
            row_.add("iif", seen.route.iif, Row::Hue::interface)
                .addEach("oif", "oifs", seen.route.oifs, Row::Hue::interface)
                .addJoined("flags", seen.flags);
        row_.add("version", U64{seen.version});
        finish();
    }
    void deleted(SeenRoute const& seen) {
        event("deleted", seen);
        if (!arguments_.keys)
            row_.add("iif", seen.route.iif, Row::Hue::interface)
                .addEach("oif", "oifs", seen.route.oifs, Row::Hue::interface);
        finish();
    }
    void changed(SeenRoute const& old, SeenRoute const& seen) {
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
    InterfaceNames names_;
    RouteFront routes_;
    Changes touched_;   // since the last turn
    Changes lastWords_; // of a writer that has gone since
    std::map<Key, SeenRoute> printed_;
    Row row_;
    U64 members_ = 0;
    bool statusTouched_ = true;
    bool left_ = false; // the table was not whole at some moment since the last turn
    bool following_ = false;
    bool begun_ = false;  // what the table holds was printed, or is known to the user
    bool silent_ = false; // printed_ is filled without a word
    U64 lastWalk_ = 0;
};

} // namespace

namespace {

// The watches of all tables that pass, those that appear later included.
class Watches {
public:
    Watches(Common const& common, WatchArguments const& arguments, RouteFilter const& filter,
            ViewFilter const& tables, Listing& listing)
        : common_(common), arguments_(arguments), filter_(filter), tables_(tables),
          listing_(listing) {
        requireOpen(tables_);
        for (bool const v4 : {true, false}) {
            if (!(v4 ? common_.v4 : common_.v6)) continue;
            // This one is waited for, even if there are others.
            add({v4, tables_.vrf.empty() ? "default" : tables_.vrf,
                 tables_.name.empty() ? "kernel" : tables_.name});
            if (tables_.vrf.empty() || tables_.name.empty()) listen(vrfsOf(v4));
        }
        discover();
    }
    void turn() {
        if (std::exchange(appeared_, false)) discover();
        for (auto const& [name, watch] : watches_) watch->turn();
    }

private:
    static std::string vrfsOf(bool v4) {
        return fmt::format("{}/{}/multicast/routestatus", Dunlin::Util::baseDirectory(),
                           v4 ? "routing" : "routing6");
    }
    void listen(std::string const& directory) {
        auto& place = directories_[directory];
        if (!place)
            place = std::make_unique<Mem::DirectoryWatch>(
                directory, [this](std::string const&) { appeared_ = true; });
    }
    void add(RouteTableName const& name) {
        auto& place = watches_[name.route()];
        if (!place) place = std::make_unique<TableWatch>(name, arguments_, filter_, listing_);
    }
    // Tables of a VRF and a name of which there is a directory. First the ear, then the look.
    void discover() {
        for (bool const v4 : {true, false}) {
            if (!(v4 ? common_.v4 : common_.v6)) continue;
            std::error_code error;
            for (std::filesystem::directory_iterator it(vrfsOf(v4), error), end;
                 !error && it != end; it.increment(error))
                if (tables_.vrf.empty() || tables_.vrf == it->path().filename())
                    listen(it->path().string());
        }
        for (auto const& name : routeTables(tables_)) add(name);
        for (auto const& [directory, ear] : directories_) addBelow(directory);
    }
    void addBelow(std::string const& directory) {
        std::error_code error;
        auto const below =
            std::filesystem::path(directory).lexically_relative(Dunlin::Util::baseDirectory());
        if (std::distance(below.begin(), below.end()) != 4) return;
        for (std::filesystem::directory_iterator it(directory, error), end; !error && it != end;
             it.increment(error)) {
            auto const name = it->path().filename().string();
            if (it->is_directory(error) && (tables_.name.empty() || tables_.name == name))
                add({*below.begin() == "routing", std::filesystem::path(directory).filename(),
                     name});
        }
    }

    Common const& common_;
    WatchArguments const& arguments_;
    RouteFilter const& filter_;
    ViewFilter const& tables_;
    Listing& listing_;
    std::map<std::string, std::unique_ptr<TableWatch>> watches_;
    std::map<std::string, std::unique_ptr<Mem::DirectoryWatch>> directories_;
    bool appeared_ = false;
};

} // namespace

int watchCommand(Common const& common, WatchArguments arguments) {
    arguments.json = common.json;
    auto const values = keywords(arguments.words, {"source", "group", "iif", "oif", "vrf", "name"});
    auto const filter = RouteFilter::of(values);
    if (arguments.keys && !(filter.iif + filter.oif).empty())
        throw CommandError(badUse, "--keys follows keys alone: iif and oif cannot be known");
    auto const value = [&](char const* key) {
        auto const found = values.find(key);
        if (found != values.end() && !isDirectoryName(found->second))
            throw CommandError(
                badUse, fmt::format("{} \"{}\" is not a name", key, shortened(found->second)));
        return found == values.end() ? std::string() : found->second;
    };
    ViewFilter const tables{common.v4, common.v6, value("vrf"), value("name")};
    EndBySignal const endBySignal;
    Listing listing = common.listing();
    Watches watches(common, arguments, filter, tables, listing);
    auto& loop = *Dunlin::schedulerRootDunlin;
    double const end = arguments.seconds > 0 ? loop.now() + arguments.seconds : 0;
    Dunlin::TaskSchedulerRoot::TimerId timer = 0;
    if (end > 0) timer = loop.timerAdd(arguments.seconds, [] {});
    while (!endBySignal.ended() && (end == 0 || loop.now() < end)) {
        watches.turn();
        if (std::fflush(stdout) != 0) // main says what the matter is
            break;
        loop.runOnce(-1);
    }
    if (timer) loop.timerDel(timer);
    return done;
}

} // namespace Cairn
