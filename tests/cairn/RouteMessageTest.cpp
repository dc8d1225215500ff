// Decoding of rtnetlink: what was recorded from a live kernel reads as its description says, and
// damaged bytes read as nothing.
#include "RouteMessage.h"
#include "tests/cairn/Recordings.h"

#include <gtest/gtest.h>
#include <linux/rtnetlink.h>
#include <nlohmann/json.hpp>

#include <random>

using namespace Cairn;
using namespace CairnTest;
using Json = nlohmann::json;

namespace {

std::vector<KernelEvent> decodeAll(std::string const& name) {
    std::vector<KernelEvent> events;
    for (auto const& datagram : readDatagrams(name))
        EXPECT_TRUE(forEachMessage(datagram, [&](auto m) { events.push_back(decodeMessage(m)); }));
    return events;
}

void expectAsDescribed(KernelEvent const& event, Json const& words) {
    SCOPED_TRACE(words.dump());
    std::string const type = words["nlmsg"];
    if (type != "NEWROUTE" && type != "DELROUTE") {
        EXPECT_EQ(event.kind, KernelEvent::Kind::none);
        return;
    }
    EXPECT_EQ(event.kind,
              type == "NEWROUTE" ? KernelEvent::Kind::routeNew : KernelEvent::Kind::routeGone);
    auto const& route = event.route;
    EXPECT_EQ(toText(route.id.source), words["src"]);
    EXPECT_EQ(toText(route.id.group), words["dst"]);
    EXPECT_EQ(route.id.table, words["table"]);
    EXPECT_EQ(route.protocol, words["protocol"]);
    EXPECT_EQ(route.pending, (words["rtm_flags"].get<int>() & 0x20) != 0);
    EXPECT_EQ(route.iif, words.value("iif", 0u));
    std::vector<U32> oifs;
    for (auto const& hop : words.value("oifs", Json::array())) oifs.push_back(hop["oif"]);
    std::sort(oifs.begin(), oifs.end());
    EXPECT_EQ(route.oifs, oifs);
    EXPECT_EQ(route.packets, words.value("packets", U64{0}));
    EXPECT_EQ(route.bytes, words.value("bytes", U64{0}));
    EXPECT_EQ(route.idle, words.value("expires_raw", U64{0}));
}

} // namespace

TEST(RouteMessage, RecordedMessagesReadAsDescribed) {
    for (std::string const name :
         {"smcroute-netlink", "quirks-netlink", "smcroute-v4-dump", "smcroute-v6-dump"}) {
        SCOPED_TRACE(name);
        auto events = decodeAll(name + ".hex");
        auto const lines = readLines(name + ".jsonl");
        // A dump's datagrams end with NLMSG_DONE, which the description leaves out; the
        // description of a stream may go on behind the datagrams kept.
        ASSERT_GE(events.size(), 10u);
        std::size_t described = 0;
        for (auto const& event : events) {
            if (described == lines.size()) {
                EXPECT_EQ(event.kind, KernelEvent::Kind::none);
                continue;
            }
            expectAsDescribed(event, Json::parse(lines[described++]));
        }
    }
}

// Any cut and any changed byte gives a clean answer; the sanitizers watch the reads.
TEST(RouteMessage, DamagedBytesAreReadWithinBounds) {
    std::mt19937 random(7);
    for (std::string const name : {"smcroute-netlink.hex", "quirks-netlink.hex"})
        for (auto const& datagram : readDatagrams(name)) {
            for (std::size_t size = 0; size < datagram.size(); ++size) {
                std::vector<U8> const cut(datagram.begin(),
                                          datagram.begin() + static_cast<std::ptrdiff_t>(size));
                EXPECT_EQ(decodeMessage(cut).kind, KernelEvent::Kind::none);
                forEachMessage(cut, [](auto m) { decodeMessage(m); });
            }
            for (int round = 0; round < 500; ++round) {
                auto damaged = datagram;
                for (int n = 0; n < 3; ++n) damaged[random() % damaged.size()] = U8(random());
                forEachMessage(damaged, [](auto m) { decodeMessage(m); });
            }
        }
}

// A request that decodes as the route it asks for: the kernel reads the same attributes.
TEST(RouteMessage, RequestNamesTableAndKey) {
    for (RouteId const& id :
         {RouteId{253, address("10.0.0.1"), address("239.1.1.1")},
          RouteId{100, unspecifiedAddress(Kelpie::ipv4()), address("239.1.1.2")},
          RouteId{254, address("2001:db8::1"), address("ff0e::1")}}) {
        auto bytes = routeRequest(id, 5);
        auto* head = reinterpret_cast<nlmsghdr*>(bytes.data());
        EXPECT_EQ(head->nlmsg_type, RTM_GETROUTE);
        EXPECT_EQ(head->nlmsg_seq, 5u);
        head->nlmsg_type = RTM_NEWROUTE;
        EXPECT_EQ(decodeMessage(bytes).route.id, id);
    }
}
