// `cairn watch` and `cairn top`: what is told, folded, is the table.
#include "tests/cairn/Recordings.h"
#include "tests/cairn/ToolRunner.h"
#include "tests/support/CallCounter.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <set>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using namespace Cairn;
using namespace CairnTest;
using namespace std::chrono_literals;
using ::testing::HasSubstr;
using Table = std::map<RouteName, NamedRoute>;
using Json = nlohmann::json;

namespace {

std::string manyRoutes() {
    std::string text = "source,group,iif,oifs\n";
    for (int i = 0; i < 1000; ++i)
        text += fmt::format("10.0.{}.{},239.7.{}.{},eth{},eth{} eth{}\n", i % 7, 1 + i % 250,
                            i / 250, i % 250, i % 4, 4 + i % 9, 13 + i % 11);
    return text;
}

// Applies the events as a user would who keeps a table of his own; a change of what is not there,
// or an addition of what is, is a fault.
struct Folded {
    Table table;
    std::map<std::string, unsigned> events;

    explicit Folded(Json const& all) {
        for (auto const& e : all) {
            std::string const event = e["event"];
            ++events[event];
            if (!e.contains("group")) continue;
            NamedRoute route;
            route.name.vrf = e["vrf"];
            route.name.group = address(e["group"]);
            std::string const source = e["source"];
            route.name.source =
                source == "*" ? unspecifiedAddress(route.name.group.af()) : address(source);
            auto const found = table.find(route.name);
            EXPECT_EQ(found != table.end(), event != "added") << e;
            if (event == "deleted") {
                table.erase(route.name);
            } else if (event == "added") {
                route.iif = e["iif"];
                route.oifs = e["oifs"].get<std::vector<std::string>>();
                table[route.name] = route;
            } else {
                NamedRoute& kept = table[route.name];
                if (e.contains("iif")) {
                    EXPECT_EQ(kept.iif, e["iif_was"]);
                    kept.iif = e["iif"];
                }
                std::set<std::string> oifs(kept.oifs.begin(), kept.oifs.end());
                for (auto const& oif : e["oifs_removed"])
                    EXPECT_EQ(oifs.erase(oif.get<std::string>()), 1u) << e;
                for (auto const& oif : e["oifs_added"])
                    EXPECT_TRUE(oifs.insert(oif.get<std::string>()).second) << e;
                kept.oifs.assign(oifs.begin(), oifs.end());
            }
        }
    }
};

class WatchTest : public ::testing::Test {
protected:
    std::string outputOf(int watch) {
        tool.signal(watch, SIGINT);
        EXPECT_EQ(tool.wait(watch), 0);
        std::ifstream in(tool.path("watched"));
        return {std::istreambuf_iterator<char>(in), {}};
    }
    // The loaded tables come to rest, and the watcher gets its time to tell.
    void rest() { std::this_thread::sleep_for(1500ms); }
    ToolRunner tool;
    std::string const file = tool.file("many.csv", manyRoutes());
};

} // namespace

// Started before the writer; through churn, the writer's death, its successor and a lost file.
TEST_F(WatchTest, FoldedEventsAreTheTable) {
    int const watch = tool.start({"-j", "watch"}, "watched");
    std::this_thread::sleep_for(300ms);
    int const first = tool.start({"mirror", "-q", "--from", file, "--churn", "5000"});
    std::this_thread::sleep_for(2s);
    tool.signal(first, SIGKILL);
    tool.wait(first);
    std::this_thread::sleep_for(500ms);
    int const second =
        tool.start({"mirror", "-q", "--from", file, "--churn", "5000", "--seed", "2"});
    std::this_thread::sleep_for(1s);
    tool.signal(second, SIGTERM);
    EXPECT_EQ(tool.wait(second), 0);
    // At rest: the file as it stands, and no more.
    int const last = tool.start({"mirror", "-q", "--from", file});
    rest();
    auto const all = Json::parse(outputOf(watch));
    Folded const folded(all);
    EXPECT_EQ(folded.table, tool.shown());
    EXPECT_EQ(folded.table.size(), 1000u);
    // Both families wait first, and follow three writers each.
    EXPECT_EQ(folded.events.at("waiting"), 2u);
    EXPECT_EQ(folded.events.at("synchronised"), 6u);
    EXPECT_EQ(folded.events.at("writer_gone"), 4u);
    EXPECT_GT(folded.events.at("changed"), 1000u);
    EXPECT_GT(folded.events.at("deleted"), 50u);
    tool.signal(last, SIGTERM);
    EXPECT_EQ(tool.wait(last), 0);
}

