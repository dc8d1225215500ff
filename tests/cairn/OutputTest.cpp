// Listings: lines that grep, JSON that always parses.
#include "Output.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

using namespace Cairn;

namespace {

std::string printed(bool json, std::vector<Row> const& rows, bool colour = false) {
    char* text = nullptr;
    std::size_t size = 0;
    std::FILE* const stream = open_memstream(&text, &size);
    {
        Listing listing(stream, json, colour);
        for (auto const& row : rows) listing.print(row);
    }
    std::fclose(stream);
    std::string result(text, size);
    std::free(text);
    return result;
}

Row sample() {
    Row row;
    row.add("source", std::string("10.0.0.1"), Row::Hue::address)
        .addEach("oif", "oifs", {"eth1", "eth2"})
        .addEach("none", "nones", {})
        .addJoined("flags", {"a", "b"})
        .add("version", U64{18446744073709551615u})
        .add("valid", true)
        .add("iif", std::string());
    return row;
}

} // namespace

TEST(Output, LinesRepeatEveryField) {
    EXPECT_EQ(printed(false, {sample()}), "source 10.0.0.1 oif eth1 oif eth2 none - flags a,b "
                                          "version 18446744073709551615 valid yes iif -\n");
    EXPECT_EQ(printed(false, {sample()}, true).substr(0, 24), "source \033[35m10.0.0.1\033[0m");
    EXPECT_EQ(printed(false, {}), "");
}

TEST(Output, JsonIsOneValidArrayOfFlatObjects) {
    EXPECT_EQ(printed(true, {}), "[]\n");
    auto const all = nlohmann::json::parse(printed(true, {sample(), sample()}));
    ASSERT_EQ(all.size(), 2u);
    EXPECT_EQ(all[1]["oifs"], (std::vector<std::string>{"eth1", "eth2"}));
    EXPECT_EQ(all[0]["nones"].size(), 0u);
    EXPECT_EQ(all[0]["flags"].size(), 2u);
    EXPECT_EQ(all[0]["version"], 18446744073709551615u);
    EXPECT_EQ(all[0]["valid"], true);
}

TEST(Output, NamesCannotSpeakToTheTerminal) {
    Row row;
    row.add("iif", std::string("e\033[2J\n\xff"));
    EXPECT_EQ(printed(false, {row}), "iif e\\x1b[2J\\x0a\xff\n");
    EXPECT_EQ(nlohmann::json::parse(printed(true, {row})).size(), 1u);
}
