// What the mirror believes of the kernel's multicast routes: notifications folded into the last
// state of each route, and resynchronised by a dump where notifications cannot tell.
//
// Pure logic, without sockets or tables. The rules it keeps, each forced by what the kernel does:
//
//  - Add, replace and any change come as the same message with the full state, identical ones
//    included: each is folded, and only a difference makes the route dirty. What is taken at once
//    is written once.
//  - A dump under churn leaves out entries and gives others twice, without a word: a route missing
//    from it goes only when a question for this one route says so too. A route that nobody has
//    heard of cannot be asked for: at the start and after lost notifications the dump is repeated
//    until one comes during which no route went (the kernel resumes a dump by position in a list,
//    so a route that goes hides another one).
//  - The end of a vif changes routes without any route message; so does the re-use of its number.
//    The signs are switched multicast forwarding and links that go or change their name: they ask
//    for a resync. Forwarding may be announced shortly *before* the vif serves its routes, so the
//    owner should resync once more a moment after the last such sign.
//  - A delete may lack interfaces: only its key is trusted. One without any says that the table's
//    owner died; with a hold time such a route stays, not valid, until the hold ends.
//  - A pending entry is no route, neither when it comes nor when it goes.
#pragma once

#include "KernelRoute.h"
#include "NamedRoute.h"

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <unordered_map>
#include <unordered_set>

namespace Cairn {

class MirrorState {
public:
    struct Counters {
        U64 messages = 0;  // folded, of any kind
        U64 unchanged = 0; // told again as they were
        U64 gone = 0;      // routes that the kernel took away, known to us or not
        U64 overruns = 0;
        U64 resyncs = 0;
        U64 confirmations = 0; // questions for routes missing from a dump
        U64 spared = 0;        // of them routes that the dump had left out
        U64 held = 0;          // routes kept after the end of the table's owner
        U64 passedOver = 0;    // entries that are no routes: (*,*), link-local groups
    };

    // The kernel's answer to the question for one route; may raise.
    using Confirm = std::function<std::optional<KernelRoute>(RouteId const&)>;

    explicit MirrorState(double holdSeconds = 0) : holdSeconds_(holdSeconds) {}

    // A route that the tables hold from an earlier life: it goes if the first resync misses it.
    void seed(RouteId const& id);

    // Folds one notification. `now` is in seconds of any steady clock.
    void fold(KernelEvent const& event, double now);
    // The kernel dropped notifications.
    void overrun();

    // The reason of a resync that repeats a dump because routes went during the last.
    static constexpr char const* incompleteDump = "routes went during the last dump";

    // Asks for a resync; the first reason counts.
    void wantResync(char const* reason);
    // Why a resync is due, or an empty text.
    std::string const& resyncReason() const { return resyncReason_; }
    // The end of a resync, with all folded that was queued meanwhile. `disturbed`: a route went, or
    // notifications were lost, since the dump began. If there may be routes that nobody has heard
    // of, the next resync is due.
    void resyncEnded(bool disturbed);
    // Whether a sign of a silent change was seen since the last call.
    bool takeSilentSign();
    // Takes the links and a dump of both families as the truth, asking for each missing route. If
    // `confirm` raises, what was folded stays and the resync is still due.
    void resync(std::vector<KernelLink> const& links, std::vector<KernelRoute> const& dump,
                Confirm const& confirm, double now);

    // Ends the holds that are over. The time of the next one to end, if any.
    void sweep(double now);
    std::optional<double> nextSweep() const;

    // All routes that differ from what was last taken.
    std::vector<RouteChange> takeChanges();
    bool dirty() const { return !dirty_.empty(); }

    // The name of a kernel table: "default", a VRF device's name, or "table-N".
    std::string vrfName(bool v4, U32 table) const;
    // The kernel's id of a route by name; nothing if no table has the name of its VRF.
    std::optional<RouteId> idOf(RouteName const& name) const;

    std::size_t size() const { return routes_.size(); }
    std::set<RouteId> const& pending() const { return pending_; }
    Counters const& counters() const { return counters_; }

private:
    enum class State : U8 { seeded, present, held, gone };
    struct Entry {
        State state = State::gone;
        U32 round = 0; // the resync that saw it last
        double holdEnds = 0;
        KernelRoute route;
    };

    bool routable(RouteId const& id);
    void foldRoute(KernelRoute const& route);
    void foldGone(KernelRoute const& route, double now);
    void remove(RouteId const& id, Entry& entry, bool ownerDied, double now);
    void foldLink(KernelLink const& link);
    NamedRoute named(KernelRoute const& route) const;

    double holdSeconds_;
    std::unordered_map<RouteId, Entry, RouteIdHash> routes_;
    std::unordered_set<RouteId, RouteIdHash> dirty_;
    std::set<RouteId> pending_;
    std::set<std::pair<double, RouteId>> holds_;
    std::map<U32, KernelLink> links_;
    std::string resyncReason_ = "start";
    bool silentSign_ = false;
    bool unheard_ = true; // there may be routes of which no word has come
    U32 round_ = 0;
    Counters counters_;
};

} // namespace Cairn
