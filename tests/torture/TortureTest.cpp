// One writing process at full speed, three reading ones, over a table that grows from 16 slots to
// over 100,000 entries and goes on being overwritten, removed from and filled again; and over one
// that falls from 4,096 entries to 16 and rises again, its buckets with it, while readers are stopped
// in mid-read now and then.
#include "tests/support/Crew.h"
#include "tests/torture/Scenarios.h"

#include <gtest/gtest.h>
#include <random>
#include <sys/stat.h>

namespace {

using namespace Support;
using T = Table<160>;
using Value = T::Value;

struct Board {
    Complaint complaint;
    std::atomic<bool> filled, stop; // filled: the staying keys are there
    std::atomic<U32> largest, rounds;
    std::atomic<U64> writes, lookups, walks;
    std::atomic<U64> blocksFull, blocksEmpty, sizeFull, sizeEmpty;
};

class Torture : public ::testing::Test {
protected:
    bool goesOn() const { return !board_->stop && !board_->complaint.any(); }

    // Keys 0 to staying-1 are there from the start and are never removed; the others come and go.
    std::unique_ptr<T::Writer> begin(U32 staying, Brisk::MapDescriptor const& descriptor) {
        auto writer = T::writer("torture", descriptor);
        if (!writer->initialize("test")) throw std::runtime_error("no table");
        if (writer->capacity() > 32)
            board_->complaint.say("began with {} slots", writer->capacity());
        for (U32 key = 0; key < staying; ++key) writer->write(Value(key, stamp_++), true);
        board_->filled = true;
        return writer;
    }

    int read(U32 staying, U32 keys, U32 seed) {
        auto const reader = T::reader("torture");
        auto const judge = [&](char const* how, bool there, Value const& value, U32 key) {
            if (there ? value.key().id != key || !value.whole() : key < staying)
                board_->complaint.say("{}: key {} {}", how, key,
                                      there ? "is torn or another's" : "is missed");
        };
        while (goesOn() && !(board_->filled && reader->initialize("test"))) continue;
        std::mt19937 random(seed);
        while (goesOn()) {
            Value value;
            for (int i = 0; i < 5000; ++i) {
                U32 const key = static_cast<U32>(random()) % (random() % 2 ? staying : keys);
                bool found = false;
                reader->lookup(TestKey(key), found, &value);
                judge("lookup", found, value, key);
            }
            board_->lookups += 5000;
            std::vector<bool> seen(keys);
            Brisk::IterHint hint;
            for (bool more = reader->first(value, hint); more && goesOn();
                 more = reader->next(value.key(), value, hint)) {
                U32 const key = value.key().id;
                judge("walk", true, value, key);
                if (key >= keys || seen[key])
                    board_->complaint.say("walk: key {} twice", key);
                else
                    seen[key] = true;
            }
            for (U32 key = 0; key < staying && goesOn(); ++key)
                judge("walk", seen[key], Value(key, 0), key);
            for (U32 slot = 0; slot < keys; slot += 37)
                if (reader->getValue(slot, value, nullptr))
                    judge("slot", true, value, value.key().id);
            ++board_->walks;
        }
        return 0;
    }

    // A writer and three readers of these keys, until `goesOn` is false or `until` says so.
    template <class Write, class Until>
    void run(U32 staying, U32 keys, Write write, Until until) {
        Crew crew(board_->complaint, board_->stop);
        for (U32 i = 0; i < 3; ++i) crew.add([=, this] { return read(staying, keys, i); });
        crew.add(write);
        while (goesOn() && !until(crew)) std::this_thread::sleep_for(std::chrono::milliseconds(1));
        crew.finish();
        EXPECT_GT(board_->walks.load(), 0U);
    }

