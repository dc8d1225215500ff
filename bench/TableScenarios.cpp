#include "bench/TableScenarios.h"

#include "Dunlin/Trace.h"
#include "Dunlin/Util.h"
#include "Mroute/Tables.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fmt/format.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace Bench {

namespace {

using Table = Mroute::RouteTable;
using Route = Table::Value;
using Key = Table::Key;
using Ops = Table::Ops;
using Writer = Table::Writer;
using Reader = Table::Reader;

// What makes a key: source and group, scattered over all of 32 and 28 bits so that hashes are too.
// Kept small, so that the list of keys to ask for does not compete with the table for the cache.
struct Words {
    U32 source, group;
};
U32 mixed(U32 x) {
    x = (x ^ x >> 16) * 0x7feb352dU;
    x = (x ^ x >> 15) * 0x846ca68bU;
    return x ^ x >> 16;
}
// Of the i-th entry, for each i of the list.
std::vector<Words> wordsOf(std::vector<U32> const& list) {
    std::vector<Words> words;
    words.reserve(list.size());
    for (U32 const i : list) words.push_back({mixed(i), 0xe0U | mixed(~i) << 8});
    return words;
}
Key keyOf(Words words) {
    using Kelpie::IpAddr;
    using Kelpie::Prefix;
    return Key(Prefix(IpAddr::fromNetworkWord(words.source), 32),
               Prefix(IpAddr::fromNetworkWord(words.group), 32));
}
// Puts another key into a record that is otherwise ready, as an agent would that keeps one at hand.
void keyInto(Route& route, Key const& key) {
    std::memcpy(static_cast<void*>(&route), &key, sizeof key);
}

// The last word of every record (oifBitmap8) is 0, which the processor cannot know: the next key
// waits for the record, as in the yardstick.
U64 zeroOf(Route const& route) {
    U64 word;
    std::memcpy(&word, reinterpret_cast<char const*>(&route) + sizeof(Route) - sizeof word,
                sizeof word);
    return word;
}

// One table below a directory of its own.
class Bed {
public:
    Bed(U32 entries, U64 seed) : entries_(entries), keys_(wordsOf(shuffled(entries, seed))) {
        directory_ = fmt::format("/dev/shm/cairn-bench-{}", getpid());
        Dunlin::Util::baseDirectoryIs(directory_);
        build();
    }
    Bed(Bed const&) = delete;
    Bed& operator=(Bed const&) = delete;
    ~Bed() {
        writer_.reset();
        std::filesystem::remove_all(directory_);
    }

    // A new empty table.
    void build() {
        if (writer_) {
            writer_->cleanup();
            writer_->detach(false);
        }
        writer_ = std::make_unique<Writer>(*trace_, name, Brisk::MapDescriptor(entries_), Ops{},
                                           Table::typeName, std::function<void(bool)>{});
        if (!writer_->initialize("bench")) throw std::runtime_error("cannot make the table");
    }
    void insertAll() {
        for (Words const key : keys_) overwrite(key);
    }
    void overwrite(Words key) {
        keyInto(route_, keyOf(key));
        writer_->write(route_, true);
    }
    bool remove(Words key) { return writer_->remove(keyOf(key), removed_); }
    // As many as an agent may have at hand after one message.
    static constexpr std::size_t atOnce = 256;
    void overwriteAll(std::vector<Words> const& keys) {
        inParts<Route>(
            keys, [&](Route& route, Words key) { keyInto(route, keyOf(key)); },
            [&](std::span<Route const* const> routes) { writer_->writeAll(routes); });
    }
    void removeAll(std::vector<Words> const& keys) {
        inParts<Key>(
            keys, [](Key& to, Words key) { to = keyOf(key); },
            [&](std::span<Key const* const> part) {
                if (writer_->removeAll(part) != part.size()) std::abort();
            });
    }

    std::unique_ptr<Reader> reader() const {
        auto reader = std::make_unique<Reader>(*trace_, name, Ops{}, nullptr);
        if (!reader->initialize("bench")) throw std::runtime_error("cannot attach to the table");
        return reader;
    }
    // Bytes that the table's files take.
    double fileBytes() const {
        double bytes = 0;
        for (auto const& entry : std::filesystem::recursive_directory_iterator(directory_)) {
            struct stat status {};
            if (entry.is_regular_file() && stat(entry.path().c_str(), &status) == 0)
                bytes += 512.0 * static_cast<double>(status.st_blocks);
        }
        return bytes;
    }
    std::vector<Words> const& keys() const { return keys_; }

private:
    template <class Item, class Make, class Do>
    static void inParts(std::vector<Words> const& keys, Make const& make, Do const& perform) {
        std::array<Item, atOnce> items;
        std::array<Item const*, atOnce> places;
        for (std::size_t from = 0; from < keys.size(); from += atOnce) {
            std::size_t const count = std::min(atOnce, keys.size() - from);
            for (std::size_t i = 0; i < count; ++i) {
                make(items[i], keys[from + i]);
                places[i] = &items[i];
            }
            perform(std::span(places.data(), count));
        }
    }

