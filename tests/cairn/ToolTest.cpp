// The tool as its users meet it: files in, listings out, exit codes, writers that come and go.
#include "RouteTables.h"
#include "tests/cairn/KernelNamespace.h"
#include "tests/cairn/Recordings.h"
#include "tests/cairn/ToolRunner.h"

#include "Churn.h"
#include "Dunlin/Util.h"
#include "Mroute/Tables.h"
#include "RouteFile.h"
#include "RouteView.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using namespace Cairn;
using namespace CairnTest;
using namespace std::chrono_literals;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using Table = std::map<RouteName, NamedRoute>;

namespace {

char const* const smallFile = "source,group,iif,oifs\n"
                              "10.0.0.1,239.1.1.1,eth0,eth1 eth2\n"
                              ",239.1.1.1,eth0,eth1\n"
                              "10.0.0.2,239.2.0.1,pimreg,eth3\n"
                              "10.0.0.2,239.2.0.2,eth0,pimreg eth3\n"
                              "10.0.0.2,239.2.0.3,,\n"
                              "2001:db8::1,ff0e::1,a-name-of-15-ch,eth1\n";

Table byName(std::vector<NamedRoute> const& routes) {
    Table table;
    for (auto const& route : routes) table[route.name] = route;
    return table;
}

// Whether a process has a handler for a signal.
bool catches(int pid, int number) {
    std::ifstream status(fmt::format("/proc/{}/status", pid));
    for (std::string line; std::getline(status, line);)
        if (line.starts_with("SigCgt:"))
            return std::stoull(line.substr(8), nullptr, 16) >> (number - 1) & 1;
    return false;
}

class ToolTest : public ::testing::Test {
protected:
    ToolResult load(std::string const& file, std::string const& text) {
        return tool.run({"mirror", "--once", "--from", tool.file(file, text)});
    }
    // Waits until the tables have a writer, or none.
    bool written(bool wanted) {
        for (int i = 0; i < 100; ++i, std::this_thread::sleep_for(50ms)) {
            auto const tables = tool.run({"-j", "ls"}).json();
            auto const owned = std::count_if(tables.begin(), tables.end(), [](auto const& table) {
                return table["writer"] != "none";
            });
            if (owned == (wanted ? 4 : 0)) return true; // two for each family
        }
        return false;
    }
    ToolRunner tool;
};

} // namespace

TEST_F(ToolTest, WhatAFileSaysIsShown) {
    ASSERT_EQ(load("small.csv", smallFile).exitCode, 0);
    EXPECT_EQ(tool.shown(), byName(parseRouteFile(smallFile, "").routes));
    EXPECT_EQ(tool.run({"get", "10.0.0.2", "239.2.0.2"}).out,
              "source 10.0.0.2 group 239.2.0.2 iif eth0 oif eth3 oif pimreg flags "
              "valid,programmable,oif_register version 1 vrf default name kernel\n");
    struct {
        std::vector<std::string> arguments;
        int exitCode;
        std::size_t rows;
    } const rows[] = {
        {{"show"}, 0, 6},
        {{"-4", "show"}, 0, 5},
        {{"show", "-6"}, 0, 1},
        {{"show", "source", "10.0.0.0/30"}, 0, 4},
        {{"show", "source", "*"}, 0, 1},
        {{"show", "group", "239.2.0.0/16", "iif", "eth0"}, 0, 1},
        {{"show", "oif", "eth1"}, 0, 3},
        {{"show", "iif", "a-name-of-15-ch"}, 0, 1},
        {{"show", "group", "239.9.0.0/16"}, 1, 0},
        {{"get", "*", "239.1.1.1"}, 0, 1},
        {{"get", "source", "10.0.0.1", "group", "239.1.1.1", "name", "kernel"}, 0, 1},
        {{"get", "group", "239.1.1.1", "s", "*"}, 0, 1},
        {{"get", "2001:db8::1", "ff0e::1"}, 0, 1},
        {{"get", "10.0.0.9", "239.1.1.1"}, 1, 0},
        {{"ls"}, 0, 4},
    };
    for (auto const& row : rows) {
        SCOPED_TRACE(::testing::PrintToString(row.arguments));
        auto arguments = row.arguments;
        auto const lines = tool.run(arguments);
        arguments.push_back("-j");
        auto const json = tool.run(arguments);
        EXPECT_EQ(lines.exitCode, row.exitCode);
        EXPECT_EQ(json.exitCode, row.exitCode);
        EXPECT_EQ(static_cast<std::size_t>(std::count(lines.out.begin(), lines.out.end(), '\n')),
                  row.rows);
        EXPECT_EQ(json.json().size(), row.rows);
        EXPECT_THAT(lines.err + json.err, IsEmpty());
    }
}

