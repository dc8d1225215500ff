// Shadows over a writer in the same process: what a client is told, and what it may do meanwhile.
#include "FrontFixture.h"

#include "Brisk/ShadowStoreImpl.h"
#include "Dunlin/Exception.h"
#include "SharedMem/LocalMem.h"

namespace {

using namespace Support;

class Shadow : public Fronts, public testing::WithParamInterface<BriskType> {
public:
    std::unique_ptr<Client> client(bool notifyDuringSync = true) {
        auto result = std::make_unique<Client>(name_, shadowSettings(GetParam(), notifyDuringSync));
        result->init();
        return result;
    }
    bool values() const { return GetParam() == BriskType::valueShadow; }
};
INSTANTIATE_TEST_SUITE_P(BothStores, Shadow,
                         testing::Values(BriskType::valueShadow, BriskType::keyShadow),
                         [](auto const& store) {
                             return store.param == BriskType::valueShadow ? "Value" : "Key";
                         });

TEST_P(Shadow, SynchronisesThenTellsEachChangeOnce) {
    std::string quiet;
    auto w = writer();
    for (U32 id = 0; id < 100; ++id) put(*w, id, 1);
    auto c = client();
    // Synchronous: mounted was never told; synchronised by the walk and by the front (A18).
    EXPECT_EQ(c->statuses, "22");
    EXPECT_EQ(c->updates, 100U);
    ASSERT_TRUE(pump([&] { return c->asleep(); }));
    EXPECT_TRUE(c->quiesced);
    EXPECT_EQ(c->updates, 100U); // what the walk met is not told again

    put(*w, 5, 2);
    put(*w, 1000, 1);
    EXPECT_TRUE(drop(*w, 7));
    ASSERT_TRUE(pump([&] { return c->asleep(); }));
    EXPECT_EQ(c->updates, 102U);
    EXPECT_EQ(c->deletes, 1U);
    c->front->quiescedNotifyIs([&](bool on) { quiet += on ? 'q' : 'b'; });
    put(*w, 5, 2); // an announced overwrite is told, equal or not (A8)
    ASSERT_TRUE(pump([&] { return c->asleep(); }));
    EXPECT_EQ(quiet, "bq");
    EXPECT_EQ(c->updates, 103U);
    EXPECT_EQ(c->known, contents(*w));
    EXPECT_EQ(contents(c->front->table()), contents(*w));
    EXPECT_EQ(c->front->members(), 100U);
    EXPECT_EQ(c->front->sequence(), w->sequence());
    EXPECT_TRUE(c->shadow().store()->sound());
    EXPECT_TRUE(pump([&] { return w->quiesced(); }));
    EXPECT_EQ(c->strayDeletes, 0U);

    bool found = true;
    c->front->table().lookup(TestKey(7), found, nullptr);
    EXPECT_FALSE(found);
    TestValue into;
    EXPECT_EQ(c->front->table().lookup(TestKey(5), found, &into)->stamp(), 2U);
    EXPECT_THROW(c->front->table().write(TestValue(TestKey(1)), true),
                 Dunlin::NoPermissionException);
    auto const counters = c->front->readerCounters();
    EXPECT_EQ(counters.occupiedSlots, 100U);
    EXPECT_GT(counters.shadowMappedSize, 0U);
    EXPECT_GT(counters.sequencesSent, 0U);
    EXPECT_EQ(counters.orielMappedSize > 0, !values());
}

TEST_P(Shadow, SilentDuringTheFirstSyncUnlessAsked) {
    auto w = writer();
    put(*w, 1, 1);
    auto c = client(false);
    EXPECT_EQ(c->updates, 0U);
    EXPECT_EQ(c->statuses, "22");
    EXPECT_EQ(contents(c->front->table()).size(), 1U);
    put(*w, 2, 1);
    ASSERT_TRUE(pump([&] { return c->updates == 1; }));

    // Callbacks that are set while the walk runs in slices wait for its end, too.
    MapDescriptor slices = shadowSettings(GetParam(), false);
    slices.asyncAlways = true;
    Client late(name_, slices);
    late.init();
    late.front->controlDetach(); // before it is done
    late.init();
    EXPECT_FALSE(late.front->keyNotifications());
    EXPECT_DEATH(late.front->notifyingIs(false), "not allowed at this time");
    U32 told = 0;
    late.front->valueNotifyIs([&](TestValue const&) { ++told; });
    late.front->keyNotifyIs([&](TestKey const&) { ++told; });
    late.front->deleteNotifyIs([&](TestKey const&) { ++told; });
    ASSERT_TRUE(pump([&] { return late.synchronised() && late.asleep(); }));
    EXPECT_EQ(told, 0U);
    put(*w, 2, 2);
    drop(*w, 1);
    ASSERT_TRUE(pump([&] { return told == 2; }));
    Client deaf(name_, slices);
    deaf.front->notifyingIs(false);
    EXPECT_DEATH(deaf.init(), "notifications unexpectedly disabled prior to initialization");
}

// Without a sentry the client itself attaches the front and lets go, and nobody does it behind it.
TEST_P(Shadow, AttachedByHand) {
    auto w = writer();
    put(*w, 1, 1);
    auto c = client();
    ASSERT_TRUE(pump([&] { return c->asleep(); }));
    c->front->controlDetach();
    EXPECT_TRUE(c->known.empty());
    EXPECT_FALSE(c->front->initialized() || c->front->mounter());
    c->front->notifyingIs(true);
    c->front->tryAttach(); // is the sentry's
    EXPECT_EQ(c->front->mountStatus(), MountStatus::unmounted);
    c->front->attach("by hand");
    ASSERT_TRUE(pump([&] { return c->synchronised() && c->asleep() && c->known.size() == 1; }));
    w->detach(false);
    ASSERT_TRUE(pump([&] { return !c->front->connected(); }));
    EXPECT_TRUE(c->synchronised() && c->front->disconnectedActiveReader());
    c->front->detach(false);
    EXPECT_EQ(c->front->mountStatus(), MountStatus::unmounted);
    EXPECT_TRUE(pump([&] { return c->known.empty(); }));
}

TEST_P(Shadow, ReusedSlotsGiveOneDeleteAndOneUpdate) {
    auto w = writer();
    for (U32 id = 0; id < 10; ++id) put(*w, id, 1);
    auto c = client();
    ASSERT_TRUE(pump([&] { return c->asleep(); }));
    auto const before = c->updates;
    // The slot freed last is taken first: key 100 stands where key 3 stood.
    drop(*w, 3);
    put(*w, 100, 1);
    bool found = false; // before it has heard of it
    c->front->table().lookup(TestKey(3), found, nullptr);
    EXPECT_EQ(found, values());
    EXPECT_EQ(c->front->readerCounters().keyMismatches, !values());
    ASSERT_TRUE(pump([&] { return c->asleep(); }));
    EXPECT_EQ(c->deletes, 1U);
    EXPECT_EQ(c->updates, before + 1);
    // Away and back between two looks, in the same slot or in another: no delete.
    drop(*w, 4);
    drop(*w, 5);
    put(*w, 4, 9);
    put(*w, 5, 9);
    ASSERT_TRUE(pump([&] { return c->asleep(); }));
    EXPECT_EQ(c->known, contents(*w));
    EXPECT_EQ(c->strayDeletes, 0U);
    EXPECT_TRUE(c->shadow().store()->sound());
}

// The walk of a resync finds other keys in every slot it remembers (H-shadow-1).
TEST_P(Shadow, ResyncWithEverySlotChangedBalances) {
    auto w = writer();
    for (U32 id = 0; id < 200; ++id) put(*w, id, 1);
    auto c = client();
    ASSERT_TRUE(pump([&] { return c->asleep(); }));
    auto const updates = c->updates;
    // The writer comes back as another incarnation with the keys shuffled over the slots.
    w.reset();
    w = writer();
    for (U32 id = 0; id < 100; ++id) drop(*w, id);
    for (U32 id = 99; id >= 50; --id) put(*w, id, id);
    for (U32 id = 300; id < 350; ++id) put(*w, id, 1);
    ASSERT_TRUE(pump([&] { return c->synchronised() && c->asleep() && c->known == contents(*w); }));
    EXPECT_EQ(c->strayDeletes, 0U);
    EXPECT_GT(c->updates, updates);
    EXPECT_TRUE(c->shadow().store()->sound());
}

// Keys that have changed places are the same keys: no delete in a walk.
TEST_P(Shadow, ResyncOverACircleOfSlotsDeletesNothing) {
    auto w = writer();
    for (U32 id = 0; id < 8; ++id) put(*w, id, id);
    auto c = client();
    ASSERT_TRUE(pump([&] { return c->asleep() && w->quiesced(); }));
    auto const updates = c->updates;
    w->detach(false);
    w->initialize("again"); // another incarnation: the shadow will walk
    // The slot freed last is taken first.
    for (U32 id = 0; id < 8; ++id) drop(*w, id);
    for (U32 id = 0; id < 8; ++id) put(*w, id, id);
    U64 const walks = c->shadow().resyncs();
    ASSERT_TRUE(pump([&] { return c->shadow().resyncs() > walks && c->asleep(); }));
    EXPECT_EQ(c->deletes, 0U);
    EXPECT_EQ(c->known, contents(*w));
    if (values()) {
        EXPECT_EQ(c->updates, updates);
    }
    EXPECT_TRUE(c->shadow().store()->sound());
}

TEST_P(Shadow, ShrinkIsNoChange) {
    auto w = writer(writerSettings(true));
    for (U32 id = 0; id < 1024; ++id) put(*w, id, 1);
    auto c = client();
    // Settled on both sides: what a reader has not acknowledged is told again when it moves.
    ASSERT_TRUE(pump([&] { return c->asleep() && w->quiesced(); }));
    auto const updates = c->updates;
    U32 const slots = w->capacity();
    for (U32 id = 0; id < 769; ++id) drop(*w, id);
    ASSERT_TRUE(pump([&] { return c->asleep() && w->capacity() < slots; }));
    settle(20);
    ASSERT_TRUE(pump([&] { return c->asleep(); }));
    EXPECT_GT(w->writerCounters().slotMoves, 0U);
    EXPECT_EQ(c->deletes, 769U);
    EXPECT_EQ(c->updates, updates);
    EXPECT_EQ(c->strayDeletes, 0U);
    EXPECT_EQ(c->known, contents(*w));
    EXPECT_TRUE(w->validate());
    EXPECT_TRUE(c->shadow().store()->sound());
}

// A client in a process of its own, stopped from before the first removal until after the shrink.
TEST_P(Shadow, ShrinkPastAStoppedShadowIsNoChange) {
    auto w = writer(writerSettings(true));
    for (U32 id = 0; id < 1024; ++id) put(*w, id, 1);
    Child child([&](Child& self) {
        auto c = client();
        if (!pump([&] { return c->asleep(); })) return 1;
        auto const updates = c->updates;
        self.tell(1);
        if (!pump([&] { return c->deletes == 769 && c->asleep(); })) return 2;
        settle(20);
        self.tell(static_cast<std::int64_t>(c->updates - updates));
        self.hear();
        settle(20);
        if (!c->asleep() || c->strayDeletes != 0 || c->deletes != 769) return 3;
        return c->known.size() == 255 && c->known == contents(c->front->table()) &&
                       c->shadow().store()->sound()
                   ? 0
                   : 4;
    });
    // The child talks and listens while this process runs the writer's loop.
    std::vector<S64> heard;
    loop().fdAdd(child.hearFd(), 1, [&](U32) {
        heard.push_back(child.hear());
        if (heard.size() == 2) loop().fdDel(child.hearFd());
    });
    ASSERT_TRUE(pump([&] { return heard.size() == 1 && w->quiesced(); }));
    U32 const slots = w->capacity();
    child.signal(SIGSTOP);
    for (U32 id = 0; id < 769; ++id) drop(*w, id);
    settle(20);
    EXPECT_GT(w->writerCounters().slotMoves, 0U);
    EXPECT_LT(w->capacity(), slots);
    child.signal(SIGCONT);
    ASSERT_TRUE(pump([&] { return heard.size() == 2 && w->quiesced(); }));
    EXPECT_EQ(heard[0], 1);
    EXPECT_EQ(heard[1], 0) << "updates told";
    settle(20); // whatever is left to shrink
    child.tell(0);
    settle(50);
    EXPECT_TRUE(w->validate());
    EXPECT_EQ(child.join(), 0);
}

TEST_P(Shadow, LooksWhileBeingTold) {
    auto w = writer();
    auto c = client();
    ASSERT_TRUE(pump([&] { return c->asleep(); }));
    int looked = 0;
    c->onUpdate = [&](TestKey const& key) {
        bool found = false;
        TestValue into;
        EXPECT_TRUE(c->front->table().lookup(key, found, &into)->whole());
        EXPECT_TRUE(found);
        c->front->table().validateVersionAnchor();
        EXPECT_EQ(contents(c->front->table()).count(key.id), 1U);
        ++looked;
    };
    c->onDelete = [&](TestKey const& key) {
        EXPECT_EQ(contents(c->front->table()).count(key.id), 0U);
        ++looked;
    };
    for (U32 id = 0; id < 50; ++id) put(*w, id, 1);
    ASSERT_TRUE(pump([&] { return c->asleep(); }));
    for (U32 id = 0; id < 50; ++id) drop(*w, id);
    ASSERT_TRUE(pump([&] { return c->asleep(); }));
    EXPECT_EQ(looked, 100);
    EXPECT_GT(c->front->readerCounters().inFlightHits, 0U);
    EXPECT_GT(c->front->readerCounters().shadowBucketGrows, 0U);
    EXPECT_GT(c->front->readerCounters().shadowBucketShrinks, 0U);

    // The same in the callbacks of a flush and of what comes with it.
    for (U32 id = 0; id < 50; ++id) put(*w, id, 1);
    ASSERT_TRUE(pump([&] { return c->asleep(); }));
    looked = 0;
    U32 statuses = 0;
    c->onStatus = [&] {
        ++statuses;
        // While it is flushed, a store without values has nothing to fetch them from.
        auto const status = c->front->mountStatus();
        bool const there =
            status != MountStatus::unmounted && (values() || status != MountStatus::flushing);
        EXPECT_EQ(contents(c->front->table()).size(), there ? c->known.size() : 0U);
    };
    w->detach(false);
    ASSERT_TRUE(pump([&] { return c->front->mountStatus() == MountStatus::unmounted; }));
    EXPECT_EQ(looked, 50);
    w->initialize("again");
    ASSERT_TRUE(pump([&] { return c->synchronised() && c->asleep(); }));
    EXPECT_EQ(statuses, 4U); // flushing, unmounted, mounted, synchronised
    c->onStatus = Dunlin::noop;
    // Of a table that is there the whole index is made at once: 2 buckets doubled nine times.
    for (U32 id = 0; id < 1000; ++id) put(*w, id, 1);
    auto const late = client();
    ASSERT_TRUE(pump([&] { return late->asleep(); }));
    EXPECT_EQ(late->front->readerCounters().shadowBucketGrows, 9U);
}

// Detach, and detach with a new attach, from inside each kind of callback.
TEST_P(Shadow, EndsAndStartsOverFromInsideAnyCallback) {
    // Detaches without force, forced, and forced with a new attach.
    for (int how = 0; how < 3; ++how) {
        bool const force = how > 0, again = how > 1;
        for (int where = 0; where < 5; ++where) {
            if (!force && (where == 2 || where == 3)) continue; // inside a flush: a fault
            SCOPED_TRACE(testing::Message() << "where " << where << " how " << how);
            std::filesystem::remove_all(base_.path() + "/vrf");
            auto w = writer();
            for (U32 id = 0; id < 40; ++id) put(*w, id, 1);
            auto c = std::make_unique<Client>(name_, shadowSettings(GetParam()));
            bool done = false;
            auto const act = [&] {
                if (std::exchange(done, true)) return;
                c->front->detach(force);
                EXPECT_EQ(c->front->mountStatus(),
                          force ? MountStatus::unmounted : MountStatus::flushing);
                EXPECT_EQ(c->known.empty(), force); // the flush told all
                if (again) c->front->attach("test");
                EXPECT_LE(contents(c->front->table()).size(), 40U);
                bool found = false;
                c->front->table().lookup(TestKey(3), found, nullptr);
            };
            if (where == 4) c->onUpdate = [&](TestKey const&) { act(); }; // in the first walk
            c->init();
            ASSERT_TRUE(pump([&] { return c->asleep(); }));
            if (where == 0) c->onUpdate = [&](TestKey const&) { act(); };
            if (where == 1) c->onDelete = [&](TestKey const&) { act(); };
            if (where == 2) c->onStatus = [&] { act(); };
            put(*w, 3, 5);
            drop(*w, 4);
            if (where == 2) c->front->tryAttach(), c->front->detach(false);
            if (where == 3) {
                // In the midst of an asynchronous flush.
                c->onDelete = [&](TestKey const&) {
                    if (!done && c->front->mountStatus() == MountStatus::flushing) act();
                };
                c->front->detach(false);
                EXPECT_EQ(c->front->mountStatus(), MountStatus::flushing);
            }
            ASSERT_TRUE(pump([&] { return done; }));
            c->onUpdate = c->onDelete = Dunlin::noop;
            c->onStatus = Dunlin::noop;
            // The writer lives, so the sentry brings the table back in any case.
            c->front->tryAttach();
            ASSERT_TRUE(pump([&] { return c->synchronised() && c->asleep(); }));
            EXPECT_EQ(c->known, contents(*w));
            EXPECT_EQ(c->strayDeletes, 0U);
        }
    }
}

struct Thrown {};

// A client that raises whenever it hears of a deletion.
struct RaisingListener : Brisk::ShadowListener<TestKey, TestValue> {
    void shadowValue(TestValue const& value) override { known.insert(value.key().id); }
    void shadowKey(TestKey const& key) override { known.insert(key.id); }
    void shadowDelete(TestKey const& key) override {
        ++deletes;
        EXPECT_EQ(known.erase(key.id), 1U) << key.id;
        if (failing) Mem::failMappingAfter(1);
        throw Thrown();
    }
    std::set<U32> known;
    U32 deletes = 0;
    bool failing = false; // the next mapping behind a deletion
};

// Memory that cannot be given back or had, before or behind a callback that raises: both are heard of
// with the slot they belong to, and each deletion is told once.
TEST_P(Shadow, ACallbackRaisesAndTheTableFailsInOneSlot) {
    for (bool const behind : {false, true}) {
        SCOPED_TRACE(behind);
        std::filesystem::remove_all(base_.path() + "/vrf");
        auto w = writer(writerSettings(true));
        for (U32 id = 0; id < 1024; ++id) put(*w, id, 1);
        auto r = reader();
        Yarrow::YarrowReader<Yarrow::BasicSlot> queue(*handler_, Mem::RootPath(name_));
        ASSERT_TRUE(queue.attach(r->orielId()));
        Brisk::Reader::Counters counters;
        RaisingListener client;
        TestOps const ops;
        std::unique_ptr<Brisk::ShadowStoreBase<TestKey, TestValue>> store;
        if (values())
            store = std::make_unique<Brisk::ShadowStore<Brisk::ValueShadowSlot<TestOps>>>(
                *handler_, *r, queue, counters, ops, client, true);
        else
            store = std::make_unique<Brisk::KeyShadowStore<TestOps>>(*handler_, *r, queue, counters,
                                                                     ops, client, true);
        ASSERT_TRUE(store->initialize());
        U32 raised = 0, failed = 0;
        auto const walk = [&](bool failsAtOnce) {
            for (U32 slot = 0; slot < 1024; ++slot) {
                U32 const deletes = client.deletes;
                if (failsAtOnce) Mem::failMappingAfter(1);
                try {
                    store->doSlot({slot}, Wren::syncPass, true);
                } catch (Thrown const&) {
                    ++raised;
                    EXPECT_GT(client.deletes, deletes) << "raised for slot " << slot;
                } catch (Dunlin::MemoryResourceException const&) {
                    ++failed;
                }
                Mem::failMappingAfter(0);
            }
        };
        walk(false);
        EXPECT_EQ(client.known.size(), 1024U);
        for (U32 id = 0; id < 1000; ++id) drop(*w, id);
        client.failing = behind;
        walk(!behind);
        client.failing = false;
        walk(false);
        EXPECT_GT(raised, 900U);
        EXPECT_GT(failed, 0U);
        EXPECT_EQ(client.deletes, 1000U);
        std::set<U32> left;
        for (auto const& [id, stamp] : contents(*w)) left.insert(id);
        EXPECT_EQ(client.known, left);
        EXPECT_TRUE(store->sound());
        store->disable();
    }
}

TEST_P(Shadow, FlushAsTold) {
    auto w = writer();
    for (U32 id = 0; id < 40; ++id) put(*w, id, 1);
    {
        auto c = client();
        ASSERT_TRUE(pump([&] { return c->asleep(); }));
        c->statuses.clear();
        w->detach(false);
        ASSERT_TRUE(pump([&] { return c->front->mountStatus() == MountStatus::unmounted; }));
        EXPECT_EQ(c->deletes, 40U);
        EXPECT_EQ(c->statuses, "30");
        EXPECT_FALSE(c->quiesced);
        EXPECT_EQ(c->front->table().type(), BriskType::reader); // a dummy
        w->initialize("again");
        ASSERT_TRUE(pump([&] { return c->asleep() && c->synchronised(); }));
        EXPECT_EQ(c->statuses, "3012"); // mounted first: the walk runs in slices now
        EXPECT_EQ(c->known.size(), 40U);
    }
    MapDescriptor quiet = shadowSettings(GetParam());
    quiet.notifyOnFlush = false;
    Client c(name_, quiet);
    c.init();
    ASSERT_TRUE(pump([&] { return c.asleep(); }));
    w->detach(false);
    ASSERT_TRUE(pump([&] { return c.front->mountStatus() == MountStatus::unmounted; }));
    EXPECT_EQ(c.deletes, 0U);
    EXPECT_EQ(contents(c.front->table()).size(), 0U);
}

TEST_P(Shadow, AnUnforcedDetachInsideAFlushIsAFault) {
    auto w = writer();
    put(*w, 1, 1);
    auto c = client();
    ASSERT_TRUE(pump([&] { return c->asleep(); }));
    c->front->detach(false);
    EXPECT_EQ(c->front->mountStatus(), MountStatus::flushing);
    EXPECT_DEATH(c->front->table().detach(false),
                 "expected only forced detach during asynchronous flush");
    c->front->table().detach(true);
    // The sentry saw the writer; the walk runs in slices now.
    EXPECT_EQ(c->front->mountStatus(), MountStatus::mounted);
    ASSERT_TRUE(pump([&] { return c->synchronised(); }));
}

TEST_P(Shadow, OvertakenTellsOnlyDifferences) {
    auto w = writer();
    for (U32 id = 0; id < 300; ++id) put(*w, id, 1);
    auto c = client();
    ASSERT_TRUE(pump([&] { return c->asleep(); }));
    // Nobody is connected while the queue runs over, so it is pruned.
    auto const updates = c->updates;
    c->front->notifyingIs(false);
    for (U32 round = 0; round < 20; ++round)
        for (U32 id = 0; id < 300; ++id) put(*w, id, id % 3 == 0 ? round + 2 : 1);
    for (U32 id = 0; id < 30; ++id) drop(*w, id);
    c->front->notifyingIs(true);
    ASSERT_TRUE(pump([&] { return c->asleep() && c->known == contents(*w); }));
    EXPECT_EQ(c->deletes, 30U);
    EXPECT_EQ(c->strayDeletes, 0U);
    // The queue keeps one notification per slot: 270 at most.
    EXPECT_LE(c->updates - updates, 270U);
}

TEST_P(Shadow, ModelOfAnyHistory) {
    char const* const chosen = std::getenv("SEED");
    unsigned const seed =
        chosen ? static_cast<unsigned>(std::atoi(chosen)) : std::random_device{}();
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    auto w = writer(writerSettings(true));
    auto c = client();
    MapDescriptor slices = shadowSettings(GetParam());
    slices.asyncAlways = true;
    Client sliced(name_, slices);
    sliced.front->yieldTimeIs(0.00001);
    sliced.init();
    U64 stamp = 0;
    for (int round = 0; round < 1500; ++round) {
        U32 const range = round % 300 < 150 ? 3000 : 60;
        for (auto n = random() % 60; n-- > 0;) {
            U32 const id = static_cast<U32>(random() % range);
            if (random() % 3 == 0)
                drop(*w, id);
            else
                put(*w, id, ++stamp);
        }
        if (round % 300 == 150)
            for (U32 id = 0; id < 3000; ++id)
                if (id % 64) drop(*w, id);
        if (random() % 200 == 0) w->detach(false), w->initialize("again");
        if (random() % 4 == 0) loop().runOnce(0);
        if (random() % 40 == 0) {
            ASSERT_TRUE(pump([&] { return c->synchronised() && c->asleep(); }));
            ASSERT_EQ(c->known, contents(*w)) << round;
            ASSERT_TRUE(c->shadow().store()->sound());
        }
    }
    ASSERT_TRUE(pump([&] {
        return c->synchronised() && c->asleep() && sliced.synchronised() && sliced.asleep();
    }));
    EXPECT_EQ(c->known, contents(*w));
    EXPECT_EQ(sliced.known, contents(*w));
    EXPECT_EQ(c->strayDeletes + sliced.strayDeletes, 0U);
    EXPECT_TRUE(w->validate());
    EXPECT_EQ(c->shadow().lateWakes(), 0U);
}

} // namespace
