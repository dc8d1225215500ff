// One writing process at full speed, three reading ones. The table grows from 16 slots to over
// 100,000 entries and goes on being overwritten, removed from and filled again.
#include "tests/support/Child.h"
#include "tests/support/SharedBlock.h"
#include "tests/support/StampedTable.h"
#include "tests/support/TempBase.h"

#include "Brisk/TableImpl.h"

#include <chrono>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <thread>
#include <vector>

namespace {

using namespace Support;
using Value = Stamped<160>;
using Ops = StampedOps<160>;

constexpr U32 staying = 1000;    // keys 0 to staying-1 are never removed once they are there
constexpr U32 allKeys = 140'000; // the others come and go
constexpr U32 manyEntries = 100'000;

struct Board {
    Complaint complaint;
    std::atomic<bool> filled; // the staying keys are there
    std::atomic<bool> stop;
    std::atomic<U32> largest;
    std::atomic<U64> writes;
    std::atomic<U64> lookups;
    std::atomic<U64> walks;
};

int writerProcess(Board& board) {
    Brisk::MapDescriptor descriptor(200'000);
    Brisk::BriskWriter<Ops> writer(quietTrace(), "torture", descriptor, Ops{}, "Stamped", {});
    if (!writer.initialize("test")) return 1;
    if (writer.capacity() > 32) board.complaint.say("began with {} slots", writer.capacity());
    U32 stamp = 1;
    for (U32 i = 0; i < staying; ++i) writer.write(Value(i, stamp++), true);
    board.filled = true;
    std::mt19937 random(7);
    U64 writes = 0;
    Value removed;
    // Fills up to 120,000 entries, falls to 60,000, and so on.
    bool filling = true;
    while (!board.stop && !board.complaint.any()) {
        for (int i = 0; i < 256; ++i) {
            U32 const key = static_cast<U32>(random()) % allKeys;
            if (key < staying || random() % 4 == 0) {
                writer.write(Value(key, stamp++), true);
            } else if (filling == (random() % 8 != 0)) {
                writer.write(Value(key, stamp++), true);
            } else {
                writer.remove(StampKey{key}, removed);
            }
            ++writes;
        }
        U32 const members = writer.members();
        if (members > board.largest) board.largest = members;
        if (members > 120'000) filling = false;
        if (members < 60'000) filling = true;
        board.writes = writes;
    }
    std::string message;
    if (!writer.validate()) board.complaint.say("the writer's own validation failed");
    return 0;
}

void readFor(Board& board, U32 seed) {
    Brisk::BriskReader<Ops> reader(quietTrace(), "torture", Ops{}, nullptr);
    while (!reader.initialize("test"))
        if (board.stop) return;
    while (!board.filled)
        if (board.stop) return;
    std::mt19937 random(seed);
    while (!board.stop && !board.complaint.any()) {
        for (int i = 0; i < 20'000; ++i) {
            U32 const key = static_cast<U32>(random()) % (random() % 2 ? staying : allKeys);
            bool found = false;
            Value value;
            reader.lookup(StampKey{key}, found, &value);
            if (found ? value.key().number != key || !value.sound() : key < staying) {
                board.complaint.say("key {}: {}", key, found ? "torn or foreign record" : "missed");
                return;
            }
        }
        board.lookups += 20'000;
        // A whole walk sees every staying key once.
        std::vector<bool> seen(allKeys);
        U32 seenStaying = 0;
        Value value;
        Brisk::IterHint hint;
        for (bool more = reader.first(value, hint); more; more = reader.next(value.key(), value, hint)) {
            U32 const key = value.key().number;
            if (key >= allKeys || !value.sound()) {
                board.complaint.say("walk: torn record at key {}", key);
                return;
            }
            if (seen[key]) {
                board.complaint.say("walk: key {} twice", key);
                return;
            }
            seen[key] = true;
            seenStaying += key < staying;
        }
        if (seenStaying != staying) board.complaint.say("walk: {} of {} staying keys", seenStaying, staying);
        ++board.walks;
    }
}

int readerProcess(Board& board, U32 seed) {
    try {
        readFor(board, seed);
    } catch (std::exception const& e) {
        board.complaint.say("exception to a reader: {}", e.what());
    }
    return 0;
}

TEST(Torture, ReadersBesideAWriterAtFullSpeedSeeNoTornRecordAndMissNothing) {
    TempBase const base;
    SharedBlock<Board> board;
    Child writer([&](Child&) { return writerProcess(*board); });
    std::vector<std::unique_ptr<Child>> readers;
    for (U32 i = 0; i < 3; ++i)
        readers.push_back(std::make_unique<Child>([&, i](Child&) { return readerProcess(*board, i); }));
    // A slow build takes the time it needs to fill the table.
    auto const start = std::chrono::steady_clock::now();
    auto const within = [&](double seconds) {
        return std::chrono::steady_clock::now() - start < std::chrono::duration<double>(seconds);
    };
    while ((within(soakSeconds(4)) || (board->largest <= manyEntries && within(120))) && !board->complaint.any())
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    board->stop = true;
    EXPECT_EQ(writer.join(), 0);
    for (auto& reader : readers) EXPECT_EQ(reader->join(), 0);
    EXPECT_FALSE(board->complaint.any()) << board->complaint.text();
    EXPECT_GT(board->largest.load(), manyEntries);
    EXPECT_GT(board->walks.load(), 0U);
    counted("three readers beside a writer for {} seconds: {} writes, {} lookups, {} walks, at most {} entries",
            soakSeconds(4), board->writes.load(), board->lookups.load(), board->walks.load(), board->largest.load());
}

} // namespace