TEST_F(ToolTest, BadUseSaysWhatAndWhereAndTouchesNothing) {
    ASSERT_EQ(load("small.csv", smallFile).exitCode, 0);
    auto const before = tool.run({"-j", "show"}).out;
    auto const bad = tool.file("bad.csv", std::string(smallFile) + "10.0.0.1,oops,eth0,\n");
    struct {
        std::vector<std::string> arguments;
        int exitCode;
        std::string text;
        std::string input = {};
    } const rows[] = {
        {{"mirror", "--once", "--from", bad}, 2, "bad.csv:8: group \"oops\""},
        {{"mirror", "--once", "--from", "/nowhere"}, 2, "/nowhere: No such file"},
        {{"mirror", "--once", "--from", "/"}, 2, "/: Is a directory"},
        {{"mirror", "--once", "--from", "-"}, 2, "standard input: Is a directory", "/"},
        {{"mirror", "--once", "--from", "-"}, 2, "input: Input/output error", "/proc/self/mem"},
        {{"mirror", "--once", "--netns", "no-such-namespace"}, 2, "no-such-namespace"},
        {{"mirror", "--name", "../x", "--once"}, 2, "--name"},
        {{"mirror", "--churn", "5"}, 2, "--churn requires --from"},
        {{"mirror", "--from", "x", "--hold", "5"}, 2, "--from excludes --hold"},
        {{"show", "sauce", "10.0.0.1"}, 2, "\"sauce\" is none of"},
        {{"show", "source"}, 2, "source needs a value"},
        {{"show", "source", "10.0.0.300"}, 2, "\"10.0.0.300\""},
        {{"show", "name", "nobody"}, 3, "no route table"},
        {{"get", "10.0.0.1"}, 2, "needs a source and a group"},
        {{"get", "10.0.0.1", "10.0.0.2"}, 2, "not a multicast"},
        {{"get", "10.0.0.1", "ff0e::1"}, 2, "two address families"},
        {{"-6", "get", "10.0.0.1", "239.1.1.1"}, 2, "not of the family"},
        {{"-j", "stat", "--headers", "no-such"}, 2, "no JSON form"},
        {{"stat", "no-such"}, 3, "no table \"no-such\""},
        {{"stat", "kernel/route"}, 2, "may be any of"},
        {{"-4", "-6", "show"}, 2, "-6"},
        {{"--color=sometimes", "show"}, 2, "color"},
        {{"mirror", "--from", bad, "--churn", "1", "--seed", "-1"}, 2, "not a whole number"},
        {{"probe", "--seed", "1e3"}, 2, "not a whole number"},
        {{"show", "oif", ""}, 2, "the value of oif is empty"},
        {{"show", "vrf", ""}, 2, "the value of vrf is empty"},
        {{"watch", "iif", ""}, 2, "the value of iif is empty"},
        {{"get", "*", "239.1.1.1", "name", ""}, 2, "the value of name is empty"},
        {{"--base", "", "ls"}, 2, "--base"},
        {{"stat", ""}, 2, "empty"},
        {{"show", "source", "\033[31m\n\xc2\x9b"}, 2, "\"\\x1b[31m\\x0a\\xc2\\x9b\""},
        {{"get", std::string(5000, 'x'), "239.1.1.1"}, 2, "xxx...\" is not an IP address"},
        {{"get", "source", "10.0.0.1", "group"}, 2, "group needs a value"},
        {{"get", "source", "10.0.0.1", "name", "kernel"}, 2, "needs a source and a group"},
        {{"frobnicate"}, 2, "no command \"frobnicate\"; cairn --help"},
        {{"shwo"}, 2, "no command \"shwo\"; did you mean show?"},
        {{"-j", "--base", "x", "wacth", "--help"}, 2, "did you mean watch?"},
        {{"show", "--jsn"}, 2, "--jsn"},
        {{}, 2, ""},
    };
    for (auto const& row : rows) {
        SCOPED_TRACE(::testing::PrintToString(row.arguments));
        auto const result = tool.run(row.arguments, row.input);
        EXPECT_EQ(result.exitCode, row.exitCode);
        EXPECT_THAT(result.err, HasSubstr(row.text));
        EXPECT_THAT(result.err, ::testing::StartsWith("cairn: "));
        EXPECT_LT(result.err.size(), 600u);
        EXPECT_THAT(result.out, ::testing::AnyOf(IsEmpty(), "[]\n"));
    }
    EXPECT_EQ(tool.run({"-j", "show"}).out, before);
    ToolRunner empty;
    EXPECT_EQ(empty.run({"show"}).exitCode, 3);
    EXPECT_EQ(empty.run({"-j", "ls"}).out, "[]\n");
}

