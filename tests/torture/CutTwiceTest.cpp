// Writer and reader cut more than once, on tables of four to sixteen slots: the writer stops before
// each of its stores, a read runs as far as each of its loads, the writer goes on, then both end.
// What one interruption alone never shows is shown here.
#include "tests/support/SharedBlock.h"
#include "tests/support/TempBase.h"
#include "tests/torture/Follower.h"
#include "tests/torture/Interrupted.h"
#include "tests/torture/Relay.h"

#include "Dunlin/Exception.h"

#include <gtest/gtest.h>
#include <set>

namespace {

using namespace Support;
constexpr U32 recordBytes = 600;
using T = Table<recordBytes>;
using Value = T::Value;
using Follower = FollowerOf<recordBytes>;
static_assert(firstSlots<recordBytes>() == 4);
constexpr char const* name = "cut";

// Keys of one chain as long as there are no more than sixteen buckets, in the order of their numbers;
// with more, those from 9 on have a chain of their own. Those above 90 stand in a third bucket, which
// with eight is the first one's, and those above 100 in another.
TestKey key(U32 id) {
    return {id, id > 100 ? 6U : id > 90 ? 13U : id < 9 ? 5U : 21U};
}
void put(T::Writer& w, U32 id, U32 stamp) {
    w.write(Value(key(id), stamp), true);
}
void drop(T::Writer& w, U32 id) {
    Value old;
    w.remove(key(id), old);
}
std::unique_ptr<T::Writer> writer(U32 maxSize = 64) {
    Brisk::MapDescriptor descriptor(maxSize);
    descriptor.shrinkable = descriptor.shrinkBuckets = true;
    auto made = T::writer(name, descriptor);
    if (!made->initialize("test")) throw std::runtime_error("no table");
    return made;
}
void tidy(T::Writer& w) {
    EXPECT_TRUE(w.validate()) << w.lastFinding();
    w.cleanup();
    w.detach(false);
}

// What the writer does. Some keys stay throughout, with their stamps; others come or go.
struct Story {
    char const* name;
    std::function<void(T::Writer&)> prepare, run;
    State staying;
    std::set<U32> inFlight;
    // The word that announces another size: what is wrong before it cannot be put down to a resize.
    std::function<void const*(T::Writer&)> announcement;
    U32 maxSize = 64;
    bool lookupsAlone = false;
};

// Twelve keys in as many of sixteen slots, of which the first eight have gone: one less, and the
// others move to the slots 7, 6 and 5.
void fillHigh(T::Writer& w) {
    for (U32 id = 0; id < 12; ++id) put(w, id, 100 + id);
    for (U32 id = 0; id < 8; ++id) drop(w, id);
}

std::vector<Story> stories() {
    return {
        {"slots move",
         fillHigh,
         [](T::Writer& w) { drop(w, 8); },
         {{9, 109}, {10, 110}, {11, 111}},
         {8},
         [](T::Writer& w) { return &w.slotTable().header->numSlots; }},
        {"slots change hands",
         [](T::Writer& w) {
             for (U32 id = 0; id < 4; ++id) put(w, id, 100 + id);
         },
         [](T::Writer& w) {
             for (U32 id : {1U, 2U}) drop(w, id);
             put(w, 5, 1);
             put(w, 1, 1);
             drop(w, 5);
             put(w, 2, 1);
         },
         {{0, 100}, {3, 103}},
         {1, 2, 5},
         {}},
        {"buckets halve",
         [](T::Writer& w) {
             for (U32 id = 0; id < 4; ++id) put(w, id, 100 + id);
         },
         [](T::Writer& w) { drop(w, 1); },
         {{0, 100}, {2, 102}, {3, 103}},
         {1},
         [](T::Writer& w) { return &w.hashMap().buckets.header()->size; }},
        // A reader that still counts sixteen comes to the slot by a bucket that is no more.
        {"buckets halve and a slot changes hands",
         [](T::Writer& w) {
             for (U32 id : {7U, 8U, 91U, 92U}) put(w, id, 100 + id);
         },
         [](T::Writer& w) {
             drop(w, 7);
             drop(w, 91);
             put(w, 93, 1);
         },
         {{8, 108}, {92, 192}},
         {},
         {},
         64,
         true},
        // Of seventeen slots, so that they do not grow with the buckets.
        {"buckets double",
         [](T::Writer& w) {
             for (U32 id : {7U, 8U, 9U, 10U}) put(w, id, 100 + id);
             for (U32 id = 101; id < 113; ++id) put(w, id, id);
         },
         [](T::Writer& w) { put(w, 113, 1); },
         {{8, 108}, {10, 110}},
         {},
         [](T::Writer& w) { return &w.hashMap().buckets.header()->size; },
         13,
         true},
    };
}

// A read: what comes before the writer begins, and what is cut.
struct Look {
    std::string name;
    std::function<std::function<::testing::AssertionResult()>(T::Reader&)> begun;
};

::testing::AssertionResult isKey(Story const& story, U32 after, bool found, Value const& value) {
    U32 const id = value.key().id;
    auto const next = story.staying.upper_bound(after);
    if (!found && next != story.staying.end())
        return ::testing::AssertionFailure() << "key " << next->first << " was missed";
    if (!found) return ::testing::AssertionSuccess();
    auto const staying = story.staying.find(id);
    bool const right =
        value.whole() && id > after &&
        (staying != story.staying.end()
             ? staying == next && value.stamp() == staying->second
             : story.inFlight.count(id) && (next == story.staying.end() || id < next->first));
    return right ? ::testing::AssertionSuccess()
                 : ::testing::AssertionFailure() << "got key " << id << " behind " << after;
}

std::vector<Look> looksAt(Story const& story) {
    std::vector<Look> looks;
    auto const lookup = [&story](U32 id) {
        return [&story, id](T::Reader& reader) {
            bool known = false;
            reader.lookup(key(id), known, nullptr);
            return [&story, &reader, id] {
                Value value;
                bool found = false;
                reader.lookup(key(id), found, &value);
                auto const staying = story.staying.find(id);
                bool const right = staying == story.staying.end()
                                       ? !found
                                       : found && value.whole() && value.key() == key(id) &&
                                             value.stamp() == staying->second;
                return right ? ::testing::AssertionSuccess()
                             : ::testing::AssertionFailure() << "lookup of key " << id;
            };
        };
    };
    looks.push_back({"lookup of a key that never was", lookup(90)});
    for (auto const& [id, stamp] : story.staying) {
        looks.push_back({fmt::format("lookup of {}", id), lookup(id)});
        if (story.lookupsAlone) continue;
        for (bool const hinted : {true, false})
            looks.push_back({fmt::format("next behind {}{}", id, hinted ? "" : ", without a hint"),
                             [&story, id = id, hinted](T::Reader& reader) {
                                 auto const value = std::make_shared<Value>();
                                 Brisk::IterHint hint;
                                 for (bool more = reader.first(*value, hint);
                                      more && value->key().id != id;)
                                     more = reader.next(value->key(), *value, hint);
                                 if (!hinted) hint = {};
                                 return [&story, &reader, value, hint, id]() mutable {
                                     bool const found = reader.next(key(id), *value, hint);
                                     return isKey(story, id, found, *value);
                                 };
                             }});
    }
    if (story.lookupsAlone) return looks;
    looks.push_back({"first", [&story](T::Reader& reader) {
                         return [&story, &reader] {
                             Value value;
                             Brisk::IterHint hint;
                             bool const found = reader.first(value, hint);
                             // Nothing sorts before key 0 but nothing.
                             return found && value.key().id == 0 && story.staying.count(0)
                                        ? ::testing::AssertionSuccess()
                                        : isKey(story, 0, found, value);
                         };
                     }});
    return looks;
}

::testing::AssertionResult answered(std::function<::testing::AssertionResult()> const& look) {
    try {
        return look();
    } catch (std::exception const& e) {
        return ::testing::AssertionFailure() << "exception to the reader: " << e.what();
    }
}

// Where the writer stops for the second time.
constexpr U32 atItsEnd = ~0U, atTheAnnouncement = ~0U - 1;

// One schedule. The results: whether the writer, and then the reader, came as far as they were to.
struct Reached {
    bool write, read;
};
Reached played(Story const& story, Look const& look, U32 write, U32 read, U32 then) {
    auto const w = writer(story.maxSize);
    story.prepare(*w);
    auto const reader = T::reader(name);
    if (!reader->initialize("test")) throw std::runtime_error("no reader");
    Reached reached{false, false};
    {
        auto const cut = look.begun(*reader);
        Paused writing([&] { story.run(*w); });
        reached.write = writing.goTo(write);
        {
            ReaderPlaces const places([&](U32 place) {
                if (place != read) return;
                reached.read = true;
                if (then == atTheAnnouncement)
                    writing.goBefore(story.announcement(*w));
                else
                    writing.goTo(then);
            });
            EXPECT_TRUE(answered(cut));
        }
        writing.finish();
    }
    reader->detach(false);
    tidy(*w);
    return reached;
}

// Behind the first few, each third load in the tests, another third at each store; all in a soak.
TEST(CutTwice, EachReadOfATableWhoseSlotsMoveOrChangeHands) {
    TempBase const base;
    U32 const stride = soaking() ? 1 : 3;
    U32 cuts = 0;
    for (auto const& story : stories())
        for (auto const& look : looksAt(story))
            for (U32 const then : {atItsEnd, atTheAnnouncement}) {
                if (then == atTheAnnouncement && !story.announcement) continue;
                bool writes = true;
                for (U32 write = 0; writes; ++write) {
                    bool reads = true;
                    for (U32 read = 0; reads;
                         read += read < 6 + write % stride ? 1 : stride, ++cuts) {
                        SCOPED_TRACE(fmt::format("{}, {}: write {}, read {}, then {}", story.name,
                                                 look.name, write, read, S32(then)));
                        auto const reached = played(story, look, write, read, then);
                        reads = reached.read;
                        writes = reached.write;
                        if (HasFailure()) return;
                    }
                }
            }
    fmt::print("{} schedules\n", cuts);
    EXPECT_GT(cuts, 1000U);
}

// The writer goes round a chain ahead of a walk that is as slow as itself: the walk meets more slots
// than there are, and each of them rightly.
TEST(CutTwice, AWalkThatNeverCatchesUpIsNoCircle) {
    TempBase const base;
    for (bool const lookup : {true, false})
        for (U32 every = 5; every < 10; ++every)
            for (U32 from = 0; from < 24; ++from) {
                SCOPED_TRACE(fmt::format("{} every {} from {}", lookup, every, from));
                auto const w = T::writer(name, Brisk::MapDescriptor(4)); // nothing is resized
                ASSERT_TRUE(w->initialize("test"));
                U32 lowest = 10, highest = 12;
                for (U32 id = lowest; id <= highest; ++id) put(*w, id, id);
                auto const reader = T::reader(name);
                ASSERT_TRUE(reader->initialize("test"));
                Value value;
                bool found = true;
                reader->lookup(key(90), found, &value);
                {
                    ReaderPlaces const places([&](U32 place) {
                        if (place < from || (place - from) % every != 0 || highest > 60) return;
                        drop(*w, lowest++);
                        ++highest;
                        put(*w, highest, highest);
                    });
                    Brisk::IterHint none;
                    EXPECT_NO_THROW(lookup ? void(reader->lookup(key(90), found, &value))
                                           : void(found = reader->next(key(90), value, none)));
                    EXPECT_FALSE(found);
                }
                reader->detach(false);
                tidy(*w);
                if (HasFailure()) return;
            }
}

// A reader maps the table again while the writer gives it up: it learns that the table is one of the
// past now or, if it was earlier, at the next look.
TEST(CutTwice, AReaderThatMapsAgainLearnsThatItsTableIsOver) {
    TempBase const base;
    bool reached = true;
    U32 step = 0;
    for (; reached; ++step) {
        SCOPED_TRACE(step);
        auto const w = writer();
        auto const reader = T::reader(name);
        ASSERT_TRUE(reader->initialize("test"));
        for (U32 id = 0; id < 5; ++id) put(*w, id, id);
        reached = interrupted(
            Mem::StepHooks::onLoad, step, [&] { w->cleanup(); }, [&] { reader->doResize(); });
        reader->doResize();
        EXPECT_EQ(reader->replaced(), reached);
        w->cleanup();
        w->detach(false);
        if (HasFailure()) return;
    }
    EXPECT_GT(step, 100U);
}

// ---- followers ----

class CutFollower : public ::testing::TestWithParam<bool> {
protected:
    void movesTwice(bool goes) const;
    TempBase base_;
};
INSTANTIATE_TEST_SUITE_P(BothStores, CutFollower, ::testing::Bool(),
                         [](auto const& store) { return store.param ? "Value" : "Key"; });

void judge(Follower& follower, State const& truth, std::set<U32> const& mayGo) {
    follower.poll();
    EXPECT_EQ(follower.known, truth);
    EXPECT_EQ(follower.faults, 0U);
    EXPECT_TRUE(follower.sound());
    for (U32 const id : follower.deleted) EXPECT_EQ(mayGo.count(id), 1U) << id;
}

// The key that stays moves from slot 11 to 5, and then to 3, at any two places of a walk.
TEST_P(CutFollower, HearsOfNoDeletionOfAKeyThatMovesTwice) {
    movesTwice(false);
}

// The same, but that it goes in the end.
TEST_P(CutFollower, HearsOfTheDeletionOfAKeyThatMovesAndGoes) {
    movesTwice(true);
}

void CutFollower::movesTwice(bool goes) const {
    U32 cuts = 0;
    bool firstReached = true;
    for (U32 first = 0; firstReached; first += goes ? 3 : 1) {
        bool secondReached = true;
        for (U32 second = first; secondReached; ++second, ++cuts) {
            SCOPED_TRACE(fmt::format("at {} and {}", first, second));
            auto const w = writer();
            fillHigh(*w);
            Follower follower(name, GetParam());
            follower.walk();
            {
                firstReached = secondReached = false;
                ReaderPlaces const places([&](U32 place) {
                    if (place == first) {
                        firstReached = true;
                        drop(*w, 8);
                    }
                    if (place == second) {
                        secondReached = true;
                        drop(*w, 9);
                        drop(*w, 10);
                        if (goes) drop(*w, 11);
                    }
                });
                follower.walk();
            }
            State truth;
            if (!goes) truth = {{11, 111}};
            if (!secondReached) truth = {{9, 109}, {10, 110}, {11, 111}};
            if (!firstReached) truth[8] = 108;
            judge(follower, truth, goes ? std::set<U32>{8, 9, 10, 11} : std::set<U32>{8, 9, 10});
            tidy(*w);
            if (HasFailure()) return;
        }
    }
    fmt::print("{} schedules\n", cuts);
    EXPECT_GT(cuts, 500U);
}

// A key that moves by a removal and an insert has changed, even while a corral is being dissolved.
TEST_P(CutFollower, TakesNoOrdinaryMoveForOneOfAShrink) {
    bool reached = true;
    U32 cuts = 0;
    for (; reached; ++cuts) {
        SCOPED_TRACE(cuts);
        auto const w = writer();
        Mem::Fd connection = hold(*w);
        fillHigh(*w);
        Follower follower(name, GetParam());
        follower.walk();
        follower.counts();
        drop(*w, 8); // moves 9 and 10 to the slots 7 and 6; the connection keeps the corral
        ASSERT_NE(w->queue().corralEnd(), 0U);
        follower.poll();
        for (U32 const id : {9U, 10U}) drop(*w, id);
        put(*w, 9, 77); // in slot 6, and announced there before 7 is
        put(*w, 20, 20);
        reached = interrupted(
            Mem::StepHooks::onLoad, cuts,
            [&] {
                connection.reset();
                while (w->queue().wren().readers() != 0) Dunlin::schedulerRootDunlin->runOnce(0.01);
                EXPECT_EQ(w->queue().corralStart(), 0U);
            },
            [&] { follower.poll(); });
        judge(follower, {{9, 77}, {11, 111}, {20, 20}}, {8, 9, 10});
        tidy(*w);
        connection.reset();
        Dunlin::schedulerRootDunlin->runOnce(0);
        if (HasFailure()) return;
    }
    EXPECT_GT(cuts, 20U);
}

// The writer stopped in the midst of a move, and of its corral; the poll or walk that meets it stopped
// in turn. Some of the pairs in the tests, all of them in a soak.
TEST_P(CutFollower, AtEachPairOfPlacesOfAMove) {
    U32 const stride = soaking() ? 1 : 5;
    U32 cuts = 0;
    for (auto const look : {&Follower::poll, &Follower::walk})
        for (bool const connected : {false, true}) {
            bool writes = true;
            for (U32 write = 0; writes; ++write) {
                bool reads = true;
                for (U32 read = write % stride; reads; read += stride, ++cuts) {
                    SCOPED_TRACE(fmt::format("write {}, read {}, connected {}, {}", write, read,
                                             connected, look == &Follower::walk));
                    auto const w = writer();
                    Mem::Fd connection;
                    if (connected) connection = hold(*w);
                    fillHigh(*w);
                    Follower follower(name, GetParam());
                    follower.walk();
                    if (connected) follower.counts();
                    put(*w, 10, 55); // still to be taken when it moves
                    reads = false;
                    {
                        Paused writing([&] {
                            drop(*w, 8);
                            put(*w, 11, 77);
                        });
                        writes = writing.goTo(write);
                        {
                            ReaderPlaces const places([&](U32 place) {
                                if (place != read) return;
                                reads = true;
                                writing.finish();
                            });
                            (follower.*look)();
                        }
                        writing.finish();
                    }
                    judge(follower, {{9, 109}, {10, 55}, {11, 77}}, {8});
                    tidy(*w);
                    connection.reset();
                    Dunlin::schedulerRootDunlin->runOnce(0);
                    if (HasFailure()) return;
                }
            }
        }
    fmt::print("{} schedules\n", cuts);
    EXPECT_GT(cuts, 200U);
}

// ---- the queue alone ----

// A table that has become far too large gives its memory back under a reader that is still in it.
TEST(CutQueue, AReaderMeetsNoTableThatIsCutBeneathIt) {
    TempBase const base;
    using Writer = Yarrow::YarrowWriter<Yarrow::BasicSlot, Brisk::YarrowPos>;
    using Taken = Yarrow::QueueReader::Taken;
    constexpr U32 oriel = 7, many = 5000, kept = 10;
    Yarrow::YarrowWriterOptions options;
    options.pruneMode = Yarrow::PruneMode::keep;
    bool reached = true;
    U32 step = 0;
    for (; reached; ++step) {
        SCOPED_TRACE(step);
        Mem::RootPath const path(name);
        Writer queue(quietTrace(), path, options, nullptr);
        queue.attach(oriel);
        // Both tables large, and a reader in the midst of one of them.
        for (U32 round = 0; round < 4; ++round)
            for (U32 slot = 0; slot < many; ++slot) queue.notify(slot);
        Yarrow::YarrowReader<Yarrow::BasicSlot> reader(quietTrace(), path);
        ASSERT_TRUE(reader.attach(oriel));
        std::set<U32> taken;
        auto const take = [&](U32 limit) {
            while (limit-- > 0 && reader.next() == Taken::entry) {
                taken.insert(reader.slot().index);
                reader.done();
            }
        };
        take(1000);
        for (U32 slot = kept; slot < many; ++slot) queue.tombstone(slot);
        auto const compactions = queue.compactions();
        while (queue.compactions() == compactions) queue.notify(0U);
        ASSERT_LT(queue.entryCount(), 100U);
        while (queue.entryCount() < 486) queue.notify(0U);
        reached = interrupted(
            Mem::StepHooks::onStore, step, [&] { EXPECT_NO_THROW(take(many)); },
            [&] {
                for (U32 i = 0; i < 12; ++i) queue.notify(1U);
            });
        EXPECT_EQ(queue.compactions(), compactions + 2);
        take(many);
        for (U32 slot = 0; slot < kept; ++slot) EXPECT_EQ(taken.count(slot), 1U);
        queue.cleanup();
        if (HasFailure()) return;
    }
    EXPECT_GT(step, 40U);
}

} // namespace
