// Another process stores into a table's files while the writer is at work, before each of its steps
// in turn. The writer notices by one of the texts that only this brings about, or does not mind; it
// never ends in any other way.
#include "tests/support/Child.h"
#include "tests/support/TempBase.h"
#include "tests/torture/Interrupted.h"
#include "tests/torture/Scenarios.h"

#include "Dunlin/Exception.h"
#include "SharedMem/FileUtil.h"

#include <fcntl.h>
#include <fstream>
#include <gtest/gtest.h>
#include <regex>
#include <set>
#include <sys/resource.h>

namespace {

using namespace Support;
using T = Table<48>;
using Value = T::Value;

constexpr char const* name = "meddled";

class Meddling : public ::testing::Test {
public:
    void poke(char const* file, std::size_t at, U32 word) const {
        Support::poke(pathOf(file), at, word);
    }
    U32 peek(char const* file, std::size_t at) const { return Support::peek(pathOf(file), at); }
    std::string pathOf(char const* file) const { return base_.path() + '/' + name + '/' + file; }

    // Takes a table of unsound ownership over in a child, which is meddled with at each store; what
    // the child told at its end.
    template <class Meddle>
    std::set<std::string> takingOver(Meddle meddle) {
        std::set<std::string> texts;
        for (bool more = true; more;) {
            {
                auto const writer = T::writer(name, Brisk::MapDescriptor(64));
                writer->initialize("test");
            }
            std::ofstream(pathOf("owner")) << "damaged";
            Child child([&](Child& self) {
                ::close(STDERR_FILENO);
                ::open(pathOf("told").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
                rlimit const noCore{0, 0};
                ::setrlimit(RLIMIT_CORE, &noCore);
                try {
                    self.tell(interrupted(
                        Mem::StepHooks::onStore, step_, [&] { meddle(*this); },
                        [] { T::writer(name, Brisk::MapDescriptor(64))->initialize("test"); }));
                } catch (Dunlin::InvalidInitializeException const& e) {
                    fmt::print(stderr, "{}\n", e.message());
                }
                return 0;
            });
            more = child.hear() != 0;
            int const code = child.join();
            // A build that counts what runs makes an exit of it (support/Flush.cpp).
            EXPECT_TRUE(code == 0 || code == 1000 + SIGABRT || code == 128 + SIGABRT) << code;
            std::ifstream told(pathOf("told"));
            for (std::string line; std::getline(told, line);)
                texts.insert(
                    std::regex_replace(line, std::regex("^.*:[0-9]+: (assertion failed: )?"), ""));
            ++step_;
        }
        EXPECT_GT(step_, 20U);
        return texts;
    }

    TempBase const base_;
    U32 step_ = 0;
};

TEST_F(Meddling, WithTheFilesOfANewGeneration) {
    auto const texts = takingOver([](Meddling& t) { t.poke("slots.new", 560, 17); });
    EXPECT_EQ(texts.count("failed validation"), 1U);
}

TEST_F(Meddling, WithTheIdThatWasJustMade) {
    auto const texts =
        takingOver([](Meddling& t) { t.poke("slots", 16, t.peek("slots", 16) + 0x10000); });
    EXPECT_EQ(texts.count("failed to attach to and validate new files"), 1U);
}

TEST_F(Meddling, WithTheOwnerFile) {
    auto const texts = takingOver([](Meddling& t) { t.poke("owner.new", 16, 1); });
    std::regex const expected("wrote to owner file but validation failed: .*/owner has bad crc .*");
    EXPECT_TRUE(std::any_of(texts.begin(), texts.end(),
                            [&](auto& text) { return std::regex_match(text, expected); }));
}

// The queue changes between the looks that a validation takes at it.
TEST_F(Meddling, WithTheQueueDuringAValidation) {
    Brisk::MapDescriptor descriptor(64);
    descriptor.pruneMode = Yarrow::PruneMode::keep; // a compaction drops tombstones alone
    auto const writer = T::writer(name, descriptor);
    ASSERT_TRUE(writer->initialize("test"));
    State ignored;
    for (U32 key = 0; key < 8; ++key) T::write(*writer, ignored, key, key);
    auto& queue = writer->queue();
    // Every text that a change of one entry's slot brings about, at any load of the validation.
    auto const findings = [&](char const* file, std::size_t at, U32 slot) {
        std::set<std::string> texts;
        U32 const old = peek(file, at);
        for (U32 step = 0;; ++step) {
            bool sound = false;
            bool const more = interrupted(
                Mem::StepHooks::onLoad, step, [&] { poke(file, at, slot); },
                [&] { sound = writer->validate(); });
            poke(file, at, old);
            if (!sound) texts.insert(writer->lastFinding());
            if (!more) return texts;
        }
    };
    U32 const position = queue.position(3);
    auto texts = findings("yarrow", 192 + 8 * position + 4, 0xffffffff);
    EXPECT_EQ(texts.count(fmt::format("active tombstone pos:{}", position)), 1U);

    // The last slot that a walk meets loses its entry behind the writer's back. A compaction then
    // leaves it out and gives its place to another; that one's entry becomes it again when it was
    // looked at already.
    U32 last = 0;
    Value value;
    Brisk::IterHint hint;
    for (bool more = writer->first(value, hint); more;
         more = writer->next(value.key(), value, hint))
        last = hint.slotIndex;
    U32 const stale = queue.position(last);
    poke("yarrow", 192 + 8 * stale + 4, 0xffffffff);
    for (U32 stamp = 0; queue.compactions() == 0; ++stamp)
        if (stamp % 8 != last) writer->write(Value(stamp % 8, stamp), true);
    ASSERT_EQ(queue.position(last), stale);
    ASSERT_LT(stale, queue.entryCount());
    ASSERT_LT(queue.entry(stale).slot, 8U);
    texts = findings("yarrow2", 128 + 8 * stale + 4, last);
    EXPECT_EQ(texts.count(fmt::format("slot:{} duplicate yarrow position:{}", last, stale)), 1U);
    writer->cleanup();
    writer->detach(false);
}

// Not meddled with, but starved.
TEST_F(Meddling, WithTheMemoryOfAValidation) {
#if defined(CAIRN_SANITIZED)
    GTEST_SKIP() << "a sanitizer ends the process that has no memory";
#endif
    Brisk::MapDescriptor descriptor(1 << 20);
    descriptor.fixedSize = true;
    auto const writer = Table<16>::writer(name, descriptor);
    ASSERT_TRUE(writer->initialize("test"));
    Child child([&](Child&) {
        rlimit const none{0, 0};
        ::setrlimit(RLIMIT_DATA, &none);
        return !writer->validate() && writer->lastFinding() == "n:1048576 unable to resize" ? 0 : 1;
    });
    EXPECT_EQ(child.join(), 0);
    EXPECT_TRUE(writer->validate());
    writer->cleanup();
    writer->detach(false);
}

} // namespace
