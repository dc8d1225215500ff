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
    EXPECT_EQ(tool.run({"types", "McastVxlanTypes"}).exitCode, 1);
    auto const noModule = tool.run({"types", "mcastgroup"});
    EXPECT_EQ(noModule.exitCode, 2);
    EXPECT_THAT(noModule.err, HasSubstr("no module \"mcastgroup\"; there are "));
    EXPECT_THAT(noModule.err, HasSubstr("McastGroup"));
    EXPECT_THAT(tool.run({"type", "RouteKey"}).err,
                HasSubstr("Routing::Multicast::Fib::RouteKey\n"));
    auto const rpa = tool.run({"-j", "type", "Routing::Multicast::Fib::RpaIndex"}).json();
    EXPECT_EQ(rpa[1]["attribute"], "rpaDefault");
    EXPECT_EQ(rpa[2]["attribute"], "value");
    EXPECT_EQ(rpa[2]["inherited"], true);
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
    auto const target = tool.run({"-j", "value",
                                  "Value('MrouteLib::PortVlan', ** {'port': 'Vlan7', "
                                  "'outLif': 0, 'overlayVlanId': 5, "
                                  "'portProperty': 0})"})
                            .json();
    EXPECT_EQ(target[0]["port"], "'Vlan7'");
    EXPECT_EQ(target[0]["overlay_vlan_id"], 5);
    EXPECT_FALSE(target[0].contains("vlan_id")); // 0 is none
    auto const route = "Value('Routing::Multicast::Fib::IpGenRouteKey', ** {'kind': 'ethGroup', "
                       "'vlanId': 7, 'ethGroup': 01:00:5e:01:02:03})";
    EXPECT_EQ(tool.run({"value", route}).out, std::string(route) + "\n");
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
         "at character 48: kind: 65536 exceeds 65535"},
        {{"value", "--type", "Brisk::Multicast::Fib::OifIndex", "513"}, "at character 0"},
        {{"value", "Value('Routing::Multicast::Fib::IpGenRouteKey', ** {'kind': 'mroute'})"},
         "at character 68: wanted \", 's': \""},
        {{"value", "Value('Routing::Multicast::Fib::IpGenRouteKey', ** {'kind': 'vlanFloodset', "
                   "'vlanId': 4095})"},
         "at character 86: vlanId: Bridging::VlanId::value < 1 or > 4094 not allowed"},
        {{"value", "Value('Routing::Multicast::Fib::IpGenRouteKey', ** {'kind': 'none'})"},
         "at character 60: wanted a kind of route key"},
        {{"value", "Value('Routing::Multicast::Fib::IpGenRouteKey', ** {'kind': '\\mroute', "
                   "'s': 10.0.0.0/8, 'g': 239.1.1.1/32})"},
         "at character 60: wanted a kind of route key"},
        {{"value",
          fmt::format("Value('Routing::Multicast::Fib::IpGenRouteKey', ** {{'kind': 'mroute', 's': "
                      "10.0.0.0/{:070}, 'g': 239.1.1.1/32}})",
                      8)},
         "at character 75: wanted at most 63 characters"},
        {{"value", "--type", "Routing::Multicast::Fib::IpGenRouteKey", "10.0.0.0/8,1.1.1.1/33"},
         "at character 11: g: prefix length 33 exceeds 32"},
        {{"value", "--type", "Multicast::Group::Config", "x"}, "entity"},
        {{"value", "Value('MrouteLib::TunnelPortVlanSet', ** {'version': 0})"},
         "holds a collection"},
    };
    for (auto const& row : rows) {
        auto const result = tool.run(row.arguments);
        EXPECT_EQ(result.exitCode, 2) << row.error;
        EXPECT_THAT(result.err, HasSubstr(row.error));
        EXPECT_EQ(result.out, "");
    }
}

} // namespace
