// Exceptions, trace and small helpers of the platform.
#include "Dunlin/Util.h"
#include "Dunlin/Rdtsc.h"
#include "Dunlin/Trace.h"

namespace {

using namespace Dunlin;

TEST(Exception, SiblingsAreNotCaughtAsEachOther) {
    EXPECT_THROW(
        {
            try {
                fmthrow<MemoryResourceException>("n:{} unable to resize", 7);
            } catch (CorruptionDetectedException const&) {
            } catch (RuntimeException const&) {
            }
        },
        MemoryResourceException);
    try {
        fmthrow<NoPermissionException>("{:08x}", 0xabcU);
    } catch (NoPermissionException const& e) {
        EXPECT_EQ(e.message(), "00000abc");
    }
}

TEST(Assertion, EndsTheProcessWithSourceLineAndText) {
    EXPECT_DEATH(FMASSERT(1 == 2, "bad threshold: {} numSlots:{}", 4, 5),
                 "UtilTest.cpp:[0-9]+: .*bad threshold: 4 numSlots:5");
    EXPECT_DEATH(PLAINASSERT(false, "false && \"Unsupported address family\""),
                 "false && \"Unsupported address family\"");
}

TEST(Trace, ALineIsFormattedOnlyIfItsLevelIsOn) {
    auto const handler = Platform::getDebugHandler("UtilTest", true);
    std::vector<std::string> lines;
    traceSinkIs(
        [&](std::string const& name, unsigned level, std::string_view, std::string const& t) {
            lines.push_back(name + " " + std::to_string(level) + " " + t);
        });
    int evaluated = 0;
    auto const count = [&] { return ++evaluated; };
    FMTRACE(*handler, 9, "off {}", count());
    FMTRACE(*handler, 0, "on {}", count());
    Platform::debugMaskIs("UtilTest", 1U << 9);
    FMTRACE(*handler, 9, "on {}", count());
    FMTRACE(*handler, 0, "off {}", count());
    traceSinkIs({});
    EXPECT_THAT(lines, testing::ElementsAre("UtilTest 0 on 1", "UtilTest 9 on 2"));
}

TEST(Util, ReverseAndSizes) {
    EXPECT_EQ(Util::reverse(1), 0x80000000U);
    EXPECT_EQ(Util::reverse(0x12345678U), 0x1e6a2c48U);
    EXPECT_EQ(Util::fileSizeHelper(16, 176, 776), 776U + 16 * 176);
    EXPECT_EQ(Util::fileSizeHelper(0x7fffffff, 176, 776), 776U + 0x7fffffffULL * 176);
    EXPECT_THROW(Util::fileSizeHelper(0x80000000U, 1, 0), RuntimeException);
}

TEST(Rdtsc, RateAgreesWithTheClock) {
    double const rate = Rdtsc::calibrationRate();
    double best = 1; // of several: the process may be put aside between two clocks
    for (int i = 0; i < 20 && best > 0.01; ++i) {
        U64 const from = Rdtsc::ticks(), fromNs = Rdtsc::monotonicNanoseconds();
        while (Rdtsc::monotonicNanoseconds() - fromNs < 5'000'000) {
        }
        double const seconds = static_cast<double>(Rdtsc::ticks() - from) / rate;
        double const wall = static_cast<double>(Rdtsc::monotonicNanoseconds() - fromNs) * 1e-9;
        best = std::min(best, std::abs(seconds / wall - 1));
    }
    EXPECT_LT(best, 0.05);
}

} // namespace
