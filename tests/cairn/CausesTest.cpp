// Every command against every cause that can keep it from a table: one exit code and one text for each
// cause, whoever meets it.
#include "tests/cairn/ToolRunner.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <termios.h>
#include <thread>
#include <unistd.h>

using namespace CairnTest;
using namespace std::chrono_literals;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;
namespace fs = std::filesystem;

namespace {

std::string const kernelTables = "routing/multicast/routestatus/default/kernel";
std::string const table = kernelTables + "/route";
char const* const routes = "source,group,iif,oifs\n"
                           "10.0.0.1,239.1.1.1,eth0,eth1 eth2\n"
                           "*,239.1.1.1,eth0,eth1\n";

// In this order; the last two change what they find.
enum Command { show, get, ls, stat, top, probe, watch, check, mirror, cleanup, numCommands };

std::vector<std::string> commandLine(Command command, std::string const& file) {
    switch (command) {
    case show:
        return {"-4", "show"};
    case get:
        return {"get", "10.0.0.1", "239.1.1.1"};
    case ls:
        return {"-4", "ls"};
    case stat:
        return {"stat", table};
    case top:
        return {"-4", "top", "--once", "--interval", "0.1"};
    case probe:
        return {"probe", "--seconds", "0.1", table};
    case watch:
        return {"-4", "watch", "--seconds", "0.1"};
    case check:
        return {"check", table};
    case mirror:
        return {"-4", "mirror", "-q", "--once", "--from", file};
    default:
        return {"cleanup", table};
    }
}

class CausesTest : public ::testing::Test {
protected:
    std::string at(std::string const& name) const { return fresh->base() + "/" + name; }
    void overwrite(std::string const& name, long offset, std::string const& bytes) const {
        std::fstream out(at(name), std::ios::binary | std::ios::in | std::ios::out);
        out.seekp(offset);
        out << bytes;
        ASSERT_TRUE(out.flush());
    }
    std::unique_ptr<ToolRunner> fresh = std::make_unique<ToolRunner>();
    std::string const file = fresh->file("routes.csv", routes);
};

} // namespace

