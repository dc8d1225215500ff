// The mirror's belief against the kernel's truth: recorded churn, with what a stream can lose.
#include "MirrorState.h"
#include "tests/cairn/Recordings.h"

#include <gmock/gmock.h>

#include <random>

using namespace Cairn;
using namespace CairnTest;
using Kind = KernelEvent::Kind;
using ::testing::IsEmpty;
using Table = std::map<RouteName, NamedRoute>;

namespace {

// Writes what changes, as the tables do; counts what did not have to be written.
struct Written {
    Table table;
    std::set<RouteName> notValid;
    std::size_t writes = 0;

    void take(MirrorState& state) {
        for (auto& change : state.takeChanges()) {
            auto const& name = change.route.name;
            ++writes;
            if (change.kind == RouteChange::Kind::held) {
                notValid.insert(name);
            } else if (change.kind == RouteChange::Kind::present) {
                notValid.erase(name);
                table[name] = change.route;
            } else {
                notValid.erase(name);
                table.erase(name);
            }
        }
    }
};

void nameLinks(MirrorState& state, Interfaces const& interfaces) {
    for (auto const& link : interfaces.links()) state.fold({Kind::linkNew, {}, link}, 0);
}

KernelEvent routeEvent(Kind kind, std::string const& source, std::string const& group, U32 iif,
                       std::vector<U32> oifs, bool pending = false) {
    KernelEvent event;
    event.kind = kind;
    event.route.id = {isV4(address(group)) ? defaultTableV4 : defaultTableV6, address(source),
                      address(group)};
    event.route.iif = iif;
    event.route.oifs = std::move(oifs);
    event.route.pending = pending;
    return event;
}

std::optional<KernelRoute> unknown(RouteId const&) {
    return std::nullopt;
}

} // namespace

class MirrorChurn : public ::testing::TestWithParam<char const*> {
protected:
    Interfaces interfaces;
    std::string const prefix = std::string("churn20-") + GetParam();
    std::vector<KernelEvent> const events = readMonitor(prefix + "-monitor.txt", interfaces);
    Table const truth = readTruth(prefix + "-truth.json");
    std::mt19937 random{11};
};
INSTANTIATE_TEST_SUITE_P(Routers, MirrorChurn, ::testing::Values("r1", "r2", "r3"));

TEST_P(MirrorChurn, FoldedStreamIsTheTruthHoweverItIsCut) {
    ASSERT_GE(truth.size(), 25u);
    for (std::size_t const cut : {std::size_t{1}, std::size_t{20}, events.size()}) {
        SCOPED_TRACE(cut);
        MirrorState state;
        Written written;
        nameLinks(state, interfaces);
        for (auto const& event : events) {
            state.fold(event, 0);
            if (random() % cut == 0) written.take(state);
        }
        written.take(state);
        EXPECT_EQ(written.table, truth);
        EXPECT_EQ(state.size(), truth.size());
        // Taken all at once, each route is written once at most.
        if (cut == events.size()) {
            EXPECT_LE(written.writes, events.size() / 3);
        }
    }
}

TEST_P(MirrorChurn, LossIsHealedByAResyncWhoseDumpLeavesRoutesOut) {
    for (int round = 0; round < 20; ++round) {
        MirrorState state;
        Written written;
        nameLinks(state, interfaces);
        for (auto const& event : events) {
            if (random() % 3 == 0) continue; // lost
            state.fold(event, 0);
            if (random() % 50 == 0) written.take(state);
        }
        state.overrun();
        EXPECT_EQ(state.resyncReason(), state.counters().resyncs ? "" : "start");
        std::vector<KernelRoute> dump;
        for (auto const& [name, route] : truth)
            for (auto times = random() % 3; times > 0; --times) // left out, once, twice
                dump.push_back(toKernel(route, interfaces));
        state.resync(
            interfaces.links(), dump,
            [&](RouteId const& id) -> std::optional<KernelRoute> {
                auto const found = truth.find({"default", id.source, id.group});
                if (found == truth.end()) return std::nullopt;
                return toKernel(found->second, interfaces);
            },
            0);
        EXPECT_THAT(state.resyncReason(), IsEmpty());
        written.take(state);
        // What was never heard of and left out of the dump stays unknown until a later message
        // or dump; nothing known is lost, nothing is wrong.
        for (auto const& [name, route] : written.table) {
            ASSERT_TRUE(truth.contains(name)) << sourceText(name.source);
            EXPECT_EQ(route, truth.at(name));
        }
        state.overrun();
        dump.clear();
        for (auto const& [name, route] : truth) dump.push_back(toKernel(route, interfaces));
        state.resync(interfaces.links(), dump, unknown, 0);
        written.take(state);
        EXPECT_EQ(written.table, truth);
    }
}

