// `cairn probe`: reads a route table at full speed beside its writer and says each second what it
// met. What it reads is checked: a record under a key must be of that key.
#include "Access.h"
#include "Board.h"
#include "Commands.h"
#include "Signals.h"

#include "Dunlin/Exception.h"
#include "Dunlin/TaskSchedulerRoot.h"
#include "Mroute/Tables.h"
#include "SharedMem/WriterLock.h"

#include <fmt/format.h>

#include <chrono>
#include <random>
#include <thread>

namespace Cairn {
namespace {

using Value = Mroute::RouteTable::Value;
using Key = Mroute::RouteTable::Key;

double seconds() {
    using namespace std::chrono;
    return duration<double>(steady_clock::now().time_since_epoch()).count();
}

struct Tally {
    U64 reads = 0; // lookups, or entries walked
    U64 hits = 0;
    U64 misses = 0;
    U64 walks = 0;
    U64 wrong = 0;  // records of another key
    U64 faults = 0; // exceptions
    void add(Tally const& o) {
        reads += o.reads;
        hits += o.hits;
        misses += o.misses;
        walks += o.walks;
        wrong += o.wrong;
        faults += o.faults;
    }
};

class Probe {
public:
    Probe(std::string table, ProbeArguments const& arguments, EndBySignal const& endBySignal)
        : arguments_(arguments), endBySignal_(endBySignal), table_(std::move(table)), path_(table_),
          random_(arguments.seed) {
        front_ = openTable<Mroute::RouteTable>(table_);
        try {
            collectKeys();
        } catch (...) {
            throw errorOfException("table " + table_);
        }
    }

    // Reads until `end`.
    Tally until(double end) {
        Tally tally;
        while (seconds() < end && !endBySignal_.ended()) {
            // The sentry follows the table to its next generation.
            Dunlin::schedulerRootDunlin->runReady();
            if (!attached()) { // between two writers that begin anew
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
                continue;
            }
            try {
                if (arguments_.walk || keys_.empty())
                    walk(tally);
                else
                    lookups(tally);
            } catch (Dunlin::Exception const& e) {
                ++tally.faults;
                fault = e.what();
                front_.reset();
            }
        }
        return tally;
    }

    U64 entries() const { return front_ ? front_->members() : 0; }
    bool written() const { return Mem::WriterLock::writerExists(path_); }
    std::string fault;

private:
    bool attached() {
        if (!front_ || front_->mountStatus() == Mem::MountStatus::unmounted)
            front_ = readingFront<Mroute::RouteTable>(table_);
        return front_ != nullptr;
    }
    void collectKeys() {
        auto const& table = front_->table();
        Value value;
        Brisk::IterHint hint;
        for (bool more = table.first(value, hint); more;
             more = table.next(value.key(), value, hint))
            keys_.push_back(value.key());
        std::shuffle(keys_.begin(), keys_.end(), random_);
    }
    // A thousand keys between two looks at the clock.
    void lookups(Tally& tally) {
        auto const& table = front_->table();
        Value value;
        for (int i = 0; i < 1000; ++i) {
            Key const& key = keys_[at_++ % keys_.size()];
            bool found = false;
            table.lookup(key, found, &value);
            ++tally.reads;
            ++(found ? tally.hits : tally.misses);
            if (found && !(value.key() == key)) ++tally.wrong;
        }
    }
    void walk(Tally& tally) {
        Value value;
        Brisk::IterHint hint;
        auto const& table = front_->table();
        for (bool more = table.first(value, hint); more;
             more = table.next(value.key(), value, hint)) {
            ++tally.reads;
            if (!value.key().g().isMulticast()) ++tally.wrong;
        }
        ++tally.walks;
    }

    ProbeArguments const& arguments_;
    EndBySignal const& endBySignal_;
    std::string table_;
    Mem::YokeRootPath path_;
    std::unique_ptr<Front<Mroute::RouteTable>> front_;
    std::vector<Key> keys_;
    std::size_t at_ = 0;
    std::mt19937_64 random_;
};

// The route table with the most entries.
std::string largestTable(Common const& common) {
    std::string largest;
    U64 most = 0;
    auto const [tables, closed] = tablesPresent();
    for (auto const& table : tables) {
        auto const name = RouteTableName::ofRoute(table);
        if (!name || !(name->v4 ? common.v4 : common.v6)) continue;
        // Of tables that cannot be read the first is chosen if there are no others, to say why.
        auto const header = faultOf(table) ? std::nullopt : headerOf(Mem::YokeRootPath(table));
        U64 const entries = header ? header->occupiedSlots + U64{1} : 0;
        if (largest.empty() || entries > most) {
            largest = table;
            most = entries;
        }
    }
    if (largest.empty() && !closed.empty()) throw closedError(closed.front());
    if (largest.empty())
        throw CommandError(noTable,
                           fmt::format("no route table below {}", Dunlin::Util::baseDirectory()));
    return largest;
}

} // namespace

int probeCommand(Common const& common, ProbeArguments const& arguments) {
    EndBySignal const endBySignal;
    Listing listing = common.listing();
    std::string const table = arguments.table.empty()
                                  ? largestTable(common)
                                  : tableMeant(arguments.table, common.v4, common.v6);
    if (!RouteTableName::ofRoute(table))
        throw CommandError(badUse, fmt::format("table {} holds no routes", table));
    Probe probe(table, arguments, endBySignal);
    BoardEntry board(table);
    board.post({});
    Tally all;
    auto const report = [&](char const* what, Tally const& tally, double took) {
        Row row;
        row.add("probe", std::string(what))
            .add("entries", probe.entries())
            .add("writer", std::string(probe.written() ? "alive" : "none"),
                 probe.written() ? Row::Hue::good : Row::Hue::bad);
        if (arguments.walk)
            row.add("walks", tally.walks)
                .add("walked_per_second",
                     static_cast<U64>(static_cast<double>(tally.reads) / took));
        else
            row.add("lookups_per_second", static_cast<U64>(static_cast<double>(tally.reads) / took))
                .add("hits", tally.hits)
                .add("misses", tally.misses);
        row.add("wrong", tally.wrong).add("faults", tally.faults);
        listing.print(row);
        std::fflush(stdout);
    };
    double const begin = seconds();
    for (double now = begin; now < begin + arguments.seconds && !endBySignal.ended();) {
        auto const tally = probe.until(std::min(now + 1, begin + arguments.seconds));
        double const then = now;
        now = seconds();
        all.add(tally);
        BoardNotice notice;
        notice.lookups = all.reads;
        board.post(notice);
        report("running", tally, now - then);
    }
    report("total", all, seconds() - begin);
    if (!probe.fault.empty()) complain(fmt::format("cairn probe: {}: {}", table, probe.fault));
    return all.wrong || all.faults ? damaged : done;
}

} // namespace Cairn
