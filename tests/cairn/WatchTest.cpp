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
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using namespace Cairn;
using namespace CairnTest;
using namespace std::chrono_literals;
using ::testing::HasSubstr;
using Json = nlohmann::json;

namespace {

std::string manyRoutes() {
    std::string text = "source,group,iif,oifs\n";
    for (int i = 0; i < 1000; ++i)
        text += fmt::format("10.0.{}.{},239.7.{}.{},{},eth{} eth{}\n", i % 7, 1 + i % 250, i / 250,
                            i % 250, i % 20 ? fmt::format("eth{}", i % 4) : "pimreg", 4 + i % 9,
                            13 + i % 11);
    return text;
}

// Routes by group, source, VRF and name, each as `show -j` has it.
using Shown = std::map<std::string, Json>;

std::string keyOf(Json const& row) {
    return fmt::format("{} {} {} {}", row["group"], row["source"], row["vrf"], row["name"]);
}
Json setOf(Json const& list) {
    auto const all = list.get<std::set<std::string>>();
    EXPECT_EQ(all.size(), list.size());
    return all;
}
void add(Shown& table, Json row) {
    row.erase("event");
    for (char const* list : {"oifs", "flags"})
        if (row.contains(list)) row[list] = setOf(row[list]);
    auto key = keyOf(row);
    table[std::move(key)] = std::move(row);
}

// Applies the events as a user would who keeps a table of his own; a change of what is not there,
// or an addition of what is, is a fault.
struct Folded {
    Shown table;
    std::map<std::string, unsigned> events;

