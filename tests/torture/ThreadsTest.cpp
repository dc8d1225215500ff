// A writer and its readers as threads over one mapping of the files, for ThreadSanitizer: it compares
// addresses, so only here does it see whether every access to a shared word is an atomic one. (The
// orders between them are the matter of DelayedStoresTest.cpp.)
#include "tests/support/Child.h"
#include "tests/support/SharedBlock.h"
#include "tests/support/TempBase.h"
#include "tests/torture/Scenarios.h"

#include "Yarrow/YarrowReader.h"

#include <atomic>
#include <gtest/gtest.h>
#include <random>
#include <thread>

namespace {

using namespace Support;
using T = Table<48>;
using Value = T::Value;

constexpr U32 staying = 16, most = 2048;

struct Threads {
    Complaint complaint;
    std::atomic<bool> stop{false};
    std::atomic<U32> orielId{0};
    std::atomic<U64> lookups{0}, walks{0}, notifications{0};

    // Runs `body` with a reader until the end; an exception to a caller is a complaint.
    template <class Body>
    void read(Body body) {
        try {
            auto const reader = T::reader("threads");
            if (!reader->initialize("test")) return complaint.say("no table");
            while (!stop) body(*reader);
        } catch (std::exception const& e) {
            complaint.say("exception to a reader: {}", e.what());
        }
    }
    void look(T::Reader& reader) {
        Value value;
        for (U32 key = 0; key < 2 * staying; ++key) {
            bool found = false;
            reader.lookup(TestKey(key), found, &value);
            ++lookups;
            if (!found && key < staying) complaint.say("key {} not found", key);
            if (found && (value.key().id != key || !value.whole()))
                complaint.say("key {} torn", key);
        }
        for (U32 slot = 0; slot < 64; ++slot)
            if (reader.getValue(slot, value, nullptr) && !value.whole())
                complaint.say("slot {} torn", slot);
    }
    void walk(T::Reader& reader) {
        State const found = T::walked(reader);
        ++walks;
        for (auto const& [key, stamp] : found)
            if (stamp == 0xffffffff) complaint.say("a walk met key {} torn or twice", key);
        for (U32 key = 0; key < staying; ++key)
            if (!found.count(key)) complaint.say("a walk missed key {}", key);
    }
    void follow() {
        try {
            Yarrow::YarrowReader<Yarrow::BasicSlot> queue(quietTrace(),
                                                          Mem::YokeRootPath("threads"));
            if (!queue.attach(orielId)) return complaint.say("no queue");
            while (!stop) switch (queue.next()) {
                case Yarrow::QueueReader::Taken::entry:
                    ++notifications;
                    queue.validateNotif();
                    queue.done();
                    break;
                case Yarrow::QueueReader::Taken::overtaken:
                    queue.lastIs(queue.position());
                    break;
                case Yarrow::QueueReader::Taken::none:
                    std::this_thread::yield();
                }
        } catch (std::exception const& e) {
            complaint.say("exception to a follower: {}", e.what());
        }
    }
};

// The table's every operation, again and again: from 16 entries to 2,048 and back, slots and buckets
// growing and shrinking, direct operations, a validation.
TEST(Threads, OverOneMappingTouchSharedWordsByAtomicAccessesAlone) {
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP()
        << "the mappings of AddressSanitizer builds have ends, which would lie in one another";
#endif
    TempBase const base;
    Brisk::MapDescriptor descriptor(most);
    descriptor.shrinkable = descriptor.shrinkBuckets = true;
    auto const writer = T::writer("threads", descriptor);
    ASSERT_TRUE(writer->initialize("test"));
    for (U32 key = 0; key < staying; ++key) writer->write(Value(key, 0), true);
    static Threads threads;
    threads.orielId = writer->orielId();
    std::thread all[] = {
        std::thread([] { threads.read([](auto& reader) { threads.look(reader); }); }),
        std::thread([] { threads.read([](auto& reader) { threads.walk(reader); }); }),
        std::thread([] { threads.follow(); })};
    std::mt19937 random(1);
    auto const end =
        std::chrono::steady_clock::now() + std::chrono::duration<double>(soakSeconds(3));
    U32 rounds = 0;
    for (U32 stamp = 1; std::chrono::steady_clock::now() < end && !threads.complaint.any();
         ++rounds) {
        Value old;
        for (U32 key = staying; key < most; ++key) {
            writer->write(Value(key, stamp), true);
            writer->write(Value(random() % staying, ++stamp), true);
        }
        for (U32 key = 0; key < staying; ++key) {
            Value const value(key, ++stamp);
            Mem::copyBytes(writer->directUpdate(TestKey(key)), &value, sizeof value);
            writer->directCommit();
        }
        for (U32 key = staying; key < most; ++key) writer->remove(TestKey(key), old);
        writer->directWrite(Value(most, ++stamp));
        writer->directCommit();
        writer->remove(TestKey(most), old);
    }
    threads.stop = true;
    for (auto& thread : all) thread.join();
    EXPECT_FALSE(threads.complaint.any()) << threads.complaint.text();
    auto const counters = writer->writerCounters();
    EXPECT_GT(counters.slotShrinks, 0U);
    EXPECT_GT(counters.bucketShrinks, 0U);
    EXPECT_GT(threads.lookups, 1000U);
    EXPECT_GT(threads.walks, 10U);
    EXPECT_GT(threads.notifications, 1000U);
    EXPECT_TRUE(writer->validate());
    fmt::print("{} rounds, {} lookups, {} walks, {} notifications\n", rounds,
               threads.lookups.load(), threads.walks.load(), threads.notifications.load());
    writer->cleanup();
    writer->detach(false);
}

#if defined(__SANITIZE_THREAD__)
// The tool does see both sides meet: it reports a plain store to a word that readers load.
TEST(Threads, AreSeenToMeetWhereAStoreIsPlain) {
    constexpr int endOfAReportedProcess = 66; // whatever it returns itself
    TempBase const base;
    Child child([](Child&) {
        ::close(STDERR_FILENO);
        auto const writer = T::writer("threads", Brisk::MapDescriptor(most));
        auto const reader = T::reader("threads");
        if (!writer->initialize("test") || !reader->initialize("test")) return 1;
        writer->write(Value(0, 0), true);
        std::thread thread([&] {
            for (U32 i = 0; i < 1000; ++i) T::walked(*reader);
        });
        U32 volatile& version = writer->slotTable().slots[0].slotVersion;
        for (U32 i = 0; i < 1000; ++i) version = version;
        thread.join();
        return 0;
    });
    EXPECT_EQ(child.join(), endOfAReportedProcess);
}
#endif

} // namespace
