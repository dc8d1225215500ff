// Every pair of a writer's and a reader's operation, cut at every place: the writer paused before
// each of its stores while a whole read runs, the reader paused before each of its loads while a
// whole write runs. Complete for one interruption, and deterministic: the other side runs from
// inside the hook.
#include "tests/support/TempBase.h"
#include "tests/torture/Reads.h"

namespace {

using namespace Support;

std::function<void()> interruption;
U32 stepsLeft = 0;
bool interrupted = false;

void interruptAtLast() {
    if (stepsLeft-- != 0) return;
    interrupted = true;
    interruption();
}

TEST(Interleave, AWholeReadBeforeEachStoreOfAWrite) {
    TempBase const base;
    for (auto const& scenario : scenarios<valueBytes>()) {
        State before;
        std::size_t readCount = 1;
        U32 cuts = 0;
        for (std::size_t readNumber = 0; readNumber < readCount; ++readNumber) {
            bool more = true;
            for (U32 store = 0; more; ++store, ++cuts) {
                Pair pair = prepared(scenario, "interleave");
                auto const reads = readsFor(pair.before, pair.after);
                readCount = reads.size();
                Read const& read = reads[readNumber];
                SCOPED_TRACE(fmt::format("{} before store {} of {}", read.name, store, scenario.name));
                interruption = [&] {
                    try {
                        EXPECT_TRUE(read.run(*pair.reader, pair.before, pair.after));
                    } catch (std::exception const& e) {
                        ADD_FAILURE() << "exception to the reader: " << e.what();
                    }
                };
                interrupted = false;
                stepsLeft = store;
                Mem::StepHooks::onStore = interruptAtLast;
                scenario.run(*pair.writer);
                Mem::StepHooks::onStore = nullptr;
                more = interrupted;
                EXPECT_EQ(T::walked(*pair.reader), pair.after);
                tidy(pair);
                if (::testing::Test::HasFailure()) return;
            }
        }
        fmt::print("{:32}{:6} cuts\n", scenario.name, cuts);
        EXPECT_GT(cuts, 20U);
    }
}

TEST(Interleave, AWholeWriteBeforeEachLoadOfARead) {
    TempBase const base;
    for (auto const& scenario : scenarios<valueBytes>()) {
        std::size_t readCount = 1;
        U32 cuts = 0;
        for (std::size_t readNumber = 0; readNumber < readCount; ++readNumber) {
            bool more = true;
            for (U32 load = 0; more; ++load, ++cuts) {
                Pair pair = prepared(scenario, "interleave");
                auto const reads = readsFor(pair.before, pair.after);
                readCount = reads.size();
                Read const& read = reads[readNumber];
                SCOPED_TRACE(fmt::format("{} before load {} of {}", scenario.name, load, read.name));
                interruption = [&] { scenario.run(*pair.writer); };
                interrupted = false;
                stepsLeft = load;
                Mem::StepHooks::onLoad = interruptAtLast;
                try {
                    EXPECT_TRUE(read.run(*pair.reader, pair.before, pair.after));
                } catch (std::exception const& e) {
                    ADD_FAILURE() << "exception to the reader: " << e.what();
                }
                Mem::StepHooks::onLoad = nullptr;
                more = interrupted;
                if (more) {
                    EXPECT_EQ(T::walked(*pair.reader), pair.after);
                }
                tidy(pair);
                if (::testing::Test::HasFailure()) return;
            }
        }
        fmt::print("{:32}{:6} cuts\n", scenario.name, cuts);
        EXPECT_GT(cuts, 20U);
    }
}

} // namespace
