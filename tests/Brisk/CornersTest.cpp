// Tables at their corners: detached, local, of equal hashes, damaged behind a reader's back.
#include "FrontFixture.h"

#include "Brisk/Syncer.h"
#include "Dunlin/Exception.h"
#include "SharedMem/CpuSupport.h"
#include "SharedMem/SharedMem.h"
#include "Yarrow/QueueReader.h"

namespace {

using namespace Support;

class Corners : public Fronts {};

TEST_F(Corners, WhatIsNotAttachedAnswersForNothing) {
    TestWriter w(*handler_, name_, writerSettings(), TestOps{}, "TestValue", Dunlin::noop);
    EXPECT_EQ(w.members() + w.capacity() + w.scratchpad() + w.writerCounters().largestOccupied, 0U);
    w.scratchpadIs(5);
    EXPECT_FALSE(w.validate());
    EXPECT_THROW(w.validateFiles(), Dunlin::CorruptionDetectedException);
    EXPECT_FALSE(w.initialized());
    EXPECT_THAT(w.dumpHeaders(), testing::HasSubstr("not mapped"));
    w.detach(false);
    TestReader r(*handler_, name_.c_str(), TestOps{}, nullptr);
    TestValue value;
    EXPECT_FALSE(r.safeValue(0, value, nullptr));
    EXPECT_THAT(r.dumpHeaders(), testing::HasSubstr("not mapped"));
    Yarrow::QueueReader queue(*handler_, Mem::RootPath(name_));
    EXPECT_EQ(queue.orielId() + queue.incarnation() + queue.head() + queue.position(), 0U);
    EXPECT_FALSE(queue.inCorral(1) || queue.validateNotif() || queue.quiesced() ||
                 queue.attached());
    EXPECT_EQ(queue.next(), Yarrow::QueueReader::Taken::none);
    EXPECT_EQ(queue.headersToString(), "queue is not attached");
    EXPECT_DEATH(w.queue().notify(0), "notification of slot:0 before the queue is attached");
    Mem::Atomics::cpuSupportIs(false);
    EXPECT_THROW(r.initialize("test"), Dunlin::InvalidInitializeException);
    Mem::Atomics::cpuSupportIs({});

    TestMap front(name_, "TestValue"); // an empty table, before and after
    auto& table = front.table();
    IterHint hint;
    EXPECT_FALSE(table.next(TestKey(1), value, hint));
    EXPECT_EQ(table.minSize() + table.readerCounters().lookups + table.orielId() +
                  table.scratchpad(),
              0U);
    EXPECT_FALSE(front.quiesced() || front.connected() || front.keyNotifications() == false);
    EXPECT_EQ(table.briskName(), name_);
    EXPECT_EQ(table.rootPath().text(), base_.path() + '/' + name_);
    table.validateVersionAnchorHookIs(nullptr);
    front.cleanup();
    front.tryAttach();

    std::string modes;
    for (auto const mode :
         {Brisk::SyncerMode::idle, Brisk::SyncerMode::sync, Brisk::SyncerMode::flush})
        modes += fmt::format("{} ", mode);
    EXPECT_EQ(modes, "idle sync flush ");
}

TEST_F(Corners, ALocalTableTouchesNoFile) {
    TestMap front("local/table", "TestValue");
    MapDescriptor settings; // a writer whatever type and size say
    settings.localMem = settings.heap = true;
    settings.trackMemory = settings.dumpToCore = settings.shrinkable = true;
    settings.type = static_cast<BriskType>(9);
    std::size_t const before = Mem::trackedBytes();
    front.init(settings);
    for (U32 id = 0; id < 300; ++id) front.safeWrite(TestValue(TestKey(id), 1), true);
    EXPECT_GT(Mem::trackedBytes(), before);
    bool found = false;
    EXPECT_EQ(front.safeLookup(TestKey(7), found, nullptr)->stamp(), 1U);
    TestValue out(TestKey(1), 9);
    EXPECT_EQ(front.safeLookup(TestKey(1000), found, &out)->stamp(), TestValue().stamp());
    EXPECT_FALSE(found);
    EXPECT_EQ(out, TestValue());
    TestValue old;
    for (U32 id = 0; id < 290; ++id) EXPECT_TRUE(front.safeRemove(TestKey(id), old));
    settle();
    EXPECT_EQ(contents(front.table()).size(), 10U);
    EXPECT_TRUE(front.validate() && front.validateFiles("test", 0));
    EXPECT_TRUE(front.isWriter() && front.localMem());
    EXPECT_EQ(front.modeStr(), "bad");
    EXPECT_EQ(front.owner(), ":0");
    EXPECT_FALSE(front.exists());
    front.cleanup();
    front.tryAttach();
    front.doCorruptionDetected("a local table has no one else to tell");
    front.controlDetach();
    EXPECT_EQ(front.members(), 0U);
    EXPECT_FALSE(std::filesystem::exists(base_.path() + "/local"));
    EXPECT_EQ(Mem::trackedBytes(), before);
}

// Keys of one hash stand in one chain in the order of their keys, for every reader of it.
TEST_F(Corners, EqualHashesInEveryKindOfReader) {
    auto w = writer(writerSettings(true));
    auto const key = [](U32 id) { return TestKey(id, 0x1234 + id / 64); };
    auto const held = reader();
    auto& r = *held;
    Client values(name_, shadowSettings(BriskType::valueShadow)),
        keys(name_, shadowSettings(BriskType::keyShadow));
    values.init();
    keys.init();
    TestValue value;
    auto const agree = [&](U32 from, U32 step) {
        ASSERT_TRUE(pump([&] {
            return values.known == contents(*w) && keys.known == values.known && values.asleep();
        }));
        ASSERT_TRUE(values.shadow().store()->sound() && keys.shadow().store()->sound() &&
                    w->validate());
        auto const all = contents(*w);
        Brisk::BriskInterface<TestOps> const* const readers[] = {
            w.get(), &r, &values.front->table(), &keys.front->table()};
        for (auto const* reader : readers) {
            EXPECT_EQ(contents(*reader), all);
            // Without a hint, from every key whether it is there or not.
            for (U32 id = 0; id < 128; ++id) {
                IterHint hint;
                bool const more = reader->next(key(id), value, hint);
                EXPECT_TRUE(!more || value.key().id > id || value.key().hash() != key(id).hash());
                if (id % step != from || id % 64 >= 64 - step) continue;
                EXPECT_TRUE(more && value.key().id == id + step) << id;
            }
        }
        Brisk::BriskInterface<TestOps>* const lookers[] = {w.get(), &r, &values.front->table(),
                                                           &keys.front->table()};
        for (auto* reader : lookers)
            for (U32 id = 0; id < 128; ++id) {
                bool found = false;
                reader->lookup(key(id), found, &value);
                EXPECT_EQ(found, all.count(id) == 1) << id;
            }
    };
    for (U32 id = 0; id < 128; ++id) w->write(TestValue(key(id * 37 % 128), 1), true);
    agree(0, 1);
    for (U32 id = 0; id < 128; id += 2) w->remove(key(id), value);
    agree(1, 2);
}

TEST_F(Corners, DamageBehindAReadersBackIsNamed) {
    auto w = writer();
    for (U32 id = 0; id < 10; ++id) put(*w, id, 1);
    auto const held = reader();
    auto& r = *held;
    auto& header = *w->slotTable().header;
    auto& buckets = const_cast<BriskCore::BucketTable<Brisk::SlotLink>::Header&>(
        *w->hashMap().buckets.header());
    auto const message = [&] {
        try {
            bool found;
            r.lookup(TestKey(1), found, nullptr);
            return std::string("none");
        } catch (Dunlin::CorruptionDetectedException const& e) {
            return e.message();
        }
    };
    EXPECT_EQ(message(), "none");
    struct {
        U32* version;
        U32* word;
        U32 value;
        char const* text;
    } const rows[] = {
        {&header.numSlots.version, &header.numSlots.value, 0x80000000,
         "bad newNumSlots:2147483648 message:.*"},
        {&header.numSlots.version, &header.numSlots.value, 4096,
         "requesting to map .*/slots 4096 slots. Requested file resize to 721672 but real file "
         "size is [0-9]+"},
        {&buckets.size.version, &buckets.size.numBuckets, 48,
         "bad numBuckets: 48 is no power of two"},
        {&buckets.size.version, &buckets.size.numBuckets, 4096,
         "bad bucket file size: [0-9]+ wanted:32792 for 4096 buckets"},
    };
    for (auto const& row : rows) {
        SCOPED_TRACE(row.text);
        U32 const old = *row.word;
        *row.word = row.value;
        ++*row.version;
        EXPECT_THAT(message(), testing::MatchesRegex(row.text));
        *row.word = old;
        ++*row.version;
        EXPECT_EQ(message(), "none");
    }
    // A slot in the chain that is not occupied, for both kinds of step.
    TestValue value;
    IterHint hint;
    ASSERT_TRUE(r.first(value, hint));
    TestKey const first = value.key();
    IterHint const atFirst = hint;
    ASSERT_TRUE(r.next(first, value, hint));
    auto& slot = w->slotTable().slots[hint.slotIndex];
    --slot.slotVersion;
    for (bool const hinted : {true, false}) {
        hint = hinted ? atFirst : IterHint{};
        EXPECT_THROW(r.next(first, value, hint), Dunlin::CorruptionDetectedException);
    }
    ++slot.slotVersion;
    hint = atFirst;
    EXPECT_TRUE(r.next(first, value, hint));
}

TEST_F(Corners, DamageThatAFrontMeets) {
    TestMap front(name_, "TestValue");
    front.init(BriskType::writer, false, 100);
    front.safeWrite(TestValue(TestKey(1), 5), true);
    auto& w = dynamic_cast<TestWriter&>(front.table());
    Client values(name_, shadowSettings(BriskType::valueShadow)),
        keys(name_, shadowSettings(BriskType::keyShadow));
    for (Client* const c : {&values, &keys}) c->init();
    auto const settled = [&](U64 stamp) {
        return pump([&] {
            return values.asleep() && keys.asleep() && values.known == contents(w) &&
                   keys.known == values.known && values.known[1] == stamp;
        });
    };
    ASSERT_TRUE(settled(5));
    auto& header = *w.slotTable().header;
    auto const corrupt = file("corruption-detected");
    bool found = true;
    TestValue value;

    // A slot count that no table has: what a shadow then cannot read is not there for it.
    auto const countIs = [&](U32 count) {
        header.numSlots.value = count;
        ++header.numSlots.version;
    };
    U32 const count = header.numSlots.value;
    countIs(0x80000000);
    EXPECT_THROW(keys.front->table().lookup(TestKey(1), found, &value),
                 Dunlin::CorruptionDetectedException);
    put(w, 1, 6);
    ASSERT_TRUE(pump([&] { return values.known.empty() && keys.known.empty(); }));
    countIs(count);
    put(w, 1, 7);
    ASSERT_TRUE(settled(7));

    // A slot in the list that is not occupied.
    auto& slot = w.slotTable().slots[0];
    --slot.slotVersion;
    EXPECT_EQ(*front.safeLookup(TestKey(1), found, nullptr), TestValue());
    EXPECT_FALSE(found);
    EXPECT_TRUE(std::filesystem::exists(corrupt));
    EXPECT_DEATH(front.safeWrite(TestValue(TestKey(1), 6), true), "in no man's land");
    header.runtimeFlags = 0; // what the child stored stands in the file
    EXPECT_DEATH(front.safeRemove(TestKey(1), value), "in no man's land");
    ++slot.slotVersion;
    EXPECT_TRUE(front.safeRemove(TestKey(1), value));
    EXPECT_TRUE(w.validate()) << w.lastFinding();

    // Between the two halves of a direct operation nothing may move.
    w.directWrite(TestValue(TestKey(2), 1));
    w.shrink();
    w.directCommit();
    std::ofstream(file("owner")) << "damaged";
    EXPECT_EQ(front.owner(), ":0");
    front.detach(true);
    w.shrink();
}

// Other keys than the one that is being told, looked up from inside the callback.
TEST_F(Corners, OtherKeysFromInsideACallback) {
    for (BriskType const type : {BriskType::valueShadow, BriskType::keyShadow}) {
        auto w = writer();
        put(*w, 1, 1);
        Client c(name_, shadowSettings(type));
        c.init();
        ASSERT_TRUE(pump([&] { return c.asleep(); }));
        U32 looked = 0;
        c.onUpdate = c.onDelete = [&](TestKey const& told) {
            for (U32 id = 0; id < 4; ++id) {
                bool found = false;
                TestValue into;
                c.front->table().lookup(TestKey(id), found, &into);
                EXPECT_TRUE(id == told.id || found == (c.known.count(id) == 1))
                    << id << " beside " << told.id;
                ++looked;
            }
        };
        put(*w, 2, 1);
        ASSERT_TRUE(pump([&] { return c.asleep() && looked == 4; }));
        drop(*w, 1);
        ASSERT_TRUE(pump([&] { return c.asleep() && looked == 8; }));
        w->cleanup();
    }
}

void (*const hookCalls)(Mem::VersionAnchor const&) = [](Mem::VersionAnchor const& anchor) {
    ASSERT_NE(anchor.offset, Mem::VersionAnchor::none);
    throw Dunlin::RuntimeException("the hook was called");
};

TEST_F(Corners, AHookSeesTheAnchorBeforeItIsValidated) {
    for (bool const early : {true, false}) {
        TestMap front(name_, "TestValue");
        if (early) front.validateVersionAnchorHookIs(hookCalls);
        front.init(BriskType::writer, false, 100);
        if (!early) front.validateVersionAnchorHookIs(hookCalls);
        front.safeWrite(TestValue(TestKey(1), 5), true);
        bool found = false;
        front.safeLookup(TestKey(1), found, nullptr);
        EXPECT_THROW(front.validateVersionAnchor(), Dunlin::RuntimeException);
        front.cleanupAndDetach();
    }
}

} // namespace