TEST_F(ToolTest, HelpOfEachCommandListsItsOptionsAndThoseOfAll) {
    for (auto const& [command, own] : std::map<std::string, char const*>{{"mirror", "--settle"},
                                                                         {"show", "-j,--json"},
                                                                         {"get", "-4"},
                                                                         {"ls", "-6"},
                                                                         {"watch", "--initial"},
                                                                         {"top", "--interval"},
                                                                         {"probe", "--walk"},
                                                                         {"stat", "--headers"},
                                                                         {"check", "TABLE"},
                                                                         {"cleanup", "TABLE"},
                                                                         {"types", "MODULE"},
                                                                         {"type", "NAME"},
                                                                         {"value", "--type"}}) {
        auto const help = tool.run({command, "--help"});
        EXPECT_EQ(help.exitCode, 0);
        for (char const* option : {own, "--json", "-4", "-6", "--color", "--base", "--help"})
            EXPECT_THAT(help.out, HasSubstr(option)) << command;
    }
}

// What `show -j` prints goes into a mirror again, by a file or by standard input.
TEST_F(ToolTest, WhatIsShownIsReadAgain) {
    ASSERT_EQ(load("vrf.json", R"([{"source": "*", "group": "239.1.1.1", "iif": "eth0",
                                    "oifs": ["eth1"], "vrf": "blue"},
                                   {"source": "10.0.0.1", "group": "239.1.1.1"}])")
                  .exitCode,
              0);
    auto const shown = tool.run({"-j", "show"}).out;
    EXPECT_THAT(shown, HasSubstr(R"("vrf":"blue")"));
    auto const file = tool.file("shown.json", shown);
    for (bool const piped : {false, true}) {
        ToolRunner other;
        auto const result =
            other.run({"mirror", "-q", "--once", "--from", piped ? "-" : file}, piped ? file : "");
        EXPECT_EQ(result.exitCode, 0) << result.err;
        EXPECT_EQ(other.run({"-j", "show"}).out, shown);
    }
    EXPECT_THAT(tool.run({"mirror", "--once", "--from", "-"}, tool.file("bad.json", "[7]")).err,
                HasSubstr("standard input:1: "));
}

TEST_F(ToolTest, WhatAFileNoLongerNamesGoesAndWhatItRepeatsStays) {
    ASSERT_EQ(load("a.csv", smallFile).exitCode, 0);
    auto const again = load("a.csv", smallFile);
    EXPECT_THAT(again.err, HasSubstr("6 kept from before"));
    EXPECT_THAT(again.err, HasSubstr("0 written, 0 removed, 6 told again unchanged"));
    auto const other = load("b.csv", "oifs,iif,group,source\n"
                                     "eth9,eth0,239.1.1.1,10.0.0.1\n");
    EXPECT_THAT(other.err, HasSubstr("1 written, 5 removed"));
    auto const routes = tool.run({"-j", "show"}).json();
    ASSERT_EQ(routes.size(), 1u);
    EXPECT_EQ(routes[0]["oifs"], nlohmann::json({"eth9"}));
    EXPECT_EQ(routes[0]["version"], 2);
}

