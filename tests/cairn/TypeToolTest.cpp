// `cairn types`, `cairn type`, `cairn value` as their users meet them.
#include "tests/cairn/ToolRunner.h"

#include <gmock/gmock.h>

using namespace CairnTest;
using ::testing::HasSubstr;

namespace {

TEST(TypeTool, ListsAndShowsTypes) {
    ToolRunner const tool;
    auto const all = tool.run({"-j", "types"}).json();
    EXPECT_GE(all.size(), 40U);
    auto const group = tool.run({"-j", "types", "McastGroup"}).json();
    ASSERT_EQ(group.size(), 6U);
    EXPECT_EQ(group[0]["type"], "Multicast::Group::Config");
    EXPECT_EQ(group[0]["kind"], "entity");
    EXPECT_EQ(tool.run({"types", "NoSuchModule"}).exitCode, 1);
    auto const priority = tool.run({"-j", "type", "Routing::Multicast::Fib::RoutePriority"}).json();
    EXPECT_EQ(priority[0]["flags"], "wrapper");
    EXPECT_EQ(priority[1]["attribute"], "value");
    EXPECT_EQ(priority[1]["default"], 1);
    EXPECT_EQ(priority[8]["attribute"], "mcsPriority");
    EXPECT_EQ(priority[8]["value"], 255);
    auto const dir = tool.run({"-j", "type", "Brisk::Multicast::Fib::MfibDir"}).json();
    EXPECT_EQ(dir[0]["mount_path"], "routing/multicast/fib");
    EXPECT_EQ(dir[0]["mount_path6"], "routing6/multicast/fib");
    EXPECT_EQ(dir[1]["key"], "L3::VrfName");
    EXPECT_EQ(dir[2]["takes"], "af:Kelpie::AddressFamily");
    EXPECT_EQ(tool.run({"type", "Nowhere"}).exitCode, 2);
}

TEST(TypeTool, ReadsValuesOrSaysWhereTheyAreWrong) {
    ToolRunner const tool;
    std::string const text = "Value('Multicast::Group::GroupKey', ** {'kind': 19, 'index': 7})";
    EXPECT_EQ(tool.run({"value", text}).out, text + "\n");
    auto const json = tool.run({"-j", "value", text}).json();
    EXPECT_EQ(json[0]["kind"], 19);
    EXPECT_EQ(json[0]["index"], 7);
    EXPECT_EQ(tool.run({"value", "--type", "Kelpie::IpGenPrefix", "2001:DB8::0/32"}).out,
              "2001:db8::/32\n");
    struct {
        std::vector<std::string> arguments;
        char const* error;
    } const rows[] = {
        {{"value", "10.0.0.1"}, "at character 0"},
        {{"value", "Value('No::Type', ** {})"}, "at character 7"},
        {{"value", "Value('Multicast::Group::GroupKey', ** {'kind': 19, 'indx': 7})"},
         "at character 50: wanted \", 'index': \""},
        {{"value", "Value('Multicast::Group::GroupKey', ** {'kind': 65536, 'index': 7})"},
         "kind: 65536 exceeds 65535"},
        {{"value", "Value('Routing::Multicast::Fib::IpGenRouteKey', ** {'kind': 'mroute'})"},
         "at character 61"},
        {{"value", "--type", "Multicast::Group::Config", "x"}, "entity"},
    };
    for (auto const& row : rows) {
        auto const result = tool.run(row.arguments);
        EXPECT_EQ(result.exitCode, 2) << row.error;
        EXPECT_THAT(result.err, HasSubstr(row.error));
        EXPECT_EQ(result.out, "");
    }
}

} // namespace