    explicit Folded(Json const& all) {
        for (auto const& e : all) {
            std::string const event = e["event"];
            ++events[event];
            if (!e.contains("group")) continue;
            auto const found = table.find(keyOf(e));
            EXPECT_EQ(found != table.end(), event != "added") << e;
            if (event == "added")
                add(table, e);
            else if (event == "deleted")
                table.erase(keyOf(e));
            else
                change(table[keyOf(e)], e);
        }
    }

private:
    static void change(Json& row, Json const& e) {
        if (e.contains("iif")) {
            EXPECT_EQ(row["iif"], e["iif_was"]);
            EXPECT_NE(e["iif"], e["iif_was"]);
            row["iif"] = e["iif"];
        }
        for (auto const& [list, more, less] : {std::tuple("oifs", "oifs_added", "oifs_removed"),
                                               std::tuple("flags", "flags_set", "flags_cleared")}) {
            auto names = row[list].get<std::set<std::string>>();
            for (auto const& name : e[less]) EXPECT_EQ(names.erase(name), 1u) << e;
            for (auto const& name : e[more])
                EXPECT_TRUE(names.insert(name.get<std::string>()).second) << e;
            row[list] = names;
        }
        row["version"] = e["version"];
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
    Shown shown(std::vector<std::string> const& words = {}) {
        std::vector<std::string> all{"-j", "show"};
        all.insert(all.end(), words.begin(), words.end());
        Shown table;
        for (auto const& row : tool.run(all).json()) add(table, row);
        return table;
    }
    // What a watcher in the background has printed of its array; nothing if it is just at a row.
    Json printed(std::string const& name) {
        std::ifstream in(tool.path(name));
        std::string text(std::istreambuf_iterator<char>(in), {});
        if (text.find("\n]") == text.npos) text += text.empty() ? "[]" : "\n]";
        auto all = Json::parse(text, nullptr, false);
        return all.is_discarded() ? Json::array() : all;
    }
    // Waits until `condition` holds, twenty seconds at most.
    template <class Condition>
    static bool await(Condition condition) {
        for (auto const end = std::chrono::steady_clock::now() + 20s;
             std::chrono::steady_clock::now() < end; std::this_thread::sleep_for(10ms))
            if (condition()) return true;
        return false;
    }
    bool told(std::string const& name, std::string const& event, unsigned times = 1) {
        return await([&] {
            unsigned count = 0;
            for (auto const& e : printed(name)) count += e["event"] == event;
            return count >= times;
        });
    }
    // Changes that the IPv4 table of routes has been through, by its queue's header.
    U64 changes() {
        std::ifstream in(tool.base() + "/routing/multicast/routestatus/default/kernel/route/yarrow",
                         std::ios::binary);
        U64 sequence = 0;
        in.seekg(64);
        in.read(reinterpret_cast<char*>(&sequence), sizeof sequence);
        return sequence;
    }
    // Counted on over the end of a table that its writer gave up.
    bool awaitChanges(U64 wanted) {
        return await([&, seen = U64{0}, last = changes()]() mutable {
            U64 const now = changes();
            seen += now < last ? now : now - last;
            last = now;
            return seen >= wanted;
        });
    }
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
    EXPECT_EQ(folded.table, shown());
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

// A table that was removed and made again while nobody wrote it has fewer routes; and tables of other
// writers and VRFs come while the watcher runs. It follows what `show` shows.
TEST_F(WatchTest, FollowsWhatShowShowsAndTellsWhatWentMeanwhile) {
    int const watch = tool.start({"-j", "watch", "--initial"}, "watched");
    ASSERT_TRUE(told("watched", "waiting", 2));
    auto const load = [&](std::string const& name, std::size_t routes, std::string const& text) {
        int const writer =
            tool.start({"mirror", "-q", "--name", name, "--from", tool.file(name + ".json", text)});
        EXPECT_TRUE(await([&] {
            auto const truth = shown();
            return truth.size() == routes && Folded(printed("watched")).table == truth;
        }));
        return writer;
    };
    auto const end = [&](int writer) {
        tool.signal(writer, SIGTERM);
        EXPECT_EQ(tool.wait(writer), 0);
    };
    int writer = load("kernel", 3, R"([{"group": "239.1.1.1", "iif": "pimreg", "oifs": ["eth1"]},
                                    {"group": "239.1.1.2", "oifs": ["eth1"]},
                                    {"group": "239.1.1.3", "oifs": ["eth1"]}])");
    end(writer);
    ASSERT_TRUE(told("watched", "writer_gone", 1));
    EXPECT_EQ(tool.run({"cleanup", "routing/multicast/routestatus/default/kernel/route"}).exitCode,
              0);
    writer = load("kernel", 1, R"([{"group": "239.1.1.1", "iif": "eth0", "oifs": ["eth1"]}])");
    EXPECT_GE(Folded(printed("watched")).events.at("deleted"), 2u);
    int const other = load("other", 3, R"([{"group": "239.1.1.1", "vrf": "blue"},
                                        {"group": "ff0e::1", "oifs": ["eth1"]}])");
    end(writer);
    end(other);
    tool.signal(watch, SIGINT);
    EXPECT_EQ(tool.wait(watch), 0);
}

TEST_F(WatchTest, InitialFiltersAndKeys) {
    int const writer = tool.start({"mirror", "-q", "--from", file});
    std::this_thread::sleep_for(1s);
    ASSERT_EQ(shown({"group", "239.7.2.0/24"}).size(), 250u);
    auto const seconds = [&](std::vector<std::string> words) {
        std::vector<std::string> all{"-j", "-4", "watch", "--seconds", "1"};
        all.insert(all.end(), words.begin(), words.end());
        return Folded(tool.run(all).json());
    };
    EXPECT_EQ(seconds({}).events.count("added"), 0u);
    EXPECT_EQ(seconds({"--initial"}).table, shown());
    EXPECT_EQ(seconds({"--initial", "group", "239.7.2.0/24"}).table,
              shown({"group", "239.7.2.0/24"}));
    EXPECT_EQ(seconds({"--initial", "oif", "eth5", "source", "10.0.1.0/24"}).table,
              shown({"oif", "eth5", "source", "10.0.1.0/24"}));
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

// The fastest changes there are, 100,000 a second and as many in all, with watchers of everything and
// of routes that come into their filter and leave it; whoever stops, and however the writer ends.
TEST_F(WatchTest, ReplayedEventsAreTheTableWhoeverStops) {
    std::vector<std::vector<std::string>> const filters{
        {}, {"oif", "eth5"}, {"iif", "pimreg", "group", "239.7.0.0/23"}};
    enum class Stop { watchers, writer, killed, ended };
    std::vector<int> watchers;
    for (auto const& filter : filters) {
        std::vector<std::string> words{"-j", "-4", "watch"};
        words.insert(words.end(), filter.begin(), filter.end());
        watchers.push_back(tool.start(words, fmt::format("watched-{}", watchers.size())));
    }
    for (std::size_t i = 0; i < filters.size(); ++i)
        ASSERT_TRUE(told(fmt::format("watched-{}", i), "waiting"));
    auto const expectReplayed = [&](char const* when) {
        for (std::size_t i = 0; i < filters.size(); ++i) {
            SCOPED_TRACE(fmt::format("{}: {}", when, fmt::join(filters[i], " ")));
            auto const name = fmt::format("watched-{}", i);
            auto const truth = shown(filters[i]);
            EXPECT_GT(truth.size(), 5u);
            EXPECT_TRUE(await([&] { return Folded(printed(name)).table == truth; }));
        }
    };
    unsigned seed = 0;
    for (Stop const stop : {Stop::watchers, Stop::writer, Stop::killed, Stop::ended}) {
        int writer = -1;
        auto const write = [&] {
            writer = tool.start({"mirror", "-q", "--from", file, "--churn", "100000", "--seed",
                                 fmt::format("{}", ++seed)});
        };
        write();
        ASSERT_TRUE(awaitChanges(50'000));
        for (int const watcher : watchers) tool.signal(watcher, SIGSTOP);
        ASSERT_TRUE(awaitChanges(20'000));
        if (stop == Stop::writer) {
            tool.signal(writer, SIGSTOP);
            for (int const watcher : watchers) tool.signal(watcher, SIGCONT);
            expectReplayed("the writer has stopped");
            tool.signal(writer, SIGCONT);
        } else if (stop == Stop::killed) {
            tool.signal(writer, SIGKILL);
            tool.wait(writer);
            write();
        } else if (stop == Stop::ended) {
            tool.signal(writer, SIGTERM);
            EXPECT_EQ(tool.wait(writer), 0);
        }
        for (int const watcher : watchers) tool.signal(watcher, SIGCONT);
        if (stop == Stop::ended) {
            expectReplayed("the writer ended while the watchers were stopped");
            continue;
        }
        ASSERT_TRUE(awaitChanges(30'000));
        tool.signal(writer, SIGTERM);
        EXPECT_EQ(tool.wait(writer), 0);
        expectReplayed("the writer has ended");
    }
    for (std::size_t i = 0; i < watchers.size(); ++i) {
        tool.signal(watchers[i], SIGINT);
        EXPECT_EQ(tool.wait(watchers[i]), 0);
        Folded const folded(printed(fmt::format("watched-{}", i)));
        EXPECT_GT(folded.events.at("changed"), 50u);
        EXPECT_GT(folded.events.at("deleted"), 20u);
        EXPECT_EQ(folded.events.at("writer_gone"), 5u);
    }
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
    EXPECT_EQ(folded.table, shown());
    tool.signal(last, SIGTERM);
    EXPECT_EQ(tool.wait(last), 0);
}

// A signal while nobody reads: the command ends, and what the pipe holds is whole.
TEST_F(WatchTest, SignalIntoAFullPipeCutsNothing) {
    int const writer = tool.start({"mirror", "-q", "--from", file, "--churn", "1000"});
    ASSERT_TRUE(awaitChanges(1500));
    struct {
        std::vector<std::string> words;
        int signal;
        int atLeast; // bytes in the pipe before the signal
    } const rows[] = {{{"-j", "watch", "--initial"}, SIGINT, 61440},
                      {{"-j", "watch", "--initial"}, SIGTERM, 61440},
                      {{"watch", "--initial"}, SIGINT, 61440},
                      {{"-j", "probe", "-4"}, SIGINT, 100},
                      {{"-j", "probe", "--walk", "-4"}, SIGTERM, 100}};
    for (auto const& row : rows) {
        SCOPED_TRACE(fmt::format("{} by {}", fmt::join(row.words, " "), row.signal));
        auto const pipe = tool.path("pipe");
        ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
        int const end = ::open(pipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        ASSERT_GE(end, 0);
        int const command = tool.start(row.words, "pipe");
        EXPECT_TRUE(await([&] {
            int waiting = 0;
            return ::ioctl(end, FIONREAD, &waiting) == 0 && waiting >= row.atLeast;
        }));
        tool.signal(command, row.signal);
        EXPECT_EQ(tool.wait(command), 0);
        std::string text;
        char buffer[65536];
        while (auto const n = ::read(end, buffer, sizeof buffer)) {
            ASSERT_GT(n, 0);
            text.append(buffer, static_cast<std::size_t>(n));
        }
        ::close(end);
        ::unlink(pipe.c_str());
        if (row.words[0] == "-j")
            EXPECT_GE(Json::parse(text).size(), 1u);
        else
            EXPECT_THAT(text, ::testing::EndsWith(" vrf default name kernel\n"));
        std::ifstream err(tool.path("err"));
        EXPECT_EQ(std::string(std::istreambuf_iterator<char>(err), {}), "");
    }
    tool.signal(writer, SIGTERM);
    EXPECT_EQ(tool.wait(writer), 0);
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
