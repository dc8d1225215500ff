// The command line of `cairn`: arguments in, exit code out.
#include "AnyTable.h"
#include "Commands.h"
#include "KernelFeed.h"
#include "Output.h"
#include "RouteFile.h"
#include "Signals.h"

#include "Dunlin/Util.h"

#include <CLI/CLI.hpp>
#include <cmath>
#include <cstdio>
#include <fmt/format.h>
#include <iostream>

namespace {

constexpr char const* footer =
    R"(Exit codes: 0 done, 1 nothing matched, 2 bad use or bad input, 3 no such table
or not readable, 4 damaged.

Examples:
  cairn mirror                                keep tables in step with the kernel
  cairn mirror --from routes.csv --once       load a file and leave
  cairn show group 239.1.0.0/16 oif eth1      routes of a group range out of eth1
  cairn -j show source '*'                    the (*,G) routes, as JSON
  cairn get 10.1.1.14 239.1.0.15              one route
  cairn ls                                    the tables there are)";

// `--color` alone means always, as for `ip`. The families come first: behind a command the parser
// would take them for numbers.
std::vector<std::string> arguments(int argc, char** argv) {
    std::vector<std::string> all(argv + 1, argv + argc);
    for (auto& a : all)
        if (a == "--color") a = "--color=always";
    std::stable_partition(all.begin(), all.end(),
                          [](std::string const& a) { return a == "-4" || a == "-6"; });
    std::reverse(all.begin(), all.end()); // the order CLI11 takes a vector in
    return all;
}

} // namespace

