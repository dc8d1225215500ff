// The front: its settings, its roles, what stands in while there is no table, and writers in other
// processes that come, go and die.
#include "FrontFixture.h"

#include "Brisk/SlotCounters.h"
#include "Brisk/Syncer.h"
#include "Dunlin/Exception.h"
#include "SharedMem/WriterLock.h"
#include "tests/support/FewDescriptors.h"

namespace {

using namespace Support;

class Front : public Fronts {
public:
    // A writing process: makes the table with `entries` entries, then obeys: 'p' and a number puts,
    // 'd' and a number drops, 'w' waits for quiet, anything else leaves in good order.
    int write(Child& self, U32 entries, bool reformat = false) {
        auto w = detachedWriter();
        if (reformat) std::filesystem::remove(file("oriel"));
        w->initialize("test");
        for (U32 id = 0; id < entries; ++id) put(*w, id, 1);
        self.tell(1);
        bool end = false;
        loop().fdAdd(self.hearFd(), 1 /* EPOLLIN */, [&](U32) {
            auto const command = self.hear();
            if (command < 0 || command == 'q') {
                end = true;
                return;
            }
            auto const id = static_cast<U32>(command >> 8);
            if ((command & 0xff) == 'p') put(*w, id, 2);
            if ((command & 0xff) == 'd') drop(*w, id);
            if (command == 'a') self.tell(1); // nothing of what came before is still under way
        });
        while (!end) loop().runOnce(1);
        return 0;
    }
};

TEST_F(Front, EmptyUntilATableIsThere) {
    Client c(name_, shadowSettings(BriskType::reader));
    for (bool const after : {false, true}) {
        SCOPED_TRACE(after);
        if (after) c.init();
        EXPECT_EQ(c.front->mountStatus(), MountStatus::unmounted);
        bool found = true;
        c.front->table().lookup(TestKey(1), found, nullptr);
        EXPECT_FALSE(found);
        EXPECT_TRUE(contents(c.front->table()).empty());
        EXPECT_EQ(c.front->table().type(), BriskType::reader);
        EXPECT_THROW(c.front->safeWrite(TestValue(TestKey(1)), true),
                     Dunlin::NoPermissionException);
        TestValue value;
        EXPECT_THROW(c.front->safeRemove(TestKey(1), value), Dunlin::NoPermissionException);
        EXPECT_EQ(c.front->owner(), ":0");
        EXPECT_FALSE(c.front->exists());
        EXPECT_FALSE(c.front->ready());
    }
    EXPECT_FALSE(std::filesystem::exists(base_.path() + "/vrf")); // readers make nothing
    EXPECT_DEATH(c.front->table().validateVersionAnchor(), "impossible for a lookup to succeed");
    auto w = writer();
    put(*w, 1, 1);
    ASSERT_TRUE(pump([&] { return c.front->mountStatus() == MountStatus::mounted; }));
    EXPECT_EQ(c.statuses, "1");
    EXPECT_TRUE(c.quiesced);
    EXPECT_EQ(contents(c.front->table()).size(), 1U);
    EXPECT_EQ(c.front->owner(), SharedMem::BolsterName::own().replace(
                                    SharedMem::BolsterName::own().rfind('-'), 1, ":"));
    EXPECT_TRUE(c.front->exists());
    EXPECT_TRUE(c.front->ready());
    w.reset();
    ASSERT_TRUE(pump([&] { return c.front->mountStatus() == MountStatus::unmounted; }));
    EXPECT_EQ(c.statuses, "10");
}

TEST_F(Front, SettingsThatDoNotGoTogetherAreNamed) {
    auto const fails = [&](MapDescriptor const& descriptor, char const* text) {
        TestMap front(name_, "TestValue");
        try {
            front.init(descriptor);
            FAIL() << text;
        } catch (Dunlin::InvalidInitializeException const& error) {
            EXPECT_THAT(error.message(), testing::HasSubstr(text));
        }
    };
    MapDescriptor heap(10);
    heap.heap = true;
    fails(heap, "heap allocation in non-local mode not allowed");
    fails(MapDescriptor(0), "0 is not a valid initialization size for collection");
    EXPECT_DEATH(detachedWriter(MapDescriptor(0)), "0 is not a valid initialization size for");
    TestMap front(name_, "TestValue");
    EXPECT_THROW(front.init(Mem::CollectionDescriptor{}), std::bad_cast);
    MapDescriptor shadow = shadowSettings(BriskType::valueShadow);
    front.init(shadow);
    front.init(shadow); // the same again
    shadow.initialSize = 7;
    try {
        front.init(shadow);
        FAIL();
    } catch (Dunlin::InvalidInitializeException const& error) {
        EXPECT_THAT(error.message(), testing::HasSubstr("already initialized, old size:1000"));
        EXPECT_THAT(error.message(), testing::HasSubstr("new size:7"));
    }
    MapDescriptor previous(10);
    previous.prevValue = true;
    EXPECT_DEATH(TestMap(name_, "T").init(previous), "captureNotifyValues property");
    EXPECT_DEATH(TestMap(name_, "T").init(static_cast<BriskType>(4), false, 1),
                 "not a valid reader type:4");
    front.attach("x"); // without a table that changes nothing
    EXPECT_EQ(front.mountStatus(), MountStatus::unmounted);
}

TEST_F(Front, AWriter) {
    std::string statuses;
    TestMap front(name_, "TestValue");
    front.mountStatusNotifyIs([&] { statuses += std::to_string(U32(front.mountStatus())); });
    front.init(BriskType::writer, false, 100);
    EXPECT_EQ(statuses, "1");
    front.safeWrite(TestValue(TestKey(1), 5), true);
    bool found = false;
    EXPECT_EQ(front.safeLookup(TestKey(1), found, nullptr)->stamp(), 5U);
    EXPECT_TRUE(front.compareVersionAnchor(front.getCacheVersionAnchor()));
    front.validateVersionAnchor();
    EXPECT_TRUE(front.validate());
    EXPECT_TRUE(front.validateFiles("test", 0));
    front.scratchpadIs(77);
    EXPECT_EQ(front.scratchpad(), 77U);
    front.tryAttach();
    EXPECT_DEATH(front.attach("test"), "invoked for a writer");
    TestMap second(name_, "TestValue");
    Mem::WriterLock::waitIs(0.01);
    EXPECT_THROW(second.init(BriskType::writer, false, 100), Dunlin::InvalidInitializeException);
    Mem::WriterLock::waitIs(2);
    front.cleanupAndDetach();
    EXPECT_FALSE(front.exists());
    EXPECT_FALSE(front.initialized());
    EXPECT_DEATH(front.cleanupAndDetach(), "trying to cleanup uninitialized brisk");
}

TEST_F(Front, AWriterThatHasNoTableSaysSo) {
    auto w = detachedWriter();
    TestValue value(TestKey(1), 1);
    TestValue const* const values[] = {&value};
    for (bool const after : {false, true}) {
        SCOPED_TRACE(after);
        struct {
            char const* doing;
            std::function<void()> what;
        } const rows[] = {{"writing", [&] { w->write(value, true); }},
                          {"removing", [&] { w->remove(value.key(), value); }},
                          {"modifying", [&] { w->directWrite(value); }},
                          {"modifying", [&] { w->directUpdate(value.key()); }},
                          {"changing many entries", [&] { w->writeAll(values); }}};
        for (auto const& row : rows)
            EXPECT_DEATH(row.what(), std::string(row.doing) + " before initialize, or after");
        w->initialize("test");
        w->write(value, true);
        w->detach(true);
    }
}

TEST_F(Front, StandIns) {
    auto dummy =
        std::make_unique<Brisk::BriskDummy<TestOps>>(*handler_, name_, TestOps{}, writer());
    EXPECT_TRUE(dummy->initialize("x"));
    EXPECT_TRUE(dummy->validate() && dummy->validateFiles());
    EXPECT_EQ(dummy->capacity() + dummy->members() + dummy->buckets() + dummy->maxSize(), 0U);
    EXPECT_TRUE(std::filesystem::exists(file("slots")));
    dummy->cleanup(); // reaches what the dummy replaced
    EXPECT_FALSE(std::filesystem::exists(file("slots")));
    dummy.reset();
    loop().runReady(); // and there it ends
    EXPECT_FALSE(Mem::WriterLock::writerExists(Mem::RootPath(name_)));

    Brisk::Tmp<TestOps> scratch(*handler_, "owner/route", 100, TestOps{}, "TestValue");
    scratch.initialize("none");
    for (U32 id = 0; id < 300; ++id) put(scratch, id, 1);
    EXPECT_EQ(scratch.members(), 300U);
    EXPECT_EQ(scratch.mountStatus(), MountStatus::unmounted);
}

// A hundred times each, a value and a key shadow beside each other.
TEST_F(Front, KilledAndRestartedWritersOfAKeptOrRemadeTable) {
    Client clients[] = {{name_, shadowSettings(BriskType::valueShadow)},
                        {name_, shadowSettings(BriskType::keyShadow)}};
    auto const both = [&](auto condition) {
        return pump([&] { return condition(clients[0]) && condition(clients[1]); });
    };
    for (Client& c : clients) c.init();
    SharedMem::OrielId last = 0;
    for (U32 round = 0; round < 200; ++round) {
        SCOPED_TRACE(round);
        bool const reformat = round % 2 == 1;
        Child child([&](Child& self) { return write(self, 50 + round, reformat); });
        ASSERT_EQ(child.hear(), 1);
        ASSERT_TRUE(both([](Client& c) { return c.synchronised() && c.asleep(); }));
        EXPECT_EQ(clients[0].front->orielId() != last, reformat || round == 0);
        last = clients[0].front->orielId();
        child.tell('p' | 1000 << 8);
        child.tell('d' | 3 << 8);
        ASSERT_TRUE(both([](Client& c) { return c.known.count(1000) && !c.known.count(3); }));
        for (Client& c : clients) {
            EXPECT_EQ(c.known.size(), 50 + round);
            EXPECT_EQ(contents(c.front->table()), c.known);
        }
        child.tell('d' | 1000 << 8);
        child.tell('p' | 3 << 8);
        ASSERT_TRUE(both([](Client& c) { return !c.known.count(1000) && c.known.count(3); }));
        for (Client& c : clients) {
            EXPECT_EQ(c.statuses, round == 0 ? "12" : "3012");
            c.statuses.clear();
        }
        // Who is killed inside an operation leaves a table to be made anew.
        child.tell('a');
        ASSERT_EQ(child.hear(), 1);
        if (round % 4 < 2)
            child.signal(SIGKILL);
        else
            child.tell('q');
        child.join();
        ASSERT_TRUE(
            both([](Client& c) { return c.front->mountStatus() == MountStatus::unmounted; }));
        for (Client& c : clients) {
            EXPECT_EQ(c.statuses, "30");
            EXPECT_TRUE(c.known.empty()); // the flush told every key
            EXPECT_EQ(c.strayDeletes, 0U);
        }
    }
}

// Writers that are killed in the midst of a load, each followed at once by the next.
TEST_F(Front, WritersKilledUnderLoadLeaveNothingBehind) {
    Client clients[] = {{name_, shadowSettings(BriskType::valueShadow)},
                        {name_, shadowSettings(BriskType::keyShadow)}};
    for (Client& c : clients) c.init();
    clients[0].front->yieldTimeIs(0.0001); // flushes and walks in many slices
    std::mt19937 random(3);
    for (U32 round = 0; round < 100; ++round) {
        SCOPED_TRACE(round);
        Child child([&](Child&) {
            auto w = writer(writerSettings(true));
            std::mt19937 load(round);
            for (U64 stamp = 1;; ++stamp) {
                for (auto n = load() % 300; n > 0; --n) {
                    U32 const id = static_cast<U32>(load() % (stamp % 400 < 200 ? 3000 : 100));
                    if (load() % 3 == 0)
                        drop(*w, id);
                    else
                        put(*w, id, round << 20 | stamp);
                }
                loop().runOnce(0);
            }
            return 0;
        });
        double const end = loop().now() + 0.01 + static_cast<double>(random() % 40) / 1000;
        pump([&] { return loop().now() > end; });
        child.signal(SIGKILL);
        ASSERT_EQ(child.join(), 1000 + SIGKILL);
    }
    Child last([&](Child& self) { return write(self, 10); });
    ASSERT_EQ(last.hear(), 1);
    auto const reader = std::make_unique<Client>(name_, shadowSettings(BriskType::reader));
    for (Client& c : clients) {
        ASSERT_TRUE(pump([&] { return c.synchronised() && c.asleep(); }));
        reader->front->init(shadowSettings(BriskType::reader));
        EXPECT_EQ(c.known, contents(reader->front->table()));
        EXPECT_EQ(c.strayDeletes, 0U);
        // Whatever came between: flushed, perhaps empty, then mounted, then synchronised.
        EXPECT_THAT(c.statuses, testing::MatchesRegex("1*2*(30?1*2*)+"));
        EXPECT_EQ(c.statuses.back(), '2');
        EXPECT_GT(std::count(c.statuses.begin(), c.statuses.end(), '3'), 10);
    }
    EXPECT_FALSE(std::filesystem::exists(file("corruption-detected")));
}

TEST_F(Front, AttachAndForcedDetachInsideAFlush) {
    for (BriskType const type : {BriskType::valueShadow, BriskType::keyShadow}) {
        for (bool const attach : {true, false}) {
            SCOPED_TRACE(testing::Message() << U32(type) << " attach " << attach);
            auto w = writer();
            for (U32 id = 0; id < 3000; ++id) put(*w, id, 1);
            Client c(name_, shadowSettings(type));
            c.init();
            ASSERT_TRUE(pump([&] { return c.asleep(); }));
            c.front->yieldTimeIs(1e-6);
            c.statuses.clear();
            c.front->detach(false);
            for (int i = 0; i < 3; ++i) loop().runOnce(0);
            ASSERT_EQ(c.front->mountStatus(), MountStatus::flushing);
            EXPECT_GT(c.deletes, 0U);
            EXPECT_LT(c.deletes, 3000U);
            if (attach)
                c.front->attach("test");
            else
                c.front->detach(true);
            EXPECT_EQ(c.deletes, 3000U);
            // The same shadow again walks at once as it did at first.
            EXPECT_EQ(c.statuses.substr(0, 2), attach ? "32" : "30");
            if (!attach) c.front->tryAttach();
            ASSERT_TRUE(pump([&] { return c.synchronised() && c.asleep(); }));
            EXPECT_EQ(c.known.size(), 3000U);
            EXPECT_EQ(c.deletes, 3000U);
            // The sentry watches again.
            w.reset();
            ASSERT_TRUE(pump([&] { return c.front->mountStatus() == MountStatus::unmounted; }));
            EXPECT_TRUE(c.known.empty());
            EXPECT_EQ(c.deletes, 6000U);
            EXPECT_EQ(c.strayDeletes, 0U);
            std::filesystem::remove_all(base_.path() + "/vrf");
        }
    }
}

TEST_F(Front, ClientAndWriterInAnyOrderMeetWithinASecond) {
    for (int round = 0; round < 100; ++round) {
        SCOPED_TRACE(round);
        std::unique_ptr<Client> c;
        auto const start = [&] {
            c = std::make_unique<Client>(name_, shadowSettings(BriskType::valueShadow));
            c->init();
        };
        if (round % 2) start();
        Child child([&](Child& self) { return write(self, 10); });
        S64 const ready = round % 4 != 0 ? child.hear() : 1; // else at the same time
        ASSERT_EQ(ready, 1);
        if (!c) start();
        // A second from when both are there.
        bool there = round % 4 != 0;
        loop().fdAdd(child.hearFd(), 1, [&](U32) { there = child.hear() == 1; });
        ASSERT_TRUE(pump([&] { return there; }));
        loop().fdDel(child.hearFd());
        ASSERT_TRUE(pump([&] { return c->synchronised() && c->known.size() == 10; }, 1));
        EXPECT_EQ(c->statuses.find_first_of("03"), std::string::npos) << c->statuses;
        child.signal(SIGKILL);
        child.join();
        if (round % 3 == 0) std::filesystem::remove_all(base_.path() + "/vrf");
    }
}

// A process that cannot watch the table's directory: where that is expected its front stays empty.
TEST_F(Front, WithoutASentry) {
    if (FewDescriptors::impossible) GTEST_SKIP() << FewDescriptors::impossible;
    for (bool const expected : {false, true}) {
        Child child([&](Child&) {
            if (expected) ::setenv("QZ_CHROOT", "1", 1);
            Client c(name_, shadowSettings(BriskType::valueShadow));
            loop().runReady(); // it has what it needs
            bool raised = false;
            try {
                FewDescriptors const none;
                c.init();
            } catch (Dunlin::InvalidInitializeException const&) {
                raised = true;
            }
            return raised != expected && c.front->initialized() == expected && !c.front->mounter()
                       ? 0
                       : 1;
        });
        EXPECT_EQ(child.join(), 0) << expected;
    }
}

TEST_F(Front, DamageReachesTheHandlerAndDetachesAReader) {
    auto w = writer();
    for (U32 id = 0; id < 10; ++id) put(*w, id, 1);
    Client c(name_, shadowSettings(BriskType::reader));
    c.init();
    ASSERT_EQ(c.front->mountStatus(), MountStatus::mounted);
    c.front->doCorruptionDetected("found by a test");
    EXPECT_TRUE(std::filesystem::exists(file("corruption-detected")));
    EXPECT_EQ(c.front->mountStatus(), MountStatus::mounted); // not inside the call
    loop().runReady();
    EXPECT_EQ(c.front->mountStatus(), MountStatus::unmounted);
    std::string told;
    Brisk::BriskMapBase::corruptionHandlerIs(
        [&](Brisk::BriskMapBase&, std::string const& message) { told = message; });
    c.front->doCorruptionDetected("again");
    Brisk::BriskMapBase::corruptionHandlerIs({});
    EXPECT_EQ(told, "again");
}

TEST(SlotCountersTest, LargestOccupiedByBand) {
    Brisk::SlotCounters counters(18);
    EXPECT_EQ(counters.largestOccupied(), 0U);
    struct {
        U32 index, largest;
    } const rows[] = {{0, 18},  {17, 18}, {18, 36},  {35, 36},
                      {36, 72}, {71, 72}, {72, 144}, {0x7ffffffe, 18U << 27}};
    for (auto const& row : rows) {
        SCOPED_TRACE(row.index);
        counters.add(row.index);
        EXPECT_EQ(counters.largestOccupied(), row.largest);
        counters.remove(row.index);
        EXPECT_EQ(counters.largestOccupied(), 0U);
    }
    counters.add(40);
    counters.add(5);
    counters.remove(40);
    EXPECT_EQ(counters.largestOccupied(), 18U);
    Brisk::SlotCounters none(0); // a header larger than a page
    none.add(3);
    EXPECT_EQ(none.largestOccupied(), 4U);
}

struct WalkClient : Brisk::SyncerClient {
    std::vector<U32> seen;
    U32 bound = 0;
    int completions = 0;
    std::function<void(U32)> onSlot = Dunlin::noop;
    bool doSlot(Yarrow::BasicSlot slot, Wren::Sequence sequence, bool compare) override {
        EXPECT_EQ(sequence, ~0ULL);
        EXPECT_TRUE(compare);
        seen.push_back(slot.index);
        onSlot(slot.index);
        return true;
    }
    void doFlushSlot(U32 slot) override { seen.push_back(slot); }
    U32 syncBound() override { return bound; }
    void syncComplete() override { ++completions; }
    void flushComplete() override { completions += 100; }
    void syncFailed(std::string const&) override { completions += 10'000; }
};

TEST(SyncerTest, AtOnceInSlicesForcedAndReplaced) {
    WalkClient client;
    Brisk::Syncer syncer(client);
    client.bound = 10;
    client.onSlot = [&](U32 slot) { client.bound = slot == 9 ? 12 : client.bound; };
    syncer.sync(5, Brisk::SyncerMode::sync, false);
    EXPECT_EQ(client.seen.size(), 12U); // as far as the table has grown meanwhile
    EXPECT_EQ(client.completions, 1);

    client.seen.clear();
    client.onSlot = Dunlin::noop;
    client.bound = 100'000;
    syncer.yieldTimeIs(1e-6);
    syncer.sync(0, Brisk::SyncerMode::sync, true);
    EXPECT_TRUE(client.seen.empty());
    loop().runReady();
    EXPECT_FALSE(syncer.done());
    EXPECT_LT(client.seen.size(), 100'000U);
    syncer.sync(7, Brisk::SyncerMode::flush, true); // replaces it
    client.seen.clear();
    EXPECT_EQ(fmt::format("{}", syncer.mode()), "flush");
    syncer.forceSyncCompletion();
    EXPECT_EQ(client.seen.size(), 7U);
    EXPECT_EQ(client.completions, 101);
    settle();
    EXPECT_EQ(client.seen.size(), 7U);

    client.onSlot = [](U32) { throw Dunlin::CorruptionDetectedException("bad"); };
    EXPECT_THROW(syncer.sync(1, Brisk::SyncerMode::sync, false),
                 Dunlin::CorruptionDetectedException);
    syncer.sync(1, Brisk::SyncerMode::sync, true);
    settle();
    EXPECT_EQ(client.completions, 10'101);
    EXPECT_TRUE(syncer.done());
}

} // namespace
