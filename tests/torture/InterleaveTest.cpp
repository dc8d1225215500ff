// Every pair of a writer's and a reader's operation, cut at every place: the writer paused before
// each of its stores while a whole read runs, the reader paused before each of its loads while a
// whole write runs. Complete for one interruption.
#include "tests/support/TempBase.h"
#include "tests/torture/Interrupted.h"
#include "tests/torture/Reads.h"

namespace {

using namespace Support;

::testing::AssertionResult answered(Read const& read, Pair const& pair) {
    try {
        return read.run(*pair.reader, pair.before, pair.after);
    } catch (std::exception const& e) {
        return ::testing::AssertionFailure() << "exception to the reader: " << e.what();
    }
}

// Whether the write is cut, else the read.
class Interleave : public ::testing::TestWithParam<bool> {};
INSTANTIATE_TEST_SUITE_P(Cut, Interleave, ::testing::Bool(), [](auto const& cut) {
    return cut.param ? "AWholeReadBeforeEachStoreOfAWrite" : "AWholeWriteBeforeEachLoadOfARead";
});

TEST_P(Interleave, EachPairOfOperationsAtEachPlace) {
    TempBase const base;
    for (auto const& scenario : scenarios<valueBytes>()) {
        U32 cuts = 0;
        for (std::size_t readNumber = 0, readCount = 1; readNumber < readCount; ++readNumber) {
            bool more = true;
            for (U32 step = 0; more; ++step, ++cuts) {
                Pair pair = prepared(scenario, "interleave");
                auto const reads = readsFor(pair.before, pair.after);
                readCount = reads.size();
                Read const& read = reads[readNumber];
                SCOPED_TRACE(
                    fmt::format("{} and {}, cut at step {}", scenario.name, read.name, step));
                auto const write = [&] { scenario.run(*pair.writer); };
                auto const look = [&] { EXPECT_TRUE(answered(read, pair)); };
                more = GetParam() ? interrupted(Mem::StepHooks::onStore, step, look, write)
                                  : interrupted(Mem::StepHooks::onLoad, step, write, look);
                if (more || GetParam()) {
                    EXPECT_EQ(T::walked(*pair.reader), pair.after);
                }
                tidy(pair);
                if (HasFailure()) return;
            }
        }
        fmt::print("{:32}{:6} cuts\n", scenario.name, cuts);
        EXPECT_GT(cuts, 20U);
    }
}

// Also while the table gets another size: what a reader judges by are words of one moment.
TEST(InterleaveAttach, AReaderComesToASoundTableWhateverIsWrittenMeanwhile) {
    TempBase const base;
    for (auto const& scenario : scenarios<valueBytes>()) {
        bool const resizes = scenario.name.find("growth") != std::string::npos ||
                             scenario.name.find("shrink") != std::string::npos;
        U32 step = 0;
        for (bool more = resizes; more; ++step) {
            Pair pair = prepared(scenario, "attach");
            SCOPED_TRACE(fmt::format("{}, cut at step {}", scenario.name, step));
            pair.reader->detach(false);
            more = interrupted(
                Mem::StepHooks::onLoad, step, [&] { scenario.run(*pair.writer); },
                [&] { EXPECT_TRUE(pair.reader->initialize("test")); });
            if (more && !HasFailure()) {
                EXPECT_EQ(T::walked(*pair.reader), pair.after);
            }
            tidy(pair);
            if (HasFailure()) return;
        }
        EXPECT_TRUE(!resizes || step > 100) << step;
    }
}

} // namespace
