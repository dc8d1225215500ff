// The reading end of the queue: whatever the writer does between two looks, or during one, a reader
// meets every change or is told to walk.
#include "support/MiniTable.h"
#include "support/TempBase.h"

#include "Dunlin/Exception.h"
#include "Dunlin/TaskSchedulerRoot.h"

#include <random>

namespace {

using namespace Yarrow;
using Support::Copy, Support::Values, Support::Writer;
using Taken = QueueReader::Taken;
constexpr U32 oriel = 7;

class QueueReaderTest : public testing::Test {
protected:
    Support::TempBase base_;
    Mem::RootPath path_{"t"};
    Dunlin::Platform::DebugHandler& trace_ = Support::quietTrace();
    YarrowWriterOptions options_;
    std::unique_ptr<Writer> writer_;
    YarrowReader<BasicSlot> reader_{trace_, path_};

    void make() {
        writer_ = std::make_unique<Writer>(trace_, path_, options_, nullptr);
        writer_->attach(oriel);
    }
    void compactOnce() {
        auto const before = writer_->compactions();
        while (writer_->compactions() == before) writer_->notify(4999U);
    }
    std::vector<U32> takeAll() {
        std::vector<U32> slots;
        for (;;) {
            Taken const taken = reader_.next();
            if (taken == Taken::overtaken) slots.push_back(~0U);
            if (taken != Taken::entry) return slots;
            slots.push_back(reader_.slot().index);
            reader_.done();
        }
    }
};

TEST_F(QueueReaderTest, NewestPerSlotInOrder) {
    EXPECT_FALSE(reader_.attach(oriel));
    make();
    EXPECT_FALSE(reader_.attach(oriel + 1));
    ASSERT_TRUE(reader_.attach(oriel));
    EXPECT_TRUE(reader_.quiesced());
    for (U32 slot : {1U, 2U, 3U, 2U}) writer_->notify(slot);
    EXPECT_FALSE(reader_.quiesced());
    EXPECT_EQ(takeAll(), (std::vector<U32>{1, 3, 2}));
    EXPECT_EQ(reader_.last(), 4U);
    EXPECT_TRUE(reader_.quiesced());
    writer_->notify(1U);
    writer_->tombstone(1U); // withdrawn: nothing to do, yet the end is reached
    EXPECT_EQ(takeAll(), std::vector<U32>{});
    EXPECT_EQ(reader_.last(), 5U);
}

TEST_F(QueueReaderTest, FindsItsPlaceAgainAfterAFlipOrIsOvertaken) {
    options_.pruneMode = PruneMode::keep;
    make();
    ASSERT_TRUE(reader_.attach(oriel));
    for (U32 slot : {1U, 2U, 3U}) writer_->notify(slot);
    ASSERT_EQ(reader_.next(), Taken::entry);
    reader_.done();
    compactOnce();
    compactOnce(); // the table the reader stood in is another one now
    EXPECT_EQ(takeAll(), (std::vector<U32>{2, 3, 4999}));
    EXPECT_GE(reader_.flips(), 1U);

    options_.pruneMode = PruneMode::acknowledged;
    make();
    writer_->notify(6U);
    compactOnce(); // nobody is connected: all entries go
    EXPECT_EQ(takeAll(), (std::vector<U32>{~0U}));
    EXPECT_EQ(reader_.next(), Taken::overtaken); // until a walk gives a new position
    reader_.lastIs(reader_.position());
    EXPECT_EQ(reader_.next(), Taken::none);
    EXPECT_EQ(reader_.last(), writer_->sequence());
}

TEST_F(QueueReaderTest, AStaleNotificationIsNoProof) {
    options_.pruneMode = PruneMode::keep;
    make();
    ASSERT_TRUE(reader_.attach(oriel));
    writer_->notify(1U);
    writer_->notify(2U);
    ASSERT_EQ(reader_.next(), Taken::entry);
    EXPECT_TRUE(reader_.validateNotif());
    compactOnce();
    EXPECT_TRUE(reader_.validateNotif()); // found again in the new table
    writer_->notify(1U);
    EXPECT_FALSE(reader_.validateNotif());
    compactOnce();
    EXPECT_FALSE(reader_.validateNotif());
    reader_.done();
    EXPECT_EQ(takeAll().front(), 2U);

    // Dropped without a successor: the reader must walk.
    options_.pruneMode = PruneMode::acknowledged;
    make();
    writer_->notify(9U);
    ASSERT_EQ(reader_.next(), Taken::entry);
    compactOnce();
    EXPECT_FALSE(reader_.validateNotif());
    reader_.done();
    EXPECT_EQ(reader_.next(), Taken::overtaken);
}

TEST_F(QueueReaderTest, APositionInsideAMoveStandsInFrontOfIt) {
    make();
    ASSERT_TRUE(reader_.attach(oriel));
    writer_->notify(1U);
    EXPECT_EQ(reader_.position(), 1U);
    writer_->markShrinkStart();
    EXPECT_EQ(reader_.position(), 1U);
    writer_->notify(2U);
    writer_->notify(3U);
    EXPECT_EQ(reader_.position(), 1U);
    reader_.lastIs(reader_.position());
    // Even a slot that is announced twice inside keeps both.
    writer_->notify(2U);
    EXPECT_EQ(takeAll(), (std::vector<U32>{2, 3, 2}));
    writer_->markShrinkEnd();
    EXPECT_EQ(reader_.position(), 4U);
}

TEST_F(QueueReaderTest, DamageEndsInANamedExceptionOrACleanAnswer) {
    options_.pruneMode = PruneMode::keep;
    make();
    for (U32 i = 0; i < 600; ++i) writer_->notify(i); // table 1 is active
    ASSERT_TRUE(reader_.attach(oriel));
    std::size_t const bits = 8 * 400;
    for (char const* name : {primaryName, secondaryName}) {
        Mem::Tracked<Mem::SharedMemWrapper> file(path_, name);
        auto* const bytes = static_cast<U8*>(file.attach(4096, Mem::Mode::writer));
        for (std::size_t bit = 0; bit < bits; ++bit) {
            // The generation and the head are followed in a loop that real writers keep short.
            bytes[bit / 8] = static_cast<U8>(bytes[bit / 8] ^ 1U << bit % 8);
            YarrowReader<BasicSlot> reader(trace_, path_);
            try {
                if (reader.attach(oriel)) {
                    for (int i = 0; i < 2000 && reader.next() == Taken::entry; ++i) {
                        reader.validateNotif();
                        reader.done();
                    }
                }
            } catch (Dunlin::CorruptionDetectedException const&) {
            } catch (Dunlin::MemoryResourceException const&) {
            }
            bytes[bit / 8] = static_cast<U8>(bytes[bit / 8] ^ 1U << bit % 8);
        }
    }
}

// A reader that looks at its own pace, in one process: exact after each full look.
TEST_F(QueueReaderTest, AnyHistoryAnyPace) {
    for (PruneMode const mode : {PruneMode::keep, PruneMode::acknowledged, PruneMode::bounded}) {
        unsigned const seed = std::random_device{}();
        SCOPED_TRACE(testing::Message() << "mode " << U32(mode) << " seed " << seed);
        std::mt19937 random(seed);
        std::filesystem::remove_all(path_.text());
        options_.pruneMode = mode;
        options_.maxLag = 500;
        make();
        Values values(3000);
        ASSERT_TRUE(reader_.attach(oriel));
        Copy copy(values, reader_);
        copy.walk();
        for (int round = 0; round < 3000; ++round) {
            for (auto n = random() % 200; n-- > 0;) {
                U32 const slot = static_cast<U32>(random() % values.size());
                values.change(slot);
                writer_->notify(slot);
            }
            if (random() % 3 == 0) copy.drain(random() % 100);
            if (random() % 5 == 0) {
                ASSERT_TRUE(copy.drain());
                ASSERT_TRUE(copy.exact()) << round;
            }
        }
        EXPECT_EQ(copy.walks > 1, mode != PruneMode::keep);
    }
}

} // namespace