    static constexpr char const* name = "bench/route";
    U32 entries_;
    std::vector<Words> keys_;
    std::string directory_;
    std::shared_ptr<Dunlin::Platform::DebugHandler> trace_ =
        Dunlin::Platform::getDebugHandler("bench", false);
    std::unique_ptr<Writer> writer_;
    Route route_;
    Route removed_;
};

void hits(Reader& reader, std::vector<Words> const& keys, U64 passes) {
    Route out;
    for (U64 pass = 0; pass < passes; ++pass)
        for (std::size_t i = 0; i < keys.size(); i += 1 + zeroOf(out)) {
            bool found = false;
            reader.lookup(keyOf(keys[i]), found, &out);
            if (!found) std::abort();
            used(&out);
        }
}

void misses(Reader& reader, std::vector<Words> const& keys, U64 passes) {
    Route out;
    for (U64 pass = 0; pass < passes; ++pass)
        for (std::size_t i = 0; i < keys.size();) {
            bool found = true;
            reader.lookup(keyOf(keys[i]), found, &out);
            used(&out);
            i += found ? keys.size() : 1;
        }
}

void walk(Reader& reader, U32 entries) {
    Route out;
    Brisk::IterHint hint;
    U32 count = 0;
    for (bool more = reader.first(out, hint); more; more = reader.next(out.key(), out, hint)) {
        used(&out);
        ++count;
    }
    if (count != entries) std::abort();
}

} // namespace

void measureTable(U32 entries, std::size_t sizeNumber, Yardsticks const& sticks,
                  Options const& options, std::vector<Row>& rows) {
    // What we want to reach at the three usual sizes; another list of sizes gets no goals.
    auto const goal = [&](double small, double middle, double large) {
        double const goals[] = {small, middle, large};
        return options.sizes == Options{}.sizes ? goals[sizeNumber] : 0;
    };
    auto const add = [&](char const* scenario, double value, double stick, char const* stickName,
                         double reach) {
        rows.push_back({scenario, entries, value, "ns", stick, stickName, reach});
    };
    U64 const passes = std::max<U64>(1, 300'000 / entries);
    U64 const operations = passes * entries;
    Bed bed(entries, options.seed);
    auto const& keys = bed.keys();
    bed.insertAll();

    double const hit = inReader([&] {
        auto reader = bed.reader();
        return measure(options.rounds, operations, [&] { hits(*reader, keys, passes); });
    });
    add("hit", hit, sticks.read, "array read", goal(2.5, 3.5, 3.5));

    auto const writeKeys = wordsOf(shuffled(entries, options.seed + 1));
    std::size_t next = 0;
    double const busy = inReader(
        [&] {
            auto reader = bed.reader();
            return measure(options.rounds, operations, [&] { hits(*reader, keys, passes); });
        },
        [&] {
            for (int i = 0; i < 1000; ++i) {
                bed.overwrite(writeKeys[next]);
                if (++next == writeKeys.size()) next = 0;
            }
        });
    add("hit under a busy writer", busy, sticks.readSeqlock, "seqlock array, writer",
        goal(1.8, 2.5, 2.5));

    auto absent = shuffled(entries, options.seed);
    for (U32& i : absent) i += 0x40000000U;
    auto const absentKeys = wordsOf(absent);
    double const miss = inReader([&] {
        auto reader = bed.reader();
        return measure(options.rounds, operations, [&] { misses(*reader, absentKeys, passes); });
    });
    // The goal of a miss is to be no dearer than a hit.
    add("miss", miss, sticks.read, "array read",
        options.sizes == Options{}.sizes ? hit / sticks.read : 0);

    double const walked = inReader([&] {
        auto reader = bed.reader();
        return measure(options.rounds, operations, [&] {
            for (U64 pass = 0; pass < passes; ++pass) walk(*reader, entries);
        });
    });
    add("walk, each entry", walked, sticks.read, "array read", goal(2.4, 4, 5));

    double const overwritten = measure(options.rounds, operations, [&] {
        for (U64 pass = 0; pass < passes; ++pass)
            for (Words const key : writeKeys) bed.overwrite(key);
    });
    add("overwrite", overwritten, sticks.overwrite, "array overwrite", goal(3, 2.5, 3));

    double const overwrittenAll = measure(options.rounds, operations, [&] {
        for (U64 pass = 0; pass < passes; ++pass) bed.overwriteAll(writeKeys);
    });
    add("overwrite, 256 at once", overwrittenAll, sticks.overwrite, "array overwrite",
        goal(3, 2.5, 3));

    // At a million entries: all that the files hold, beside the records alone.
    rows.push_back({"memory for each entry", entries, bed.fileBytes() / entries, "B", 160,
                    "the record", options.sizes == Options{}.sizes && sizeNumber == 2 ? 1.25 : 0});

    auto const removal = [&](auto const& removeEach) {
        std::vector<double> removes;
        for (U32 round = 0; round <= options.rounds; ++round) {
            U64 const start = processorNs();
            removeEach();
            if (round) removes.push_back(static_cast<double>(processorNs() - start) / entries);
            bed.insertAll();
        }
        return median(removes);
    };
    double const removed = removal([&] {
        for (Words const key : writeKeys)
            if (!bed.remove(key)) std::abort();
    });
    add("remove", removed, sticks.overwrite, "array overwrite", goal(4, 3, 3.5));
    double const removedAll = removal([&] { bed.removeAll(writeKeys); });
    add("remove, 256 at once", removedAll, sticks.overwrite, "array overwrite", goal(4, 3, 3.5));

    std::vector<double> inserts;
    for (U32 round = 0; round <= options.rounds; ++round) {
        bed.build();
        U64 const start = processorNs();
        bed.insertAll();
        if (round) inserts.push_back(static_cast<double>(processorNs() - start) / entries);
    }
    add("insert into an empty table", median(inserts), sticks.read, "array read",
        goal(1.1, 1.4, 1.8));
}

} // namespace Bench
