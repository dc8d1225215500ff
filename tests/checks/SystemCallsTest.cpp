// Counts the system calls that write, remove and lookup make: none, as long as nothing grows. And
// those of a shadow and its writer, idle and at work.
#include "Dunlin/TaskSchedulerRoot.h"
#include "tests/support/CallCounter.h"
#include "tests/support/Child.h"
#include "tests/support/SharedBlock.h"
#include "tests/support/TestTable.h"

#include "Brisk/TableImpl.h"

#include <gtest/gtest.h>
#include <optional>
#include <sys/syscall.h>

namespace {

using namespace Support;
using Value = Stamped<160>;
using Ops = StampedOps<160>;

constexpr U32 keys = 1000;
constexpr U32 operations = 100'000;

// What `body(*prepare())` calls, which says whether all went well, in a process of its own; nothing
// where tracing is not allowed.
template <class Prepare, class Body>
std::optional<CallCounter::Calls> callsOf(Prepare prepare, Body body) {
    SharedBlock<std::atomic<U32>> result;
    Child child([&](Child& self) {
        auto const context = prepare();
        self.step();
        *result = body(*context) ? 1 : 2;
        self.hear();
        return 0;
    });
    child.hear();
    CallCounter counter;
    if (!counter.add(child.pid())) return {};
    counter.run(0.05); // until it waits in its `hear` again
    counter.forget();
    child.tell(0);
    auto const late = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    counter.run(0, [&] { return *result != 0 || std::chrono::steady_clock::now() > late; });
    EXPECT_EQ(*result, 1U);
    auto calls = counter.of(child.pid());
    if (auto const waits = calls.find(SYS_read); waits != calls.end() && waits->second == 1)
        calls.erase(waits);
    return calls;
}

struct Table {
    Brisk::BriskWriter<Ops> writer{quietTrace(), "calls",   Brisk::MapDescriptor(4 * keys),
                                   Ops{},        "Stamped", {}};
    Brisk::BriskReader<Ops> reader{quietTrace(), "calls", Ops{}, nullptr};
};

TEST(SystemCalls, NoneOnWriteRemoveAndLookup) {
    TempBase const base;
    auto const filled = [] {
        auto table = std::make_unique<Table>();
        table->writer.initialize("test");
        for (U32 i = 0; i < keys; ++i) table->writer.write(Value(i, 1), true);
        bool found = table->reader.initialize("test");
        table->reader.lookup(TestKey(1), found, nullptr); // maps the whole table
        return table;
    };
    auto const calls = callsOf(filled, [](Table& table) {
        Value value;
        for (U32 i = 0; i < operations; ++i) {
            TestKey const key(i * 7 % keys);
            bool found = false, gone = true;
            table.writer.write(Value(key, i), true);
            table.reader.lookup(key, found, &value);
            if (!found || value.stamp() != i || !table.writer.remove(key, value)) return false;
            table.reader.lookup(key, gone, &value);
            if (gone) return false;
            table.writer.lookup(key, found, nullptr);
            table.writer.write(Value(key, i), true);
        }
        return true;
    });
    if (!calls) GTEST_SKIP() << "tracing a child is not allowed here";
    for (auto const& [number, count] : *calls) {
        // A change after a pause, as at the beginning or when another process had the processor,
        // looks once for new followers.
        if (number == SYS_accept4 && count < operations / 1000) continue;
        ADD_FAILURE() << count << " times system call " << number;
    }
}

// The counter itself: it sees what there is to see.
TEST(SystemCalls, TheCounterCounts) {
    auto const calls = callsOf([] { return std::make_unique<int>(); },
                               [](int&) {
                                   for (int i = 0; i < 3; ++i) syscall(SYS_getuid);
                                   return true;
                               });
    if (!calls) GTEST_SKIP() << "tracing a child is not allowed here";
    EXPECT_EQ(*calls, (CallCounter::Calls{{SYS_getuid, 3}}));
}

// A shadow that is asleep, and its writer: nothing polls. A burst of changes costs the writer one
// ring, whatever its length, and the shadow a few calls a slice.
TEST(SystemCalls, AShadowAndItsWriterAtRestAndAtWork) {
    TempBase const base;
    auto& loop = *Dunlin::schedulerRootDunlin;
    struct Board {
        std::atomic<U64> told;
        std::atomic<U32> bursts, done;
    };
    SharedBlock<Board> board;
    Child writer([&](Child& self) {
        Brisk::BriskWriter<Ops> table(quietTrace(), "calls", Brisk::MapDescriptor(4 * keys), Ops{},
                                      "Stamped", {});
        if (!table.initialize("test")) return 1;
        for (U32 i = 0; i < keys; ++i) table.write(Value(i, 1), true);
        self.tell(1);
        loop.fdAdd(self.hearFd(), 1, [&](U32) {
            if (self.hear() < 0) _exit(0);
            for (U32 i = 0; i < operations; ++i) table.write(Value(i % keys, i + 2), true);
            ++board->bursts;
        });
        while (true) loop.runOnce(-1);
    });
    ASSERT_EQ(writer.hear(), 1);
    Child shadow([&](Child& self) {
        Brisk::BriskMap<Ops> front("calls", "Stamped");
        front.valueNotifyIs([&](Value const& value) {
            ++board->told;
            if (value.stamp() >= operations + 2 - keys) ++board->done;
        });
        front.init(Brisk::BriskType::valueShadow, false, 1);
        while (!front.connected() || !front.quiesced()) loop.runOnce(-1);
        self.tell(1);
        while (true) loop.runOnce(-1);
        return 0;
    });
    ASSERT_EQ(shadow.hear(), 1);
    CallCounter counter;
    if (!counter.add(writer.pid()) || !counter.add(shadow.pid()))
        GTEST_SKIP() << "tracing is not allowed here";
    counter.run(0.5);
    counter.forget();
    constexpr U32 seconds = 5;
    counter.run(seconds);
    EXPECT_LE(counter.totalOf(writer.pid()), seconds);
    EXPECT_LE(counter.totalOf(shadow.pid()), seconds);

    counter.forget();
    writer.tell(1);
    counter.run(0.1, [&] { return board->bursts == 1 && board->done == keys; });
    EXPECT_GT(board->told.load(), keys);
    // In all: the word, its Wake, the task that follows, and what the shadow sends when it is done
    // (and for each slice of 50 ms).
    fmt::print("{} changes, {} told: {} calls of the writer, {} of the shadow\n", operations,
               board->told.load(), counter.totalOf(writer.pid()), counter.totalOf(shadow.pid()));
    EXPECT_LT(counter.totalOf(writer.pid()), 100U);
    EXPECT_LT(counter.totalOf(shadow.pid()), 100U);
}

} // namespace
