// The command line of `cairn`: arguments in, exit code out.
#include "Access.h"
#include "Commands.h"
#include "Output.h"
#include "Signals.h"

#include "Dunlin/Util.h"

#include <CLI/CLI.hpp>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fmt/format.h>
#include <iostream>
#include <numeric>

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

// How many letters differ, are missing or too many.
std::size_t distance(std::string const& a, std::string const& b) {
    std::vector<std::size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 1; i <= a.size(); ++i) {
        std::size_t diagonal = std::exchange(row[0], i);
        for (std::size_t j = 1; j <= b.size(); ++j)
            diagonal = std::exchange(
                row[j], std::min({diagonal + (a[i - 1] != b[j - 1]), row[j] + 1, row[j - 1] + 1}));
    }
    return row.back();
}

// Raises CommandError if the word where the command belongs is none, before the parser answers a
// --help behind it. `all` is in the parser's order: the first word is the last.
void requireCommand(CLI::App const& app, std::vector<std::string> const& all) {
    for (std::size_t i = all.size(); i-- > 0;) {
        std::string const& word = all[i];
        if (word == "--") return;
        if (word.starts_with('-')) {
            auto const* const option = app.get_option_no_throw(word);
            if (option && option->get_items_expected_min() > 0 && i > 0) --i; // its value
            continue;
        }
        std::string nearest;
        for (auto const* const command : app.get_subcommands({})) {
            if (command->get_name() == word) return;
            if (nearest.empty() || distance(word, command->get_name()) < distance(word, nearest))
                nearest = command->get_name();
        }
        bool const near = distance(word, nearest) <= std::max<std::size_t>(2, nearest.size() / 2);
        throw Cairn::CommandError(Cairn::badUse,
                                  fmt::format("no command \"{}\"{}", Cairn::shortened(word),
                                              near ? fmt::format("; did you mean {}?", nearest)
                                                   : std::string("; cairn --help lists them")));
    }
}

// What the help of a command says of the options that all commands take.
std::string commonOptions(CLI::App const& app) {
    std::vector<CLI::Option const*> options;
    for (auto const* const option : app.get_options())
        if (option->get_name() != "--help" && option->get_name() != "--version")
            options.push_back(option);
    return CLI::Formatter().make_group("Options of every command", false, options);
}

} // namespace

int main(int argc, char** argv) {
    using namespace Cairn;
    openOutput();
    catchCutFiles();
    CLI::App app{"Multicast routes in shared tables: mirror the kernel's, show, look up, inspect."};
    app.name("cairn");
    app.footer(footer);
    app.require_subcommand(1);
    app.fallthrough(false);

    CLI::Validator const isFinite(
        [](std::string& text) {
            double value = 0;
            bool const isNumber = CLI::detail::lexical_cast(text, value);
            return isNumber && !std::isfinite(value) ? text + " is not a number" : std::string();
        },
        "");

    // A sign would be taken for a very large number.
    CLI::Validator const isWhole(
        [](std::string& text) {
            bool const digits = !text.empty() && text.find_first_not_of("0123456789") == text.npos;
            return digits ? std::string() : shortened(text) + " is not a whole number";
        },
        "");
    CLI::Validator const isNotEmpty(
        [](std::string& text) { return text.empty() ? "is empty" : std::string(); }, "");

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
        ->type_name("DIR")
        ->check(isNotEmpty);
    app.set_version_flag("-V,--version", "cairn " CAIRN_VERSION);

    int result = done;
    // Who reads needs the base directory; a watcher waits for one that nobody has named, and a writer
    // makes it.
    enum class Base { always, ifNamed, ifThere, never };
    auto const command = [&](char const* name, char const* what, std::function<int()> run,
                             Base needs = Base::always) {
        auto* const sub = app.add_subcommand(name, what);
        sub->fallthrough();
        sub->footer([&app] { return commonOptions(app); });
        sub->callback([&, run, needs] {
            if (!base.empty()) Dunlin::Util::baseDirectoryIs(base);
            bool const named = !base.empty() || std::getenv("CAIRN_BASE");
            bool const there = std::filesystem::exists(
                std::filesystem::symlink_status(Dunlin::Util::baseDirectory()));
            if (needs == Base::always || (needs == Base::ifNamed && named) ||
                (needs == Base::ifThere && there))
                requireBase();
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
    auto* const mirrorApp = command(
        "mirror", "Write the tables: keep them in step with the kernel, or with a file",
        [&] { return mirrorCommand(common, mirror); }, Base::ifThere);
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
        ->check(isWhole)
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
        [&] { return watchCommand(common, watch); }, Base::ifNamed);
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
    probeApp->add_option("--seed", probe.seed, "Seed of the order of lookups (1)")
        ->type_name("N")
        ->check(isWhole);

    std::string module, typeName, valueText, valueType;
    std::optional<std::string> valueLog;
    command(
        "types", "List the types: module, kind, size, attributes, default",
        [&] { return typesCommand(common, module); }, Base::never)
        ->add_option("module", module, "One module's types only")
        ->type_name("MODULE");
    command(
        "type", "One type in full: every attribute with number, kind, type and default",
        [&] { return typeCommand(common, typeName); }, Base::never)
        ->add_option("name", typeName, "Its full name, Multicast::Group::GroupKey")
        ->type_name("NAME")
        ->required();
    auto* const valueApp = command(
        "value", "Read a value's text form and print it back, or say where it is wrong",
        [&] {
            return valueLog ? logValueCommand(common, *valueLog, valueText)
                            : valueCommand(common, valueText, valueType);
        },
        Base::never);
    valueApp
        ->add_option("text", valueText,
                     "\"Value('Type', ** {...})\"; with --log the name of the type")
        ->type_name("TEXT")
        ->required();
    auto* const textType =
        valueApp->add_option("--type", valueType, "The type of a bare text such as 10.0.0.1/32");
    textType->type_name("NAME");
    valueApp
        ->add_option("--log", valueLog,
                     "Read a value's bytes of the attribute log instead, and print it with the "
                     "members of its collections; \"0013 0007\"")
        ->type_name("HEX")
        ->excludes(textType);

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
        auto all = arguments(argc, argv);
        requireCommand(app, all);
        app.parse(all);
        return flushed(result);
    } catch (CLI::ParseError const& e) {
        if (e.get_exit_code() == 0) { // --help and --version
            app.exit(e);
            return flushed(done);
        }
        return say(badUse, fmt::format("{} (cairn COMMAND --help says more)", e.what()).c_str());
    } catch (...) {
        auto const error = errorOfException();
        return say(error.code, error.what());
    }
}
