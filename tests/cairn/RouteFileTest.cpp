// Route files and command-line addresses: what is read, and where a fault is said to stand.
#include "RouteFile.h"
#include "Churn.h"
#include "tests/cairn/Recordings.h"

#include <gmock/gmock.h>

using namespace Cairn;
using namespace CairnTest;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

TEST(RouteFile, CsvTakesColumnsInAnyOrder) {
    auto const file = parseRouteFile("port,oifs,\"group\",label,iif,source\r\n"
                                     "1,eth2 eth1 eth2,239.1.1.1,\"a, \"\"b\"\"\",eth0,10.0.0.1\r\n"
                                     "\n"
                                     "2,,239.1.1.1,,,\n"
                                     "3,eth1,ff0e::1,,eth0,2001:db8::1\n"
                                     "4,eth1 eth2,239.1.1.1,again,eth0,10.0.0.1\n"
                                     "5,eth1,224.0.0.5,link-local,eth0,10.0.0.1\n",
                                     "t.csv");
    ASSERT_EQ(file.routes.size(), 3u);
    EXPECT_EQ(file.routes[0].name.source, address("10.0.0.1"));
    EXPECT_EQ(file.routes[0].iif, "eth0");
    EXPECT_THAT(file.routes[0].oifs, ElementsAre("eth1", "eth2"));
    EXPECT_EQ(sourceText(file.routes[1].name.source), "*");
    EXPECT_TRUE(isV4(file.routes[1].name.source));
    EXPECT_EQ(file.routes[1].iif, "");
    EXPECT_EQ(toText(file.routes[2].name.group), "ff0e::1");
    EXPECT_EQ(file.passedOver, 1u);
}

TEST(RouteFile, JsonOfIpIsRead) {
    auto const v4 = readRouteFile(recordingPath("smcroute-v4-truth.json"));
    auto const v6 = readRouteFile(recordingPath("smcroute-v6-truth.json"));
    EXPECT_GE(v4.routes.size(), 8u);
    EXPECT_GE(v6.routes.size(), 8u);
    EXPECT_EQ(v4.routes[0].name.vrf, "default");
    EXPECT_EQ(toText(v6.routes[0].name.group), "ff0e::1:1");
    EXPECT_THAT(v6.routes[0].oifs, ElementsAre("out0"));
    auto const odd = parseRouteFile(
        R"([{"src":"0.0.0.0","dst":"239.1.1.1","iif":"unresolved","state":"resolved","table":"100"},
            {"src":"1.2.3.4","dst":"239.1.1.1","iif":"unresolved","state":"unresolved"}])",
        "t.json");
    ASSERT_EQ(odd.routes.size(), 1u);
    EXPECT_EQ(odd.routes[0].name.vrf, "table-100");
    EXPECT_EQ(odd.routes[0].iif, "");
    EXPECT_EQ(odd.passedOver, 1u);
    EXPECT_TRUE(parseRouteFile(" []\n", "t").routes.empty());
}

