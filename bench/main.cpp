// cairn_bench: how fast the tables are, beside a bare array measured in the same run.
#include "bench/Harness.h"
#include "bench/NotifyScenarios.h"
#include "bench/TableScenarios.h"
#include "bench/Yardsticks.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

int main(int argc, char** argv) {
    Bench::Options options;
    CLI::App app{"Measures the tables in several processes beside a bare array of records as large "
                 "as a slot."};
    app.add_option("--sizes", options.sizes, "numbers of entries")
        ->delimiter(',')
        ->capture_default_str();
    app.add_option("--rounds", options.rounds, "rounds of which the median counts")
        ->capture_default_str();
    app.add_option("--seed", options.seed, "seed of all random orders")->capture_default_str();
    bool notifyOnly = false;
    app.add_flag("--notify-only", notifyOnly, "measure what shadows are told, and nothing else");
    app.add_flag("--markdown", options.markdown, "print the table as Markdown");
    CLI11_PARSE(app, argc, argv);

    fmt::print("seed {}, medians of {} rounds, processor time, reader process on processor {}, "
               "writer on processor {}\n",
               options.seed, options.rounds, Bench::readerProcessor, Bench::writerProcessor);
    Bench::pinToProcessor(Bench::writerProcessor);
    std::vector<Bench::Row> rows;
    for (std::size_t i = 0; i < options.sizes.size() && !notifyOnly; ++i) {
        fmt::print(stderr, "measuring {} entries\n", options.sizes[i]);
        auto const yardsticks = Bench::measureYardsticks(options.sizes[i], options);
        Bench::measureTable(options.sizes[i], i, yardsticks, options, rows);
    }
    fmt::print(stderr, "measuring notifications\n");
    Bench::measureNotifications(options, rows);
    Bench::print(rows, options.markdown);
}