// A file whose end has not come is none.
TEST_F(ToolTest, SignalWhileTheFileIsReadTouchesNoTable) {
    ASSERT_EQ(load("small.csv", smallFile).exitCode, 0);
    auto const before = tool.shown();
    std::string const pipe = tool.path("pipe");
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    struct {
        std::string from, input, named;
        std::size_t bytes; // of the file that come
    } const rows[] = {
        {"-", pipe, "standard input", 90}, {pipe, "", "pipe", 90}, {pipe, "", "pipe", 0}};
    for (auto const& row : rows) {
        for (int const number : {SIGINT, SIGTERM}) {
            SCOPED_TRACE(fmt::format("{} by {}", row.named, number));
            int const end = ::open(pipe.c_str(), O_RDWR | O_CLOEXEC);
            ASSERT_GE(end, 0);
            std::string const text(smallFile, row.bytes);
            ASSERT_EQ(::write(end, text.data(), text.size()), static_cast<ssize_t>(text.size()));
            int const mirror = tool.start({"mirror", "--from", row.from}, "out", row.input);
            auto const within10s = [](auto condition) {
                for (int i = 0; i < 1000 && !condition(); ++i) std::this_thread::sleep_for(10ms);
            };
            within10s([&] {
                int left = 1;
                return catches(mirror, number) && ::ioctl(end, FIONREAD, &left) == 0 && left == 0;
            });
            tool.signal(mirror, number);
            within10s([&] {
                siginfo_t info{};
                ::waitid(P_PID, static_cast<id_t>(mirror), &info, WEXITED | WNOHANG | WNOWAIT);
                return info.si_pid != 0;
            });
            ::close(end);
            EXPECT_EQ(tool.wait(mirror), 2);
            std::ifstream err(tool.path("err"));
            EXPECT_THAT(std::string(std::istreambuf_iterator<char>(err), {}),
                        HasSubstr(row.named + ": a signal came before its end\n"));
            EXPECT_EQ(tool.shown(), before);
        }
    }
}

TEST_F(ToolTest, WriterIsOneAndItsDeathLosesNothing) {
    std::string text = "source,group,iif,oifs\n";
    for (int i = 0; i < 2000; ++i)
        text += fmt::format("10.0.{}.{},239.7.{}.{},eth{},eth{} eth{}\n", i % 7, 1 + i % 250,
                            i / 250, i % 250, i % 4, 4 + i % 9, 13 + i % 11);
    auto const file = tool.file("many.csv", text);
    int const first = tool.start({"mirror", "--from", file, "--churn", "20000"});
    ASSERT_TRUE(written(true));
    auto const second = tool.run({"mirror", "--once", "--from", file});
    EXPECT_EQ(second.exitCode, 3);
    EXPECT_THAT(second.err, HasSubstr(fmt::format("owned by cairn-{}", first)));

    int const reader = tool.start({"-j", "probe", "--seconds", "3"});
    std::this_thread::sleep_for(1s);
    tool.signal(first, SIGKILL);
    EXPECT_EQ(tool.wait(first), 128 + SIGKILL);
    EXPECT_TRUE(written(false));
    auto const left = tool.run({"-j", "show"}).json();
    EXPECT_GT(left.size(), 1500u);
    // Its successor either keeps what it left or, if it died within a write, begins anew; then the
    // file's routes stand there again.
    auto const successor = tool.run({"mirror", "--once", "--from", file});
    EXPECT_EQ(successor.exitCode, 0);
    EXPECT_TRUE(successor.err.find(fmt::format("; {} kept", left.size())) != std::string::npos ||
                successor.err.find("; 0 kept") != std::string::npos)
        << successor.err;
    EXPECT_EQ(tool.shown(), byName(parseRouteFile(text, "").routes));
    // The reader came through all of it.
    EXPECT_EQ(tool.wait(reader), 0);

    int const last = tool.start({"mirror", "--from", file});
    ASSERT_TRUE(written(true));
    tool.signal(last, SIGTERM);
    EXPECT_EQ(tool.wait(last), 0);
    EXPECT_TRUE(written(false));
}