int main(int argc, char** argv) {
    using namespace Cairn;
    openOutput();
    CLI::App app{"Multicast routes in shared tables: mirror the kernel's, show, look up, inspect."};
    app.name("cairn");
    app.footer(footer);
    app.require_subcommand(1);
    app.fallthrough(false);

    CLI::Validator const isFinite(
        [](std::string& text) {
            double value = 0;
            bool const isNumber = CLI::detail::lexical_cast(text, value);
            return isNumber && !std::isfinite(value) ? text + " is no number" : std::string();
        },
        "");

    Common common;
    bool only4 = false, only6 = false;
    std::string base, colour = "auto";
    app.add_flag("-j,--json", common.json, "Print one JSON array of flat objects");
    auto* const four = app.add_flag("-4", only4, "IPv4 only");
    app.add_flag("-6", only6, "IPv6 only")->excludes(four);
    app.add_option("--color", colour,
                   "Colour: auto (the default), always, never; NO_COLOR is heeded")
        ->check(CLI::IsMember({"auto", "always", "never"}))
        ->type_name("[=WHEN]");
    app.add_option("--base", base,
                   "Base directory of all tables; else CAIRN_BASE, else /dev/shm/cairn")
        ->type_name("DIR");
    app.set_version_flag("-V,--version", "cairn " CAIRN_VERSION);

    int result = done;
    auto const command = [&](char const* name, char const* what, std::function<int()> run) {
        auto* const sub = app.add_subcommand(name, what);
        sub->fallthrough();
        sub->callback([&, run] {
            if (!base.empty()) Dunlin::Util::baseDirectoryIs(base);
            common.v4 = !only6;
            common.v6 = !only4;
            common.colour = colour == "always"  ? Colour::always
                            : colour == "never" ? Colour::never
                                                : Colour::automatic;
            keepTrace();
            result = run();
        });
        return sub;
    };

    MirrorArguments mirror;
    auto* const mirrorApp =
        command("mirror", "Write the tables: keep them in step with the kernel, or with a file",
                [&] { return mirrorCommand(common, mirror); });
    auto* const from =
        mirrorApp
            ->add_option("--from", mirror.from,
                         "Take the routes from a file instead: JSON of `ip -j mroute show`, or CSV "
                         "whose header names source,group,iif,oifs")
            ->type_name("FILE");
    auto* const once = mirrorApp->add_flag("--once", mirror.once, "Leave after the load");
    mirrorApp->add_option("--name", mirror.name, "Name of this writer's tables (kernel)")
        ->type_name("NAME");
    mirrorApp->add_option("--netns", mirror.netns, "Read the kernel of this network namespace")
        ->type_name("NAME")
        ->excludes(from);
    auto* const churn =
        mirrorApp->add_option("--churn", mirror.churn, "Change N routes a second, of a file's")
            ->type_name("N")
            ->check(CLI::Range(0.0, 1e7))
            ->check(isFinite)
            ->needs(from)
            ->excludes(once);
    mirrorApp->add_option("--seed", mirror.seed, "Seed of the changes (1)")
        ->type_name("N")
        ->needs(churn);
    mirrorApp
        ->add_option("--settle", mirror.settleMs,
                     "Gather the kernel's changes for so many milliseconds before writing (0)")
        ->type_name("MS")
        ->check(CLI::Range(0.0, 3.6e6))
        ->check(isFinite)
        ->excludes(from);
    mirrorApp
        ->add_option("--hold", mirror.holdSeconds,
                     "Keep the routes of a dead routing daemon so many seconds, not valid (0)")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.0, 86400.0))
        ->check(isFinite)
        ->excludes(from);
    mirrorApp
        ->add_option("--receive-buffer", mirror.receiveBuffer,
                     "Bytes for notifications of the kernel (32 MiB)")
        ->type_name("BYTES")
        ->check(CLI::Range(4096u, 1u << 30))
        ->excludes(from);
    mirrorApp->add_flag("-q,--quiet", mirror.quiet, "Only errors on stderr");

    std::vector<std::string> words;
    auto* const show =
        command("show",
                "Print routes: [source PREFIX|*] [group PREFIX] [iif IF] [oif IF] [vrf VRF] "
                "[name NAME]",
                [&] { return showCommand(common, words); });
    show->add_option("filter", words, "Keyword and value pairs")->type_name("");
    auto* const get = command("get", "Look up one route: SOURCE|* GROUP [vrf VRF] [name NAME]",
                              [&] { return getCommand(common, words); });
    get->add_option("route", words, "Source (* for a (*,G)), group, and more")
        ->type_name("")
        ->required();
    command("ls", "List the tables: type, entries, capacity, writer, generation",
            [&] { return lsCommand(common); });
    WatchArguments watch;
    auto* const watchApp = command(
        "watch",
        "Follow routes as they are added, changed, deleted: [source PREFIX|*] [group PREFIX] "
        "[iif IF] [oif IF] [vrf VRF] [name NAME]",
        [&] { return watchCommand(common, watch); });
    watchApp->add_option("filter", watch.words, "Keyword and value pairs")->type_name("");
    watchApp->add_flag("--initial", watch.initial, "Print what is there at first");
    watchApp->add_flag("--keys", watch.keys, "Keep keys alone, not routes; says that, not how");
    watchApp->add_option("--seconds", watch.seconds, "Leave after so many seconds (0: never)")
        ->type_name("N")
        ->check(CLI::Range(0.0, 1e6))
        ->check(isFinite);

    TopArguments top;
    auto* const topApp =
        command("top", "Watch the tables at work: entries, changes, lookups, readers, lag",
                [&] { return topCommand(common, top); });
    topApp->add_flag("--once", top.once, "Measure once, print lines, leave");
    topApp->add_option("--interval", top.interval, "Seconds between two looks (1)")
        ->type_name("N")
        ->check(CLI::Range(0.1, 3600.0))
        ->check(isFinite);

    std::string table;
    bool headers = false;
    auto const tableCommand = [&](char const* name, char const* what, char const* how,
                                  std::function<int()> run) {
        auto* const sub = command(name, what, std::move(run));
        sub->add_option("table", table, how)->type_name("TABLE")->required();
        return sub;
    };
    char const* const anyName = "The table's name, or the end of it";
    tableCommand("stat", "All about one table", anyName, [&] {
        return statCommand(common, table, headers);
    })->add_flag("--headers", headers, "The headers of its files, as they stand there");
    tableCommand("check", "Is a table sound? Not while it has a writer", anyName,
                 [&] { return checkCommand(common, table); });
    tableCommand("cleanup", "Remove a table for good. Not while it has a writer",
                 "The table's whole name", [&] { return cleanupCommand(table); });

    ProbeArguments probe;
    auto* const probeApp =
        command("probe", "Read a route table at full speed and count hits and misses",
                [&] { return probeCommand(common, probe); });
    probeApp->add_option("table", probe.table, "Which one; else the one with the most entries")
        ->type_name("TABLE");
    probeApp->add_option("--seconds", probe.seconds, "How long (10)")
        ->type_name("N")
        ->check(CLI::Range(0.1, 1e6))
        ->check(isFinite);
    probeApp->add_flag("--walk", probe.walk, "Walk over and over instead of looking up");
    probeApp->add_option("--seed", probe.seed, "Seed of the order of lookups (1)")->type_name("N");

    std::string module, typeName, valueText, valueType;
    command("types", "List the types: module, kind, size, attributes, default",
            [&] { return typesCommand(common, module); })
        ->add_option("module", module, "One module's types only")
        ->type_name("MODULE");
    command("type", "One type in full: every attribute with number, kind, type and default",
            [&] { return typeCommand(common, typeName); })
        ->add_option("name", typeName, "Its full name, Multicast::Group::GroupKey")
        ->type_name("NAME")
        ->required();
    auto* const valueApp =
        command("value", "Read a value's text form and print it back, or say where it is wrong",
                [&] { return valueCommand(common, valueText, valueType); });
    valueApp->add_option("text", valueText, "\"Value('Type', ** {...})\"")
        ->type_name("TEXT")
        ->required();
    valueApp->add_option("--type", valueType, "The type of a bare text such as 10.0.0.1/32")
        ->type_name("NAME");

    auto const say = [](ExitCode code, char const* text) {
        complain(fmt::format("cairn: {}", text));
        return code;
    };
    // What was printed has to arrive.
    auto const flushed = [&](int code) -> int {
        // What the parser prints goes its own way.
        bool const failed = !std::cout.flush() || std::fflush(stdout) != 0 || std::ferror(stdout);
        return failed ? say(badUse, "cannot write the output") : code;
    };
    try {
        app.parse(arguments(argc, argv));
        return flushed(result);
    } catch (CLI::ParseError const& e) {
        return app.exit(e) == 0 ? flushed(done) : badUse;
    } catch (CommandError const& e) {
        return say(e.code, e.what());
    } catch (RouteFileError const& e) {
        return say(badUse, e.what());
    } catch (KernelError const& e) {
        return say(badUse, e.what());
    } catch (Dunlin::CorruptionDetectedException const& e) {
        return say(damaged, e.what());
    } catch (Dunlin::Exception const& e) {
        return say(noTable, e.what());
    } catch (std::exception const& e) {
        return say(badUse, e.what());
    }
}