    TempBase const base_;
    SharedBlock<Board> board_;
    U32 stamp_ = 1;
};

TEST_F(Torture, ReadersBesideAWriterAtFullSpeedSeeNoTornRecordAndMissNothing) {
    constexpr U32 staying = 1000, keys = 140'000, many = 100'000;
    auto const write = [&] {
        auto const writer = begin(staying, Brisk::MapDescriptor(200'000));
        std::mt19937 random(7);
        Value removed;
        // Fills up to 120,000 entries, falls to 60,000, and so on.
        for (bool filling = true; goesOn(); board_->writes += 256) {
            for (int i = 0; i < 256; ++i) {
                U32 const key = static_cast<U32>(random()) % keys;
                if (key < staying || random() % 4 == 0 || filling == (random() % 8 != 0))
                    writer->write(Value(key, stamp_++), true);
                else
                    writer->remove(TestKey(key), removed);
            }
            U32 const members = writer->members();
            if (members > board_->largest) board_->largest = members;
            filling = members > 120'000 ? false : members < 60'000 ? true : filling;
        }
        return writer->validate() ? 0 : 2;
    };
    // A slow build takes the time it needs to fill the table.
    run(staying, keys, write, [&](Crew const& crew) {
        return crew.ranFor(soakSeconds(4)) && (board_->largest > many || crew.ranFor(120));
    });
    EXPECT_GT(board_->largest.load(), many);
    counted("three readers beside a writer for {} seconds: {} writes, {} lookups, {} walks, at "
            "most {} entries",
            soakSeconds(4), board_->writes.load(), board_->lookups.load(), board_->walks.load(),
            board_->largest.load());
}

TEST_F(Torture, ShrinkStormUnderStoppedReadersLosesNothingAndGivesTheMemoryBack) {
    constexpr U32 staying = 16, keys = 4096;
    auto const write = [&] {
        Brisk::MapDescriptor descriptor(keys);
        descriptor.shrinkable = descriptor.shrinkBuckets = true;
        auto const writer = begin(staying, descriptor);
        auto const measure = [&](auto& blocks, auto& size) {
            struct stat status {};
            stat(writer->rootPath().file("slots").c_str(), &status);
            blocks = static_cast<U64>(status.st_blocks);
            size = static_cast<U64>(status.st_size);
        };
        std::mt19937 random(5);
        Value old;
        std::vector<U32> order;
        for (U32 key = staying; key < keys; ++key) order.push_back(key);
        for (; goesOn(); ++board_->rounds) {
            for (U32 const key : order) writer->write(Value(key, stamp_++), true);
            measure(board_->blocksFull, board_->sizeFull);
            std::shuffle(order.begin(), order.end(), random);
            for (U32 const key : order) {
                writer->remove(TestKey(key), old);
                if (random() % 16 == 0) writer->write(Value(key % staying, stamp_++), true);
            }
            // With readers in the corral the last slots may wait for them; nothing is connected here.
            measure(board_->blocksEmpty, board_->sizeEmpty);
        }
        return writer->validate() ? 0 : 2;
    };
    std::mt19937 random(3);
    U32 stops = 0;
    run(staying, keys, write, [&](Crew& crew) {
        Child const& reader = crew[random() % 3];
        reader.signal(SIGSTOP);
        ++stops;
        std::this_thread::sleep_for(std::chrono::milliseconds(random() % 30));
        reader.signal(SIGCONT);
        std::this_thread::sleep_for(std::chrono::milliseconds(random() % 10));
        return crew.ranFor(soakSeconds(4));
    });
    EXPECT_GT(board_->rounds.load(), 1U);
    // The pages go, the file's length stays (H-file-1).
    EXPECT_LT(board_->blocksEmpty.load() * 8, board_->blocksFull.load());
    EXPECT_GE(board_->sizeEmpty.load(), board_->sizeFull.load());
    counted("shrink storm: {} times down to {} entries and up again, {} walks, {} SIGSTOPs of "
            "readers, {} blocks "
            "full, {} empty",
            board_->rounds.load(), staying, board_->walks.load(), stops, board_->blocksFull.load(),
            board_->blocksEmpty.load());
}

} // namespace
