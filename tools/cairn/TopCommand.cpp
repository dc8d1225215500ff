// `cairn top`: the tables at work: entries, changes a second, lookups a second, readers, sleeping
// readers, and how many changes the slowest shadow is behind.
//
// Entries and changes come from the tables' own headers. Lookups, readers and lag are known to the
// processes that make them alone: those of this tool tell on the notice board, others are not seen.
#include "Access.h"
#include "Board.h"
#include "Commands.h"
#include "Signals.h"

#include "Dunlin/TaskSchedulerRoot.h"
#include "SharedMem/FileUtil.h"
#include "SharedMem/OwnerFile.h"
#include "SharedMem/WriterLock.h"
#include "Yarrow/Format.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

namespace Cairn {
namespace {

struct Sample {
    U64 entries = 0;
    U64 sequence = 0; // of the queue: one for each change
    U32 incarnation = 0;
    std::map<U32, U64> lookups; // by process
    U64 readers = 0, sleeping = 0;
    std::optional<U64> oldest;         // sequence of the shadow that is furthest behind
    std::optional<CommandError> fault; // why it cannot be read
};

using Samples = std::map<std::string, Sample>;

Samples takeSamples(Common const& common) {
    Samples samples;
    auto const [tables, closed] = tablesPresent();
    for (auto const& directory : closed)
        if (ofFamily(directory + "/", common.v4, common.v6))
            samples[directory].fault = closedError(directory);
    for (auto const& table : tables) {
        if (!ofFamily(table, common.v4, common.v6)) continue;
        Mem::YokeRootPath const path(table);
        Sample& sample = samples[table];
        sample.fault = faultOf(table);
        auto const header = headerOf(path);
        if (sample.fault || !header) {
            if (!sample.fault) samples.erase(table); // it has just gone
            continue;
        }
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
    U64 entries = 0, changes = 0, lookups = 0, readers = 0, sleeping = 0, lag = 0;
    std::optional<CommandError> fault;
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
                         sample.sleeping, lag, sample.fault});
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
std::string shortName(std::string name, std::size_t width) {
    std::string const common = "/multicast/routestatus/";
    if (auto const at = name.find(common); at != name.npos)
        name = (name.starts_with("routing6") ? "6 " : "4 ") + name.substr(at + common.size());
    name = printable(name);
    if (name.size() <= width) return name;
    // The family, if it was put in front, and the end.
    std::string const head = name.size() > 1 && name[1] == ' ' ? name.substr(0, 2) + ".." : "..";
    return head + name.substr(name.size() - (width - head.size()));
}

struct Window {
    std::size_t columns = 80, rows = 24;
};

Window windowOf(int terminal) {
    winsize size{};
    if (::ioctl(terminal, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return {};
    return {size.ws_col, size.ws_row};
}

// The columns behind the name, in the order in which a narrow window goes without them.
struct Column {
    char const* title;
    std::size_t width;
    unsigned rank; // the highest goes first
    std::string (*text)(Line const&);
};
constexpr Column columnsOfTop[] = {
    {"ENTRIES", 7, 0, [](Line const& l) { return brief(l.entries); }},
    {"CHG/S", 5, 1, [](Line const& l) { return brief(l.changes); }},
    {"LKUP/S", 6, 4, [](Line const& l) { return brief(l.lookups); }},
    {"RDRS", 4, 3, [](Line const& l) { return brief(l.readers); }},
    {"SLEEP", 5, 6, [](Line const& l) { return brief(l.sleeping); }},
    {"LAG", 5, 2, [](Line const& l) { return brief(l.lag); }},
    {"WRITER", 12, 5, [](Line const& l) { return printable(l.writer); }},
};

// As many columns as fit beside a name of some length, and as many lines as fit below the heading.
void draw(std::vector<Line> const& lines, Window window, bool colour) {
    constexpr std::size_t leastName = 20, longestName = 29;
    unsigned ranks = std::size(columnsOfTop);
    auto const needed = [&] {
        std::size_t sum = leastName;
        for (auto const& column : columnsOfTop)
            if (column.rank < ranks) sum += 1 + column.width;
        return sum;
    };
    while (ranks > 0 && needed() > window.columns) --ranks;
    std::size_t const name = std::min(longestName, leastName + window.columns - needed());
    auto const print = [&](std::string const& first, auto textOf) {
        std::string line = fmt::format("{:<{}}", first, name);
        for (auto const& column : columnsOfTop) {
            if (column.rank >= ranks) continue;
            bool const last = &column == std::end(columnsOfTop) - 1;
            line += last ? fmt::format(" {:.{}}", textOf(column), column.width)
                         : fmt::format(" {:>{}}", textOf(column), column.width);
        }
        return line;
    };
    fmt::print("{}{}{}", colour ? "\033[1m" : "",
               print("TABLE", [](Column const& c) { return std::string(c.title); }),
               colour ? "\033[0m" : "");
    std::size_t left = window.rows > 1 ? window.rows - 1 : 1;
    for (auto const& line : lines) {
        if (left-- == 0) break;
        if (line.fault)
            fmt::print("\n{:<{}} {:.{}}", shortName(line.table, name), name,
                       line.fault->code == damaged ? "damaged" : "not readable",
                       window.columns - std::min(window.columns, name + 1));
        else
            fmt::print("\n{}", print(shortName(line.table, name),
                                     [&](Column const& c) { return c.text(line); }));
    }
    if (lines.empty())
        fmt::print("\n{:.{}}",
                   fmt::format("no tables below {}", printable(Dunlin::Util::baseDirectory())),
                   window.columns);
}

void redraw(std::vector<Line> const& lines, bool colour) {
    bool const terminal = ::isatty(STDOUT_FILENO) == 1;
    // Home, and away with what was below; without a terminal just another block.
    if (terminal) fmt::print("\033[H\033[J");
    draw(lines, windowOf(STDOUT_FILENO), colour);
    if (!terminal) fmt::print("\n");
    std::fflush(stdout);
}

// A terminal that gives each key at once and does not show it, for as long as this lives.
class Keys {
public:
    // `leave` is called for a `q`.
    explicit Keys(std::function<void()> leave) {
        if (!::isatty(STDIN_FILENO) || !::isatty(STDOUT_FILENO) ||
            ::tcgetattr(STDIN_FILENO, &former_) != 0 ||
            ::tcgetpgrp(STDIN_FILENO) != ::getpgrp()) // in the background the keys are not ours
            return;
        termios raw = former_;
        raw.c_lflag &= ~tcflag_t{ICANON | ECHO};
        raw.c_cc[VMIN] = 0;
        raw.c_cc[VTIME] = 0;
        if (::tcsetattr(STDIN_FILENO, TCSANOW, &raw) != 0) return;
        taken_ = true;
        loop().fdAdd(STDIN_FILENO, EPOLLIN, [this, leave = std::move(leave)](U32) {
            char key = 0;
            auto const n = ::read(STDIN_FILENO, &key, 1);
            if (n == 1 && (key == 'q' || key == 'Q')) leave();
            if (n < 0 && errno != EINTR && errno != EAGAIN) release(); // the terminal is no more
        });
    }
    ~Keys() { release(); }
    Keys(Keys const&) = delete;
    Keys& operator=(Keys const&) = delete;

private:
    static Dunlin::TaskSchedulerRoot& loop() { return *Dunlin::schedulerRootDunlin; }
    void release() {
        if (!std::exchange(taken_, false)) return;
        loop().fdDel(STDIN_FILENO);
        ::tcsetattr(STDIN_FILENO, TCSANOW, &former_);
        fmt::print("\n"); // the shell goes on below
    }
    termios former_{};
    bool taken_ = false;
};

Row rowOf(Line const& line) {
    Row row;
    row.add("table", line.table, Row::Hue::interface);
    if (line.fault)
        return row
            .add("state", std::string(line.fault->code == damaged ? "damaged" : "not_readable"),
                 Row::Hue::bad)
            .add("finding", std::string(line.fault->what()));
    return row.add("entries", line.entries)
        .add("changes_per_second", line.changes)
        .add("lookups_per_second", line.lookups)
        .add("readers", line.readers)
        .add("sleeping_readers", line.sleeping)
        .add("lag", line.lag)
        .add("writer", line.writer);
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
    bool left = false;
    std::optional<Keys> keys;
    if (!once) {
        redraw(compare(before, before, interval), colour);
        keys.emplace([&] { left = true; });
    }
    auto const ended = [&] { return left || endBySignal.ended(); };
    int result = done;
    while (!ended()) {
        double const due = then + interval;
        auto const timer = loop.timerAdd(std::max(0.0, due - loop.now()), [] {});
        while (!ended() && loop.now() < due) loop.runOnce(-1);
        loop.timerDel(timer);
        if (ended()) break;
        auto now = takeSamples(common);
        auto const lines = compare(before, now, loop.now() - then);
        if (once) {
            for (auto const& line : lines) {
                listing.print(rowOf(line));
                if (line.fault) result = std::max(result, int{line.fault->code});
            }
            break;
        }
        redraw(lines, colour);
        before = std::move(now);
        then = loop.now();
    }
    return result;
}

} // namespace Cairn