// Interfaces by reference counts: after any changes each has as many as routes go out of it, its
// index is its own, and one without routes is gone.
TEST(RouteTables, InterfacesCountTheirRoutes) {
    ToolRunner tool;
    Dunlin::Util::baseDirectoryIs(tool.base());
    std::vector<NamedRoute> routes;
    std::mt19937 random(3);
    for (unsigned i = 0; i < 300; ++i) {
        NamedRoute route;
        route.name.source = address("10.0.0.1");
        route.name.group = address(fmt::format("239.1.{}.{}", i / 200, i % 200));
        route.iif = "up0";
        std::set<std::string> oifs;
        for (auto n = random() % 6; n > 0; --n) oifs.insert(fmt::format("port{}", random() % 500));
        route.oifs.assign(oifs.begin(), oifs.end());
        routes.push_back(route);
    }
    auto const check = [&](char const* when, Table const& expected) {
        SCOPED_TRACE(when);
        std::map<std::string, unsigned> counts;
        for (auto const& [name, route] : expected)
            for (auto const& oif : route.oifs) ++counts[oif];
        RouteTableName const where;
        Mroute::OifIndexIntfTable::Reader reader(*Dunlin::Platform::getDebugHandler("test", false),
                                                 where.oifIndexIntf().c_str(), {}, nullptr);
        ASSERT_TRUE(reader.initialize("test"));
        std::map<std::string, unsigned> stored;
        Mroute::OifIndexIntfTable::Value value;
        Brisk::IterHint hint;
        for (bool more = reader.first(value, hint); more;
             more = reader.next(value.key(), value, hint))
            stored[value.intf().stringValue()] = value.refCount();
        for (auto const& [intf, count] : counts) EXPECT_EQ(stored[intf], count) << intf;
        EXPECT_EQ(stored.size(), counts.size());
        Table seen;
        RouteView(where).forEach([&](SeenRoute const& s) { seen[s.route.name] = s.route; });
        EXPECT_EQ(seen, expected);
    };
    Table model = byName(routes);
    {
        RouteTables tables("kernel", true, true);
        tables.open();
        tables.replaceAll(routes);
        check("at first", model);
        Churn churn(routes, 1);
        for (int bundle = 0; bundle < 100; ++bundle) {
            std::vector<RouteChange> changes;
            for (int i = 0; i < 40; ++i) {
                changes.push_back(churn.next());
                auto const& route = changes.back().route;
                if (changes.back().kind == RouteChange::Kind::present)
                    model[route.name] = route;
                else
                    model.erase(route.name);
            }
            tables.apply(changes);
        }
        check("after changes", model);
    }
    // A successor finds the same; more interfaces than there are indexes are told, not written.
    RouteTables tables("kernel", true, true);
    tables.open();
    EXPECT_EQ(tables.counters().kept, model.size());
    check("after a restart", model);
    RouteChange tooMany{RouteChange::Kind::present, routes[0]};
    tooMany.route.name.group = address("239.9.9.9");
    for (int i = 0; i < 513; ++i) tooMany.route.oifs.push_back(fmt::format("x{:03}", i));
    tables.apply({&tooMany, 1});
    EXPECT_THAT(tables.takeFault(), HasSubstr("(10.0.0.1,239.9.9.9) not written: interface"));
    check("with one too many", model);
    // All 512 fit once the others are gone, and a held route stays, not valid.
    tooMany.route.oifs.resize(512);
    tables.replaceAll({tooMany.route});
    EXPECT_THAT(tables.takeFault(), IsEmpty());
    check("all indexes taken", byName({tooMany.route}));
    tooMany.kind = RouteChange::Kind::held;
    tables.apply({&tooMany, 1});
    auto const seen =
        RouteView(RouteTableName{}).get(tooMany.route.name.source, tooMany.route.name.group);
    ASSERT_TRUE(seen);
    EXPECT_EQ(seen->flags, std::vector<std::string>{"programmable"});
    EXPECT_EQ(seen->version, 2u);
    Dunlin::Util::baseDirectoryIs("");
}