TEST_F(CausesTest, EachCauseHasOneCodeAndText) {
    struct Row {
        char const* cause;
        std::function<void()> make;
        bool asOther;
        std::array<int, numCommands> codes; // show get ls stat top probe watch check mirror cleanup
        std::string text;                   // of each whose code is not 0
    };
    auto const mode = [this](std::string const& name, mode_t bits) {
        return [this, name, bits] { ASSERT_EQ(::chmod(at(name).c_str(), bits), 0); };
    };
    auto const bytes = [this](std::string const& name, long offset, std::string const& what) {
        return [this, name, offset, what] { overwrite(name, offset, what); };
    };
    auto const without = [this](std::string const& name) {
        return [this, name] { ASSERT_TRUE(fs::remove(at(name))); };
    };
    std::string const ones(4, '\xff');
    Row const rows[] = {
        {"none", [] {}, false, {0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, ""},
        {"file not permitted",
         mode(table + "/slots", 0),
         true,
         {3, 3, 3, 3, 3, 3, 3, 3, 3, 3},
         "ermission denied"},
        {"table not permitted",
         mode(table, 0),
         true,
         {3, 3, 3, 3, 3, 3, 3, 3, 3, 3},
         "ermission denied"},
        {"VRF not permitted",
         mode("routing/multicast/routestatus/default", 0),
         true,
         {3, 3, 3, 3, 3, 3, 3, 3, 3, 3},
         "ermission denied"},
        {"base not permitted",
         mode("", 0),
         true,
         {3, 3, 3, 3, 3, 3, 3, 3, 3, 3},
         "ermission denied"},
        {"cut file",
         [this] { fs::resize_file(at(table + "/slots"), 1000); },
         false,
         {4, 4, 4, 4, 4, 4, 4, 4, 0, 0},
         "1000"},
        {"magic",
         bytes(table + "/slots", 0, ones),
         false,
         {4, 4, 4, 4, 4, 4, 4, 4, 0, 0},
         "no header"},
        {"slot size",
         bytes(table + "/slots", 20, ones),
         false,
         {4, 4, 4, 4, 4, 4, 4, 4, 0, 0},
         "slot"},
        {"value size",
         bytes(table + "/slots", 24, ones),
         false,
         {4, 4, 4, 4, 4, 4, 4, 4, 0, 0},
         "value"},
        {"buckets missing",
         without(table + "/buckets"),
         false,
         {4, 4, 4, 4, 4, 4, 4, 4, 0, 0},
         "buckets"},
        {"generation missing",
         without(table + "/oriel"),
         false,
         {4, 4, 4, 4, 4, 4, 4, 4, 0, 0},
         "oriel"},
        {"interfaces missing",
         [this] { fs::remove_all(at(kernelTables + "/oifIndexIntf")); },
         false,
         {3, 3, 0, 0, 0, 0, 0, 0, 0, 0},
         "oifIndexIntf"},
        {"interfaces cut",
         [this] { fs::resize_file(at(kernelTables + "/oifIndexIntf/slots"), 9); },
         false,
         {4, 4, 4, 0, 4, 0, 4, 0, 0, 0},
         "oifIndexIntf"},
        {"chains",
         bytes(table + "/buckets", 72, std::string(80, '\x11')),
         false,
         {4, 4, 0, 4, 0, 4, 0, 4, 0, 0},
         ""},
        {"no base",
         [this] { fs::remove_all(at("")); },
         false,
         {3, 3, 3, 3, 3, 3, 3, 3, 0, 0},
         "No such file or directory"},
        {"base is a file",
         [this] {
             fs::remove_all(at(""));
             std::ofstream(fresh->base()) << "x";
         },
         false,
         {3, 3, 3, 3, 3, 3, 3, 3, 3, 3},
         "Not a directory"},
    };
    for (auto const& row : rows) {
        SCOPED_TRACE(row.cause);
        if (row.asOther && !ToolRunner::canRunAsOther()) continue;
        fresh = std::make_unique<ToolRunner>();
        fresh->file("routes.csv", routes);
        auto const from = fresh->path("routes.csv");
        ASSERT_EQ(fresh->run({"-4", "mirror", "-q", "--once", "--from", from}).exitCode, 0);
        row.make();
        for (int command = 0; command < numCommands; ++command) {
            auto const words = commandLine(static_cast<Command>(command), from);
            SCOPED_TRACE(fmt::format("{}", fmt::join(words, " ")));
            auto const result = row.asOther ? fresh->runAsOther(words) : fresh->run(words);
            int const code = row.codes[static_cast<std::size_t>(command)];
            EXPECT_EQ(result.exitCode, code) << result.out << result.err;
            if (code != 0) {
                EXPECT_THAT(result.out + result.err, HasSubstr(row.text));
            }
            // Lists hold the fault as a row; all others say it on stderr.
            if (code != 0 && result.out.empty()) {
                EXPECT_THAT(result.err, StartsWith("cairn: "));
            }
            EXPECT_THAT(result.err, ::testing::Not(HasSubstr("filesystem error")));
        }
        if (row.asOther) { // so that it can be removed
            for (auto const& name :
                 {std::string(), "routing/multicast/routestatus/default" + std::string(), table})
                ::chmod(at(name).c_str(), 0755);
        }
    }
}

// A file cut off beneath a living reader costs it its page: it ends with a sentence, its array closed.
TEST_F(CausesTest, FileCutOffBeneathAReaderEndsItAsDamaged) {
    std::string text = routes;
    for (int i = 0; i < 5000; ++i)
        text += fmt::format("10.0.0.2,239.2.{}.{},eth0,eth1\n", i / 250, i % 250);
    ASSERT_EQ(fresh->run({"-4", "mirror", "-q", "--once", "--from", fresh->file("big.csv", text)})
                  .exitCode,
              0);
    int const reader = fresh->start({"-j", "probe", "--seconds", "60", table});
    for (int i = 0; i < 1000 && fs::file_size(fresh->path("out")) < 20; ++i)
        std::this_thread::sleep_for(10ms);
    fs::resize_file(at(table + "/slots"), 4096);
    EXPECT_EQ(fresh->wait(reader), 4);
    std::ifstream out(fresh->path("out")), err(fresh->path("err"));
    EXPECT_GE(nlohmann::json::parse(out).size(), 1u);
    std::string const said(std::istreambuf_iterator<char>(err), {});
    EXPECT_THAT(said, StartsWith("cairn: " + fresh->base()));
    EXPECT_THAT(said, HasSubstr("/slots was cut off while it was in use: the table is damaged\n"));
}

// On a terminal of any size from 40 by 10 the heading stays, no line is too long, and `q` leaves.
TEST_F(CausesTest, TopFitsTheTerminalAndLeavesOnQ) {
    ASSERT_EQ(fresh->run({"mirror", "-q", "--once", "--from", file}).exitCode, 0);
    for (winsize const size :
         {winsize{10, 40, 0, 0}, winsize{24, 80, 0, 0}, winsize{3, 200, 0, 0}}) {
        SCOPED_TRACE(size.ws_col);
        int terminal = -1;
        pid_t const pid = ::forkpty(&terminal, nullptr, nullptr, &size);
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            auto const words = fresh->command({"top", "--interval", "0.1"});
            std::vector<char*> argv;
            for (auto const& word : words) argv.push_back(const_cast<char*>(word.c_str()));
            argv.push_back(nullptr);
            ::execv(argv[0], argv.data());
            ::_exit(127);
        }
        std::string screen;
        char buffer[4096];
        auto const take = [&] {
            auto const n = ::read(terminal, buffer, sizeof buffer);
            if (n > 0) screen.append(buffer, static_cast<std::size_t>(n));
            return n > 0;
        };
        std::string const home = "\033[H\033[J";
        auto const screens = [&] {
            std::size_t count = 0;
            for (auto at = screen.find(home); at != screen.npos; at = screen.find(home, at + 1))
                ++count;
            return count;
        };
        while (screens() < 3 && take()) {
        }
        EXPECT_EQ(::write(terminal, "q", 1), 1);
        while (take()) {
        }
        int status = 0;
        ASSERT_EQ(::waitpid(pid, &status, 0), pid);
        EXPECT_EQ(status, 0);
        ::close(terminal);
        auto const begin = screen.find(home) + home.size();
        std::istringstream lines(screen.substr(begin, screen.find(home, begin) - begin));
        int number = 0;
        for (std::string line; std::getline(lines, line); ++number) {
            std::erase(line, '\r');
            for (auto at = line.find('\033'); at != line.npos; at = line.find('\033'))
                line.erase(at, line.find('m', at) + 1 - at);
            EXPECT_LE(line.size(), size.ws_col) << line;
            if (number > 0) continue;
            EXPECT_THAT(line, StartsWith("TABLE"));
            EXPECT_THAT(line, HasSubstr("ENTRIES"));
        }
        EXPECT_EQ(number, std::min<int>(5, size.ws_row));
    }
}
