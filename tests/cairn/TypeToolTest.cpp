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

// A copy out of logical interface 7 in the attribute log, and the end mark of such copies.
std::string const portVlan = "0000000000000000 00000007 0000 00000000";
std::string const noPortVlan(36, '0');

TEST(TypeTool, ReadsLogBytesWithTheMembersOfCollections) {
    ToolRunner const tool;
    EXPECT_EQ(tool.run({"value", "--log", "0013 0007", "Multicast::Group::GroupKey"}).out,
              "Value('Multicast::Group::GroupKey', ** {'kind': 19, 'index': 7})\n");
    std::string const bytes = portVlan + " 01 " + noPortVlan +
                              " 00000001 000000ff 00000000 00000000 0005"
                              " 0007 01 0FA0 00 0000" // the VLANs to translate to
                              " 01 0000000000000000 " +
                              noPortVlan + " 00 01 00";
    auto const text = tool.run({"value", "--log", bytes, "MrouteLib::PortVlanSet"}).out;
    EXPECT_THAT(text, HasSubstr("'featureFlag': 255, "));
    EXPECT_THAT(text, HasSubstr("\nportVlan key Value('MrouteLib::PortVlan', ** {'port': '', "
                                "'outLif': 7, 'overlayVlanId': 0, 'portProperty': 0}) value yes\n"
                                "natVlan key 7 value yes\nnatVlan key 4000 value no\n"));
    auto const set = tool.run({"-j", "value", "--log", bytes, "MrouteLib::PortVlanSet"}).json()[0];
    using nlohmann::json;
    EXPECT_EQ(set["port_vlan"].size(), 1U);
    EXPECT_EQ(set["nat_vlan"], json::parse(R"([{"key": 7, "value": true},
                                               {"key": 4000, "value": false}])"));
    EXPECT_EQ(set["port_vlan_frr"], json::array());
    EXPECT_EQ(set["accepting_vlan_id"], 5);
    EXPECT_EQ(set["type"], "MrouteLib::PortVlanSet");
    EXPECT_EQ(set["type_attribute"], "'unknownRouteKeyType'");
    auto const coll = "Multicast::Tunnel::TunnelTable::McastTunnelEncapInfoColl";
    // A member is its key, then the value with its key again.
    auto const encap = tool.run({"-j", "value", "--log",
                                 "00000005 00000005 00000006 0000000000000000 ffffffff", coll})
                           .json()[0]["encap_info"];
    ASSERT_EQ(encap.size(), 1U);
    EXPECT_EQ(encap[0]["key"], 5);
    EXPECT_THAT(encap[0]["value"].get<std::string>(), HasSubstr("'outlifId': 6"));
    // A collection in a value in the value.
    auto const nested = tool.run({"-j", "value", "--log", "0000000000000009 01 " + bytes,
                                  "MrouteLib::TunnelPortVlanSet"})
                            .json()[0];
    EXPECT_EQ(nested["pv_set"][0]["nat_vlan"], set["nat_vlan"]);
    // What a tunnel of one kind lacks is left out.
    EXPECT_EQ(
        tool.run({"-j", "value", "--log", std::string(48, '0'), "Multicast::Tunnel::TunnelId"})
            .exitCode,
        0);
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
        {{"value", "Value('MrouteLib::PortVlanSet', ** {})"},
         "MrouteLib::PortVlanSet holds a collection, which has no text form"},
        {{"value", "--log", "001x", "Multicast::Group::GroupKey"},
         "at character 3: wanted a hexadecimal digit, found \"x\""},
        {{"value", "--log", "00 130", "Multicast::Group::GroupKey"},
         "at character 6: wanted the second digit of a byte"},
        {{"value", "--log", "001300", "Multicast::Group::GroupKey"},
         "Multicast::Group::GroupKey: after 0 of 3 bytes: attribute log ends: wanted 4 bytes, 3 "
         "are "
         "left"},
        {{"value", "--log", "0013000701", "Multicast::Group::GroupKey"},
         "after 4 of 5 bytes: the value ends, and bytes are left over"},
        {{"value", "--log", "0201", "Brisk::Multicast::Fib::OifIndex"}, "after 2 of 2 bytes: "},
        {{"value", "--log", (portVlan + " 01 ") + portVlan + "01", "MrouteLib::PortVlanSet"},
         "holds a key twice"},
        {{"value", "--log", "00", "Multicast::Group::Config"}, "entity"},
        {{"value", "--log", "00", "No::Type"}, "no type \"No::Type\""},
        {{"value", "--log", "00", "--type", "Multicast::Group::GroupKey", "x"}, "excludes"},
    };
    for (auto const& row : rows) {
        auto const result = tool.run(row.arguments);
        EXPECT_EQ(result.exitCode, 2) << row.error;
        EXPECT_THAT(result.err, HasSubstr(row.error));
        EXPECT_EQ(result.out, "");
    }
}

} // namespace
