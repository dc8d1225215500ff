// `cairn top`: the tables at work: entries, changes a second, lookups a second, readers, sleeping
// readers, and how many changes the slowest shadow is behind.
//
// Entries and changes come from the tables' own headers. Lookups, readers and lag are known to the
// processes that make them alone: those of this tool tell on the notice board, others are not seen.
#include "AnyTable.h"
#include "Board.h"
#include "Commands.h"
#include "Signals.h"

#include "Dunlin/TaskSchedulerRoot.h"
#include "SharedMem/FileUtil.h"
#include "SharedMem/OwnerFile.h"
#include "SharedMem/WriterLock.h"
#include "Yarrow/Format.h"

#include <fmt/format.h>

#include <map>
#include <unistd.h>

namespace Cairn {
namespace {

struct Sample {
    U64 entries = 0;
    U64 sequence = 0; // of the queue: one for each change
    U32 incarnation = 0;
    std::map<U32, U64> lookups; // by process
    U64 readers = 0, sleeping = 0;
    std::optional<U64> oldest; // sequence of the shadow that is furthest behind
};

using Samples = std::map<std::string, Sample>;

Samples takeSamples(Common const& common) {
    Samples samples;
    for (auto const& table : tablesPresent()) {
        if (!ofFamily(table, common.v4, common.v6)) continue;
        Mem::YokeRootPath const path(table);
        auto const header = headerOf(path);
        if (!header) continue;
        Sample& sample = samples[table];
        sample.entries = header->occupiedSlots;
        Yarrow::ControlHeader control;
        if (Mem::readFile(path.file(Yarrow::primaryName), &control, sizeof control) ==
                long{sizeof control} &&
            control.magic == Yarrow::ControlHeader::magicValue) {
            sample.sequence = control.sequence;
            sample.incarnation = control.incarnation;
        }
    }
    for (auto const& notice : readBoard()) {
        auto const found = samples.find(notice.table);
        if (found == samples.end()) continue;
        Sample& sample = found->second;
        if (notice.role == BoardNotice::Role::writer) {
            sample.readers += notice.readers;
            sample.sleeping += notice.sleeping;
        } else {
            sample.lookups[notice.pid] += notice.lookups;
            if (notice.role == BoardNotice::Role::reader)
                ++sample.readers;
            else
                sample.oldest = std::min(sample.oldest.value_or(~U64{0}), notice.sequence);
        }
    }
    return samples;
}

struct Line {
    std::string table, writer;
    U64 entries, changes, lookups, readers, sleeping, lag;
};

std::vector<Line> compare(Samples const& before, Samples const& now, double seconds) {
    std::vector<Line> lines;
    auto const rate = [&](U64 then, U64 here) {
        return here < then ? 0 : static_cast<U64>(static_cast<double>(here - then) / seconds + 0.5);
    };
    for (auto const& [table, sample] : now) {
        auto const found = before.find(table);
        Sample const& former = found == before.end() ? sample : found->second;
        U64 lookups = 0;
        for (auto const& [pid, count] : sample.lookups)
            if (auto const then = former.lookups.find(pid); then != former.lookups.end())
                lookups += rate(then->second, count);
        bool const same = former.incarnation == sample.incarnation;
        U64 const lag = sample.oldest && *sample.oldest < sample.sequence
                            ? sample.sequence - *sample.oldest
                            : 0;
        lines.push_back({table, writerOf(Mem::YokeRootPath(table)).text(), sample.entries,
                         same ? rate(former.sequence, sample.sequence) : 0, lookups, sample.readers,
                         sample.sleeping, lag});
    }
    return lines;
}

// A number in five places: 12345, 9999k, 1234M.
std::string brief(U64 n) {
    if (n < 100'000) return fmt::format("{}", n);
    if (n < 10'000'000) return fmt::format("{}k", n / 1000);
    return fmt::format("{}M", n / 1'000'000);
}

// The end of a table's name, which tells it from its neighbours.
std::string shortName(std::string name) {
    std::string const common = "/multicast/routestatus/";
    if (auto const at = name.find(common); at != name.npos)
        name = (name.starts_with("routing6") ? "6 " : "4 ") + name.substr(at + common.size());
    return name.size() <= 29 ? name : ".." + name.substr(name.size() - 27);
}

void redraw(std::vector<Line> const& lines, bool colour) {
    // Home, and away with what stood below; without a terminal just another block.
    if (::isatty(STDOUT_FILENO)) fmt::print("\033[H\033[J");
    // 80 columns, the last one 12 wide.
    fmt::print("{}{:<29} {:>7} {:>5} {:>6} {:>4} {:>5} {:>5} {}{}\n", colour ? "\033[1m" : "",
               "TABLE", "ENTRIES", "CHG/S", "LKUP/S", "RDRS", "SLEEP", "LAG", "WRITER",
               colour ? "\033[0m" : "");
    for (auto const& line : lines)
        fmt::print("{:<29} {:>7} {:>5} {:>6} {:>4} {:>5} {:>5} {:.12}\n",
                   printable(shortName(line.table)), brief(line.entries), brief(line.changes),
                   brief(line.lookups), brief(line.readers), brief(line.sleeping), brief(line.lag),
                   printable(line.writer));
    if (lines.empty()) fmt::print("no tables below {}\n", Dunlin::Util::baseDirectory());
    std::fflush(stdout);
}

} // namespace

int topCommand(Common const& common, TopArguments const& arguments) {
    EndBySignal const endBySignal;
    auto& loop = *Dunlin::schedulerRootDunlin;
    double const interval = arguments.interval;
    bool const colour = wantsColour(common.colour);
    bool const once = arguments.once || common.json;
    Listing listing = common.listing();
    Samples before = takeSamples(common);
    double then = loop.now();
    if (!once) redraw(compare(before, before, interval), colour);
    while (!endBySignal.ended()) {
        double const due = then + interval;
        auto const timer = loop.timerAdd(std::max(0.0, due - loop.now()), [] {});
        while (!endBySignal.ended() && loop.now() < due) loop.runOnce(-1);
        loop.timerDel(timer);
        if (endBySignal.ended()) break;
        auto now = takeSamples(common);
        auto const lines = compare(before, now, loop.now() - then);
        if (once) {
            for (auto const& line : lines)
                listing.print(Row()
                                  .add("table", line.table, Row::Hue::interface)
                                  .add("entries", line.entries)
                                  .add("changes_per_second", line.changes)
                                  .add("lookups_per_second", line.lookups)
                                  .add("readers", line.readers)
                                  .add("sleeping_readers", line.sleeping)
                                  .add("lag", line.lag)
                                  .add("writer", line.writer));
            break;
        }
        redraw(lines, colour);
        before = std::move(now);
        then = loop.now();
    }
    return done;
}

} // namespace Cairn
