// The writer stops for good after each single shared store of each operation. An attached reader
// then finds every key, the one in flight old or new; a successor keeps the table as it was before
// or after the operation, or finds it unsound and makes a new one of the next generation.
#include "tests/support/Child.h"
#include "tests/support/TempBase.h"
#include "tests/torture/Scenarios.h"

#include <gtest/gtest.h>
#include <set>

namespace {

using namespace Support;

constexpr int stopped = 42;
U32 storesLeft = 0;

void stopAtLast() {
    if (storesLeft-- == 0) _exit(stopped);
}

// In a child: lets `before` run, tells the parent, waits for its word, then runs `operation` with a
// stop before its store number `store`. Exit code 0: there are no more stores than that.
template <class Before, class Operation>
int stopAt(Child& self, U32 store, Before before, Operation operation) {
    auto context = before();
    self.step();
    storesLeft = store;
    Mem::StepHooks::onStore = stopAtLast;
    operation(context);
    Mem::StepHooks::onStore = nullptr;
    _exit(0); // no destructor tidies up
}

struct Outcomes {
    U32 stops = 0, before = 0, after = 0, madeAnew = 0;
};

// True if every key common to both states has its stamp, every key that differs has one of the two,
// and there is no other.
::testing::AssertionResult between(State const& found, State const& before, State const& after) {
    std::set<U32> keys;
    for (auto const* state : {&found, &before, &after})
        for (auto const& [key, stamp] : *state) keys.insert(key);
    auto const stampIn = [](State const& state, U32 key) {
        auto const place = state.find(key);
        return place == state.end() ? S64{-1} : S64{place->second};
    };
    for (U32 const key : keys) {
        S64 const stamp = stampIn(found, key);
        if (stamp != stampIn(before, key) && stamp != stampIn(after, key))
            return ::testing::AssertionFailure()
                   << "key " << key << " has stamp " << stamp << ", before " << stampIn(before, key)
                   << ", after " << stampIn(after, key);
    }
    return ::testing::AssertionSuccess();
}

// What the successor makes of the table: kept, or new and empty in a later generation.
template <U32 valueBytes>
void judgeSuccessor(std::string const& name, Brisk::MapDescriptor const& descriptor, U32 oldId,
                    State const& before, State const& after, Outcomes& outcomes) {
    using T = Table<valueBytes>;
    auto successor = T::writer(name, descriptor);
    ASSERT_TRUE(successor->initialize("successor"));
    State const kept = T::walked(*successor);
    if (successor->orielId() != oldId) {
        EXPECT_TRUE(kept.empty());
        EXPECT_NE(successor->orielId() >> 16, oldId >> 16) << "a new table needs a new generation";
        ++outcomes.madeAnew;
    } else if (kept == after) {
        ++outcomes.after;
    } else {
        EXPECT_EQ(kept, before);
        ++outcomes.before;
    }
    EXPECT_TRUE(successor->validate());
    // It is in order: it takes an entry and gives it back.
    successor->write(typename T::Value(777, 7), true);
    bool found = false;
    successor->lookup(TestKey(777), found, nullptr);
    EXPECT_TRUE(found);
    successor->cleanup();
    successor->detach(false);
}

template <U32 valueBytes>
void stopEverywhere(Scenario<valueBytes> const& scenario, Outcomes& outcomes) {
    using T = Table<valueBytes>;
    TempBase const base;
    bool more = true;
    for (U32 store = 0; more && !::testing::Test::HasFailure(); ++store) {
        SCOPED_TRACE(fmt::format("{}, {} bytes a slot, stopped before store {}", scenario.name,
                                 valueBytes + 16, store));
        std::string const name = fmt::format("stop/{}", store);
        State before;
        Child child([&](Child& self) {
            return stopAt(
                self, store,
                [&] {
                    auto writer = T::writer(name, scenario.descriptor).release();
                    if (!writer->initialize("test")) _exit(1);
                    State ignored;
                    scenario.prepare(*writer, ignored);
                    self.tell(writer->orielId());
                    for (auto const& [key, stamp] : ignored) {
                        self.tell(key);
                        self.tell(stamp);
                    }
                    self.tell(-1);
                    return writer;
                },
                [&](auto* writer) { scenario.run(*writer); });
        });
        U32 const oldId = static_cast<U32>(child.hear());
        for (S64 key; (key = child.hear()) != -1;)
            before[static_cast<U32>(key)] = static_cast<U32>(child.hear());
        State after = before;
        scenario.effect(after);
        child.hear(); // ready
        auto reader = T::reader(name);
        ASSERT_TRUE(reader->initialize("test"));
        ASSERT_EQ(T::walked(*reader), before);
        child.tell(0);
        int const code = child.join();
        ASSERT_TRUE(code == stopped || code == 0) << "the writer left with " << code;
        more = code == stopped;
        outcomes.stops += more;

        State keys = before;
        keys.insert(after.begin(), after.end());
        EXPECT_TRUE(between(T::lookedUp(*reader, keys), before, after));
        EXPECT_TRUE(between(T::walked(*reader), before, after));
        reader->detach(false);
        judgeSuccessor<valueBytes>(name, scenario.descriptor, oldId, before, after, outcomes);
    }
}

template <class Size>
class Stop : public ::testing::Test {};
using Sizes = ::testing::Types<std::integral_constant<U32, 16>, std::integral_constant<U32, 48>,
                               std::integral_constant<U32, 160>>;
TYPED_TEST_SUITE(Stop, Sizes);

TYPED_TEST(Stop, AfterEachStoreOfEachOperation) {
    Outcomes all;
    for (auto const& scenario : scenarios<TypeParam::value>()) {
        Outcomes outcomes;
        stopEverywhere<TypeParam::value>(scenario, outcomes);
        fmt::print("{:32}{:6} stops: kept as before {}, as after {}, made anew {}\n", scenario.name,
                   outcomes.stops, outcomes.before, outcomes.after, outcomes.madeAnew);
        EXPECT_GT(outcomes.stops, 3U) << scenario.name;
        all.stops += outcomes.stops;
        all.before += outcomes.before;
        all.after += outcomes.after;
        all.madeAnew += outcomes.madeAnew;
    }
    // Both ways of coming through occur: a stop on the edge of an operation keeps the table.
    EXPECT_GT(all.before, 0U);
    EXPECT_GT(all.after, 0U);
    EXPECT_GT(all.madeAnew, 0U);
}

// Making, taking over, leaving and removing a table.
enum class Life { format, attach, attachUnsound, detach, cleanup };

template <U32 valueBytes>
void stopInLife(Life life, char const* lifeName) {
    using T = Table<valueBytes>;
    TempBase const base;
    Brisk::MapDescriptor const descriptor(1024);
    bool more = true;
    for (U32 store = 0; more && !::testing::Test::HasFailure(); ++store) {
        SCOPED_TRACE(fmt::format("{}, {} bytes a slot, stopped before store {}", lifeName,
                                 valueBytes + 16, store));
        std::string const name = fmt::format("life/{}", store);
        State before;
        U32 oldId = 0;
        std::unique_ptr<typename T::Reader> reader;
        if (life == Life::attach || life == Life::attachUnsound) {
            auto first = T::writer(name, descriptor);
            ASSERT_TRUE(first->initialize("test"));
            for (U32 key = 0; key < 8; ++key) T::write(*first, before, key, key);
            oldId = first->orielId();
            if (life == Life::attachUnsound) first->slotTable().header->runtimeFlags = 1;
            first->detach(false);
            reader = T::reader(name);
            ASSERT_TRUE(reader->initialize("test"));
            ASSERT_EQ(T::walked(*reader), before);
        }
        Child child([&](Child& self) {
            return stopAt(
                self, store,
                [&] {
                    auto writer = T::writer(name, descriptor).release();
                    if (life == Life::detach || life == Life::cleanup) {
                        if (!writer->initialize("test")) _exit(1);
                        State ignored;
                        for (U32 key = 0; key < 8; ++key) T::write(*writer, ignored, key, key);
                    }
                    self.tell(writer->orielId());
                    return writer;
                },
                [&](auto* writer) {
                    if (life == Life::detach)
                        writer->detach(false);
                    else if (life == Life::cleanup)
                        writer->cleanup();
                    else
                        writer->initialize("test");
                });
        });
        S64 const childId = child.hear();
        if (life == Life::detach || life == Life::cleanup) {
            oldId = static_cast<U32>(childId);
            for (U32 key = 0; key < 8; ++key) before[key] = key;
        }
        child.hear();
        child.tell(0);
        int const code = child.join();
        ASSERT_TRUE(code == stopped || code == 0) << "the writer left with " << code;
        more = code == stopped;
        if (reader) {
            // A table that was replaced under the reader is one to attach to anew, not damage.
            State const found = T::walked(*reader);
            EXPECT_TRUE(found == before ||
                        (life == Life::attachUnsound && reader->replaced() && found.empty()));
            reader->detach(false);
        }
        auto successor = T::writer(name, descriptor);
        ASSERT_TRUE(successor->initialize("successor"));
        EXPECT_TRUE(successor->validate());
        State const kept = T::walked(*successor);
        if (life == Life::detach || life == Life::attach) {
            // Between operations nothing is ever lost.
            EXPECT_EQ(kept, before);
            EXPECT_EQ(successor->orielId(), oldId);
        } else {
            EXPECT_TRUE(kept.empty() || kept == before);
        }
        successor->write(typename T::Value(777, 7), true);
        EXPECT_EQ(T::walked(*successor).count(777), 1U);
        successor->cleanup();
        successor->detach(false);
    }
}

TYPED_TEST(Stop, AfterEachStoreOfFormatAttachDetachAndCleanup) {
    for (auto const& [life, name] :
         {std::pair{Life::format, "format"}, std::pair{Life::attach, "attach"},
          std::pair{Life::attachUnsound, "attach to an unsound table"},
          std::pair{Life::detach, "detach"}, std::pair{Life::cleanup, "cleanup"}})
        stopInLife<TypeParam::value>(life, name);
}

} // namespace
