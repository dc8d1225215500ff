#include "bench/Yardsticks.h"

#include "SharedMem/Atomics.h"

#include <algorithm>
#include <cstring>

namespace Bench {

namespace {

struct Value {
    U64 words[20];
};
struct Record {
    U64 sequence; // odd while a writer is inside; always 0 in the plain array
    U64 unused;
    Value value;
};
static_assert(sizeof(Record) == 176);

// Each round goes over every record at least once and does at least this many operations.
U64 passesFor(U32 entries) {
    return std::max<U64>(1, 300'000 / entries);
}

void overwrite(Record& record, Value const& value) {
    std::memcpy(&record.value, &value, sizeof value);
}

void overwriteLocked(Record& record, Value const& value) {
    U64 const sequence = Mem::peek(record.sequence);
    Mem::poke(record.sequence, sequence + 1);
    Mem::storesStayBefore();
    Mem::copyBytes(&record.value, &value, sizeof value);
    Mem::publish(record.sequence, sequence + 2);
}

void read(Record const& record, Value& out) {
    std::memcpy(&out, &record.value, sizeof out);
}

void readLocked(Record const& record, Value& out) {
    while (true) {
        U64 const before = Mem::observe(record.sequence);
        if (before & 1) continue;
        Mem::copyBytes(&out, &record.value, sizeof out);
        Mem::loadsStayBefore();
        if (Mem::peek(record.sequence) == before) return;
    }
}

// Reads all records in `order`. The last word of each record is 0, which the processor cannot know:
// the next index waits for the record, as the steps of a search wait for each other.
template <class Reader>
void readAll(Record const* records, std::vector<U32> const& order, U64 passes,
             Reader const& reader) {
    Value out{};
    for (U64 pass = 0; pass < passes; ++pass)
        for (std::size_t i = 0; i < order.size(); i += 1 + out.words[19]) {
            reader(records[order[i]], out);
            used(&out);
        }
}

} // namespace

Yardsticks measureYardsticks(U32 entries, Options const& options) {
    SharedPages const pages(entries * sizeof(Record));
    auto* const records = static_cast<Record*>(pages.data());
    auto const order = shuffled(entries, options.seed);
    U64 const passes = passesFor(entries);
    U64 const operations = passes * entries;
    Value value{};
    for (U32 i = 0; i < entries; ++i) overwrite(records[i], value);

    Yardsticks result{};
    result.read = inReader([&] {
        return measure(options.rounds, operations, [&] { readAll(records, order, passes, read); });
    });
    auto const writeOrder = shuffled(entries, options.seed + 1);
    result.overwrite = measure(options.rounds, operations, [&] {
        for (U64 pass = 0; pass < passes; ++pass)
            for (U32 const index : writeOrder) {
                ++value.words[0];
                overwrite(records[index], value);
                used(&records[index]);
            }
    });
    std::size_t next = 0;
    result.readSeqlock = inReader(
        [&] {
            return measure(options.rounds, operations,
                           [&] { readAll(records, order, passes, readLocked); });
        },
        [&] {
            for (int i = 0; i < 1000; ++i) {
                ++value.words[0];
                overwriteLocked(records[writeOrder[next]], value);
                if (++next == writeOrder.size()) next = 0;
            }
        });
    return result;
}

} // namespace Bench