// The mirror as a process beside a live kernel cache: at rest, after changes, after notifications
// were lost because it was stopped, after a virtual interface went, after its own restart.
TEST_F(ToolTest, ShowEqualsTheKernel) {
    if (auto const reason = KernelNamespace::missing(); !reason.empty()) GTEST_SKIP() << reason;
    constexpr unsigned numRoutes = 1000; // of each family
    KernelNamespace kernel(numRoutes);
    std::vector<std::string> const command{"mirror", "--netns", kernel.name(), "--receive-buffer",
                                           "65536"};
    int mirror = tool.start(command);
    ASSERT_EQ(kernel.routes().size(), 2 * numRoutes);
    EXPECT_TRUE(tool.shows(kernel.routes())) << "at rest";

    kernel.change(1000);
    EXPECT_TRUE(tool.shows(kernel.routes())) << "after 1,000 changes";

    tool.signal(mirror, SIGSTOP);
    kernel.change(2000);
    tool.signal(mirror, SIGCONT);
    EXPECT_TRUE(tool.shows(kernel.routes())) << "after an overrun";

    ASSERT_EQ(kernel.ip({"link", "del", "v6"}), 0);
    EXPECT_TRUE(tool.shows(kernel.routes())) << "after an interface was removed";

    // While the mirror is away the routes change, too.
    tool.signal(mirror, SIGTERM);
    EXPECT_EQ(tool.wait(mirror), 0);
    std::ifstream log(tool.path("err"));
    std::string const said((std::istreambuf_iterator<char>(log)), {});
    EXPECT_THAT(said, HasSubstr("resync: notifications were lost"));
    EXPECT_THAT(said, HasSubstr("resync: multicast forwarding was switched"));
    kernel.change(500);
    mirror = tool.start(command);
    EXPECT_TRUE(tool.shows(kernel.routes())) << "after a restart";
    tool.signal(mirror, SIGKILL);
    EXPECT_EQ(tool.wait(mirror), 128 + SIGKILL);
    kernel.change(500);
    mirror = tool.start(command);
    EXPECT_TRUE(tool.shows(kernel.routes())) << "after a crash";

    // Changes that are gathered are written once: the version counts the writes. Without --settle
    // some of these routes are written a dozen times.
    tool.signal(mirror, SIGTERM);
    EXPECT_EQ(tool.wait(mirror), 0);
    auto settling = command;
    settling.insert(settling.end(), {"--settle", "2000"});
    tool.start(settling);
    EXPECT_TRUE(tool.shows(kernel.routes()));
    auto const versions = [&] {
        std::map<std::string, U64> all;
        for (auto const& row : tool.run({"-j", "show"}).json())
            all[row["group"].get<std::string>() + row["source"].get<std::string>()] =
                row["version"];
        return all;
    };
    auto const before = versions();
    kernel.burst(30000).get();
    EXPECT_TRUE(tool.shows(kernel.routes())) << "after changes that were gathered";
    for (auto const& [route, version] : versions()) {
        auto const former = before.find(route);
        EXPECT_LE(version, (former == before.end() ? 0 : former->second) + 2) << route;
    }
}

// A table is judged on a copy and left as it is; removed only by its whole name, and never from
// under its writer.
TEST_F(ToolTest, CheckFindsDamageAndTouchesNothing) {
    ASSERT_EQ(load("small.csv", smallFile).exitCode, 0);
    std::string const table = "routing/multicast/routestatus/default/kernel/route";
    std::string const slots = tool.base() + "/" + table + "/slots";
    auto const sound = tool.run({"-4", "check", "kernel/route"});
    EXPECT_EQ(sound.exitCode, 0);
    EXPECT_EQ(sound.out, "table " + table + " sound yes marked_by_reader no entries 5\n");

    std::string whole;
    {
        std::ifstream in(slots, std::ios::binary);
        whole.assign(std::istreambuf_iterator<char>(in), {});
    }
    ASSERT_GE(whole.size(), 776u + 16 * 176);
    struct {
        char const* what;
        std::size_t offset, bytes; // overwritten with ones; none: cut there
        std::string finding;
        int showCode;
    } const rows[] = {
        {"a writer died inside an operation", 550, 1, "bad critical section runtimeFlags", 0},
        {"free list", 560, 4, "corrupted free slot|bad slotCount", 0},
        {"entry count", 556, 4, "mismatch header->occupiedSlots|do not belong together", 0},
        {"slot size", 20, 4, "bad slot size", 4},
        {"magic", 0, 8, "no header", 4},
        {"a cut file", 1000, 0, "bad shmem size:1000", 4},
    };
    for (auto const& row : rows) {
        SCOPED_TRACE(row.what);
        std::string damaged = whole;
        if (row.bytes == 0) damaged.resize(row.offset);
        for (std::size_t i = 0; i < row.bytes; ++i) damaged[row.offset + i] = '\xff';
        std::ofstream(slots, std::ios::binary | std::ios::trunc) << damaged;
        auto const result = tool.run({"-j", "check", table});
        EXPECT_EQ(result.exitCode, 4);
        auto const findings = result.json();
        ASSERT_FALSE(findings.empty());
        EXPECT_EQ(findings[0]["sound"], false);
        EXPECT_THAT(findings[0]["finding"].get<std::string>(),
                    ::testing::ContainsRegex(row.finding));
        EXPECT_THAT(result.out, ::testing::Not(HasSubstr("cairn-check")));
        std::ifstream in(slots, std::ios::binary);
        EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), damaged);
        // The other family's routes are shown all the same.
        auto const show = tool.run({"-j", "show"});
        EXPECT_EQ(show.exitCode, row.showCode);
        EXPECT_GE(show.json().size(), 1u);
        EXPECT_EQ(show.err.empty(), row.showCode == 0);
    }
    std::ofstream(slots, std::ios::binary | std::ios::trunc) << whole;
    EXPECT_EQ(tool.run({"check", table}).exitCode, 0);
}