class MirrorStateTest : public ::testing::Test {
protected:
    void SetUp() override {
        for (U32 i = 1; i <= 4; ++i)
            state.fold({Kind::linkNew, {}, {i, "if" + std::to_string(i), 0}}, 0);
        state.resync(links, {}, unknown, 0);
    }
    void newRoute(U32 iif, std::vector<U32> oifs, bool pending = false) {
        state.fold(routeEvent(Kind::routeNew, "10.0.0.1", "239.0.0.1", iif, oifs, pending), now);
    }
    void gone(U32 iif, std::vector<U32> oifs, bool pending = false) {
        state.fold(routeEvent(Kind::routeGone, "10.0.0.1", "239.0.0.1", iif, oifs, pending), now);
    }
    bool writtenRoute() {
        written.take(state);
        return written.table.size() == 1;
    }
    double now = 0;
    std::vector<KernelLink> links{{1, "if1", 0}, {2, "if2", 0}, {3, "if3", 0}, {4, "if4", 0}};
    MirrorState state{5};
    Written written;
};

TEST_F(MirrorStateTest, EqualAnnouncementWritesNothing) {
    newRoute(1, {2, 3});
    EXPECT_TRUE(writtenRoute());
    newRoute(1, {2, 3});
    EXPECT_FALSE(state.dirty());
    EXPECT_EQ(state.counters().unchanged, 1u);
}

TEST_F(MirrorStateTest, PendingEntryNeitherMakesNorEndsARoute) {
    newRoute(0, {}, true);
    EXPECT_FALSE(writtenRoute());
    EXPECT_EQ(state.pending().size(), 1u);
    newRoute(1, {2});
    EXPECT_TRUE(state.pending().empty());
    // A packet that missed the cache a moment before the route came still waits, and times out.
    newRoute(0, {}, true);
    gone(0, {}, true);
    EXPECT_TRUE(writtenRoute());
    gone(1, {2});
    EXPECT_FALSE(writtenRoute());
}

TEST_F(MirrorStateTest, DeadOwnersRoutesAreHeldThenSwept) {
    newRoute(1, {2});
    EXPECT_TRUE(writtenRoute());
    gone(0, {});
    EXPECT_TRUE(writtenRoute());
    EXPECT_EQ(written.notValid.size(), 1u);
    EXPECT_EQ(state.nextSweep(), 5.0);
    // The owner is back in time, with the same route.
    now = 4;
    newRoute(1, {2});
    EXPECT_TRUE(writtenRoute());
    EXPECT_THAT(written.notValid, IsEmpty());
    EXPECT_FALSE(state.nextSweep());
    // Next time it is not.
    gone(0, {});
    state.sweep(8.9);
    EXPECT_TRUE(writtenRoute());
    state.sweep(9);
    EXPECT_FALSE(writtenRoute());
    EXPECT_EQ(state.size(), 0u);
    // A route taken back by a living owner goes at once.
    newRoute(1, {2});
    EXPECT_TRUE(writtenRoute());
    gone(1, {2});
    EXPECT_FALSE(writtenRoute());
}

TEST_F(MirrorStateTest, KeptTableLosesWhatTheKernelNoLongerHas) {
    MirrorState fresh;
    RouteId const stays{defaultTableV4, address("10.0.0.1"), address("239.0.0.1")};
    RouteId const goes{defaultTableV4, address("10.0.0.2"), address("239.0.0.1")};
    fresh.seed(stays);
    fresh.seed(goes);
    EXPECT_EQ(fresh.resyncReason(), "start");
    KernelRoute route;
    route.id = stays;
    route.iif = 1;
    fresh.resync(links, {route}, unknown, 0);
    auto const changes = fresh.takeChanges();
    ASSERT_EQ(changes.size(), 2u);
    for (auto const& change : changes)
        EXPECT_EQ(change.kind, change.route.name.source == goes.source
                                   ? RouteChange::Kind::gone
                                   : RouteChange::Kind::present);
}

