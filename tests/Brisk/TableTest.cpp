// A writer and readers of one table in one process: what each operation does to the files and what
// a reader then finds.
#include "FrontFixture.h"

#include "Brisk/TableFullException.h"

#include <array>
#include <random>
#include <set>

namespace {

using namespace Support;
using Dunlin::CorruptionDetectedException;

class Table : public Fronts {
public:
    auto writer(MapDescriptor const& descriptor = MapDescriptor(1000)) {
        return Fronts::writer(descriptor);
    }
    // Where the files of a table with few entries hold a slot, and a slot's link.
    static std::size_t slotAt(U32 slot) {
        return 776 + sizeof(Brisk::SlotTable<TestValue>::Slot) * slot;
    }
    U32 nextOf(U32 slot) const { return peek("slots", slotAt(slot) + 4); }
    // Some bucket with two slots or more.
    U32 bucketOfTwo() const {
        for (U32 bucket = 0; bucket < 16; ++bucket)
            if (U32 const first = peek("buckets", 28 + 8 * bucket);
                first < 16 && nextOf(first) < 16)
                return bucket;
        throw std::runtime_error("no two keys in a bucket");
    }
    // The first two slots of a chain change places.
    void swapNeighbours() const {
        U32 const bucket = bucketOfTwo();
        U32 const first = peek("buckets", 28 + 8 * bucket), second = nextOf(first);
        poke("slots", slotAt(first) + 4, nextOf(second));
        poke("slots", slotAt(second) + 4, first);
        poke("buckets", 28 + 8 * bucket, second);
    }
    // The second slot of a chain holds the first one's entry once more.
    void doubleAnEntry() const {
        U32 const first = peek("buckets", 28 + 8 * bucketOfTwo()), second = nextOf(first);
        for (std::size_t at = 12; at < slotAt(1) - slotAt(0); at += 4)
            poke("slots", slotAt(second) + at, peek("slots", slotAt(first) + at));
    }
};

TEST_F(Table, WhatIsWrittenIsFoundInOrderAndAfterGrowth) {
    auto w = writer();
    auto r = reader();
    EXPECT_EQ(w->capacity(), 16U);
    EXPECT_EQ(w->minSize(), 16U);
    EXPECT_EQ(w->maxSize(), 1000U);
    std::map<U32, U64> model;
    for (U32 i = 0; i < 3000; ++i) {
        w->write(TestValue(TestKey(i), i * 7), true);
        model[i] = i * 7;
        bool found = false;
        TestValue out;
        TestValue const* const value = r->lookup(TestKey(i), found, &out);
        ASSERT_TRUE(found) << i;
        EXPECT_EQ(value, &out);
        EXPECT_EQ(out.stamp(), i * 7);
    }
    EXPECT_EQ(contents(*w), model);
    EXPECT_EQ(contents(*r), model);
    EXPECT_EQ(r->members(), 3000U);
    EXPECT_EQ(w->buckets(), 4096U);
    // Doubling up to the configured size, then steps of a tenth, rounded up.
    EXPECT_EQ(w->capacity(), 3146U);
    EXPECT_TRUE(w->validate());
}

TEST_F(Table, AMissGivesTheDefaultValueAndAWriteWithoutOverwriteChangesNothing) {
    auto w = writer();
    auto r = reader();
    bool found = true;
    TestValue out(TestKey(1), 9);
    EXPECT_EQ(*r->lookup(TestKey(5), found, &out), TestValue());
    EXPECT_FALSE(found);
    EXPECT_EQ(out, TestValue());
    w->write(TestValue(TestKey(5), 1), true);
    U64 const sequence = w->sequence();
    EXPECT_EQ(w->write(TestValue(TestKey(5), 2), false)->stamp(), 1U);
    EXPECT_EQ(w->sequence(), sequence);
    w->write(TestValue(TestKey(5), 2), true);
    EXPECT_EQ(w->sequence(), sequence + 1);
    EXPECT_EQ(r->lookup(TestKey(5), found, nullptr)->stamp(), 2U);
}

TEST_F(Table, SlotVersionsRunOnThroughRewriteAndReuse) {
    auto w = writer();
    w->write(TestValue(TestKey(1), 1), true);
    auto& slot = w->slotTable().slots[0];
    EXPECT_EQ(slot.slotVersion, 5U);
    U32 const linkVersion = slot.link.version;
    w->write(TestValue(TestKey(1), 2), true);
    EXPECT_EQ(slot.slotVersion, 9U) << "a rewrite advances by 4";
    EXPECT_EQ(slot.link.version, linkVersion) << "and leaves the link alone";
    TestValue old;
    w->remove(TestKey(1), old);
    EXPECT_EQ(slot.slotVersion, 8U) << "a removal clears OCCUPIED alone";
    w->write(TestValue(TestKey(2), 3), true);
    EXPECT_EQ(slot.slotVersion, 13U) << "the most recently freed slot comes first";
    EXPECT_EQ(slot.rhash, Dunlin::Util::reverse(TestKey(2).hash()));
}

TEST_F(Table, AWalkGoesOnFromARemovedOrRewrittenKey) {
    auto w = writer();
    auto r = reader();
    for (U32 i = 0; i < 100; ++i) w->write(TestValue(TestKey(i), 0), true);
    TestValue value, old;
    IterHint hint;
    std::size_t seen = 0;
    for (bool more = r->first(value, hint); more; more = r->next(value.key(), value, hint)) {
        ++seen;
        if (seen % 3 == 0)
            w->remove(value.key(), old);
        else if (seen % 3 == 1)
            w->write(TestValue(value.key(), 1), true);
    }
    EXPECT_EQ(seen, 100U);
    EXPECT_EQ(r->readerCounters().slowPathNexts, 67U);
    EXPECT_EQ(contents(*w).size(), 67U);
    EXPECT_TRUE(w->validate());
}

TEST_F(Table, AWalkOutlivesDoublingsBetweenItsSteps) {
    auto w = writer();
    auto r = reader();
    for (U32 i = 0; i < 16; ++i) w->write(TestValue(TestKey(i), 0), true);
    TestValue value, own;
    IterHint hint, ownHint;
    U32 added = 1000;
    std::set<U32> seen, ownSeen;
    bool more = r->first(value, hint);
    bool ownMore = w->first(own, ownHint);
    while (more || ownMore) {
        if (more) seen.insert(value.key().id);
        if (ownMore) ownSeen.insert(own.key().id);
        for (int i = 0; i < 300 && added < 4000; ++i)
            w->write(TestValue(TestKey(added++), 0), true);
        if (more) more = r->next(value.key(), value, hint);
        if (ownMore) ownMore = w->next(own.key(), own, ownHint);
    }
    for (U32 i = 0; i < 16; ++i) {
        EXPECT_TRUE(seen.contains(i));
        EXPECT_TRUE(ownSeen.contains(i));
    }
}

TEST_F(Table, AFixedSizeTableIsFullAndStaysSound) {
    MapDescriptor descriptor(3);
    descriptor.fixedSize = true;
    auto w = writer(descriptor);
    for (U32 i = 0; i < 3; ++i) w->write(TestValue(TestKey(i), 0), true);
    try {
        w->write(TestValue(TestKey(3), 0), true);
        FAIL();
    } catch (Brisk::TableFullException const& e) {
        EXPECT_EQ(e.message(),
                  "Brisk table full (occupancy:3 tableSize:3) " + base_.path() + "/" + name_);
    }
    EXPECT_TRUE(w->validate());
    TestValue old;
    w->remove(TestKey(0), old);
    w->write(TestValue(TestKey(3), 0), true);
    EXPECT_EQ(contents(*w).size(), 3U);
    // Of many at once those stand that came before the one there was no room for.
    TestValue const changed(TestKey(1), 7), extra(TestKey(4), 7), late(TestKey(2), 7);
    EXPECT_THROW(w->writeAll(std::array{&changed, &extra, &late}), Brisk::TableFullException);
    EXPECT_EQ(contents(*w), (std::map<U32, U64>{{1, 7}, {2, 0}, {3, 0}}));
    EXPECT_TRUE(w->validate());
}

TEST_F(Table, ManyAtOnceAreWrittenAndRemovedInTheirOrder) {
    auto w = writer(MapDescriptor(5000));
    std::mt19937 random(3);
    std::map<U32, U64> expected;
    U64 written = 0;
    for (U32 const count : {0U, 1U, 5U, 31U, 3000U}) { // grows slots and buckets on the way
        std::vector<TestValue> values;
        for (U32 i = 0; i < count; ++i) {
            values.emplace_back(TestKey(static_cast<U32>(random() % 2000)), ++written);
            expected[values.back().key().id] = values.back().stamp();
        }
        std::vector<TestValue const*> all;
        for (auto const& value : values) all.push_back(&value);
        w->writeAll(all);
        EXPECT_EQ(contents(*w), expected);
    }
    EXPECT_EQ(w->sequence(), written);
    std::vector<TestKey> keys;
    std::size_t const before = expected.size();
    for (U32 i = 0; i < 3000; i += 2) {
        keys.emplace_back(i);
        expected.erase(i);
    }
    std::vector<TestKey const*> all;
    for (auto const& key : keys) all.push_back(&key);
    EXPECT_EQ(w->removeAll(all), before - expected.size());
    EXPECT_EQ(contents(*w), expected);
    EXPECT_TRUE(w->validate());
}

TEST_F(Table, ARestartKeepsASoundTable) {
    MapDescriptor const descriptor(1000);
    U32 oriel, seed, capacity;
    {
        auto w = writer(descriptor);
        for (U32 i = 0; i < 500; ++i) w->write(TestValue(TestKey(i), i), true);
        w->scratchpadIs(77);
        oriel = w->orielId();
        seed = peek("slots", 568);
        capacity = w->capacity();
    }
    auto w = writer(descriptor);
    EXPECT_EQ(w->orielId(), oriel);
    EXPECT_EQ(w->capacity(), capacity);
    EXPECT_EQ(w->slotTable().ops->seed(), seed);
    EXPECT_EQ(w->scratchpad(), 77U);
    EXPECT_EQ(contents(*w).size(), 500U);
}

TEST_F(Table, DamageMakesTheNextWriterFormatAnew) {
    struct {
        char const* what;
        std::function<void(Table&)> harm;
        bool kept;
    } const rows[] = {
        {"nothing", [](Table&) {}, true},
        {"a writer died inside an operation", [](Table& t) { t.poke("slots", 548, 1 << 16); },
         false},
        {"bucket file gone", [](Table& t) { std::filesystem::remove(t.file("buckets")); }, false},
        {"slot file gone", [](Table& t) { std::filesystem::remove(t.file("slots")); }, false},
        {"oriel file gone", [](Table& t) { std::filesystem::remove(t.file("oriel")); }, false},
        {"slot magic", [](Table& t) { t.poke("slots", 0, 0); }, false},
        {"bucket count", [](Table& t) { t.poke("buckets", 20, 48); }, false},
        {"a link out of range", [](Table& t) { t.poke("slots", 776 + 4, 12345); }, false},
        {"occupancy", [](Table& t) { t.poke("slots", 556, 9); }, false},
        {"a stuck rewrite", [](Table& t) { t.poke("slots", 776 + 8, 7); }, false},
        {"a wrong reversed hash", [](Table& t) { t.poke("slots", 776 + 12, 7); }, false},
        {"a list out of order", [](Table& t) { t.swapNeighbours(); }, false},
        {"a key twice", [](Table& t) { t.doubleAnEntry(); }, false},
    };
    for (auto const& row : rows) {
        SCOPED_TRACE(row.what);
        U32 oriel;
        {
            auto w = writer();
            TestValue old;
            for (U32 i = 0; i < 10; ++i) w->write(TestValue(TestKey(i), i), true);
            for (U32 i = 10; i < 20; ++i) w->remove(TestKey(i), old);
            oriel = w->orielId();
        }
        row.harm(*this);
        std::ofstream(file("corruption-detected")) << "x";
        Dunlin::traceSinkIs([](auto&&...) {});
        auto w = writer();
        Dunlin::traceSinkIs({});
        EXPECT_FALSE(std::filesystem::exists(file("corruption-detected")));
        EXPECT_TRUE(w->validate());
        EXPECT_TRUE(w->validateFiles());
        EXPECT_EQ(contents(*w).size(), row.kept ? 10U : 0U);
        EXPECT_EQ(w->orielId() == oriel, row.kept);
        TestValue old;
        for (U32 i = 0; i < 10; ++i) w->remove(TestKey(i), old);
        EXPECT_EQ(reader()->orielId(), w->orielId());
        w->cleanup();
    }
}

TEST_F(Table, ReadersOfAReplacedTableKeepReadingTheOldOne) {
    auto w = writer();
    for (U32 i = 0; i < 100; ++i) w->write(TestValue(TestKey(i), i), true);
    auto r = reader();
    EXPECT_EQ(contents(*r).size(), 100U);
    w.reset();
    std::filesystem::remove(file("oriel"));
    Dunlin::traceSinkIs([](auto&&...) {});
    w = writer();
    w->write(TestValue(TestKey(1), 50), true);
    EXPECT_EQ(contents(*r).size(), 100U);
    EXPECT_TRUE(r->replaced());
    r->detach(false);
    EXPECT_TRUE(r->initialize("again"));
    EXPECT_FALSE(r->replaced());
    EXPECT_EQ(contents(*r), (std::map<U32, U64>{{1, 50}}));
}

TEST_F(Table, CleanupRemovesEveryFileAndAReaderThenFindsNothing) {
    auto w = writer();
    w->write(TestValue(TestKey(1), 1), true);
    w->cleanup();
    w.reset();
    EXPECT_TRUE(!std::filesystem::exists(base_.path() + "/vrf") ||
                std::filesystem::is_empty(base_.path() + "/" + name_));
    std::vector<std::string> lines;
    Dunlin::traceSinkIs([&](auto&&, unsigned, std::string_view, std::string const& text) {
        lines.push_back(text);
    });
    auto r = detachedReader();
    EXPECT_FALSE(r->initialize("test"));
    EXPECT_THAT(lines, testing::ElementsAre("failed to attach to buckets"));
    bool found = true;
    r->lookup(TestKey(1), found, nullptr);
    EXPECT_FALSE(found);
    TestValue value;
    IterHint hint;
    EXPECT_THROW(r->first(value, hint), CorruptionDetectedException);
}

TEST_F(Table, AnchorsTellWhetherAValueIsStillCurrent) {
    auto w = writer();
    auto r = reader();
    for (U32 i = 0; i < 10; ++i) w->write(TestValue(TestKey(i), 0), true);
    bool found;
    r->lookup(TestKey(3), found, nullptr);
    EXPECT_NO_THROW(r->validateVersionAnchor());
    for (U32 i = 10; i < 2000; ++i) w->write(TestValue(TestKey(i), 0), true); // maps anew
    EXPECT_NO_THROW(r->validateVersionAnchor());
    w->lookup(TestKey(4), found, nullptr);
    EXPECT_TRUE(w->validate()); // no read
    EXPECT_NO_THROW(w->validateVersionAnchor());
    w->write(TestValue(TestKey(3), 1), true);
    EXPECT_THROW(r->validateVersionAnchor(), Mem::VersionMismatchException);
    for (bool const again : {false, true}) {
        again ? void(w->initialize("again")) : w->detach(false);
        EXPECT_THROW(w->validateVersionAnchor(), Mem::VersionMismatchException) << again;
    }
    w->lookup(TestKey(4), found, nullptr);
    EXPECT_NO_THROW(w->validateVersionAnchor());
    r->lookup(TestKey(9999), found, nullptr);
    EXPECT_DEATH(r->validateVersionAnchor(), "should not be called on a default-constructed");
}

TEST_F(Table, AnAnchorInTheCutPartOfATableIsLost) {
    MapDescriptor descriptor(4096);
    descriptor.shrinkable = true;
    auto w = writer(descriptor);
    auto r = reader();
    for (U32 i = 0; i < 512; ++i) w->write(TestValue(TestKey(i), i), true);
    bool found;
    w->lookup(TestKey(511), found, nullptr);
    r->lookup(TestKey(511), found, nullptr);
    w->validateVersionAnchor();
    r->validateVersionAnchor();
    TestValue old;
    for (U32 i = 0; i < 500; ++i) w->remove(TestKey(i), old);
    ASSERT_LT(w->capacity(), 128U);
    EXPECT_TRUE(r->doResize());
    EXPECT_THROW(w->validateVersionAnchor(), Mem::VersionMismatchException);
    EXPECT_THROW(r->validateVersionAnchor(), Mem::VersionMismatchException);
}

TEST_F(Table, DirectOperationsPublishWhatWasBuiltInPlace) {
    auto w = writer();
    auto r = reader();
    bool found;
    TestValue* area = w->directWrite(TestValue(TestKey(1), 1));
    area->stampIs(2);
    r->lookup(TestKey(1), found, nullptr);
    EXPECT_FALSE(found);
    w->directCommit();
    EXPECT_EQ(r->lookup(TestKey(1), found, nullptr)->stamp(), 2U);
    EXPECT_EQ(w->directUpdate(TestKey(7)), nullptr);
    area = w->directUpdate(TestKey(1));
    *area = TestValue(TestKey(1), 3);
    EXPECT_EQ(r->lookup(TestKey(1), found, nullptr)->stamp(), 2U);
    w->directCommit();
    EXPECT_EQ(r->lookup(TestKey(1), found, nullptr)->stamp(), 3U);
    EXPECT_DEATH(w->directCommit(), "not in direct mode!");
    *w->directUpdate(TestKey(1)) = TestValue(TestKey(2), 3);
    EXPECT_DEATH(w->directCommit(), "was filled with value");
    w->detach(false); // an open update is dropped
    w->initialize("again");
    EXPECT_EQ(contents(*w), (std::map<U32, U64>{{1, 3}}));
    EXPECT_TRUE(w->validate());
}

TEST_F(Table, ShrinkingMovesEntriesDownAndKeepsThemAll) {
    MapDescriptor descriptor(4096);
    descriptor.shrinkable = true;
    descriptor.shrinkBuckets = true;
    auto w = writer(descriptor);
    auto r = reader();
    TestValue old;
    for (int round = 0; round < 3; ++round) {
        for (U32 i = 0; i < 4096; ++i) w->write(TestValue(TestKey(i), i), true);
        EXPECT_EQ(w->capacity(), 4096U);
        U32 floor = 0;
        for (U32 i = 0; i < 4080; ++i) {
            ASSERT_TRUE(w->remove(TestKey(i), old));
            floor = std::max(floor, w->slotTable().header->slotVersionFloor);
            if (i % 256 == 0) {
                ASSERT_EQ(contents(*r).size(), 4095U - i);
                ASSERT_TRUE(w->validate()) << w->lastFinding();
            }
        }
        EXPECT_EQ(w->capacity(), 64U);
        EXPECT_EQ(w->buckets(), 64U);
        EXPECT_GT(floor, 0U);
        auto const left = contents(*r);
        EXPECT_EQ(left.size(), 16U);
        EXPECT_EQ(left.begin()->first, 4080U);
        EXPECT_TRUE(w->validate()) << w->lastFinding();
    }
    EXPECT_GT(w->writerCounters().slotMoves, 0U);
}

TEST_F(Table, RandomLoadAgreesWithAModel) {
    unsigned const seed = std::random_device{}();
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    MapDescriptor descriptor(256);
    descriptor.shrinkable = true;
    descriptor.shrinkBuckets = true;
    auto w = writer(descriptor);
    auto r = reader();
    std::map<U32, U64> model;
    U32 range = 2000;
    for (U32 step = 0; step < 60000; ++step) {
        if (step % 10000 == 0) range = static_cast<U32>(random() % 3000 + 10);
        // Few hashes, so that chains have many equal ones.
        U32 const id = static_cast<U32>(random() % range);
        TestKey const key(id, id % 3 ? TestKey(id).hash() : id % 64);
        TestValue old;
        switch (random() % 5) {
        case 0:
        case 1:
            w->write(TestValue(key, step), true);
            model[id] = step;
            break;
        case 2:
        case 3:
            ASSERT_EQ(w->remove(key, old), model.erase(id) == 1);
            break;
        default: {
            bool found;
            TestValue const* value = r->lookup(key, found, nullptr);
            auto const known = model.find(id);
            ASSERT_EQ(found, known != model.end());
            if (found) {
                ASSERT_EQ(value->stamp(), known->second);
            }
        }
        }
        if (step % 5000 == 0) {
            ASSERT_EQ(contents(*r), model);
            ASSERT_EQ(contents(*w), model);
            ASSERT_TRUE(w->validate()) << w->lastFinding();
        }
    }
}

TEST_F(Table, ChainDamageIsReportedAndNeverFollowed) {
    auto w = writer();
    auto r = reader();
    for (U32 i = 0; i < 8; ++i)
        w->write(TestValue(TestKey(i, i * 16), i), true); // one bucket of 16
    bool found;
    TestValue value;
    IterHint hint;
    auto const message = [&](auto&& operation) -> std::string {
        try {
            operation();
            return "no exception";
        } catch (CorruptionDetectedException const& e) {
            return e.message();
        }
    };
    auto const lookup = [&] { r->lookup(TestKey(7, 7 * 16), found, nullptr); };
    auto const own = [&] { w->lookup(TestKey(7, 7 * 16), found, nullptr); };
    lookup();
    auto& bucket = w->hashMap().buckets[0];
    U32 const head = bucket.next;
    U32 const second = w->slotTable().slots[head].link.next;
    auto& link = w->slotTable().slots[second].link;
    U32 const third = link.next;

    link.next = head;
    EXPECT_EQ(message(lookup), "hash chain cycle detected, slotCount:17 capacity:16");
    EXPECT_EQ(message(own), "hash chain cycle detected, slotCount:17 capacity:16");
    link.next = 16;
    EXPECT_EQ(message(lookup), "out-of-range index:16 numSlots:16");
    EXPECT_EQ(message(own), "out-of-range index: 16 max:15");
    link.next = 9;
    EXPECT_THAT(message(lookup), testing::StartsWith("slot:9 not marked as occupied key:"));
    EXPECT_EQ(message(own), "slotId: 9 not marked as occupied");
    link.next = third;
    auto& slot = w->slotTable().slots[second];
    TestValue const whole = slot.value;
    slot.value = TestValue(TestKey(99, 5), 0);
    EXPECT_THAT(message(lookup), testing::HasSubstr("corrupt key detected. key:63000000"));
    EXPECT_EQ(message(own), fmt::format("corrupt key detected, slot: {}", second));
    slot.value = whole;
    U32 const last = bucket.next;
    bucket.next = 0x80000005; // 5 does not follow 0
    EXPECT_EQ(message([&] { r->first(value, hint); }),
              "has bucket: 0 with next bucket: 5 and numBuckets: 16");
    EXPECT_EQ(message([&] { w->first(value, hint); }),
              "has bucket: 0 with next bucket: 5 and numBuckets: 16");
    bucket.next = 0xffffffff;
    EXPECT_EQ(message([&] { w->first(value, hint); }),
              "thinks we've reached the end of the table, but we're in bucket 0 when there are "
              "numBuckets: 16");
    bucket.next = last;
    lookup();
    EXPECT_TRUE(found);
    EXPECT_TRUE(w->validate());
}

} // namespace
