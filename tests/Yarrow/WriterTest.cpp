// The writing end of the queue: what stands in the files after any history, and which files a
// successor takes over.
#include "Yarrow/YarrowReader.h"
#include "Yarrow/YarrowWriter.h"
#include "support/Child.h"
#include "support/TempBase.h"

#include "Dunlin/Exception.h"
#include "Dunlin/TaskSchedulerRoot.h"

#include <map>
#include <random>

namespace {

using namespace Yarrow;
using Writer = YarrowWriter<BasicSlot, Brisk::YarrowPos>;
constexpr U32 oriel = 0x30007, numSlots = 5000, none = ~0U;

struct Shrinks : YarrowWriterNotifiee {
    int shrinks = 0;
    void shrink() override { ++shrinks; }
};

class QueueWriterTest : public testing::Test {
protected:
    Support::TempBase base_;
    Mem::RootPath path_{"t"};
    Dunlin::Platform::DebugHandler& trace_ = Support::quietTrace();
    Shrinks shrinks_;
    YarrowWriterOptions options_;

    std::unique_ptr<Writer> make() {
        return std::make_unique<Writer>(trace_, path_, options_, &shrinks_);
    }
    static std::string verdict(Writer const& writer, U32 id = oriel, U32 slots = numSlots) {
        std::string message;
        return writer.validate(id, slots, message) ? "" : message;
    }
};

TEST_F(QueueWriterTest, NewKeptAndRemadeFiles) {
    auto writer = make();
    EXPECT_EQ(writer->attach(oriel), 1U);
    EXPECT_EQ(writer->incarnation(), 1U);
    for (U32 slot : {7U, 3U, 7U}) writer->notify(BasicSlot{slot});
    EXPECT_EQ(writer->sequence(), 3U);
    EXPECT_EQ(writer->entry(0), (Entry{1, Entry::tombstone})); // a tombstone keeps its offset
    EXPECT_EQ(writer->entry(writer->position(7)), (Entry{3, 7}));
    EXPECT_EQ(writer->pos(1).value, none);
    EXPECT_EQ(verdict(*writer), "");
    writer->validateFile();
    writer.reset();

    writer = make();
    EXPECT_EQ(writer->judge(oriel), 2U);
    EXPECT_EQ(writer->attach(oriel), 2U);
    EXPECT_EQ(writer->incarnation(), 2U);
    EXPECT_EQ(writer->sequence(), 3U);
    EXPECT_EQ(writer->position(3), 1U);
    EXPECT_EQ(writer->position(7), 2U);
    writer->notify(3U);
    EXPECT_EQ(writer->entry(1).slot, Entry::tombstone);

    // Another generation: new inodes; the old one, still mapped here, is told that it is over.
    Mem::Tracked<Mem::SharedMemWrapper> reader(path_, primaryName);
    auto const* old = static_cast<ControlHeader const*>(reader.attach(128, Mem::Mode::reader));
    ASSERT_NE(old, nullptr);
    auto next = make();
    EXPECT_EQ(next->judge(oriel + 0x10000), 4U);
    EXPECT_EQ(old->orielId, oriel); // a look changes nothing
    EXPECT_EQ(next->attach(oriel + 0x10000), 4U);
    EXPECT_EQ(old->orielId, 0U);
    EXPECT_EQ(old->sequence, 4U);
    EXPECT_TRUE(reader.replaced());
    EXPECT_EQ(next->sequence(), 0U);
    EXPECT_EQ(next->entryCount(), 0U);
    EXPECT_THROW(writer->validateFile(), Dunlin::CorruptionDetectedException);

    next->cleanup();
    EXPECT_EQ(make()->judge(oriel), 1U);
    EXPECT_TRUE(std::filesystem::is_empty(path_.text()));
}

TEST_F(QueueWriterTest, OneFileMissingIsNoQueue) {
    make()->attach(oriel);
    for (char const* name : {primaryName, secondaryName}) {
        std::filesystem::remove(path_.file(name));
        EXPECT_EQ(make()->attach(oriel), 4U) << name;
        EXPECT_EQ(make()->attach(oriel), 2U) << name;
    }
}

TEST_F(QueueWriterTest, DamageIsFoundAndNamed) {
    struct Row {
        char const* file;
        std::size_t offset, width;
        U64 value;
        char const* text;
    };
    std::size_t const table = 128, entries = 192;
    Row const rows[] = {
        {primaryName, 0, 8, 1, "bad queue magic"},
        {secondaryName, 0, 8, 1, "bad queue magic"},
        {primaryName, 8, 4, 2, "bad queue format"},
        {secondaryName, 12, 4, 2, "bad queue format"},
        {primaryName, 16, 4, 9, "bad queue orielId"},
        {secondaryName, 16, 4, 9, "bad queue orielId"},
        {primaryName, 24, 4, 16, "bad queue format"},
        {primaryName, 28, 4, 3, "bad queue format"},
        {primaryName, 32, 8, 99, "bad queue sequence"},
        {primaryName, 40, 8, 3, "bad queue generation"},
        {primaryName, 40, 8, 0, "bad queue generation"},
        {primaryName, 48, 8, 2, "open or bad corral: 2 to 0"},
        {primaryName, 64, 8, ~0ULL, "bad queue sequence"},
        {primaryName, 64, 8, 1, "bad queue entry"},
        {primaryName, table, 8, 4, "bad queue generation"},
        {primaryName, table + 8, 8, 4, "bad queue table"},
        {primaryName, table + 16, 4, 1 << 20, "bad queue table"},
        {primaryName, table + 16, 4, 2, "bad queue table"},
        {primaryName, table + 20, 4, 1 << 20, "bad queue table"},
        {primaryName, entries, 4, 0, "bad queue entry:0 offset:0"},
        {primaryName, entries + 8, 4, 1, "bad queue entry:1 offset:1 after:1"},
        {primaryName, entries + 20, 4, numSlots, "bad queue entry:2 slot:5000"},
        {primaryName, entries + 20, 4, 10, "slot:10 stands twice"},
    };
    for (Row const& row : rows) {
        SCOPED_TRACE(testing::Message() << row.file << '@' << row.offset << '=' << row.value);
        std::filesystem::remove_all(path_.text());
        auto writer = make();
        writer->attach(oriel);
        for (U32 slot : {10U, 20U, 30U}) writer->notify(slot);
        ASSERT_EQ(verdict(*writer), "");
        if (row.width == 8)
            Support::poke(path_.file(row.file), row.offset, row.value);
        else
            Support::poke(path_.file(row.file), row.offset, static_cast<U32>(row.value));
        EXPECT_THAT(verdict(*writer), testing::HasSubstr(row.text));
        writer.reset();
        // The number of slots is not known at attach; anything else is.
        bool const slotsAlone = row.value == numSlots;
        EXPECT_EQ(make()->attach(oriel), slotsAlone ? 2U : 4U);
    }
    std::filesystem::resize_file(path_.file(primaryName), 100);
    EXPECT_EQ(make()->attach(oriel), 4U);
    EXPECT_NE(verdict(*make()), ""); // not attached
}

// Any history of the three verbs, with compactions, corrals and takeovers between: each slot's last
// announcement stands at its recorded place unless it may have been dropped, and nothing else
// lives.
TEST_F(QueueWriterTest, ModelOfAnyHistory) {
    for (PruneMode const mode : {PruneMode::keep, PruneMode::acknowledged, PruneMode::bounded}) {
        unsigned const seed = std::random_device{}();
        SCOPED_TRACE(testing::Message() << "mode " << U32(mode) << " seed " << seed);
        std::mt19937 random(seed);
        std::filesystem::remove_all(path_.text());
        options_ = {};
        options_.pruneMode = mode;
        options_.maxLag = 700;
        options_.maxOffset = 9000;
        options_.maxAge = 6000;
        auto writer = make();
        writer->attach(oriel);
        std::map<U32, Sequence> last; // by slot its live announcement, outside of corrals
        Sequence sequence = 0;
        U64 compactions = 0;
        auto const announce = [&](bool inCorral) {
            U32 const slot = static_cast<U32>(random() % (random() % 8 ? 300 : numSlots));
            writer->notify(slot);
            ++sequence;
            if (inCorral)
                last.erase(slot);
            else
                last[slot] = sequence;
            return slot;
        };
        for (int round = 0; round < 600; ++round) {
            unsigned const dice = static_cast<unsigned>(random() % 100);
            if (dice < 80) {
                for (auto n = random() % 300; n-- > 0;) announce(false);
            } else if (dice < 90) {
                U32 const slot = static_cast<U32>(random() % 300);
                writer->tombstone(slot);
                last.erase(slot);
            } else if (dice < 95) {
                writer->markShrinkStart();
                for (auto n = random() % 50; n-- > 0;) announce(true);
                ASSERT_THAT(verdict(*writer), testing::StartsWith("open or bad corral"));
                writer->markShrinkEnd();
                ASSERT_EQ(writer->corralStart(), 0U); // nobody reads: gone at once
                ASSERT_EQ(writer->corralEnd(), 0U);
            } else {
                compactions += writer->compactions();
                writer.reset();
                writer = make();
                ASSERT_EQ(writer->attach(oriel), 2U);
            }
            ASSERT_EQ(verdict(*writer), "");
            ASSERT_EQ(writer->sequence(), sequence);
            U32 live = 0;
            for (U32 i = 0; i < writer->entryCount(); ++i) {
                Entry const entry = writer->entry(i);
                if (entry.slot == Entry::tombstone) continue;
                ++live;
                ASSERT_EQ(writer->position(entry.slot), i);
                ASSERT_EQ(last.at(entry.slot), writer->baseSequence() + entry.offset);
            }
            for (auto const& [slot, at] : last) {
                if (writer->position(slot) != none)
                    --live;
                else
                    ASSERT_LE(at, writer->prunedThrough()) << slot;
            }
            ASSERT_EQ(live, 0U);
        }
        EXPECT_GT(compactions, 5U);
        // What it costs: in the order of 16 bytes a file and live slot.
        EXPECT_LE(writer->primaryMappedSize() + writer->secondaryMappedSize(),
                  8 * Mem::pageSize_ + 32U * 2 * numSlots);
    }
}

TEST_F(QueueWriterTest, ShrinkIsToldFromTheLoopAlone) {
    auto writer = make();
    writer->attach(oriel);
    writer->notify(5U);
    writer->markShrinkStart();
    writer->markShrinkEnd(); // nothing moved
    EXPECT_EQ(writer->corralStart(), 0U);
    Dunlin::schedulerRootDunlin->runReady();
    EXPECT_EQ(shrinks_.shrinks, 0);
    writer->markShrinkStart();
    EXPECT_EQ(writer->corralStart(), 2U);
    writer->notify(1U);
    writer->tombstone(5U);
    writer->notify(5U);
    EXPECT_EQ(writer->position(1), none);
    writer->markShrinkEnd();
    EXPECT_EQ(shrinks_.shrinks, 0);
    Dunlin::schedulerRootDunlin->runReady();
    EXPECT_EQ(shrinks_.shrinks, 1);
    EXPECT_EQ(writer->prunedThrough(), 3U);

    // One posted for a writer that has gone finds nobody.
    writer->markShrinkStart();
    writer->notify(1U);
    writer->markShrinkEnd();
    writer.reset();
    Dunlin::schedulerRootDunlin->runReady();
    EXPECT_EQ(shrinks_.shrinks, 1);
}

// A death between the two stores that dissolve a corral leaves its end behind. With the next one's
// start it would make a span that ends before it begins, and no position would stand back from it.
TEST_F(QueueWriterTest, TheEndOfADissolvedCorralIsNotTakenOver) {
    auto writer = make();
    writer->attach(oriel);
    for (U32 slot : {1U, 2U, 3U}) writer->notify(slot);
    writer.reset();
    Support::poke(path_.file(primaryName), 56, U64{2});
    writer = make();
    ASSERT_EQ(writer->attach(oriel), 2U);
    writer->markShrinkStart();
    writer->notify(4U);
    YarrowReader<BasicSlot> reader(trace_, path_);
    ASSERT_TRUE(reader.attach(oriel));
    EXPECT_TRUE(reader.inCorral(4));
    EXPECT_EQ(reader.position(), 3U);
}

// Compactions while slots move keep what was announced since the move began, in every mode.
TEST_F(QueueWriterTest, PruningStopsInFrontOfACorral) {
    for (PruneMode const mode : {PruneMode::keep, PruneMode::acknowledged, PruneMode::bounded}) {
        SCOPED_TRACE(U32(mode));
        std::filesystem::remove_all(path_.text());
        options_.pruneMode = mode;
        options_.maxLag = 10;
        auto writer = make();
        writer->attach(oriel);
        writer->notify(1U);
        writer->markShrinkStart();
        Sequence const start = writer->corralStart();
        writer->notify(2U);
        YarrowReader<BasicSlot> reader(trace_, path_);
        ASSERT_TRUE(reader.attach(oriel));
        reader.lastIs(reader.position());
        while (writer->compactions() < 2) writer->notify(3U);
        EXPECT_LT(writer->prunedThrough(), start);
        ASSERT_EQ(reader.next(), QueueReader::Taken::entry);
        EXPECT_EQ(reader.slot().index, 2U);
    }
}

TEST_F(QueueWriterTest, NoRoomDropsRatherThanFails) {
    auto writer = make();
    options_.pruneMode = PruneMode::keep;
    writer = make();
    writer->attach(oriel);
    U32 slot = 0;
    while (writer->entryCount() < TableView::capacityOf(writer->primaryMappedSize(), 0))
        writer->notify(slot++);
    Mem::failMappingAfter(1);
    writer->notify(slot);
    EXPECT_EQ(verdict(*writer), "");
    EXPECT_EQ(writer->sequence(), slot + 1U);
    EXPECT_NE(writer->position(slot), none); // the new one is always there
    EXPECT_EQ(writer->secondaryMappedSize(), Mem::pageSize_);
    Mem::failMappingAfter(0);
    for (U32 i = 0; i < 4000; ++i) writer->notify(i);
    EXPECT_NE(writer->position(0), none);
    EXPECT_EQ(verdict(*writer), "");
}

TEST_F(QueueWriterTest, LocalQueueTouchesNoFile) {
    options_.localMem = true;
    for (bool const heap : {false, true}) {
        options_.heap = heap;
        Writer writer(trace_, Mem::RootPath("t", true), options_, nullptr);
        EXPECT_EQ(writer.attach(5), 1U);
        for (U32 i = 0; i < 10'000; ++i) writer.notify(i % 3000);
        EXPECT_EQ(verdict(writer, 5), "");
        EXPECT_EQ(writer.primaryMappedSize(), Mem::pageSize_);
        writer.validateFile();
    }
    EXPECT_TRUE(std::filesystem::is_empty(base_.path()));
}

} // namespace