TEST_F(MirrorStateTest, SilentChangesAskForAResync) {
    newRoute(1, {2, 3});
    written.take(state);
    struct {
        KernelEvent event;
        bool sign;
    } const rows[] = {{{Kind::forwarding, {}, {}}, true},
                      {{Kind::linkGone, {}, {3, "", 0}}, true},
                      {{Kind::linkNew, {}, {2, "renamed", 0}}, false},
                      {{Kind::none, {}, {}}, false}};
    for (auto const& row : rows) {
        SCOPED_TRACE(static_cast<int>(row.event.kind));
        state.fold(row.event, 0);
        EXPECT_EQ(!state.resyncReason().empty(), row.event.kind != Kind::none);
        EXPECT_EQ(state.takeSilentSign(), row.sign);
        if (row.event.kind == Kind::linkNew) links[1].name = "renamed";
        if (row.event.kind == Kind::linkGone) links.erase(links.begin() + 2);
        KernelRoute route = routeEvent(Kind::routeNew, "10.0.0.1", "239.0.0.1", 1, {2}).route;
        if (!state.resyncReason().empty()) state.resync(links, {route}, unknown, 0);
    }
    written.take(state);
    EXPECT_EQ(written.table.begin()->second.oifs, std::vector<std::string>{"renamed"});
}

// A dump that leaves out a route of which no notification came: only an undisturbed one ends the
// search for such routes.
TEST_F(MirrorStateTest, DumpIsRepeatedWhileItMayLackRoutes) {
    struct {
        bool lost, disturbed, repeated;
    } const rows[] = {{false, true, true},   // the first dump
                      {false, false, false}, // its repetition
                      {false, true, false},  // all routes have been heard of by now
                      {true, true, true},    {false, true, true}, {false, false, false}};
    for (auto const& row : rows) {
        if (row.lost) state.overrun();
        state.resync(links, {}, unknown, 0);
        state.resyncEnded(row.disturbed);
        EXPECT_EQ(state.resyncReason(), row.repeated ? MirrorState::incompleteDump : "");
    }
}

TEST_F(MirrorStateTest, FailedConfirmationLosesNothingAndAsksAgain) {
    newRoute(1, {2});
    EXPECT_TRUE(writtenRoute());
    state.overrun();
    EXPECT_THROW(state.resync(
                     links, {},
                     [](RouteId const&) -> std::optional<KernelRoute> {
                         throw std::runtime_error("no answer");
                     },
                     0),
                 std::runtime_error);
    EXPECT_TRUE(writtenRoute());
    EXPECT_EQ(state.resyncReason(), "notifications were lost");
}

TEST_F(MirrorStateTest, EntriesThatAreNoRoutesArePassedOver) {
    for (char const* group : {"0.0.0.0", "224.0.0.5", "10.1.1.1"})
        state.fold(routeEvent(Kind::routeNew, "10.0.0.1", group, 1, {2}), 0);
    for (char const* group : {"ff02::5", "ff01::1", "ff12::1", "::"})
        state.fold(routeEvent(Kind::routeNew, "2001:db8::1", group, 1, {2}), 0);
    EXPECT_FALSE(state.dirty());
    EXPECT_EQ(state.counters().passedOver, 7u);
    state.fold(routeEvent(Kind::routeNew, "2001:db8::1", "ff05::1", 1, {2}), 0);
    state.fold(routeEvent(Kind::routeNew, "0.0.0.0", "224.0.1.1", 1, {2}), 0);
    EXPECT_EQ(state.takeChanges().size(), 2u);
}

TEST_F(MirrorStateTest, TablesHaveTheNamesOfTheirVrfs) {
    state.fold({Kind::linkNew, {}, {9, "blue", 77}}, 0);
    EXPECT_EQ(state.vrfName(true, 253), "default");
    EXPECT_EQ(state.vrfName(false, 254), "default");
    EXPECT_EQ(state.vrfName(false, 253), "table-253");
    EXPECT_EQ(state.vrfName(true, 77), "blue");
    EXPECT_EQ(state.vrfName(true, 100), "table-100");
}
