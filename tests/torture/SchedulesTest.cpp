// Random schedules: writer, plain reader and follower take turns at any shared load or store and at
// any look at a file, over tables of a few slots whose files are cut to the byte. Each side performs
// several operations and may stop in the middle of one; all that a reader is told is judged against
// what was true while it read.
//
// Schedules are numbered; the number is the seed. CAIRN_SEED=number replays from there on,
// CAIRN_SCHEDULES=count says how many, CAIRN_SOAK_SECONDS runs fresh ones for a time.
#include "tests/support/SharedBlock.h"
#include "tests/torture/World.h"

#include <chrono>
#include <csignal>
#include <gtest/gtest.h>
#include <random>

namespace {

using namespace Support;

// Schedules that share a table, one after the other.
constexpr U64 perTable = 64;

#if defined(CAIRN_SANITIZED)
constexpr U64 usualCount = 2'000;
#else
constexpr U64 usualCount = 20'000;
#endif

U64 underWay = 0;

// An assertion of the table code ends the process: it leaves the number behind.
void dying(int signal) {
    fmt::print(stderr, "schedule {}: signal {}; replay with CAIRN_SEED={}\n", underWay, signal,
               underWay);
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

class Schedules : public ::testing::Test {
protected:
    Schedules() {
        for (int const signal : {SIGABRT, SIGSEGV, SIGBUS}) std::signal(signal, dying);
    }
    ~Schedules() override {
        for (int const signal : {SIGABRT, SIGSEGV, SIGBUS}) std::signal(signal, SIG_DFL);
    }

    // Runs the schedules from `first` to `end` - 1, those before `first` on its table included.
    // The fault found, or an empty text.
    std::string run(U64 first, U64 end) {
        for (U64 table = first / perTable; table * perTable < end; ++table) {
            std::string const fault = runTable(table, end);
            if (!fault.empty()) return fault;
            if (timeIsUp()) break;
        }
        return {};
    }
    std::string runTable(U64 table, U64 end) {
        underWay = table * perTable;
        auto world = std::make_unique<World>(Dice(~table).next());
        for (; underWay < std::min(end, (table + 1) * perTable); ++underWay) {
            try {
                world->schedule(Dice(underWay).next());
            } catch (std::exception const& e) {
                return told(*world.release(), fmt::format("at rest, exception: {}", e.what()));
            }
            ++schedules_;
            // What stopped in the middle cannot be taken down.
            if (!world->fault().empty()) {
                World& kept = *world.release();
                return told(kept, kept.fault());
            }
        }
        auto const& counts = world->counts();
        sum_.steps += counts.steps;
        sum_.moves += counts.moves;
        sum_.growths += counts.growths;
        sum_.shrinks += counts.shrinks;
        sum_.compactions += counts.compactions;
        sum_.overtakes += counts.overtakes;
        sum_.generations += counts.generations;
        return {};
    }
    static std::string told(World const& world, std::string const& fault) {
        return fmt::format("schedule {}: {}\nreplay with CAIRN_SEED={} CAIRN_SCHEDULES=1\n{}\n{}",
                           underWay, fault, underWay, world.setting(), world.trace());
    }
    bool timeIsUp() const { return soaking() && seconds() > soakSeconds(0); }
    double seconds() const {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - begun_).count();
    }

    TempBase const base_;
    std::chrono::steady_clock::time_point const begun_ = std::chrono::steady_clock::now();
    U64 schedules_ = 0;
    World::Counts sum_;
};

U64 fromEnvironment(char const* name, U64 usual) {
    char const* const text = std::getenv(name);
    return text ? std::strtoull(text, nullptr, 10) : usual;
}

TEST_F(Schedules, WhateverTheTurnsEveryReadIsTrueAndNothingIsLost) {
    U64 const fresh = soaking() ? U64{std::random_device{}()} << 24 : 0;
    U64 const first = fromEnvironment("CAIRN_SEED", fresh);
    U64 const count = fromEnvironment("CAIRN_SCHEDULES", soaking() ? ~0ULL >> 8 : usualCount);
    std::string const fault = run(first, first + count);
    counted("{} random schedules from number {} on, {:.0f} a second: {} steps, {} slots moved, {} "
            "growths, {} shrinks, {} compactions, {} readers overtaken, {} new generations",
            schedules_, first, static_cast<double>(schedules_) / seconds(), sum_.steps, sum_.moves,
            sum_.growths, sum_.shrinks, sum_.compactions, sum_.overtakes, sum_.generations);
    EXPECT_EQ(fault, "");
}

} // namespace