TEST_F(ToolTest, CheckLeavesNoCopyHoweverItEnds) {
    std::string text = "source,group,iif,oifs\n";
    for (int i = 0; i < 10000; ++i)
        text += fmt::format("10.0.0.1,239.{}.{}.1,eth0,eth1\n", i / 250, i % 250);
    ASSERT_EQ(load("many.csv", text).exitCode, 0);
    std::string const temporary = tool.path("tmp");
    std::filesystem::create_directory(temporary);
    ::setenv("TMPDIR", temporary.c_str(), 1);
    EXPECT_EQ(tool.run({"-4", "check", "kernel/route"}).exitCode, 0);
    EXPECT_TRUE(std::filesystem::is_empty(temporary));
    for (int const signal : {SIGINT, SIGTERM, SIGHUP}) {
        SCOPED_TRACE(signal);
        int code = 0;
        for (int tries = 0; tries < 50 && code == 0; ++tries) { // until it is caught in the act
            int const check = tool.start({"-4", "check", "kernel/route"});
            auto const runs = [&] {
                siginfo_t info{};
                ::waitid(P_PID, static_cast<id_t>(check), &info, WEXITED | WNOHANG | WNOWAIT);
                return info.si_pid == 0;
            };
            while (std::filesystem::is_empty(temporary) && runs()) std::this_thread::yield();
            tool.signal(check, signal);
            code = tool.wait(check);
            EXPECT_TRUE(std::filesystem::is_empty(temporary));
        }
        EXPECT_EQ(code, 128 + signal);
    }
    // What was ignored at the start stays ignored.
    for (int tries = 0; tries < 5; ++tries) {
        auto command = tool.command({"-4", "check", "kernel/route"});
        command.insert(command.begin(), {"sh", "-c", "trap '' HUP; exec \"$@\"", "sh"});
        int const check = startProgram(command, "/dev/null");
        for (int i = 0; i < 10000 && std::filesystem::is_empty(temporary); ++i)
            std::this_thread::sleep_for(1ms);
        tool.signal(check, SIGHUP);
        EXPECT_EQ(waitProgram(check), 0);
        EXPECT_TRUE(std::filesystem::is_empty(temporary));
    }
    ::unsetenv("TMPDIR");
}

TEST_F(ToolTest, WritersTableIsNeitherCheckedNorRemoved) {
    std::string const table = "routing/multicast/routestatus/default/kernel/route";
    int const writer = tool.start({"mirror", "--from", tool.file("small.csv", smallFile)});
    ASSERT_TRUE(written(true));
    for (char const* command : {"check", "cleanup"}) {
        auto const refused = tool.run({command, table});
        EXPECT_EQ(refused.exitCode, 3);
        EXPECT_THAT(refused.err, HasSubstr(fmt::format("owned by cairn-{}", writer)));
    }
    tool.signal(writer, SIGTERM);
    EXPECT_EQ(tool.wait(writer), 0);
    EXPECT_EQ(tool.run({"cleanup", "kernel/route"}).exitCode, 3);
    EXPECT_EQ(tool.run({"cleanup", "../" + table}).exitCode, 2);
    EXPECT_EQ(tool.run({"-j", "ls"}).json().size(), 4u);
    EXPECT_EQ(tool.run({"stat", "--headers", table}).exitCode, 0);
    EXPECT_EQ(tool.run({"cleanup", table}).exitCode, 0);
    EXPECT_EQ(tool.run({"cleanup", table}).exitCode, 3);
    EXPECT_EQ(tool.run({"-j", "ls"}).json().size(), 3u);
    EXPECT_EQ(tool.run({"-4", "show"}).exitCode, 3);
}
