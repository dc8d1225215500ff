// What fronts of each role answer and say in the trace, and what they do when the table under them is
// damaged or the client lets go in the middle of what it is told.
#include "FrontFixture.h"

#include "BriskCore/CriticalTasks.h"
#include "Dunlin/Exception.h"
#include "SharedMem/Bolster.h"
#include "support/Ear.h"

namespace {

using namespace Support;

class Roles : public Fronts {
public:
    std::unique_ptr<Client> client(BriskType type) {
        auto result = std::make_unique<Client>(name_, shadowSettings(type));
        result->init();
        return result;
    }
};
constexpr BriskType readers[] = {BriskType::reader, BriskType::valueShadow, BriskType::keyShadow};

TEST_F(Roles, EachAnswersForItsTable) {
    auto w = writer();
    for (U32 id = 0; id < 40; ++id) put(*w, id, 1);
    w->scratchpadIs(5);
    w->criticalTaskCheckIs(true);
    EXPECT_TRUE(w->criticalTaskCheck());
    EXPECT_EQ(w->type(), BriskType::writer);
    EXPECT_EQ(w->briskName(), name_);
    EXPECT_TRUE(w->quiesced());
    for (BriskType const type : readers) {
        SCOPED_TRACE(U32(type));
        auto c = client(type);
        auto& front = *c->front;
        bool const shadow = type != BriskType::reader;
        ASSERT_TRUE(pump([&] { return front.quiesced() && (!shadow || c->asleep()); }));
        auto& table = front.table();
        bool found = false;
        TestValue value;
        table.lookup(TestKey(1), found, nullptr); // a reader maps what it looks at
        EXPECT_EQ(front.mode(), type);
        EXPECT_EQ(front.modeStr(), type == BriskType::reader        ? "reader"
                                   : type == BriskType::valueShadow ? "value shadow"
                                                                    : "key shadow");
        EXPECT_EQ(front.classType(), "BriskMap");
        EXPECT_EQ(front.rootPath(), name_);
        EXPECT_EQ(front.collName(), name_);
        EXPECT_EQ(front.maxSize(), w->maxSize());
        EXPECT_EQ(front.capacity(), w->capacity());
        EXPECT_EQ(front.orielId(), w->orielId());
        EXPECT_EQ(front.connected(), shadow);
        EXPECT_EQ(front.descriptor().type, type);
        EXPECT_TRUE(front.keyNotifications());
        EXPECT_TRUE(front.mounter());
        EXPECT_FALSE(front.isWriter());
        EXPECT_FALSE(front.assertOnOrphanAccess());
        EXPECT_EQ(front.disconnectedActiveReader(), false);
        EXPECT_EQ(table.buckets(), w->buckets());
        EXPECT_EQ(table.minSize(), 0U);
        EXPECT_EQ(table.briskName(), name_);
        EXPECT_EQ(table.rootPath().text(), w->rootPath().text());
        // What only a writer can do.
        EXPECT_THROW(table.directWrite(value), Dunlin::NoPermissionException);
        EXPECT_THROW(table.directUpdate(TestKey(1)), Dunlin::NoPermissionException);
        EXPECT_THROW(table.directCommit(), Dunlin::NoPermissionException);
        front.criticalTaskCheckIs(true);
        front.scratchpadIs(6);
        EXPECT_FALSE(front.criticalTaskCheck());
        EXPECT_EQ(front.scratchpad(), 0U);
        EXPECT_EQ(w->scratchpad(), 5U);
        EXPECT_FALSE(front.clientQuiesced("somebody"));
        EXPECT_EQ(front.writerCounters().readers, 0U);
        EXPECT_TRUE(front.validate());
        front.cleanup();
        EXPECT_EQ(w->members(), 40U);
        // Anchors, and the walk that goes by the key when its hint is of no use.
        EXPECT_EQ(table.directLookup(TestKey(3), found, &value)->stamp(), 1U);
        EXPECT_TRUE(found);
        front.safeLookup(TestKey(3), found, nullptr);
        EXPECT_TRUE(front.compareVersionAnchor(front.getCacheVersionAnchor()));
        if (type != BriskType::valueShadow) { // its values are its own
            front.validateVersionAnchor();
            put(*w, 3, 2);
            EXPECT_THROW(front.validateVersionAnchor(), Mem::VersionMismatchException);
            put(*w, 3, 1);
        }
        std::set<U32> seen;
        IterHint hint;
        for (bool more = table.first(value, hint); more;
             more = table.next(value.key(), value, hint)) {
            seen.insert(value.key().id);
            hint = {};
        }
        EXPECT_EQ(seen.size(), 40U);
    }
}

// A front whose owner has gone and has said that nobody may use it any more.
struct OrphanMap : TestMap {
    using TestMap::assertOnOrphanAccessIs;
    using TestMap::TestMap;
};

TEST_F(Roles, AnOrphanMayNotBeUsed) {
    auto w = writer();
    OrphanMap front(name_, "TestValue");
    front.init(shadowSettings(BriskType::reader));
    front.assertOnOrphanAccessIs(true);
    front.detach(true);
    auto& table = front.table();
    table.detach(true);
    EXPECT_TRUE(table.validate() && table.validateFiles());
    EXPECT_EQ(table.briskName(), name_);
    EXPECT_EQ(table.rootPath().text(), w->rootPath().text());
    EXPECT_EQ(table.mountStatus(), MountStatus::unmounted);
    TestValue value;
    IterHint hint;
    bool found;
    EXPECT_THROW(table.write(value, true), Dunlin::NoPermissionException);
    EXPECT_THROW(table.remove(TestKey(1), value), Dunlin::NoPermissionException);
    EXPECT_DEATH((void)table.initialize("e"), "rootPath:.* event:e. If you're seeing this");
    std::pair<char const*, std::function<void()>> const uses[] = {
        {"lookup", [&] { table.lookup(TestKey(1), found, nullptr); }},
        {"first", [&] { table.first(value, hint); }},
        {"next", [&] { table.next(TestKey(1), value, hint); }},
        {"capacity", [&] { (void)table.capacity(); }},
        {"members", [&] { (void)table.members(); }},
        {"buckets", [&] { (void)table.buckets(); }},
        {"minSize", [&] { (void)table.minSize(); }},
        {"maxSize", [&] { (void)table.maxSize(); }},
        {"type", [&] { (void)table.type(); }},
        {"counters", [&] { table.readerCounters(); }},
        {"anchor", [&] { table.validateVersionAnchor(); }},
    };
    for (auto const& [what, use] : uses) {
        SCOPED_TRACE(what);
        EXPECT_DEATH(
            use(),
            "invoked, name:.* rootpath:.*you're trying to operate on an orphan brisk entity");
    }
    EXPECT_DEATH(front.init(shadowSettings(BriskType::reader)), "has already become an orphan");
    table.cleanup(); // reaches what it replaced, a reader: nothing is removed
    EXPECT_TRUE(front.exists());
}

TEST_F(Roles, LongOperationsLetCriticalTasksRun) {
    bool ran = false;
    loop().taskAdd(Dunlin::TaskSchedulerRoot::Priority::critical, [&] { ran = true; });
    BriskCore::CriticalTasks never(false), now(true);
    double const end = loop().now() + 10;
    never.check();
    EXPECT_FALSE(ran);
    while (!ran && loop().now() < end) now.check();
    EXPECT_TRUE(ran);
}

// The texts by which an operator follows a shadow through its life.
TEST_F(Roles, ShadowsTellTheirLife) {
    for (BriskType const type : {BriskType::valueShadow, BriskType::keyShadow}) {
        SCOPED_TRACE(U32(type));
        std::filesystem::remove_all(base_.path() + "/vrf");
        Ear ear;
        auto w = writer(writerSettings(true));
        for (U32 id = 0; id < 40; ++id) put(*w, id, 1);
        auto c = client(type);
        auto const settled = [&] {
            return c->asleep() && w->quiesced() && c->known.size() == w->members();
        };
        ASSERT_TRUE(pump(settled));
        ear.told(
            {"^name:vrf/default/test .*type:", "^attempting to attach vrf/default/test as [0-9]$",
             "^success .*/test capacity:64 orielId:[0-9]+ mtime:[0-9.e+]+ delay:.* event:",
             "^successful$", "^for slotIndex:[0-9]+$",
             "^resize shadow slots from 0 to 64 due to out of range slot 0$",
             "^Passed resize [0-9]+ and got 0x[0-9a-f]+ back\\.$", "^complete\\.$",
             "^slotIndex:0 key:[0-9a-f]+$", "^value inserted in fresh bucket$", "^value inserted$",
             "^add slot to end of chain$", "^updated: true compare: true slotIndex:0 found$",
             "^Synchronization complete, seq:40$", "^reader .* at [0-9]+$"});
        for (U32 id = 0; id < 3000; ++id) put(*w, id, 2);
        ASSERT_TRUE(pump(settled));
        ear.told({"from 64 slots to [0-9]+$", "^onResize .*numSlots:[0-9]+", "^address offset",
                  "^buckets growing from:64 to:128$",
                  "^splitting bucket [0-9]+ to buckets [0-9]+ and [0-9]+$"});
        EXPECT_EQ(contents(c->front->table()).size(), 3000U);
        for (U32 id = 0; id < 2990; ++id) drop(*w, id);
        ASSERT_TRUE(pump(settled));
        ear.told({"^value updated$",
                  "^slot:[0-9]+ prev->next:.* next:.* occupied:[0-9]+ key:[0-9a-f]+$", "not found$",
                  "^shadow slot occupancy <= 25% and can shrink to [0-9]+ slots\\.$",
                  "^newNumSlots:[0-9]+$", "^shrunk to numBuckets_:[0-9]+ bucketFactor_:[0-9]+$"});
        c->front->tryAttach();
        c->front->detach(false);
        ASSERT_TRUE(pump([&] { return c->synchronised() && c->asleep(); }));
        w->detach(false);
        ASSERT_TRUE(pump([&] { return c->front->mountStatus() == MountStatus::unmounted; }));
        c->front->detach(false);
        ear.told({"is already mounted, mountStatus:2$", "^slotIndex [0-9]+ key:[0-9a-f]+$",
                  "^Flush complete$", "^vrf/default/test force:false$", " detached, force:false$",
                  "^connection to the writer is lost$"});
        c.reset();
        EXPECT_TRUE(ear.heard("^deleting state$"));
    }
}

TEST_F(Roles, AReaderTellsItsSteps) {
    Ear ear;
    auto w = writer();
    auto const held = detachedReader();
    auto& r = *held;
    bool found;
    r.lookup(TestKey(1), found, nullptr);
    EXPECT_TRUE(ear.heard("^bucket table detached$"));
    ASSERT_TRUE(r.initialize("test"));
    EXPECT_TRUE(contents(r).empty());
    EXPECT_TRUE(ear.heard("^none found!$"));
    for (U32 id = 0; id < 40; ++id) put(*w, id, 1);
    w->write(TestValue(TestKey(99, 0xffffffff), 0), true); // the last of any walk
    TestValue value;
    IterHint hint;
    for (bool const keep : {true, false})
        for (bool more = r.first(value, hint); more; more = r.next(value.key(), value, hint))
            if (!keep) hint = {};
    EXPECT_FALSE(r.safeValue(10'000, value, nullptr));
    EXPECT_TRUE(r.getValue(3, value, &value));
    r.detach(false);
    r.detach(false);
    ear.told({"^[0-9]+ found at bucket [0-9]+, saving [0-9]+$",
              "^[0-9]+ next bucket [0-9]+ using [0-9]+$",
              "^[0-9]+ success [0-9]+ using [0-9]+, saving new slot hint [0-9]+$",
              "^[0-9]+ failed$", "^[0-9]+ comparing slot [0-9]+ [0-9]+$",
              "^[0-9]+ success [0-9]+, saving [0-9]+$", "^[0-9]+ next slot [0-9]+ success$",
              "^[0-9]+ next bucket [0-9]+$",
              "^slotIndex:10000 shmemCapacity:64, returning not found$", "^already detached$",
              "^delegating to SlotTable::detach\\(\\)$", "/test detached$"});
}

// The client lets its front go from inside any callback, at any time it may come.
TEST_F(Roles, AFrontMayGoFromInsideAnyCallback) {
    for (BriskType const type : readers) {
        for (int when = 0; when < 13; ++when) {
            SCOPED_TRACE(testing::Message() << U32(type) << " when " << when);
            std::filesystem::remove_all(base_.path() + "/vrf");
            auto w = writer();
            for (U32 id = 0; id < 5; ++id) put(*w, id, 1);
            auto c = std::make_unique<Client>(name_, shadowSettings(type));
            auto& front = *c->front;
            bool gone = false;
            auto const go = [&] {
                gone = true;
                c->front.reset();
            };
            bool const beforeInit = when < 2 || when == 7 || when == 8;
            if (!beforeInit) {
                c->init();
                ASSERT_TRUE(pump([&] { return type == BriskType::reader || c->asleep(); }));
            }
            switch (when) {
            case 0:
                front.mountStatusNotifyIs(go), w.reset(), c->init(), w = writer();
                break;
            case 1:
                front.quiescedNotifyIs([&](bool) { go(); }), w.reset(), c->init(), w = writer();
                break;
            case 2:
                front.mountStatusNotifyIs(go), w.reset();
                break;
            case 3:
                front.quiescedNotifyIs([&](bool on) { on ? void() : go(); }), w.reset();
                break;
            case 4:
                c->onDelete = [&](TestKey const&) { go(); }, drop(*w, 1);
                break;
            case 5:
                c->onDelete = [&](TestKey const&) { go(); }, w->detach(false);
                break;
            case 6:
                c->onUpdate = [&](TestKey const&) { go(); }, put(*w, 1, 2), put(*w, 2, 2);
                c->updates = 0;
                break;
            case 7:
                c->onUpdate = [&](TestKey const&) { go(); }, c->init();
                break;
            case 8:
                w.reset(), c->init(), w = writer();
                front.mountStatusNotifyIs(go), front.tryAttach();
                break;
            case 9:
                c->onDelete = [&](TestKey const&) { go(); }, front.detach(true);
                break;
            case 10:
                c->onDelete = [&](TestKey const&) { go(); }, front.controlDetach();
                break;
            case 11: // the writer lives: mounted again at once
                c->onStatus = [&] {
                    gone || front.mountStatus() != MountStatus::mounted ? void() : go();
                };
                front.detach(false);
                break;
            case 12:
                c->onUpdate = [&](TestKey const&) {
                    go();
                    throw Dunlin::MemoryResourceException("and the client fails");
                };
                put(*w, 1, 2);
                break;
            }
            bool const told = type != BriskType::reader || when < 4 || when == 8;
            EXPECT_EQ(pump([&] { return gone; }, told ? 10 : 0.1), told);
            settle();
            if (when != 6) continue;
            EXPECT_EQ(c->updates, told); // nothing more behind the last
            EXPECT_EQ(w->writerCounters().readers, 0U);
        }
    }
}

TEST_F(Roles, AWritingFrontMayGoFromItsCallbackAndHearsOfItsReaders) {
    auto w = std::make_unique<TestMap>(name_, "TestValue");
    w->quiescedNotifyIs([&](bool) { w.reset(); });
    w->init(BriskType::writer, false, 100);
    EXPECT_FALSE(w);
    settle();
    TestMap front(name_, "TestValue");
    std::string quiet;
    front.quiescedNotifyIs([&](bool on) { quiet += on ? 'q' : 'b'; });
    front.init(BriskType::writer, false, 100);
    auto c = client(BriskType::valueShadow);
    ASSERT_TRUE(pump([&] { return c->asleep() && front.quiesced() && quiet.ends_with('q'); }));
    EXPECT_THAT(quiet, testing::MatchesRegex("(qb)*q"));
    quiet.clear();
    front.safeWrite(TestValue(TestKey(1), 1), true);
    auto const own = SharedMem::BolsterName::own(); // whose reader has yet to take that
    std::string const name = own.substr(0, own.rfind('-'));
    EXPECT_FALSE(front.clientQuiesced(name) || front.clientQuiesced("") || front.quiesced());
    ASSERT_TRUE(pump([&] { return front.clientQuiesced(name) && front.quiesced(); }));
    ASSERT_TRUE(pump([&] { return quiet.ends_with('q'); }));
    EXPECT_EQ(quiet, "bq");
    EXPECT_EQ(front.modeStr(), "writer");
    EXPECT_TRUE(front.isWriter());
    EXPECT_DEATH(front.handleDisconnect(), "wrong type:0");
}

// A queue that no sound writer leaves behind: the front hears of it, and the table can be read on.
TEST_F(Roles, DamageToTheQueueReachesTheHandler) {
    for (BriskType const type : {BriskType::valueShadow, BriskType::keyShadow}) {
        SCOPED_TRACE(U32(type));
        std::filesystem::remove_all(base_.path() + "/vrf");
        auto w = writer();
        put(*w, 1, 1);
        auto c = client(type);
        ASSERT_TRUE(pump([&] { return c->asleep() && w->quiesced(); }));
        std::string told;
        Brisk::BriskMapBase::corruptionHandlerIs(
            [&](Brisk::BriskMapBase& front, std::string const& message) {
                EXPECT_EQ(&front, c->front.get());
                told = message;
            });
        put(*w, 2, 1);
        auto const live = w->queue().position(w->members() - 1);
        poke("yarrow", 192 + 8 * live, 0); // an entry that was never written
        EXPECT_TRUE(pump([&] { return !told.empty(); }));
        Brisk::BriskMapBase::corruptionHandlerIs({});
        EXPECT_THAT(told, testing::HasSubstr("was never written"));
        bool found = false;
        TestValue into;
        c->front->table().lookup(TestKey(1), found, &into);
        EXPECT_TRUE(found);
    }
}

} // namespace
