// Each bit of a table's files flipped in turn, each file cut at each length, and what the fuzzer
// found before.
#include "tests/support/Child.h"
#include "tests/support/DamagedTable.h"
#include "tests/support/SharedBlock.h"
#include "tests/support/TempBase.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>

namespace {

using namespace Support;

struct Place {
    std::atomic<std::size_t> at;
};

// Tries `count` damages of one file in a child, which a hang ends too; says at which it died.
template <class Damage>
void tryAll(DamagedTable const& table, DamagedTable::File const& file, std::size_t count,
            Damage damage) {
    SharedBlock<Place> place;
    Child child([&](Child&) {
        for (std::size_t i = 0; i < count; ++i) {
            place->at = i;
            alarm(30);
            table.lay({{file.name, damage(i)}});
            table.tryOut();
        }
        return 0;
    });
    EXPECT_EQ(child.join(), 0) << file.name << ", damage " << place->at.load() << " (byte "
                               << place->at / 8 << ")";
}

class Damage : public ::testing::TestWithParam<char const*> {};

TEST_P(Damage, OfAnySingleBitEndsInANamedExceptionOrAResult) {
    TempBase const base;
    DamagedTable const table;
    U32 matching = 0;
    for (auto const& file : table.files()) {
        if (file.name != GetParam()) continue;
        ++matching;
        // What a table of this size uses stands at the front; behind it the queue is all zeros.
        std::size_t const bytes = std::min<std::size_t>(
            file.bytes.size(), file.name.starts_with("yarrow") ? 512 : 776 + 16 * 176);
        tryAll(table, file, 8 * bytes, [&](std::size_t bit) {
            std::string damaged = file.bytes;
            damaged[bit / 8] = static_cast<char>(damaged[bit / 8] ^ 1 << bit % 8);
            return damaged;
        });
        tryAll(table, file, bytes,
               [&](std::size_t length) { return file.bytes.substr(0, length); });
    }
    EXPECT_EQ(matching, 1U);
}
INSTANTIATE_TEST_SUITE_P(Files, Damage,
                         ::testing::Values("slots", "buckets", "yarrow", "yarrow2", "oriel",
                                           "owner"),
                         [](auto const& one) { return std::string(one.param); });

// Each input that the fuzzer once found something with, and a few of its kind.
TEST(Damage, OfTheFuzzersFindingsEndsLikewise) {
    TempBase const base;
    DamagedTable const table;
    U32 inputs = 0;
    for (auto const& entry : std::filesystem::directory_iterator(CORPUS_DIR)) {
        SCOPED_TRACE(entry.path());
        std::ifstream in(entry.path(), std::ios::binary);
        std::string const bytes{std::istreambuf_iterator<char>(in), {}};
        Child child([&](Child&) {
            alarm(30);
            table.lay(table.editsOf(reinterpret_cast<U8 const*>(bytes.data()), bytes.size()));
            table.tryOut();
            return 0;
        });
        EXPECT_EQ(child.join(), 0);
        ++inputs;
    }
    EXPECT_GT(inputs, 0U);
}

} // namespace
