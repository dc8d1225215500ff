// Every pair of a writer's operation and a shadow's poll, cut at every place: the writer stopped
// before each of its stores while a whole poll runs, the poll (or the walk) stopped before each of
// its loads while a whole operation runs. The shadow is the real store behind the real queue, with
// and without a connection that holds back pruning and keeps a corral standing.
#include "tests/support/SharedBlock.h"
#include "tests/support/TempBase.h"
#include "tests/torture/Follower.h"
#include "tests/torture/Interrupted.h"

#include <gtest/gtest.h>
#include <set>

namespace {

using namespace Support;
using T = Table<160>;
using Value = T::Value;
using Follower = FollowerOf<160>;

// One more scenario for the queue's own sake, and sequences in which slots and keys come back.
std::vector<Scenario<160>> queueScenarios() {
    auto list = scenarios<160>();
    auto const fill = [](U32 count) {
        return [count](T::Writer& w, State& s) {
            for (U32 key = 0; key < count; ++key) T::write(w, s, key, 100 + key);
        };
    };
    auto const drop = [](T::Writer& w, U32 key) {
        Value old;
        w.remove(TestKey(key), old);
    };
    Brisk::MapDescriptor const plain(1024);
    list.push_back({"compaction", plain,
                    [fill](T::Writer& w, State& s) {
                        fill(8)(w, s);
                        while (w.queue().entryCount() < 488)
                            T::write(w, s, 3, 200 + w.queue().entryCount());
                    },
                    [](T::Writer& w) {
                        w.write(Value(3, 1), true);
                        w.write(Value(5, 1), true);
                    },
                    [](State& s) { s[3] = s[5] = 1; }});
    list.push_back({"a key away and back", plain, fill(8),
                    [drop](T::Writer& w) {
                        drop(w, 5);
                        w.write(Value(5, 1), true);
                    },
                    [](State& s) { s[5] = 1; }});
    list.push_back({"two keys change places", plain, fill(8),
                    [drop](T::Writer& w) {
                        drop(w, 5);
                        drop(w, 6);
                        w.write(Value(5, 105), true);
                        w.write(Value(6, 106), true);
                    },
                    [](State&) {}});
    list.push_back({"a slot for another key", plain, fill(8),
                    [drop](T::Writer& w) {
                        drop(w, 5);
                        w.write(Value(9, 1), true);
                    },
                    [](State& s) {
                        s.erase(5);
                        s[9] = 1;
                    }});
    return list;
}

class QueueInterleave : public ::testing::TestWithParam<bool> {
protected:
    struct Pair {
        std::unique_ptr<T::Writer> writer;
        std::unique_ptr<Follower> follower;
        Mem::Fd connection;
        State before, after;
        std::set<U32> comeBack; // keys that are away in between
    };
    Pair prepared(Scenario<160> const& scenario, bool connected) const {
        Pair pair;
        pair.writer = T::writer("queue", scenario.descriptor);
        if (!pair.writer->initialize("test")) throw std::runtime_error("no table");
        if (connected) pair.connection = hold(*pair.writer);
        scenario.prepare(*pair.writer, pair.before);
        pair.after = pair.before;
        scenario.effect(pair.after);
        if (scenario.name == "a key away and back") pair.comeBack = {5};
        if (scenario.name == "two keys change places") pair.comeBack = {5, 6};
        pair.follower = std::make_unique<Follower>("queue", GetParam());
        pair.follower->walk();
        pair.follower->poll();
        EXPECT_EQ(pair.follower->known, pair.before);
        return pair;
    }
    // At rest: what the client knows is the table, and nothing was told as gone that never was.
    static void judge(Pair& pair) {
        pair.follower->poll();
        EXPECT_EQ(pair.follower->known, pair.after);
        EXPECT_EQ(pair.follower->faults, 0U);
        EXPECT_TRUE(pair.follower->sound());
        for (U32 const key : pair.follower->deleted)
            EXPECT_TRUE(pair.comeBack.count(key) || !pair.after.count(key)) << key;
    }
    static void tidy(Pair& pair) {
        pair.follower.reset();
        EXPECT_TRUE(pair.writer->validate());
        pair.writer->cleanup();
        pair.writer->detach(false);
        pair.connection.reset();
        Dunlin::schedulerRootDunlin->runOnce(0);
    }
    // Runs `cut(step, connected)` for each step until it says that one is not reached any more.
    template <class Cut>
    void atEachStep(Scenario<160> const& scenario, U32 stride, Cut cut) {
        U32 cuts = 0;
        for (bool const connected : {false, true}) {
            for (U32 step = 0, more = true; more; step += stride, ++cuts) {
                SCOPED_TRACE(
                    fmt::format("{}, step {}, connected {}", scenario.name, step, connected));
                more = cut(step, connected);
                if (::testing::Test::HasFailure()) return;
            }
        }
        EXPECT_GT(cuts * stride, 20U);
        total_ += cuts;
    }
    ~QueueInterleave() override { fmt::print("{} cuts\n", total_); }

    TempBase base_;
    U32 total_ = 0;
};
INSTANTIATE_TEST_SUITE_P(BothStores, QueueInterleave, ::testing::Bool(),
                         [](auto const& store) { return store.param ? "Value" : "Key"; });

// The walk is that of a client that comes in the midst of an operation.
TEST_P(QueueInterleave, AWholePollOrWalkBeforeEachStoreOfAWrite) {
    for (auto const look : {&Follower::poll, &Follower::walk})
        for (auto const& scenario : queueScenarios())
            atEachStep(scenario, 1, [&](U32 step, bool connected) {
                Pair pair = prepared(scenario, connected);
                bool const more = interrupted(
                    Mem::StepHooks::onStore, step, [&] { (*pair.follower.*look)(); },
                    [&] { scenario.run(*pair.writer); });
                judge(pair);
                tidy(pair);
                return more;
            });
}

// Every load in a soak, each tenth or so in the tests: there are a hundred thousand.
TEST_P(QueueInterleave, AWholeWriteBeforeEachLoadOfAPollOrAWalk) {
    U32 const stride = soaking() ? 1 : 11;
    for (auto const look : {&Follower::poll, &Follower::walk})
        for (auto const& scenario : queueScenarios())
            atEachStep(scenario, stride, [&](U32 step, bool connected) {
                // A few changes wait in the queue.
                Pair pair = prepared(scenario, connected);
                U32 waiting = 0;
                for (auto& [key, stamp] : pair.before) {
                    if (!pair.after.count(key) || ++waiting > 3) continue;
                    stamp = pair.after[key] = 77;
                    pair.writer->write(Value(key, 77), true);
                }
                scenario.effect(pair.after);
                bool const more = interrupted(
                    Mem::StepHooks::onLoad, step, [&] { scenario.run(*pair.writer); },
                    [&] { (*pair.follower.*look)(); });
                if (!more) pair.after = pair.before;
                judge(pair);
                tidy(pair);
                return more;
            });
}

} // namespace