TEST(RouteFile, FaultNamesFileLineAndReason) {
    std::string const head = "source,group,iif,oifs\n";
    struct {
        std::string text, fault;
    } const rows[] = {
        {"", "f:1: the file is empty"},
        {" \n", "f:1: the file is empty"},
        {"source,group,iif\n", "f:1: the header names no column \"oifs\""},
        {"source,group,iif,oifs,iif\n", "f:1: the header names the column \"iif\" twice"},
        {head + "10.0.0.1,239.1.1.1,eth0\n", "f:2: 3 fields where the header has 4"},
        {head + "\n10.0.0.256,239.1.1.1,,\n", "f:3: source \"10.0.0.256\" is not an IP address"},
        {head + "10.0.0.1,,,\n", "f:2: the route has no group"},
        {head + "10.0.0.1,10.0.0.2,,\n", "f:2: group 10.0.0.2 is not a multicast address"},
        {head + "239.0.0.1,239.1.1.1,,\n", "f:2: source 239.0.0.1 is a multicast address"},
        {head + "10.0.0.1,ff0e::1,,\n", "f:2: source 10.0.0.1 and group ff0e::1 are of two"},
        {head + "10.0.0.1,239.1.1.1,e\x01,\n", "is not the name of an interface"},
        {head + "10.0.0.1,239.1.1.1,\"eth0,\n", "f:2: a quoted field has no end on its line"},
        {head + ",239.1.1.1,a,\n,239.1.1.2,a,\n,239.1.1.1,b,\n",
         "f:4: (*,239.1.1.1) stands on line 2 with other interfaces"},
        {"[\n{\"dst\":\"239.1.1.1\"},\n{\"dst\":\"x\"}]", "f:3: dst \"x\" is not an IP address"},
        {"[\n{\"dst\":\"239.1.1.1\"},\n{\"dst\":5}]", "f:3: \"dst\" is not a text"},
        {"[\n\n{\"src\":\"10.0.0.1\"}]", "f:3: the route has no \"dst\""},
        {"[{\"dst\":\"239.1.1.1\",\n\"multipath\":7}]", "\"multipath\" is not an array"},
        {"[\n7]", "f:2: an entry of the array is not an object"},
        {"{}", "f:1: not an array of routes"},
        {"[\n{\"dst\":\n", "f:3: not JSON: "},
        {"[{\"dst\":\"239.1.1.1\",\"table\":[]}]", "\"table\" is not a text"},
        {"[{\"group\":\"239.1.1.1\",\"oifs\":7}]", "\"oifs\" is not an array"},
        {"[{\"group\":\"239.1.1.1\",\"oifs\":[7]}]", "an entry of \"oifs\" is not a text"},
        {"[{\"group\":\"239.1.1.1\",\"vrf\":\"a/b\"}]", "vrf \"a/b\" is not the name of a VRF"},
        {head + "10.0.0.1,\x1b[2J,,\n", "group \"\\x1b[2J\" is not an IP address"},
    };
    for (auto const& row : rows) {
        SCOPED_TRACE(row.text);
        try {
            parseRouteFile(row.text, "f");
            ADD_FAILURE() << "taken";
        } catch (RouteFileError const& e) {
            EXPECT_THAT(e.what(), HasSubstr(row.fault));
        }
    }
    EXPECT_THROW(readRouteFile("/nowhere/routes.csv"), RouteFileError);
    EXPECT_THROW(readRouteFile("/"), RouteFileError);
}

TEST(Churn, IsReproducibleAndKeepsMostRoutes) {
    std::vector<NamedRoute> routes;
    for (U8 i = 0; i < 200; ++i) {
        NamedRoute route;
        route.name.source = address("10.0.0.1");
        route.name.group = address("239.0.0." + std::to_string(i));
        route.iif = "eth0";
        route.oifs = {"eth1", "eth2"};
        routes.push_back(route);
    }
    Churn one(routes, 5), two(routes, 5), other(routes, 6);
    std::set<RouteChange::Kind> kinds;
    std::size_t differing = 0, mostAbsent = 0;
    for (int i = 0; i < 5000; ++i) {
        auto const change = one.next();
        EXPECT_EQ(change.route, two.next().route);
        differing += change.route != other.next().route;
        kinds.insert(change.kind);
        mostAbsent = std::max(mostAbsent, one.absent());
        EXPECT_TRUE(std::is_sorted(change.route.oifs.begin(), change.route.oifs.end()));
    }
    EXPECT_THAT(kinds, ElementsAre(RouteChange::Kind::present, RouteChange::Kind::gone));
    EXPECT_GT(differing, 4000u);
    EXPECT_GT(mostAbsent, 5u);
    EXPECT_LT(mostAbsent, 60u);
    EXPECT_EQ(Churn({}, 1).next().kind, RouteChange::Kind::gone);
}

TEST(IpAddress, PrefixesContainWhatTheyShould) {
    struct {
        char const *prefix, *in, *out;
    } const rows[] = {{"239.1.0.0/16", "239.1.255.255", "239.2.0.0"},
                      {"239.1.2.128/25", "239.1.2.200", "239.1.2.127"},
                      {"0.0.0.0/0", "255.1.2.3", "::1"},
                      {"ff0e::/15", "ff0f::1", "ff10::1"},
                      {"ff0e::1", "ff0e::1", "ff0e::2"}};
    for (auto const& row : rows) {
        SCOPED_TRACE(row.prefix);
        auto const prefix = parsePrefix(row.prefix);
        ASSERT_TRUE(prefix);
        EXPECT_TRUE(contains(*prefix, address(row.in)));
        EXPECT_FALSE(contains(*prefix, address(row.out)));
    }
    for (char const* bad : {"", "/8", "1.2.3/8", "1.2.3.4/33", "1.2.3.4/", "1.2.3.4/8x", "::/129",
                            "1.2.3.4/-1", "eth0"})
        EXPECT_FALSE(parsePrefix(bad)) << bad;
    EXPECT_FALSE(parseAddress(std::string_view("1.2.3.4\0x", 9)));
}