TEST_F(WatchTest, InitialFiltersAndKeys) {
    int const writer = tool.start({"mirror", "-q", "--from", file});
    std::this_thread::sleep_for(1s);
    auto const shown = tool.run({"show", "-j", "group", "239.7.2.0/24"}).json().size();
    ASSERT_EQ(shown, 250u);
    auto const seconds = [&](std::vector<std::string> words) {
        std::vector<std::string> all{"-j", "-4", "watch", "--seconds", "1"};
        all.insert(all.end(), words.begin(), words.end());
        return Folded(tool.run(all).json());
    };
    EXPECT_EQ(seconds({}).events.count("added"), 0u);
    EXPECT_EQ(seconds({"--initial"}).table, tool.shown());
    EXPECT_EQ(seconds({"--initial", "group", "239.7.2.0/24"}).table.size(), shown);
    EXPECT_EQ(seconds({"--initial", "oif", "eth5", "source", "10.0.1.0/24"}).table.size(),
              tool.run({"show", "-j", "oif", "eth5", "source", "10.0.1.0/24"}).json().size());
    auto const keys = tool.run({"-j", "-4", "watch", "--seconds", "1", "--initial", "--keys"});
    std::set<std::string> groups;
    for (auto const& e : keys.json())
        if (e["event"] == "added") groups.insert(e["group"]);
    EXPECT_EQ(groups.size(), 1000u);
    EXPECT_EQ(tool.run({"watch", "--keys", "iif", "eth0"}).exitCode, 2);
    EXPECT_EQ(tool.run({"watch", "frob", "eth0"}).exitCode, 2);
    tool.signal(writer, SIGTERM);
    EXPECT_EQ(tool.wait(writer), 0);
}

// A pipe that nobody reads for a while: the writer goes on, and nothing of the end is lost.
TEST_F(WatchTest, FullPipeHoldsUpNobody) {
    auto const pipe = tool.path("watched");
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    int const end = ::open(pipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_GE(end, 0);
    int const watch = tool.start({"-j", "-4", "watch"}, "watched");
    std::this_thread::sleep_for(300ms);
    int const writer = tool.start({"mirror", "--from", file, "--churn", "20000"});
    std::this_thread::sleep_for(3s);
    auto const probed = tool.run({"-j", "top", "--once"}).json();
    U64 changes = 0;
    for (auto const& row : probed)
        changes = std::max(changes, row["changes_per_second"].get<U64>());
    EXPECT_GT(changes, 0u);
    tool.signal(writer, SIGTERM);
    EXPECT_EQ(tool.wait(writer), 0);
    int const last = tool.start({"mirror", "-q", "--from", file});
    std::string text;
    char buffer[65536];
    auto const drain = [&](double seconds) {
        auto const until =
            std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
        while (std::chrono::steady_clock::now() < until)
            if (auto const n = ::read(end, buffer, sizeof buffer); n > 0)
                text.append(buffer, static_cast<std::size_t>(n));
            else
                std::this_thread::sleep_for(10ms);
    };
    drain(2.5);
    tool.signal(watch, SIGINT);
    drain(0.5);
    EXPECT_EQ(tool.wait(watch), 0);
    ::close(end);
    Folded const folded(Json::parse(text));
    EXPECT_EQ(folded.table, tool.shown());
    tool.signal(last, SIGTERM);
    EXPECT_EQ(tool.wait(last), 0);
}

// At rest neither the mirror nor a watcher of both families makes more than a call a second.
TEST_F(WatchTest, NobodyPolls) {
    int const writer = tool.start({"mirror", "-q", "--from", file});
    int const watch = tool.start({"-j", "watch"}, "watched");
    std::this_thread::sleep_for(3s);
    {
        Support::CallCounter counter;
        if (!counter.add(writer) || !counter.add(watch))
            GTEST_SKIP() << "tracing is not allowed here";
        counter.run(1.5);
        counter.forget();
        // What they look at, they look at every ten seconds, with several calls at once.
        constexpr U32 seconds = 30;
        counter.run(seconds);
        EXPECT_LE(counter.totalOf(writer), seconds);
        EXPECT_LE(counter.totalOf(watch), seconds);
    }
    tool.wait(writer);
    tool.wait(watch);
}

TEST_F(WatchTest, TopTellsWhatIsGoingOn) {
    EXPECT_EQ(tool.run({"-j", "top", "--once"}).out, "[]\n");
    int const writer = tool.start({"mirror", "-q", "--from", file, "--churn", "2000"});
    std::this_thread::sleep_for(1s);
    int const watch = tool.start({"-j", "-4", "watch"}, "watched");
    int const probe = tool.start({"probe", "--seconds", "6"});
    std::this_thread::sleep_for(2500ms);
    auto const rows = tool.run({"-j", "top", "--once", "--interval", "2"}).json();
    ASSERT_EQ(rows.size(), 4u);
    auto const& routes = rows[1];
    EXPECT_EQ(routes["table"], "routing/multicast/routestatus/default/kernel/route");
    EXPECT_GT(routes["entries"], 500);
    EXPECT_GT(routes["changes_per_second"], 0);
    EXPECT_GT(routes["lookups_per_second"], 0);
    EXPECT_GE(routes["readers"], 1);
    EXPECT_EQ(routes["writer"], fmt::format("cairn-{}", writer));
    EXPECT_EQ(tool.wait(probe), 0);
    outputOf(watch);
    tool.signal(writer, SIGTERM);
    EXPECT_EQ(tool.wait(writer), 0);
}
