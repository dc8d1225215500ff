// Counts the system calls that write, remove and lookup make: none, as long as nothing grows. The
// child is traced from call to call; two getppid calls bracket what counts. And those of a shadow
// and its writer, idle and at work.
#include "Dunlin/TaskSchedulerRoot.h"
#include "tests/support/CallCounter.h"
#include "tests/support/Child.h"
#include "tests/support/SharedBlock.h"
#include "tests/support/TestTable.h"
#include "tests/support/TempBase.h"

#include "Brisk/TableImpl.h"

#include <gtest/gtest.h>
#include <map>
#include <sys/ptrace.h>
#include <sys/syscall.h>

namespace {

using namespace Support;
using Value = Stamped<160>;
using Ops = StampedOps<160>;

constexpr U32 keys = 1000;
constexpr U32 operations = 100'000;

long mark() { return syscall(SYS_getppid); }

// Runs `body` between two marks in a traced child. Gives the number of calls by system call number,
// and false if tracing is not allowed here.
template <class Prepare, class Body>
bool countSystemCalls(Prepare prepare, Body body, std::map<U64, U32>& counts) {
    Child child([&](Child&) {
        if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) return 77;
        raise(SIGSTOP);
        auto context = prepare();
        mark();
        body(*context);
        mark();
        return 0;
    });
    int status = 0;
    waitpid(child.pid(), &status, 0);
    if (!WIFSTOPPED(status)) return false;
    ptrace(PTRACE_SETOPTIONS, child.pid(), nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
    U32 marks = 0;
    while (marks < 2) {
        ptrace(PTRACE_SYSCALL, child.pid(), nullptr, nullptr);
        if (waitpid(child.pid(), &status, 0) < 0 || WIFEXITED(status) || WIFSIGNALED(status)) return false;
        if (WSTOPSIG(status) != (SIGTRAP | 0x80)) continue;
        __ptrace_syscall_info info{};
        ptrace(static_cast<__ptrace_request>(PTRACE_GET_SYSCALL_INFO), child.pid(), sizeof info, &info);
        if (info.op != PTRACE_SYSCALL_INFO_ENTRY) continue;
        if (info.entry.nr == SYS_getppid) ++marks;
        else if (marks == 1) ++counts[info.entry.nr];
    }
    ptrace(PTRACE_CONT, child.pid(), nullptr, nullptr);
    return child.join() == 0;
}

struct Table {
    Brisk::BriskWriter<Ops> writer{quietTrace(), "calls", Brisk::MapDescriptor(4 * keys), Ops{}, "Stamped", {}};
    Brisk::BriskReader<Ops> reader{quietTrace(), "calls", Ops{}, nullptr};
};

std::unique_ptr<Table> filledTable() {
    auto table = std::make_unique<Table>();
    if (!table->writer.initialize("test")) _exit(3);
    for (U32 i = 0; i < keys; ++i) table->writer.write(Value(i, 1), true);
    if (!table->reader.initialize("test")) _exit(4);
    bool found = false;
    table->reader.lookup(TestKey(1), found, nullptr); // maps the whole table
    return table;
}

TEST(SystemCalls, NoneOnWriteRemoveAndLookup) {
    TempBase const base;
    std::map<U64, U32> counts;
    bool const traced = countSystemCalls(
        filledTable,
        [](Table& table) {
            Value value;
            for (U32 i = 0; i < operations; ++i) {
                U32 const key = i * 7 % keys;
                bool found = false;
                table.writer.write(Value(key, i), true);
                table.reader.lookup(TestKey(key), found, &value);
                if (!found || value.stamp() != i) _exit(5);
                if (!table.writer.remove(TestKey(key), value)) _exit(6);
                table.reader.lookup(TestKey(key), found, &value);
                if (found) _exit(7);
                table.writer.lookup(TestKey(key), found, nullptr);
                table.writer.write(Value(key, i), true);
            }
        },
        counts);
    if (!traced) GTEST_SKIP() << "tracing a child is not allowed here, or the child failed";
    for (auto const& [number, count] : counts) ADD_FAILURE() << count << " times system call " << number;
}

// The counter itself: it sees what there is to see.
TEST(SystemCalls, TheCounterCounts) {
    std::map<U64, U32> counts;
    bool const traced = countSystemCalls(
        [] { return std::make_unique<int>(); },
        [](int&) {
            for (int i = 0; i < 3; ++i) syscall(SYS_getuid);
        },
        counts);
    if (!traced) GTEST_SKIP() << "tracing a child is not allowed here";
    EXPECT_EQ(counts[SYS_getuid], 3U);
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
        Brisk::BriskWriter<Ops> table(quietTrace(), "calls", Brisk::MapDescriptor(4 * keys), Ops{}, "Stamped", {});
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
    if (!counter.add(writer.pid()) || !counter.add(shadow.pid())) GTEST_SKIP() << "tracing is not allowed here";
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
