// The mirror on a live kernel: after whatever happens to the routes, to the interfaces and to the
// mirror's ears, what it told equals what `ip mroute` shows.
#include "KernelMirror.h"
#include "tests/cairn/KernelNamespace.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

using namespace Cairn;
using namespace CairnTest;
using Table = std::map<RouteName, NamedRoute>;

namespace {

std::string text(NamedRoute const* route) {
    if (!route) return "none";
    std::string text = sourceText(route->name.source) + " " + toText(route->name.group) + " iif " +
                       route->iif + " oifs";
    for (auto const& oif : route->oifs) text += " " + oif;
    return text;
}

} // namespace

class KernelMirrorTest : public ::testing::Test {
protected:
    static constexpr unsigned numRoutes = 1000; // of each family

    void SetUp() override {
        if (auto const reason = KernelNamespace::missing(); !reason.empty()) GTEST_SKIP() << reason;
        kernel = std::make_unique<KernelNamespace>(numRoutes);
    }
    void startMirror(KernelMirror::Settings settings = {}) {
        settings.netns = kernel->name();
        mirror = std::make_unique<KernelMirror>(
            loop, settings,
            [this](std::vector<RouteChange>&& changes) {
                for (auto& change : changes) {
                    held.erase(change.route.name);
                    if (change.kind == RouteChange::Kind::present)
                        table[change.route.name] = change.route;
                    else if (change.kind == RouteChange::Kind::held)
                        held.insert(change.route.name);
                    else
                        table.erase(change.route.name);
                }
                told += changes.size();
            },
            [](std::string const&) {});
        mirror->start();
    }
    void run(double seconds) {
        for (double const end = loop.now() + seconds; loop.now() < end;)
            loop.runOnce(std::min(0.05, end - loop.now()));
    }
    void expectInStep(char const* when) {
        SCOPED_TRACE(when);
        run(0.5);
        auto const truth = kernel->routes();
        EXPECT_GE(truth.size(), 400u);
        EXPECT_EQ(table.size(), truth.size());
        unsigned shown = 0;
        for (auto const& [name, route] : truth)
            if (auto const mine = table.find(name);
                (mine == table.end() || mine->second != route) && shown++ < 5)
                ADD_FAILURE() << "kernel: " << text(&route)
                              << " mirror: " << text(mine == table.end() ? nullptr : &mine->second);
    }

    Dunlin::TaskSchedulerRoot loop;
    std::unique_ptr<KernelNamespace> kernel;
    std::unique_ptr<KernelMirror> mirror;
    Table table;
    std::set<RouteName> held;
    std::size_t told = 0;
};

TEST_F(KernelMirrorTest, StaysInStep) {
    startMirror();
    expectInStep("at rest");
    auto const atRest = told;
    EXPECT_EQ(atRest, 2 * numRoutes);

    kernel->change(1000);
    expectInStep("after changes");
    EXPECT_GT(told, atRest);

    kernel->change(3000); // while the mirror does not listen
    expectInStep("after a pause");

    // A vif goes with its interface, and no route message tells of it.
    EXPECT_EQ(kernel->ip({"link", "del", "v6"}), 0);
    expectInStep("after an interface was removed");
    EXPECT_GE(mirror->state().counters().resyncs, 2u);

    EXPECT_EQ(kernel->ip({"link", "set", "v4", "down"}), 0);
    EXPECT_EQ(kernel->ip({"link", "set", "v4", "name", "renamed"}), 0);
    expectInStep("after an interface was renamed");
}

TEST_F(KernelMirrorTest, OverrunIsHealed) {
    KernelMirror::Settings settings;
    settings.receiveBuffer = 65536; // some 150 notifications
    startMirror(settings);
    kernel->change(1500);
    expectInStep("after an overrun");
    EXPECT_GE(mirror->state().counters().overruns, 1u);
    EXPECT_GE(mirror->state().counters().confirmations, 100u);
}

TEST_F(KernelMirrorTest, RoutesOfADeadDaemonAreHeldUntilItIsBack) {
    KernelMirror::Settings settings;
    settings.holdSeconds = 2;
    startMirror(settings);
    kernel->killDaemon();
    run(0.5);
    EXPECT_TRUE(kernel->routes().empty());
    EXPECT_EQ(table.size(), 2 * numRoutes);
    EXPECT_EQ(held.size(), 2 * numRoutes);
    kernel->startDaemon();
    expectInStep("after the daemon's return");
    EXPECT_TRUE(held.empty());
    kernel->killDaemon();
    run(3);
    EXPECT_TRUE(table.empty());
}
