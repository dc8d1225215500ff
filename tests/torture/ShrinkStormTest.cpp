// The table falls from 4,096 entries to 16 and rises again, over and over, its buckets with it, under
// three reading processes that are stopped in mid-read now and then.
#include "tests/support/Child.h"
#include "tests/support/SharedBlock.h"
#include "tests/support/TempBase.h"
#include "tests/torture/Scenarios.h"

#include <chrono>
#include <gtest/gtest.h>
#include <random>
#include <sys/stat.h>
#include <thread>

namespace {

using namespace Support;
using T = Table<160>;
using Value = T::Value;

constexpr U32 most = 4096, staying = 16;

struct Board {
    Complaint complaint;
    std::atomic<bool> filled, stop;
    std::atomic<U32> rounds;
    std::atomic<U64> reads;
    std::atomic<U64> blocksFull, blocksEmpty, sizeFull, sizeEmpty;
};

int writerProcess(Board& board) {
    Brisk::MapDescriptor descriptor(most);
    descriptor.shrinkable = true;
    descriptor.shrinkBuckets = true;
    auto writer = T::writer("storm", descriptor);
    if (!writer->initialize("test")) return 1;
    auto const status = [&] {
        struct stat result {};
        stat(writer->rootPath().file("slots").c_str(), &result);
        return result;
    };
    U32 stamp = 1;
    std::mt19937 random(5);
    Value old;
    std::vector<U32> order;
    for (U32 key = staying; key < most; ++key) order.push_back(key);
    for (U32 key = 0; key < staying; ++key) writer->write(Value(key, stamp++), true);
    while (!board.stop && !board.complaint.any()) {
        for (U32 const key : order) writer->write(Value(key, stamp++), true);
        board.filled = true;
        board.blocksFull = static_cast<U64>(status().st_blocks);
        board.sizeFull = static_cast<U64>(status().st_size);
        std::shuffle(order.begin(), order.end(), random);
        for (U32 const key : order) {
            writer->remove(StampKey{key}, old);
            if (random() % 16 == 0) writer->write(Value(key % staying, stamp++), true);
        }
        // With readers in the corral the last slots may wait for them; nothing is connected here.
        board.blocksEmpty = static_cast<U64>(status().st_blocks);
        board.sizeEmpty = static_cast<U64>(status().st_size);
        ++board.rounds;
    }
    return writer->validate() ? 0 : 2;
}

int readerProcess(Board& board, U32 seed) {
    try {
        auto reader = T::reader("storm");
        while (!reader->initialize("test"))
            if (board.stop) return 0;
        while (!board.filled)
            if (board.stop) return 0;
        std::mt19937 random(seed);
        while (!board.stop && !board.complaint.any()) {
            for (int i = 0; i < 1000; ++i) {
                U32 const key = static_cast<U32>(random()) % (random() % 2 ? staying : most);
                Value value;
                bool found = false;
                reader->lookup(StampKey{key}, found, &value);
                if (found ? value.key().number != key || !value.sound() : key < staying)
                    board.complaint.say("key {}: {}", key, found ? "torn" : "missed");
            }
            State const state = T::walked(*reader);
            for (U32 key = 0; key < staying; ++key)
                if (!state.count(key)) board.complaint.say("a walk missed key {}", key);
            for (auto const& [key, stamp] : state)
                if (stamp == 0xffffffff) board.complaint.say("a walk met a torn record or a key twice: {}", key);
            for (U32 slot = 0; slot < most; slot += 37) {
                Value value;
                if (reader->getValue(slot, value, nullptr) && !value.sound()) board.complaint.say("slot {} is torn", slot);
            }
            ++board.reads;
        }
    } catch (std::exception const& e) {
        board.complaint.say("exception to a reader: {}", e.what());
    }
    return 0;
}

TEST(Torture, ShrinkStormUnderStoppedReadersLosesNothingAndGivesTheMemoryBack) {
    TempBase const base;
    SharedBlock<Board> board;
    Child writer([&](Child&) { return writerProcess(*board); });
    std::vector<std::unique_ptr<Child>> readers;
    for (U32 i = 0; i < 3; ++i)
        readers.push_back(std::make_unique<Child>([&, i](Child&) { return readerProcess(*board, i); }));
    auto const end = std::chrono::steady_clock::now() + std::chrono::duration<double>(soakSeconds(4));
    std::mt19937 random(3);
    U32 stops = 0;
    while (std::chrono::steady_clock::now() < end && !board->complaint.any()) {
        Child const& reader = *readers[random() % readers.size()];
        reader.signal(SIGSTOP);
        ++stops;
        std::this_thread::sleep_for(std::chrono::milliseconds(random() % 30));
        reader.signal(SIGCONT);
        std::this_thread::sleep_for(std::chrono::milliseconds(random() % 10));
    }
    board->stop = true;
    EXPECT_EQ(writer.join(), 0);
    for (auto& reader : readers) EXPECT_EQ(reader->join(), 0);
    EXPECT_FALSE(board->complaint.any()) << board->complaint.text();
    EXPECT_GT(board->rounds.load(), 1U);
    EXPECT_GT(board->reads.load(), 0U);
    // The pages go, the file's length stays (H-file-1).
    EXPECT_LT(board->blocksEmpty.load() * 8, board->blocksFull.load());
    EXPECT_GE(board->sizeEmpty.load(), board->sizeFull.load());
    counted("shrink storm: {} times down to {} entries and up again, {} reading rounds, {} SIGSTOPs of readers, "
            "{} blocks full, {} empty",
            board->rounds.load(), staying, board->reads.load(), stops, board->blocksFull.load(),
            board->blocksEmpty.load());
}

} // namespace
